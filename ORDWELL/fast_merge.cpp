// Fast merging.
//
// Step-by-step merging (ORDWELL/pettis_hansen_merge.cpp) says what happens; this file reaches the same end without the
// walks over the edge list and the chains. Merging u (survives) and v (removed) needs four things fast.
//
// 1. The heaviest edge: ORDWELL/fast_merge_queue.h.
//
// 2. The best join of the two chains: ORDWELL/fast_merge_chains.h. It needs the sums, over the calls between the two, of
//    weight x coordinate of the one name and of the other. An edge carries them beside its weight.
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
//    The edges of g that do not follow it, its *strays*, are made followers then, each with a sequence number that puts
//    it where it stands among them. A stray that moved later than g did gets the time of that move: followers that came
//    to g since have later or earlier ones, and no two edges of g have the same, as there is one edge between two groups.
//    A stray older than g's last move stands before all followers, so it gets a number below all of theirs.
//
//    An edge becomes a stray of g again only when its other end moves to the back, or when it comes with a smaller side
//    that survives. A group that has moved keeps a list of its strays; before that, every edge is looked at.
//
// Example, edges numbered (a,hub) 0, (b,hub) 1, (c,hub) 2 of equal weight: edge 0 is chosen, a survives, hub is larger. The
// edges 1 and 2 were strays of hub, since b and c are their first ends; they get the sequence numbers 1 and 2 and follow
// hub, whose last move is 3. Their places are now (3, 1) and (3, 2): at the back, in order.
//
// Cost: a rewritten edge's side at least doubles, so O(edges x log functions) edges are rewritten; on call graphs of real
// shape it is less than twice the edges. Most of the time goes into cache misses, so what a fold looks at first is kept in
// small records of its own, and the records of a side are prefetched before they are used.
#include "ORDWELL/fast_merge.h"

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_queue.h"

namespace {

/// An edge between two groups: what folding looks at.
struct edge {
    std::array<std::uint32_t, 2> end; ///< groups
    std::uint32_t weight;             ///< 0: folded into another edge, or inside a chain
    std::uint16_t first;              ///< which end is the first end: 0 or 1
    bool follows;                     ///< whether the edge follows its first end
};

/// Functions merged so far. It is named by the vertex whose storage it uses.
struct group {
    std::int64_t last_move = -1;     ///< when all its edges last moved to the back
    std::int64_t front_sequence = 0; ///< no follower has a smaller sequence number
    std::uint64_t entries = 0;       ///< edges in all its segments
    chain names;
    std::uint32_t label = 0;         ///< the vertex by which it survives; no_index: it is part of another group
    std::uint32_t first_segment = 0; ///< list of the segments with its edges, those gone included
    std::uint32_t last_segment = 0;
    std::uint32_t strays = no_index; ///< index of its list of strays, once it has moved
};

/// A stretch of the array of incident edges.
struct segment {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint32_t next; ///< no_index: the last
};

/// A live edge of the side that is rewritten, or that moves.
struct moving_edge {
    place at;
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour)
};

class merger {
public:
    explicit merger(const call_profile& profile);
    function_layout run();

private:
    void merge(std::uint32_t number);
    void collect_live_edges(std::uint32_t from, std::uint32_t kept);
    void fold_removed(std::uint32_t survivor, std::uint32_t removed);
    void fold_survivor(std::uint32_t survivor, std::uint32_t removed);
    void move_to_back(std::uint32_t moving);
    void attach(std::uint32_t kept, std::uint32_t from);
    std::uint32_t edge_between(std::uint32_t a, std::uint32_t b, std::uint32_t hash) const;
    void index_edge(std::uint32_t number, std::uint32_t hash);
    void fold_sums(std::uint32_t into, std::uint32_t gone, std::uint32_t kept, std::uint32_t from);
    void rewrite_end(std::uint32_t number, std::uint32_t from, std::uint32_t kept);
    queue_entry entry_of(std::uint32_t number) const { return {edges_[number].weight, number, place_of(number)}; }
    function_layout write_layout() const;

    place place_of(std::uint32_t number) const {
        const edge& e = edges_[number];
        if (!e.follows) {
            return places_[number];
        }
        const std::int64_t sequence = places_[number].sequence;
        return {std::max(groups_[e.end[e.first]].last_move, sequence), sequence};
    }
    unsigned int side_of(std::uint32_t number, std::uint32_t of) const { return edges_[number].end[1] == of ? 1 : 0; }
    bool is_stray(std::uint32_t number, std::uint32_t of) const {
        const edge& e = edges_[number];
        return !e.follows || e.end[e.first] != of;
    }
    void note_stray(std::uint32_t number, std::uint32_t of) {
        if (groups_[of].strays != no_index) {
            strays_[groups_[of].strays].push_back(number);
        }
    }

