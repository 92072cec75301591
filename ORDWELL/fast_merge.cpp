// Fast merging.
//
// Step-by-step merging (ORDWELL/pettis_hansen_merge.cpp) says what happens; this file reaches the same end without the
// walks over the edge list and the chains. Merging u (survives) and v (removed) needs four things fast.
//
// 1. The heaviest edge: ORDWELL/fast_merge_queue.h.
//
// 2. The best join of the two chains: ORDWELL/fast_merge_chains.h. It needs the sums, over the calls between the two,
//    of weight x coordinate of the one name and of the other. An edge carries them beside its weight.
//
// 3. The folding. Only the smaller side's edges are rewritten, whichever side survives: a group of merged functions
//    keeps the storage and the coordinates of its larger part, and the index by which it survives is a label.
//
// 4. The places of the removed vertex's edges in creation order. They all go to the back in their old order, as new
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
// bytes, half a cache line, its first end standing first; a group with the first stretch of its edges is one cache line;
// times and sequence numbers are of 31 bits, which is asserted; and the records of a side are prefetched before they are
// used. Only when the last move of an edge that follows no one happened stands apart: few edges ever need it.
#include "ORDWELL/fast_merge.h"

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_queue.h"
#include "support/assertion.h"
#include "support/huge_pages.h"
#include "support/memory.h"

#include <cstdlib>
#include <memory>

namespace {

/// An edge between two groups.
struct edge {
    std::array<std::uint32_t, 2> end;  ///< groups, the first end first
    std::uint32_t weight;              ///< 0: the edge is gone, into another edge or inside a chain
    std::uint32_t order;               ///< 31 bits of the sequence number, one that says whether it follows
    std::array<std::uint64_t, 2> sums; ///< at each end, the sum of weight x coordinate, modulo 2^64

    unsigned int side_of(std::uint32_t group) const { return end[1] == group ? 1 : 0; }
    std::uint32_t other_end(std::uint32_t group) const { return end[1 - side_of(group)]; }
    std::uint32_t first_end() const { return end[0]; }
    void set_first_end(std::uint32_t group) {
        if (end[0] != group) {
            std::swap(end[0], end[1]);
            std::swap(sums[0], sums[1]);
        }
    }
    /// The sequence number of its place.
    std::int32_t sequence() const { return static_cast<std::int32_t>(order) >> 1; }
    /// Whether the edge follows its first end.
    bool follows() const { return (order & 1U) != 0; }
    static std::uint32_t order_of(std::int32_t sequence, bool follows) {
        return static_cast<std::uint32_t>(sequence) << 1U | (follows ? 1U : 0U);
    }
    bool is_stray_of(std::uint32_t group) const { return !follows() || first_end() != group; }
};
static_assert(sizeof(edge) == 32);

/// Times and sequence numbers stay between the negative of this and this.
constexpr std::int32_t order_limit = 1 << 30;

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
    std::int32_t last_move = -1;           ///< when all its edges last moved to the back
    std::int32_t front_sequence = 0;       ///< no follower has a smaller sequence number
    std::uint32_t label = 0;               ///< the vertex by which it survives; no_index: it is part of another group
    std::uint32_t strays = no_index;       ///< index of its list of strays, once it has moved
};
static_assert(sizeof(group) == 64);

/// A live edge of the side that is rewritten, or that moves.
struct moving_edge {
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour)
    place at;                ///< where its order matters
};

class merger {
public:
    explicit merger(call_profile& profile);
    function_layout run();

private:
    void merge(std::uint32_t number);
    void prefetch_upcoming() const;
    void collect_live_edges(std::uint32_t from, std::uint32_t kept);
    void fold_removed(std::uint32_t survivor, std::uint32_t removed);
    void fold_survivor(std::uint32_t survivor, std::uint32_t removed);
    void move_to_back(std::uint32_t moving);
    void attach(std::uint32_t kept, std::uint32_t from);
    void fold(edge& gone, std::uint32_t into, std::uint32_t kept, std::uint32_t from);
    void rewrite_end(edge& e, std::uint32_t from, std::uint32_t kept) const;
    std::uint32_t edge_between(std::uint32_t a, std::uint32_t b, std::uint32_t hash) const;
    void index_edge(std::uint32_t number, std::uint32_t hash);
    void note_stray(std::uint32_t number, std::uint32_t of);
    function_layout write_layout() const;

    place place_of(std::uint32_t number) const {
        const edge& e = edges_[number];
        const std::int32_t sequence = e.sequence();
        return {e.follows() ? std::max(groups_[e.first_end()].last_move, sequence) : moved_[number], sequence};
    }
    void set_place(std::uint32_t number, place at) {
        edges_[number].order = edge::order_of(at.sequence, false);
        moved_[number] = at.moved;
    }
    queue_entry present(std::uint32_t number) const { return {edges_[number].weight, number, place_of(number)}; }
    std::int32_t next_time();
    template <typename Visit>
    void visit_segments(const group& g, Visit visit) const;

