// Fast merging.
//
// Step-by-step merging (ORDWELL/pettis_hansen_merge.cpp) says what happens; this file reaches the same end without the
// walks over the edge list and the chains. Merging u (survives) and v (removed) needs six things fast, each with a file
// of its own:
//
//     the heaviest edge                                   ORDWELL/fast_merge_queue.h
//     the best join of the two chains                     ORDWELL/fast_merge_chains.h
//     the edges of a group                                ORDWELL/fast_merge_incidence.h
//     the edge between two groups, if there is one        ORDWELL/fast_merge_edges.h
//     moving v's edges to the back of the creation order  ORDWELL/fast_merge_places.h
//     all this before it is waited for                    ORDWELL/fast_merge_lookahead.h
//
// The idea that they share: only the smaller side's edges are rewritten, whichever side survives. A group of merged
// functions keeps the storage and the coordinates of its larger part, and the index by which it survives is a label. An
// edge carries, beside its weight, the two sums that scoring a join needs.
//
// Example: hub has a thousand edges, and (a,hub) is chosen, so that a survives. a's few edges are rewritten as edges of
// hub's storage, which gets the label a; hub's own edges must go to the back of the creation order, and one stamp in
// hub does that for all of them.
//
// Cost. With E edges and F functions, O(E log F) entries of lists are looked at and written whatever the graph: an edge
// is rewritten when its side is the smaller one (the incidence lists tell how often that can be, the edges and the
// places what it brings with it), and each rewritten edge is queued once. On call graphs of real shape less than twice
// the edges are looked at. Sorting what moves and what is queued adds a factor log E, of comparisons. One thing is not
// bounded so: an edge whose place moved back since it was queued is queued again when it surfaces. Between two such
// surfacings one of its ends moved, and no edge before it was left, at its old place. On every shape that is measured
// (scripts/bench shapes) it happens to an edge less than once on average. A graph made for the purpose could bring it
// about for all edges of a hub at each of the hub's moves: folding would have to make, in each round, one chain of
// edges heavier than all these, which moves the hub and leaves one edge of their weight between its old place and its
// new one. Then E edges cost up to E x (number of rounds) entries of the queue.
//
// Most of the time goes into cache misses. So an edge is one record of 32 bytes, half a cache line, its first end
// standing first; a group with its chain and the first stretch of its edges is one cache line; and what a merge will
// touch is prefetched, of the side being rewritten, of the merges that will follow, and of the edge that has just
// become the heaviest.
#include "ORDWELL/fast_merge.h"

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_edges.h"
#include "ORDWELL/fast_merge_group.h"
#include "ORDWELL/fast_merge_incidence.h"
#include "ORDWELL/fast_merge_lookahead.h"
#include "ORDWELL/fast_merge_places.h"
#include "ORDWELL/fast_merge_queue.h"

namespace {

/// A live edge of the side that is rewritten.
struct rewritten_edge {
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour), where it is needed
    place at;                ///< where its order matters
};

class merger {
public:
    merger(std::size_t functions, huge_vector<call_edge> edges, hash_index pairs, std::uint32_t all_calls);
    function_layout run();
    merge_work work() const { return {incidence_.work(), pairs_.work(), places_.work(), queue_.work()}; }

private:
    void merge(std::uint32_t number);
    void collect_live_edges(std::uint32_t from, std::uint32_t kept);
    void fold_removed(std::uint32_t survivor, std::uint32_t removed);
    void fold_survivor(std::uint32_t survivor, std::uint32_t removed);
    void end_group(std::uint32_t from, std::uint32_t kept);
    void fold(std::uint32_t number, std::uint32_t into, std::uint32_t kept, std::uint32_t from);
    void rewrite_end(call_edge& e, std::uint32_t from, std::uint32_t kept) const;
    void choose_giant(std::uint32_t chosen, std::uint32_t ending);
    function_layout write_layout() const;

    huge_vector<group> groups_;
    huge_vector<call_edge> edges_;
    edges_by_pair pairs_;
    edge_places places_;
    edge_queue queue_;
    incidence_lists incidence_;
    chain_links links_;
    merge_lookahead lookahead_;
    coordinate_shift shift_; ///< in the merge under way, from the smaller side's coordinates to the larger's
    std::vector<rewritten_edge> rewritten_; ///< scratch of one merge: the smaller side's edges that are left
};