    std::vector<group> groups_;
    std::vector<edge> edges_;
    std::vector<place> places_;                      ///< by edge; of a follower, only the sequence number counts
    std::vector<std::array<std::uint64_t, 2>> sums_; ///< by edge: sum of weight x coordinate at each end, modulo 2^64
    edge_queue queue_;
    hash_index pairs_;                    ///< from pairs of groups to edges; entries of dead groups are useless
    std::vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;
    std::vector<std::vector<std::uint32_t>> strays_;
    chain_links links_;
    std::int64_t clock_;              ///< the next unused time and sequence number
    std::vector<moving_edge> moving_; ///< scratch of one merge
};

merger::merger(const call_profile& profile)
    : groups_(profile.function_count()), edges_(profile.edges().size()), places_(edges_.size()), sums_(edges_.size()),
      pairs_(profile.pairs()), incident_(2 * edges_.size()), segments_(groups_.size()), links_(groups_.size()),
      clock_(static_cast<std::int64_t>(edges_.size())) {
    for (std::uint32_t number = 0; number < edges_.size(); ++number) {
        const call_edge& read = profile.edges()[number];
        edges_[number] = {{read.first, read.second}, read.weight, 0, true};
        places_[number] = {number, number};
        queue_.add(entry_of(number));
        ++groups_[read.first].entries;
        ++groups_[read.second].entries;
    }
    std::uint64_t begin = 0;
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.names.head = g.names.tail = vertex;
        g.label = g.first_segment = g.last_segment = vertex;
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
    const auto present = [this](std::uint32_t number) { return entry_of(number); };
    const auto prefetch = [this](std::uint32_t number) {
        __builtin_prefetch(&edges_[number]);
        __builtin_prefetch(&places_[number]);
    };
    std::uint32_t heaviest = 0;
    while (queue_.take(heaviest, present, prefetch)) {
        merge(heaviest);
    }
    return write_layout();
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    edge& joining = edges_[number];
    const unsigned int first = joining.first;
    const std::uint32_t survivor = joining.end[first];
    const std::uint32_t removed = joining.end[1 - first];
    links_.join(groups_[survivor].names, groups_[removed].names,
                {joining.weight, sums_[number][first], sums_[number][1 - first]});
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
    moving_.clear();
    for (std::uint32_t s = groups_[from].first_segment; s != no_index; s = segments_[s].next) {
        const segment stretch = segments_[s];
        for (std::uint64_t i = stretch.begin; i < stretch.end; ++i) {
            if (i + 8 < stretch.end) {
                __builtin_prefetch(&edges_[incident_[i + 8]]);
            }
            const std::uint32_t number = incident_[i];
            const edge& e = edges_[number];
            if (e.weight != 0) {
                const std::uint32_t neighbour = e.end[1 - side_of(number, from)];
                const std::uint32_t hash = hash_of_pair(kept, neighbour);
                pairs_.prefetch(hash);
                __builtin_prefetch(&places_[number]);
                __builtin_prefetch(&sums_[number]);
                moving_.push_back({{}, number, neighbour, hash});
            }
        }
    }
    for (moving_edge& m : moving_) {
        m.at = place_of(m.number);
    }
}

// Folds the edges of the removed vertex, the smaller side, into the survivor: they move to the back one by one.
void merger::fold_removed(std::uint32_t survivor, std::uint32_t removed) {
    collect_live_edges(removed, survivor);
    std::sort(moving_.begin(), moving_.end(), [](const moving_edge& a, const moving_edge& b) { return a.at < b.at; });
    for (const moving_edge& m : moving_) {
        const std::uint32_t existing = edge_between(survivor, m.neighbour, m.hash);
        if (existing != no_index) {
            fold_sums(existing, m.number, survivor, removed);
            queue_.add(entry_of(existing));
            continue;
        }
        edge& e = edges_[m.number];
        if (!is_stray(m.number, m.neighbour)) {
            note_stray(m.number, m.neighbour);
        }
        rewrite_end(m.number, removed, survivor);
        e.first = static_cast<std::uint16_t>(side_of(m.number, survivor));
        e.follows = true;
        places_[m.number].sequence = clock_++;
        index_edge(m.number, m.hash);
    }
    attach(survivor, removed);
}

