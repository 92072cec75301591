// Fast merging.
//
// Step-by-step merging (ORDWELL/pettis_hansen_merge.cpp) says what happens; this file reaches the same end without the
// walks over the edge list and the chains. Merging u (survives) and v (removed) needs five things fast.
//
// 1. The heaviest edge: ORDWELL/fast_merge_queue.h.
//
// 2. The best join of the two chains: ORDWELL/fast_merge_chains.h. It needs the sums, over the calls between the two,
//    of weight x coordinate of the one name and of the other. An edge carries them beside its weight.
//
// 3. The edge between two groups, if there is one: ORDWELL/fast_merge_edges.h.
//
// 4. The folding. Only the smaller side's edges are rewritten, whichever side survives: a group of merged functions
//    keeps the storage and the coordinates of its larger part, and the index by which it survives is a label.
//
// 5. The places of the removed vertex's edges in creation order. They all go to the back in their old order, as new
//    edges whose first end is the survivor. Where v is the larger side they must not be touched one by one. So a place
//    is a pair,
//
//        (time of the last move to the back, sequence number),
//
//    and an edge can *follow* its first end, a group g: then its place is (the later of g's last move and its sequence
//    number, sequence number). When g moves to the back, one stamp in g moves all its followers, in their order.
//
//    The edges of g that do not follow it, its *strays*, are made followers then, each with a sequence number that
//    puts it where it stands among them. A stray that moved later than g did gets the time of that move: followers
//    that came to g since have later or earlier ones, and no two edges of g have the same, as there is one edge
//    between two groups. A stray older than g's last move stands before all followers, so it gets a number below all
//    of theirs.
//
//    An edge becomes a stray of g again only when its other end moves to the back, or when it comes with a smaller side
//    that survives. A group that has moved keeps a list of its strays; before that, every edge is looked at.
//
// Example, edges numbered (a,hub) 0, (b,hub) 1, (c,hub) 2 of equal weight: edge 0 is chosen, a survives, hub is
// larger. The edges 1 and 2 were strays of hub, since b and c are their first ends; they get the sequence numbers 1
// and 2 and follow hub, whose last move is 3. Their places are now (3, 1) and (3, 2): at the back, in order.
//
// Cost: a rewritten edge's side at least doubles, so O(edges x log functions) edges are rewritten; on call graphs of
// real shape it is less than twice the edges. Most of the time goes into cache misses. So an edge is one record of 32
// bytes, half a cache line, its first end standing first; a group with the first stretch of its edges is one cache
// line; times and sequence numbers are of 31 bits, which is asserted; and what a merge will touch is prefetched, of
// the side being rewritten, of the merges that will follow, and of the edge that has just become the heaviest. What
// is asked of the groups at the ends of edges, the moves, stands apart and is small enough for the caches.
#include "ORDWELL/fast_merge.h"

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_edges.h"
#include "ORDWELL/fast_merge_queue.h"
#include "support/assertion.h"
#include "support/huge_pages.h"
#include "support/memory.h"
#include "support/prefetch.h"

#include <cstdlib>
#include <memory>

namespace {

/// A stretch of the array of incident edges.
struct segment {
    std::uint32_t begin;
    std::uint32_t end;
    std::uint32_t next; ///< number of the next further segment; no_index: the last
};

/// Functions merged so far. It is named by the vertex whose storage it uses.
struct alignas(64) group {
    chain names;
    segment first = {0, 0, no_index};      ///< the first of the segments with its edges, those gone included
    std::uint32_t last_segment = no_index; ///< the last one; no_index: the first
    std::uint32_t entries = 0;             ///< edges in all its segments
    std::int32_t front_sequence = 0;       ///< no follower has a smaller sequence number
    std::uint32_t label = 0;               ///< the vertex by which it survives; no_index: it is part of another group
};
static_assert(sizeof(group) == 64);

/// The moves of a group. They are asked of the ends of edges, where nothing else of the group is: they stand apart.
struct group_moves {
    std::int32_t last = -1;          ///< when all its edges last moved to the back
    std::uint32_t strays = no_index; ///< index of its list of strays, once it has moved
};

/// A live edge of the side that is rewritten, or that moves.
struct moving_edge {
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour), where it is needed
    place at;                ///< where its order matters
};