merger::merger(std::size_t functions, huge_vector<call_edge> edges, hash_index pairs, std::uint32_t all_calls)
    : groups_(functions), edges_(std::move(edges)), pairs_(edges_, std::move(pairs), functions),
      places_(edges_, groups_), queue_(edges_, all_calls), incidence_(edges_, groups_), links_(functions),
      lookahead_(queue_, edges_, groups_, incidence_, pairs_, links_) {
    std::uint32_t largest = 0;
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.names.head = g.names.tail = vertex;
        g.label = vertex;
        largest = g.edges.entries > groups_[largest].edges.entries ? vertex : largest;
    }
    if (!groups_.empty()) {
        choose_giant(largest, no_index);
    }
}

function_layout merger::run() {
    constexpr std::size_t cached_edges = std::size_t{1} << 16U; // more do not fit the second-level cache
    const bool is_large = edges_.size() > cached_edges;
    std::uint32_t heaviest = 0;
    while (queue_.take(heaviest, [this](std::uint32_t number) { return places_.of(number); })) {
        if (is_large) {
            lookahead_.prefetch_upcoming();
        }
        merge(heaviest);
    }
    edges_ = huge_vector<call_edge>(); // all gone: their room is the layout's
    return write_layout();
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    call_edge& joining = edges_[number];
    places_.settle_first_end(joining);
    const std::uint32_t survivor = joining.first_end();
    const std::uint32_t removed = joining.end[1];
    const std::uint32_t smaller = smaller_side(groups_, joining);
    const std::uint32_t larger = joining.other_end(smaller);
    incidence_.prefetch(groups_[smaller].edges);
    links_.join(groups_[survivor].names, groups_[removed].names, {joining.weight, joining.sums[0], joining.sums[1]});
    shift_ = coordinate_shift(groups_[smaller].names, groups_[larger].names);
    joining.weight = 0;
    groups_[larger].label = groups_[survivor].label;
    if (smaller == removed) {
        fold_removed(survivor, removed);
    } else {
        fold_survivor(survivor, removed);
    }
    end_group(smaller, larger);
}

// Fills rewritten_ with the live edges of a group that is about to become part of `kept`.
void merger::collect_live_edges(std::uint32_t from, std::uint32_t kept) {
    if (from == pairs_.giant() || groups_[kept].edges.entries / 2 > groups_[pairs_.giant()].edges.entries) {
        choose_giant(kept, from);
    }
    rewritten_.clear();
    visit_live(edges_, incidence_.edges_of(groups_[from].edges), [&](std::uint32_t number, const call_edge& e) {
        const std::uint32_t neighbour = e.other_end(from);
        rewritten_.push_back({number, neighbour, pairs_.prefetch(kept, neighbour), {}});
    });
    for (const rewritten_edge& r : rewritten_) {
        pairs_.prefetch_edge(kept, r.neighbour, r.hash);
    }
}

// Folds the edges of the removed vertex, the smaller side, into the survivor: they move to the back one by one.
void merger::fold_removed(std::uint32_t survivor, std::uint32_t removed) {
    collect_live_edges(removed, survivor);
    const auto folded = std::remove_if(rewritten_.begin(), rewritten_.end(), [&](rewritten_edge& r) {
        const std::uint32_t existing = pairs_.find(survivor, r.neighbour, r.hash);
        if (existing == no_index) {
            r.at = places_.of(r.number);
            return false;
        }
        fold(r.number, existing, survivor, removed);
        return true;
    });
    rewritten_.erase(folded, rewritten_.end());
    std::sort(rewritten_.begin(), rewritten_.end(),
              [](const rewritten_edge& a, const rewritten_edge& b) { return a.at < b.at; });
    for (const rewritten_edge& r : rewritten_) {
        rewrite_end(edges_[r.number], removed, survivor);
        places_.move_to_back(r.number, survivor);
        pairs_.insert(r.number, survivor, r.neighbour, r.hash);
    }
}