// Folds the edges of the survivor, the smaller side, into the removed vertex's storage. The removed vertex's edges move
// to the back all together; the survivor's keep their places.
void merger::fold_survivor(std::uint32_t survivor, std::uint32_t removed) {
    move_to_back(removed);
    collect_live_edges(survivor, removed);
    for (const moving_edge& m : moving_) {
        const bool was_first = edges_[m.number].end[edges_[m.number].first] == survivor;
        const std::uint32_t existing = edge_between(removed, m.neighbour, m.hash);
        std::uint32_t kept_number = m.number;
        if (existing != no_index) { // the survivor's edge lives on in the storage of the other
            edge& e = edges_[existing];
            const std::uint32_t first_end = was_first ? removed : m.neighbour;
            e.first = static_cast<std::uint16_t>(side_of(existing, first_end));
            e.follows = !was_first && edges_[m.number].follows;
            places_[existing] = e.follows ? places_[m.number] : m.at;
            fold_sums(existing, m.number, removed, survivor);
            queue_.add(entry_of(existing));
            kept_number = existing;
            if (is_stray(existing, m.neighbour)) {
                note_stray(existing, m.neighbour);
            }
        } else {
            rewrite_end(m.number, survivor, removed);
            if (was_first) {
                edges_[m.number].follows = false;
                places_[m.number] = m.at;
            }
            index_edge(m.number, m.hash);
        }
        note_stray(kept_number, removed);
    }
    attach(removed, survivor);
}

// Moves all edges of a group to the back in their order, as edges whose first end it is.
void merger::move_to_back(std::uint32_t moving) {
    group& g = groups_[moving];
    moving_.clear();
    const auto collect = [&](std::uint32_t number) {
        if (edges_[number].weight != 0 && is_stray(number, moving)) {
            moving_.push_back({place_of(number), number, edges_[number].end[1 - side_of(number, moving)], 0});
        }
    };
    if (g.strays == no_index) { // its first move: look at all its edges
        for (std::uint32_t s = g.first_segment; s != no_index; s = segments_[s].next) {
            for (std::uint64_t i = segments_[s].begin; i < segments_[s].end; ++i) {
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
        if (!is_stray(m.number, moving)) {
            continue; // listed twice
        }
        if (!is_stray(m.number, m.neighbour)) {
            note_stray(m.number, m.neighbour);
        }
        edge& e = edges_[m.number];
        e.first = static_cast<std::uint16_t>(side_of(m.number, moving));
        e.follows = true;
        places_[m.number].sequence = m.at.moved > g.last_move ? m.at.moved : --g.front_sequence;
    }
    g.last_move = clock_++;
}

// Hangs those edges of moving_ that are still alive on to the kept group.
void merger::attach(std::uint32_t kept, std::uint32_t from) {
    const std::uint64_t begin = incident_.size();
    for (const moving_edge& m : moving_) {
        if (edges_[m.number].weight != 0) {
            incident_.push_back(m.number);
        }
    }
    const std::uint64_t end = incident_.size();
    group& g = groups_[kept];
    if (end > begin) {
        const auto added = static_cast<std::uint32_t>(segments_.size());
        segments_.push_back({begin, end, no_index});
        segments_[g.last_segment].next = added;
        g.last_segment = added;
        g.entries += end - begin;
    }
    groups_[from].label = no_index;
    if (groups_[from].strays != no_index) {
        strays_[groups_[from].strays] = {};
    }
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

// Expresses the sum of an edge at its end `from` in the coordinates of the group `kept`, with which `from` now shares
// its chain, and makes that its end.
void merger::rewrite_end(std::uint32_t number, std::uint32_t from, std::uint32_t kept) {
    const chain& gf = groups_[from].names;
    const chain& gk = groups_[kept].names;
    const auto turn = static_cast<std::uint64_t>(gf.direction * gk.direction);
    const auto shift = static_cast<std::uint64_t>(gk.direction * (gf.offset - gk.offset));
    const unsigned int side = side_of(number, from);
    std::uint64_t& sum = sums_[number][side];
    sum = turn * sum + shift * edges_[number].weight;
    edges_[number].end[side] = kept;
}

// Folds the edge `gone`, from `from` to a neighbour, into the edge from `kept` to that neighbour.
void merger::fold_sums(std::uint32_t into, std::uint32_t gone, std::uint32_t kept, std::uint32_t from) {
    rewrite_end(gone, from, kept);
    const unsigned int into_side = side_of(into, kept);
    const unsigned int gone_side = side_of(gone, kept);
    sums_[into][into_side] += sums_[gone][gone_side];
    sums_[into][1 - into_side] += sums_[gone][1 - gone_side];
    edges_[into].weight = saturating_sum(edges_[into].weight, edges_[gone].weight);
    edges_[gone].weight = 0;
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