class merger {
public:
    explicit merger(call_profile& profile);
    function_layout run();

private:
    void merge(std::uint32_t number);
    void prefetch_upcoming() const;
    std::span<const std::uint32_t> edges_of(std::uint32_t of);
    template <typename Visit>
    void visit_live(std::span<const std::uint32_t> numbers, Visit visit) const;
    void collect_live_edges(std::uint32_t from, std::uint32_t kept);
    void fold_removed(std::uint32_t survivor, std::uint32_t removed);
    void fold_survivor(std::uint32_t survivor, std::uint32_t removed);
    void move_to_back(std::uint32_t moving);
    void attach(std::uint32_t kept, std::uint32_t from);
    void fold(edge& gone, std::uint32_t into, std::uint32_t kept, std::uint32_t from);
    void rewrite_end(edge& e, std::uint32_t from, std::uint32_t kept) const;
    void choose_giant(std::uint32_t chosen);
    void note_stray(std::uint32_t number, std::uint32_t of);
    function_layout write_layout() const;

    place place_of(std::uint32_t number) const {
        const edge& e = edges_[number];
        const std::int32_t sequence = e.sequence();
        return {e.follows() ? std::max(moves_[e.first_end()].last, sequence) : moved_[number], sequence};
    }
    void set_place(std::uint32_t number, place at) {
        edges_[number].order = edge::order_of(at.sequence, false);
        moved_[number] = at.moved;
    }
    /// The side whose edges will be rewritten when an edge's ends are merged.
    std::uint32_t smaller_side(const edge& e) const {
        return groups_[e.end[0]].entries < groups_[e.end[1]].entries ? e.end[0] : e.end[1];
    }
    queue_entry present(std::uint32_t number) const { return {edges_[number].weight, number, place_of(number)}; }
    std::int32_t next_time();
    template <typename Visit>
    void visit_segments(const group& g, Visit visit) const;

    huge_vector<group> groups_;
    huge_vector<group_moves> moves_; ///< by group
    huge_vector<edge> edges_;
    edges_by_pair pairs_;
    /// When each edge that follows no one last moved; for others without meaning. Its pages exist only where it is
    /// used.
    std::unique_ptr<std::int32_t[], void (*)(void*)> moved_;
    edge_queue queue_;
    huge_vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;       ///< those that are not a group's first
    std::vector<std::vector<std::uint32_t>> strays_;
    chain_links links_;
    std::int32_t clock_;                ///< the next unused time and sequence number
    coordinate_shift shift_;            ///< in the merge under way, from the smaller side's coordinates to the larger's
    std::vector<std::uint32_t> listed_; ///< scratch of one merge: edges of a side, those gone included
    std::vector<moving_edge> moving_;   ///< the same: those that are left
};

merger::merger(call_profile& profile)
    : groups_(profile.function_count()), moves_(groups_.size()), pairs_(profile, edges_),
      moved_(static_cast<std::int32_t*>(safecalloc(profile.edges().size() + 1, sizeof(std::int32_t))), std::free),
      queue_(profile.edges()), links_(groups_.size()), clock_(static_cast<std::int32_t>(profile.edges().size())) {
    const std::span<const call_edge> read = profile.edges();
    internal_assert(read.size() < order_limit, "ORDWELL/fast_merge", "merger", "edge count < 2^30");
    edges_.reserve(read.size());
    std::vector<std::uint32_t> ends(groups_.size()); // of the groups' stretches; counted, then added up
    for (const call_edge& e : read) {
        const auto number = static_cast<std::int32_t>(edges_.size());
        edges_.push_back({{e.first, e.second}, e.weight, edge::order_of(number, true), {}});
        ++ends[e.first];
        ++ends[e.second];
    }
    std::uint32_t begin = 0;
    std::uint32_t largest = 0;
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.names.head = g.names.tail = vertex;
        g.label = vertex;
        g.entries = std::exchange(ends[vertex], begin);
        g.first = {begin, begin + g.entries, no_index};
        begin += g.entries;
        largest = g.entries > groups_[largest].entries ? vertex : largest;
    }
    incident_.reserve(std::size_t{begin} + begin / 16); // attach() adds few
    incident_.resize(begin);
    for (std::uint32_t number = 0; number < read.size(); ++number) {
        incident_[ends[read[number].first]++] = number;
        incident_[ends[read[number].second]++] = number;
    }
    if (!groups_.empty()) {
        choose_giant(largest);
    }
}

// The next time or sequence number.
std::int32_t merger::next_time() {
    internal_assert(clock_ < order_limit - 1, "ORDWELL/fast_merge", "next_time", "time < 2^30");
    return clock_++;
}