    hash_index pairs_; ///< from pairs of groups to edges; entries of former groups are useless
    huge_vector<group> groups_;
    huge_vector<edge> edges_;
    /// When each edge that follows no one last moved; for others without meaning. Its pages exist only where it is used.
    std::unique_ptr<std::int32_t[], void (*)(void*)> moved_;
    edge_queue queue_;
    huge_vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;       ///< those that are not a group's first
    std::vector<std::vector<std::uint32_t>> strays_;
    chain_links links_;
    std::int32_t clock_;                ///< the next unused time and sequence number
    std::vector<std::uint32_t> listed_; ///< scratch of one merge: edges of a side, those gone included
    std::vector<moving_edge> moving_;   ///< the same: those that are left
};

// The index with room for the pairs that folding adds.
hash_index with_room(hash_index pairs, std::size_t edges) {
    pairs.reserve(edges + edges / 2);
    return pairs;
}

merger::merger(call_profile& profile)
    : pairs_(with_room(profile.take_pair_index(), profile.edges().size())), groups_(profile.function_count()),
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
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.names.head = g.names.tail = vertex;
        g.label = vertex;
        g.entries = std::exchange(ends[vertex], begin);
        g.first = {begin, begin + g.entries, no_index};
        begin += g.entries;
    }
    incident_.reserve(std::size_t{begin} + begin / 16); // attach() adds few
    incident_.resize(begin);
    for (std::uint32_t number = 0; number < read.size(); ++number) {
        incident_[ends[read[number].first]++] = number;
        incident_[ends[read[number].second]++] = number;
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
    std::uint32_t heaviest = 0;
    while (queue_.take(
        heaviest, [this](std::uint32_t number) { return present(number); },
        [this](std::uint32_t number) { __builtin_prefetch(&edges_[number]); })) {
        prefetch_upcoming();
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
    const auto smaller_side = [this](const edge& e) {
        return groups_[e.end[0]].entries < groups_[e.end[1]].entries ? e.end[0] : e.end[1];
    };
    const auto with_smaller_sides_edges = [&](const edge& e, auto action) {
        const segment& stretch = groups_[smaller_side(e)].first;
        for (std::uint32_t i = stretch.begin; i < std::min(stretch.end, stretch.begin + most_edges); ++i) {
            action(incident_[i]);
        }
    };
    with_upcoming(9, [](const edge& e) { __builtin_prefetch(&e); });
    with_upcoming(7, [this](const edge& e) {
        __builtin_prefetch(&groups_[e.end[0]]);
        __builtin_prefetch(&groups_[e.end[1]]);
    });
    with_upcoming(5, [&](const edge& e) {
        if (const segment& stretch = groups_[smaller_side(e)].first; stretch.begin < stretch.end) {
            __builtin_prefetch(&incident_[stretch.begin]);
        }
        links_.prefetch(groups_[e.end[0]].names);
        links_.prefetch(groups_[e.end[1]].names);
    });
    with_upcoming(4, [&](const edge& e) {
        with_smaller_sides_edges(e, [this](std::uint32_t number) { __builtin_prefetch(&edges_[number]); });
    });
    const auto with_hashes = [&](const edge& e, auto action) { // of the pairs into which the edges will be folded
        const std::uint32_t from = smaller_side(e);
        const std::uint32_t kept = e.other_end(from);
        with_smaller_sides_edges(e, [&](std::uint32_t number) {
            if (edges_[number].weight != 0) {
                action(hash_of_pair(kept, edges_[number].other_end(from)));
            }
        });
    };
    with_upcoming(2, [&](const edge& e) { with_hashes(e, [this](std::uint32_t hash) { pairs_.prefetch(hash); }); });
    with_upcoming(1, [&](const edge& e) {
        with_hashes(e, [this](std::uint32_t hash) {
            pairs_.find(hash, [this](std::uint32_t existing) {
                __builtin_prefetch(&edges_[existing]);
                return true;
            });
        });
    });
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    edge& joining = edges_[number];
    const std::uint32_t survivor = joining.first_end();
    const std::uint32_t removed = joining.end[1];
    links_.join(groups_[survivor].names, groups_[removed].names, {joining.weight, joining.sums[0], joining.sums[1]});
    joining.weight = 0;
    if (groups_[survivor].entries >= groups_[removed].entries) {
        fold_removed(survivor, removed);
    } else {
        groups_[removed].label = groups_[survivor].label;
        fold_survivor(survivor, removed);
    }
}

// Fills moving_ with the live edges of a group that is about to become part of `kept`.
void merger::collect_live_edges(std::uint32_t from, std::uint32_t kept) {
    constexpr std::size_t distance = 24; // edges between prefetch and use
    listed_.clear();
    visit_segments(groups_[from], [this](const segment& s) {
        listed_.insert(listed_.end(), incident_.begin() + s.begin, incident_.begin() + s.end);
    });
    for (std::size_t i = 0; i < std::min(distance, listed_.size()); ++i) {
        __builtin_prefetch(&edges_[listed_[i]]);
    }
    moving_.clear();
    for (std::size_t i = 0; i < listed_.size(); ++i) {
        if (i + distance < listed_.size()) {
            __builtin_prefetch(&edges_[listed_[i + distance]]);
        }
        const edge& e = edges_[listed_[i]];
        if (e.weight != 0) {
            const std::uint32_t neighbour = e.other_end(from);
            moving_.push_back({listed_[i], neighbour, hash_of_pair(kept, neighbour), {}});
            pairs_.prefetch(moving_.back().hash);
        }
    }
    for (const moving_edge& m : moving_) {
        pairs_.find(m.hash, [this](std::uint32_t existing) { // most probably the edge to fold it into
            __builtin_prefetch(&edges_[existing]);
            return true;
        });
    }
}

// Folds the edges of the removed vertex, the smaller side, into the survivor: they move to the back one by one.
void merger::fold_removed(std::uint32_t survivor, std::uint32_t removed) {
    collect_live_edges(removed, survivor);
    const auto folded = std::remove_if(moving_.begin(), moving_.end(), [&](moving_edge& m) {
        const std::uint32_t existing = edge_between(survivor, m.neighbour, m.hash);
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
        index_edge(m.number, m.hash);
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
        const std::uint32_t existing = edge_between(removed, m.neighbour, m.hash);
        if (existing == no_index) {
            rewrite_end(e, survivor, removed);
            note_stray(m.number, removed);
            index_edge(m.number, m.hash);
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
    moving_.clear();
    const auto collect = [&](std::uint32_t number) {
        const edge& e = edges_[number];
        if (e.weight != 0 && e.is_stray_of(moving)) {
            moving_.push_back({number, e.other_end(moving), 0, place_of(number)});
        }
    };
    if (g.strays == no_index) { // its first move: look at all its edges
        visit_segments(g, [&](const segment& s) {
            std::for_each(incident_.begin() + s.begin, incident_.begin() + s.end, collect);
        });
        g.strays = static_cast<std::uint32_t>(strays_.size());
        strays_.emplace_back();
    } else {
        std::for_each(strays_[g.strays].begin(), strays_[g.strays].end(), collect);
        strays_[g.strays].clear();
    }
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
        e.order = edge::order_of(m.at.moved > g.last_move ? m.at.moved : --g.front_sequence, true);
    }
    internal_assert(g.front_sequence > -order_limit, "ORDWELL/fast_merge", "move_to_back", "sequence > -2^30");
    g.last_move = next_time();
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
    if (groups_[from].strays != no_index) {
        strays_[groups_[from].strays] = {};
    }
}

// Folds an edge between `from` and a neighbour into the edge between `kept` and that neighbour.
void merger::fold(edge& gone, std::uint32_t into, std::uint32_t kept, std::uint32_t from) {
    rewrite_end(gone, from, kept);
    edge& e = edges_[into];
    const bool same_sides = e.side_of(kept) == gone.side_of(kept);
    e.sums[0] += gone.sums[same_sides ? 0 : 1];
    e.sums[1] += gone.sums[same_sides ? 1 : 0];
    e.weight = saturating_sum(e.weight, gone.weight);
    gone.weight = 0;
    queue_.add(present(into));
}

// Expresses the sum of an edge at its end `from` in the coordinates of the group `kept`, with which `from` now shares
// its chain, and makes that its end.
void merger::rewrite_end(edge& e, std::uint32_t from, std::uint32_t kept) const {
    const chain& old_chain = groups_[from].names;
    const chain& new_chain = groups_[kept].names;
    const auto turn = static_cast<std::uint64_t>(old_chain.direction * new_chain.direction);
    const auto shift = static_cast<std::uint64_t>(new_chain.direction * (old_chain.offset - new_chain.offset));
    const unsigned int side = e.side_of(from);
    e.sums[side] = turn * e.sums[side] + shift * e.weight;
    e.end[side] = kept;
}

std::uint32_t merger::edge_between(std::uint32_t a, std::uint32_t b, std::uint32_t hash) const {
    return pairs_.find(hash, [&](std::uint32_t number) {
        const edge& e = edges_[number];
        return (e.end[0] == a && e.end[1] == b) || (e.end[0] == b && e.end[1] == a);
    });
}

void merger::index_edge(std::uint32_t number, std::uint32_t hash) {
    if (pairs_.is_full()) {
        pairs_.make_room([&](std::uint32_t entry_hash, std::uint32_t entry) {
            const edge& e = edges_[entry];
            return e.weight != 0 && hash_of_pair(e.end[0], e.end[1]) == entry_hash;
        });
    }
    pairs_.insert(hash, number);
}

// Lists an edge that does not follow a group among its strays, if it keeps such a list.
void merger::note_stray(std::uint32_t number, std::uint32_t of) {
    if (groups_[of].strays != no_index) {
        strays_[groups_[of].strays].push_back(number);
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
