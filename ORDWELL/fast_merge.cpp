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
// real shape it is less than twice the edges. Most of the time goes into cache misses, so a fold finds all it needs
// of an edge in one record, and the records of a side are prefetched before they are used.
#include "ORDWELL/fast_merge.h"

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_queue.h"

namespace {

/// An edge between two groups. A fold looks at all of it, so it is one record, and lies in one or two cache lines.
struct edge {
    std::array<std::uint32_t, 2> end;  ///< groups
    std::uint32_t weight;              ///< 0: the edge is gone, into another edge or inside a chain
    std::uint16_t first;               ///< which end is the first end: 0 or 1
    bool follows;                      ///< whether the edge follows its first end
    place at;                          ///< of a follower, only the sequence number counts
    std::array<std::uint64_t, 2> sums; ///< at each end, the sum of weight x coordinate, modulo 2^64

    unsigned int side_of(std::uint32_t group) const { return end[1] == group ? 1 : 0; }
    std::uint32_t other_end(std::uint32_t group) const { return end[1 - side_of(group)]; }
    std::uint32_t first_end() const { return end[first]; }
    void set_first_end(std::uint32_t group) { first = static_cast<std::uint16_t>(side_of(group)); }
    bool is_stray_of(std::uint32_t group) const { return !follows || first_end() != group; }
};

/// Functions merged so far. It is named by the vertex whose storage it uses.
struct group {
    std::int64_t last_move = -1;     ///< when all its edges last moved to the back
    std::int64_t front_sequence = 0; ///< no follower has a smaller sequence number
    std::size_t entries = 0;         ///< edges in all its segments
    chain names;
    std::uint32_t label = 0;         ///< the vertex by which it survives; no_index: it is part of another group
    std::uint32_t last_segment = 0;  ///< of the segments with its edges, those gone included; the first has its number
    std::uint32_t strays = no_index; ///< index of its list of strays, once it has moved
};

/// A stretch of the array of incident edges.
struct segment {
    std::size_t begin;
    std::size_t end;
    std::uint32_t next; ///< no_index: the last
};

/// A live edge of the side that is rewritten, or that moves.
struct moving_edge {
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour)
    place at;                ///< where its order matters
};

class merger {
public:
    explicit merger(const call_profile& profile);
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

    place place_of(const edge& e) const {
        return e.follows ? place{std::max(groups_[e.first_end()].last_move, e.at.sequence), e.at.sequence} : e.at;
    }
    queue_entry present(std::uint32_t number) const {
        return {edges_[number].weight, number, place_of(edges_[number])};
    }

    std::vector<group> groups_;
    std::vector<edge> edges_;
    edge_queue queue_;
    hash_index pairs_;                    ///< from pairs of groups to edges; entries of former groups are useless
    std::vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;
    std::vector<std::vector<std::uint32_t>> strays_;
    chain_links links_;
    std::int64_t clock_;                ///< the next unused time and sequence number
    std::vector<std::uint32_t> listed_; ///< scratch of one merge: edges of a side, those gone included
    std::vector<moving_edge> moving_;   ///< the same: those that are left
};

merger::merger(const call_profile& profile)
    : groups_(profile.function_count()), edges_(profile.edges().size()), pairs_(profile.pairs()),
      incident_(2 * edges_.size()), segments_(groups_.size()), links_(groups_.size()),
      clock_(static_cast<std::int64_t>(edges_.size())) {
    for (std::uint32_t number = 0; number < edges_.size(); ++number) {
        const call_edge& read = profile.edges()[number];
        edges_[number] = {{read.first, read.second}, read.weight, 0, true, {number, number}, {}};
        queue_.add(present(number));
        ++groups_[read.first].entries;
        ++groups_[read.second].entries;
    }
    pairs_.reserve(edges_.size() + edges_.size() / 2); // for the pairs that folding adds
    std::size_t begin = 0;
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.names.head = g.names.tail = vertex;
        g.label = g.last_segment = vertex;
        segments_[vertex] = {begin, begin, no_index};
        begin += g.entries;
    }
    for (std::uint32_t number = 0; number < edges_.size(); ++number) {
        for (const std::uint32_t vertex : edges_[number].end) {
            incident_[segments_[vertex].end++] = number;
        }
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
    if (const std::uint32_t number = queue_.upcoming(8); number != no_index) {
        __builtin_prefetch(&edges_[number]);
    }
    if (const std::uint32_t number = queue_.upcoming(6); number != no_index) {
        for (const std::uint32_t end : edges_[number].end) {
            __builtin_prefetch(&groups_[end]);
            __builtin_prefetch(&segments_[end]);
        }
    }
    const auto smaller_side = [this](const edge& e) {
        return groups_[e.end[0]].entries < groups_[e.end[1]].entries ? e.end[0] : e.end[1];
    };
    if (const std::uint32_t number = queue_.upcoming(4); number != no_index) {
        __builtin_prefetch(&incident_[segments_[smaller_side(edges_[number])].begin]);
        for (const std::uint32_t end : edges_[number].end) {
            links_.prefetch(groups_[end].names);
        }
    }
    if (const std::uint32_t number = queue_.upcoming(2); number != no_index) {
        const segment& stretch = segments_[smaller_side(edges_[number])];
        for (std::size_t i = stretch.begin; i < std::min(stretch.end, stretch.begin + 12); ++i) {
            __builtin_prefetch(&edges_[incident_[i]]);
        }
    }
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    edge& joining = edges_[number];
    const std::uint32_t survivor = joining.first_end();
    const std::uint32_t removed = joining.other_end(survivor);
    links_.join(groups_[survivor].names, groups_[removed].names,
                {joining.weight, joining.sums[joining.first], joining.sums[1 - joining.first]});
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
    for (std::uint32_t s = from; s != no_index; s = segments_[s].next) {
        listed_.insert(listed_.end(), incident_.begin() + static_cast<std::ptrdiff_t>(segments_[s].begin),
                       incident_.begin() + static_cast<std::ptrdiff_t>(segments_[s].end));
    }
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
        edge& e = edges_[m.number];
        const std::uint32_t existing = edge_between(survivor, m.neighbour, m.hash);
        if (existing == no_index) {
            m.at = place_of(e);
            return false;
        }
        fold(e, existing, survivor, removed);
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
        e.follows = true;
        e.at.sequence = clock_++;
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
            e.at = place_of(e);
            e.follows = false;
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
        kept.follows = e.follows;
        kept.at = e.at;
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
            moving_.push_back({number, e.other_end(moving), 0, place_of(e)});
        }
    };
    if (g.strays == no_index) { // its first move: look at all its edges
        for (std::uint32_t s = moving; s != no_index; s = segments_[s].next) {
            for (std::size_t i = segments_[s].begin; i < segments_[s].end; ++i) {
                collect(incident_[i]);
            }
        }
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
        e.follows = true;
        e.at.sequence = m.at.moved > g.last_move ? m.at.moved : --g.front_sequence;
    }
    g.last_move = clock_++;
}

// Hangs the edges that are left in moving_ on to the kept group; the other group is no more.
void merger::attach(std::uint32_t kept, std::uint32_t from) {
    group& g = groups_[kept];
    if (!moving_.empty()) {
        const std::size_t begin = incident_.size();
        for (const moving_edge& m : moving_) {
            incident_.push_back(m.number);
        }
        const auto added = static_cast<std::uint32_t>(segments_.size());
        segments_.push_back({begin, incident_.size(), no_index});
        segments_[g.last_segment].next = added;
        g.last_segment = added;
        g.entries += moving_.size();
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

function_layout merge_fast(const call_profile& profile) {
    return merger(profile).run();
}