// Visits the segments of a group in their order.
template <typename Visit>
void merger::visit_segments(const group& g, Visit visit) const {
    visit(g.first);
    for (std::uint32_t s = g.first.next; s != no_index; s = segments_[s].next) {
        visit(segments_[s]);
    }
}

function_layout merger::run() {
    constexpr std::size_t cached_edges = std::size_t{1} << 16U; // more do not fit the second-level cache
    const bool is_large = edges_.size() > cached_edges;
    std::uint32_t heaviest = 0;
    while (queue_.take(
        heaviest, [this](std::uint32_t number) { return present(number); },
        [this](std::uint32_t number) { prefetch_line(&edges_[number]); })) {
        if (is_large && queue_.has_advanced()) {
            prefetch_upcoming();
        }
        merge(heaviest);
    }
    return write_layout();
}

// Each merge follows pointers through memory that is not cached. What the next ones will most probably follow is
// known: it is fetched in stages, one step of the pointer chase in each merge that passes.
void merger::prefetch_upcoming() const {
    constexpr std::uint32_t most_edges = 12; // of a side; few have more
    const auto with_upcoming = [this](std::size_t distance, auto action) {
        if (const std::uint32_t number = queue_.upcoming(distance); number != no_index) {
            action(edges_[number]);
        }
    };
    const auto with_smaller_sides_edges = [this](const edge& e, auto action) {
        const segment& stretch = groups_[smaller_side(e)].first;
        for (std::uint32_t i = stretch.begin; i < std::min(stretch.end, stretch.begin + most_edges); ++i) {
            action(incident_[i]);
        }
    };
    with_upcoming(9, [](const edge& e) { prefetch_line(&e); });
    with_upcoming(7, [this](const edge& e) {
        prefetch_line(&groups_[e.end[0]]);
        prefetch_line(&groups_[e.end[1]]);
    });
    with_upcoming(5, [&](const edge& e) {
        if (const segment& stretch = groups_[smaller_side(e)].first; stretch.begin < stretch.end) {
            prefetch_line(&incident_[stretch.begin]);
        }
        links_.prefetch(groups_[e.end[0]].names);
        links_.prefetch(groups_[e.end[1]].names);
    });
    with_upcoming(4, [&](const edge& e) {
        with_smaller_sides_edges(e, [this](std::uint32_t number) { prefetch_line(&edges_[number]); });
    });
    // The pairs of groups into whose edges those of the smaller side will be folded.
    const auto with_pairs = [&](const edge& e, auto action) {
        const std::uint32_t from = smaller_side(e);
        const std::uint32_t kept = e.other_end(from);
        with_smaller_sides_edges(e, [&](std::uint32_t number) {
            if (edges_[number].weight != 0) {
                action(kept, edges_[number].other_end(from));
            }
        });
    };
    with_upcoming(2, [&](const edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) { pairs_.prefetch(kept, neighbour); });
    });
    with_upcoming(1, [&](const edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) {
            pairs_.prefetch_edge(kept, neighbour, pairs_.hash(kept, neighbour));
        });
    });
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    edge& joining = edges_[number];
    const std::uint32_t survivor = joining.first_end();
    const std::uint32_t removed = joining.end[1];
    const std::uint32_t smaller = smaller_side(joining);
    prefetch_line(incident_.data() + groups_[smaller].first.begin);
    links_.join(groups_[survivor].names, groups_[removed].names, {joining.weight, joining.sums[0], joining.sums[1]});
    shift_ = coordinate_shift(groups_[smaller].names, groups_[joining.other_end(smaller)].names);
    joining.weight = 0;
    if (smaller == removed) {
        fold_removed(survivor, removed);
    } else {
        groups_[removed].label = groups_[survivor].label;
        fold_survivor(survivor, removed);
    }
}

// The edges of a group, those gone included; valid until the next call and until edges are attached.
std::span<const std::uint32_t> merger::edges_of(std::uint32_t of) {
    const segment& first = groups_[of].first;
    if (first.next == no_index) {
        return std::span(incident_).subspan(first.begin, first.end - first.begin);
    }
    listed_.clear();
    visit_segments(groups_[of], [this](const segment& s) {
        listed_.insert(listed_.end(), incident_.begin() + s.begin, incident_.begin() + s.end);
    });
    return listed_;
}