// Folds the edges of the survivor, the smaller side, into the removed vertex's storage. The removed vertex's edges move
// to the back all together; the survivor's keep their places.
void merger::fold_survivor(std::uint32_t survivor, std::uint32_t removed) {
    places_.move_all_to_back(removed, places_.has_moved(removed) ? std::span<const std::uint32_t>()
                                                                 : incidence_.edges_of(groups_[removed].edges));
    collect_live_edges(survivor, removed);
    const auto folded = std::remove_if(rewritten_.begin(), rewritten_.end(), [&](const rewritten_edge& r) {
        call_edge& e = edges_[r.number];
        places_.keep(r.number, survivor);
        const std::uint32_t existing = pairs_.find(removed, r.neighbour, r.hash);
        if (existing == no_index) {
            rewrite_end(e, survivor, removed);
            places_.note(r.number, removed);
            pairs_.insert(r.number, removed, r.neighbour, r.hash);
            return false;
        }
        // The survivor's edge lives on in the record of the other.
        edges_[existing].set_first_end(e.first_end() == survivor ? removed : r.neighbour);
        places_.copy(r.number, existing);
        fold(r.number, existing, removed, survivor);
        places_.note(existing, removed);
        places_.note(existing, r.neighbour);
        return true;
    });
    rewritten_.erase(folded, rewritten_.end());
}

// Makes the edges that are left of a group those of the kept one; the group is no more.
void merger::end_group(std::uint32_t from, std::uint32_t kept) {
    incidence_.attach(groups_[kept].edges, groups_[from].edges, rewritten_.size(),
                      [this](std::size_t i) { return rewritten_[i].number; });
    groups_[from].label = no_index;
    places_.forget(from);
}

// Folds an edge between `from` and a neighbour into the edge between `kept` and that neighbour.
void merger::fold(std::uint32_t number, std::uint32_t into, std::uint32_t kept, std::uint32_t from) {
    call_edge& gone = edges_[number];
    call_edge& e = edges_[into];
    const unsigned int gone_side = gone.side_of(from);
    const unsigned int side = e.side_of(kept);
    e.sums[side] += shift_.apply(gone.sums[gone_side], gone.weight);
    e.sums[1 - side] += gone.sums[1 - gone_side];
    e.weight = saturating_sum(e.weight, gone.weight);
    gone.weight = 0;
    queue_.forget(number);
    if (queue_.add(into, [this](std::uint32_t heavier) { return places_.of(heavier); })) { // likely to be merged next
        prefetch_line(&groups_[e.end[1 - side]]);
        links_.prefetch_name(e.end[1 - side]);
    }
}

// Makes `kept` the end of an edge instead of `from`, with which it now shares its chain.
void merger::rewrite_end(call_edge& e, std::uint32_t from, std::uint32_t kept) const {
    const unsigned int side = e.side_of(from);
    e.sums[side] = shift_.apply(e.sums[side], e.weight);
    e.end[side] = kept;
}

// Makes a group the giant. `ending`, about to be part of it, may be the former one.
void merger::choose_giant(std::uint32_t chosen, std::uint32_t ending) {
    if (const std::uint32_t former = pairs_.giant(); former != no_index) {
        pairs_.unset_giant(incidence_.edges_of(groups_[former].edges), former == ending);
    }
    pairs_.set_giant(chosen, incidence_.edges_of(groups_[chosen].edges));
}

// The chains in the order of the vertices by which they survived.
function_layout merger::write_layout() const {
    std::vector<std::uint32_t> group_of_label(groups_.size(), no_index);
    for (std::uint32_t g = 0; g < groups_.size(); ++g) {
        if (groups_[g].label != no_index) {
            group_of_label[groups_[g].label] = g;
        }
    }
    function_layout layout;
    layout.functions.reserve(groups_.size());
    for (const std::uint32_t g : group_of_label) {
        if (g != no_index) {
            links_.append_names(groups_[g].names, layout.functions);
            layout.chain_ends.push_back(static_cast<std::uint32_t>(layout.functions.size()));
        }
    }
    return layout;
}

} // namespace

function_layout merge_fast(call_profile& profile, bool takes_edges, merge_work* work) {
    hash_index pairs = profile.take_pair_index(); // first, since it may have to be made of the edges
    huge_vector<call_edge> edges =
        takes_edges ? profile.take_edges() : huge_vector<call_edge>(profile.edges().begin(), profile.edges().end());
    merger merging(profile.function_count(), std::move(edges), std::move(pairs), profile.all_calls());
    function_layout layout = merging.run();
    if (work != nullptr) {
        *work = merging.work();
    }
    return layout;
}