// Visits those of some edges that are not gone.
template <typename Visit>
void merger::visit_live(std::span<const std::uint32_t> numbers, Visit visit) const {
    constexpr std::size_t distance = 24; // edges between prefetch and use
    for (const std::uint32_t number : numbers.first(std::min(distance, numbers.size()))) {
        prefetch_line(&edges_[number]);
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i + distance < numbers.size()) {
            prefetch_line(&edges_[numbers[i + distance]]);
        }
        if (const edge& e = edges_[numbers[i]]; e.weight != 0) {
            visit(numbers[i], e);
        }
    }
}

// Fills moving_ with the live edges of a group that is about to become part of `kept`.
void merger::collect_live_edges(std::uint32_t from, std::uint32_t kept) {
    if (from == pairs_.giant() || groups_[kept].entries / 2 > groups_[pairs_.giant()].entries) {
        choose_giant(kept);
    }
    moving_.clear();
    visit_live(edges_of(from), [&](std::uint32_t number, const edge& e) {
        const std::uint32_t neighbour = e.other_end(from);
        moving_.push_back({number, neighbour, pairs_.prefetch(kept, neighbour), {}});
    });
    for (const moving_edge& m : moving_) {
        pairs_.prefetch_edge(kept, m.neighbour, m.hash);
    }
}

// Folds the edges of the removed vertex, the smaller side, into the survivor: they move to the back one by one.
void merger::fold_removed(std::uint32_t survivor, std::uint32_t removed) {
    collect_live_edges(removed, survivor);
    const auto folded = std::remove_if(moving_.begin(), moving_.end(), [&](moving_edge& m) {
        const std::uint32_t existing = pairs_.find(survivor, m.neighbour, m.hash);
        if (existing == no_index) {
            m.at = place_of(m.number);
            return false;
        }
        fold(edges_[m.number], existing, survivor, removed);
        return true;
    });
    moving_.erase(folded, moving_.end());
    std::sort(moving_.begin(), moving_.end(), [](const moving_edge& a, const moving_edge& b) { return a.at < b.at; });
    for (const moving_edge& m : moving_) {
        edge& e = edges_[m.number];
        if (!e.is_stray_of(m.neighbour)) {
            note_stray(m.number, m.neighbour);
        }
        rewrite_end(e, removed, survivor);
        e.set_first_end(survivor);
        e.order = edge::order_of(next_time(), true);
        pairs_.insert(m.number, survivor, m.neighbour, m.hash);
    }
    attach(survivor, removed);
}

// Folds the edges of the survivor, the smaller side, into the removed vertex's storage. The removed vertex's edges move
// to the back all together; the survivor's keep their places.
void merger::fold_survivor(std::uint32_t survivor, std::uint32_t removed) {
    move_to_back(removed);
    collect_live_edges(survivor, removed);
    const auto folded = std::remove_if(moving_.begin(), moving_.end(), [&](const moving_edge& m) {
        edge& e = edges_[m.number];
        const bool was_first = e.first_end() == survivor;
        if (was_first) { // it follows no one now: the last move of its new first end is not its own
            set_place(m.number, place_of(m.number));
        }
        const std::uint32_t existing = pairs_.find(removed, m.neighbour, m.hash);
        if (existing == no_index) {
            rewrite_end(e, survivor, removed);
            note_stray(m.number, removed);
            pairs_.insert(m.number, removed, m.neighbour, m.hash);
            return false;
        }
        // The survivor's edge lives on in the record of the other.
        edge& kept = edges_[existing];
        kept.set_first_end(was_first ? removed : m.neighbour);
        kept.order = e.order;
        if (!e.follows()) {
            moved_[existing] = moved_[m.number];
        }
        fold(e, existing, removed, survivor);
        note_stray(existing, removed);
        if (kept.is_stray_of(m.neighbour)) {
            note_stray(existing, m.neighbour);
        }
        return true;
    });
    moving_.erase(folded, moving_.end());
    attach(removed, survivor);
}

// Moves all edges of a group to the back in their order, as edges whose first end it is.
void merger::move_to_back(std::uint32_t moving) {
    group& g = groups_[moving];
    group_moves& moves = moves_[moving];
    std::span<const std::uint32_t> look_at;
    if (moves.strays == no_index) { // its first move: look at all its edges
        look_at = edges_of(moving);
        moves.strays = static_cast<std::uint32_t>(strays_.size());
        strays_.emplace_back();
    } else {
        listed_ = std::exchange(strays_[moves.strays], {});
        look_at = listed_;
    }
    moving_.clear();
    visit_live(look_at, [&](std::uint32_t number, const edge& e) {
        if (e.is_stray_of(moving)) {
            moving_.push_back({number, e.other_end(moving), 0, place_of(number)});
        }
    });
    // The youngest first, so that sequence numbers before all others can be handed out downwards.
    std::sort(moving_.begin(), moving_.end(), [](const moving_edge& a, const moving_edge& b) { return a.at > b.at; });
    for (const moving_edge& m : moving_) {
        edge& e = edges_[m.number];
        if (!e.is_stray_of(moving)) {
            continue; // listed twice
        }
        if (!e.is_stray_of(m.neighbour)) {
            note_stray(m.number, m.neighbour);
        }
        e.set_first_end(moving);
        e.order = edge::order_of(m.at.moved > moves.last ? m.at.moved : --g.front_sequence, true);
    }
    internal_assert(g.front_sequence > -order_limit, "ORDWELL/fast_merge", "move_to_back", "sequence > -2^30");
    moves.last = next_time();
}

// Hangs the edges that are left in moving_ on to the kept group; the other group is no more.
void merger::attach(std::uint32_t kept, std::uint32_t from) {
    group& g = groups_[kept];
    if (!moving_.empty()) {
        // Most often they fit where the edges of the other group began; few go to the end of the array.
        std::uint32_t begin = groups_[from].first.begin;
        if (moving_.size() > groups_[from].first.end - begin) {
            internal_assert(incident_.size() + moving_.size() < no_index, "ORDWELL/fast_merge", "attach",
                            "incidences < 2^32 - 1");
            begin = static_cast<std::uint32_t>(incident_.size());
            incident_.resize(begin + moving_.size());
        }
        std::uint32_t end = begin;
        for (const moving_edge& m : moving_) {
            incident_[end++] = m.number;
        }
        const auto added = static_cast<std::uint32_t>(segments_.size());
        segments_.push_back({begin, end, no_index});
        (g.last_segment == no_index ? g.first : segments_[g.last_segment]).next = added;
        g.last_segment = added;
        g.entries += static_cast<std::uint32_t>(moving_.size());
    }
    groups_[from].label = no_index;
    if (moves_[from].strays != no_index) {
        strays_[moves_[from].strays] = {};
    }
}

// Folds an edge between `from` and a neighbour into the edge between `kept` and that neighbour.
void merger::fold(edge& gone, std::uint32_t into, std::uint32_t kept, std::uint32_t from) {
    edge& e = edges_[into];
    const unsigned int gone_side = gone.side_of(from);
    const unsigned int side = e.side_of(kept);
    e.sums[side] += shift_.apply(gone.sums[gone_side], gone.weight);
    e.sums[1 - side] += gone.sums[1 - gone_side];
    e.weight = saturating_sum(e.weight, gone.weight);
    gone.weight = 0;
    if (queue_.add(into, e.weight, [&] { return place_of(into); })) { // likely to be merged next
        prefetch_line(&groups_[e.end[1 - side]]);
        links_.prefetch_name(e.end[1 - side]);
    }
}

// Makes `kept` the end of an edge instead of `from`, with which it now shares its chain.
void merger::rewrite_end(edge& e, std::uint32_t from, std::uint32_t kept) const {
    const unsigned int side = e.side_of(from);
    e.sums[side] = shift_.apply(e.sums[side], e.weight);
    e.end[side] = kept;
}

// Makes a group the giant. The next one will have twice the edges, so this costs little.
void merger::choose_giant(std::uint32_t chosen) {
    const auto insert_edges_of = [this](std::uint32_t of) {
        visit_live(edges_of(of), [&](std::uint32_t number, const edge& e) {
            pairs_.insert(number, of, e.other_end(of), hash_of_pair(of, e.other_end(of)));
        });
    };
    const std::uint32_t former = pairs_.set_giant(chosen);
    if (former != no_index) {
        insert_edges_of(former);
    }
    insert_edges_of(chosen);
}

// Lists an edge that does not follow a group among its strays, if it keeps such a list.
void merger::note_stray(std::uint32_t number, std::uint32_t of) {
    if (moves_[of].strays != no_index) {
        strays_[moves_[of].strays].push_back(number);
    }
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

function_layout merge_fast(call_profile& profile) {
    return merger(profile).run();
}
