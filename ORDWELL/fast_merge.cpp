// Fast merging.
//
// Step-by-step merging (ORDWELL/pettis_hansen_merge.cpp) says what happens; this file reaches the same end without the
// walks over the edge list and the chains. For a merge of u (survives) and v (removed) it needs four things fast.
//
// 1. The heaviest edge, the first in creation order among equals. Edges lie in buckets by weight, unsorted; a bucket is
//    sorted when every heavier edge is gone. What changes while its bucket is being worked off, or becomes heavier than
//    that, goes to a heap, which stays small. A place can only move back, so a queued edge whose place is out of date
//    is too optimistic: it is queued again with its present place when it surfaces. Folding queues an edge anew, and
//    kills one.
//
// 2. The scores of the four joins. With chains of p and q names, L = p + q, positions i in chain 1 and j in chain 2:
//
//        0  chain 2, chain 1            distance q + i - j
//        1  chain 2 reversed, chain 1   distance i + j + 1
//        2  chain 1, chain 2            distance p + j - i
//        3  chain 1, chain 2 reversed   distance p + q - 1 - i - j
//
//    Each is linear in i and j, so all scores follow from three sums over the calls between the two chains: of w, w x i
//    and w x j. An edge carries them; its weight is the first. From a weight of 2^31 on, all four scores saturate and
//    join 0 wins, so the other two sums matter only below it, and 64 bits hold them.
//
// 3. The folding. Only the smaller side's edges are rewritten, whichever side survives: a group of merged functions
// keeps
//    the storage of its larger part, and the index by which it survives is a label. For the same reason positions are
//    kept in coordinates of the group's own: a join only changes how these lie in the chain (a direction and an
//    offset).
//
// 4. The places of the removed vertex's edges, which all go to the back in their old order, as new edges whose first
// end
//    is the survivor. Where v is the larger side they must not be touched one by one. So an edge's place is a pair,
//
//        (time of the last move to the back, sequence number)
//
//    and an edge can *follow* its first end, a group g: then its place is (the later of g's last move and its sequence
//    number, sequence number). When g moves to the back, one stamp in g moves all its followers, in their order. The
//    edges of g that do not follow it, its *strays*, are made followers then, each with a sequence number that puts it
//    where it stands among them: since there is one edge between two groups, the time of a stray's last move tells it
//    from g's followers, and strays older than g's own last move stand before all of them. An edge becomes a stray of g
//    again only when its other end moves to the back or when it comes from a smaller side. A group that has moved once
//    keeps a list of its strays.
//
// Chains of names are doubly linked lists whose direction is decided by the walker, so that joining and reversing take
// constant time; they are written out once, at the end.
//
// Cost: the rewriting is O(edges x log functions), as a rewritten edge's side at least doubles; on call graphs of real
// shape folding keeps it near twice the edges. Most of the time goes into cache misses, so what a fold looks at first
// is kept in small records of its own.
#include "ORDWELL/fast_merge.h"

#include <algorithm>
#include <array>
#include <bit>
#include <compare>
#include <queue>

namespace {

/// A place in creation order; smaller is older.
struct place {
    std::int64_t moved;    ///< when the edge was created or last moved to the back
    std::int64_t sequence; ///< its order among edges moved at the same time
    auto operator<=>(const place&) const = default;
};

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
    std::int64_t offset = 0;         ///< position in chain = direction x own coordinate + offset
    std::int32_t direction = 1;      ///< 1 or -1
    std::uint32_t length = 1;        ///< names in the chain
    std::uint32_t head;              ///< name at the chain's front
    std::uint32_t tail;              ///< name at the chain's back
    std::uint32_t label;             ///< vertex by which it survives
    std::uint32_t first_segment;     ///< list of segments holding its edges, dead ones included
    std::uint32_t last_segment;
    std::uint64_t entries = 0;       ///< edges in all segments
    std::uint32_t strays = no_index; ///< index of its list of strays, once it has moved
};

/// A stretch of the array of incident edges.
struct segment {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint32_t next; ///< no_index: the last
};

/// An edge with its weight and place at the time it was queued.
struct queue_entry {
    std::uint32_t weight;
    std::uint32_t number;
    place at;
    bool operator<(const queue_entry& other) const { // the next one is the greatest: heaviest, then oldest
        return weight != other.weight ? weight < other.weight : at > other.at;
    }
};

/// The buckets: weights below 512 have one each, others share one with those of the same first nine binary digits.
/// Heavier weights have higher buckets.
constexpr std::size_t bucket_count = 25 * 256;
std::size_t bucket_of(std::uint32_t weight) {
    const auto shift = static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(weight)) - 9, 0));
    return std::size_t{shift} * 256 + (weight >> shift);
}

/// A live edge of the side that is rewritten, or that moves.
struct moving_edge {
    place at;
    std::uint32_t number;
    std::uint32_t neighbour; ///< the group at its other end
    std::uint32_t hash;      ///< of the pair (kept group, neighbour)
};

/// How the position of a name changes in a join: new = direction x old + offset.
struct placement {
    std::int32_t direction;
    std::int64_t offset;
};

class merger {
public:
    explicit merger(const call_profile& profile);
    function_layout run();

private:
    bool next_edge(std::uint32_t& number);
    void merge(std::uint32_t number);
    void join_chains(const edge& joining, const std::array<std::uint64_t, 2>& sums);
    void connect(std::uint32_t name1, std::uint32_t name2);
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
    void enqueue(std::uint32_t number);
    bool open_next_bucket();
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
    std::vector<place> places_; ///< by edge; of a follower, only the sequence number counts
    std::vector<std::array<std::uint64_t, 2>>
        sums_; ///< by edge: sum of weight x own coordinate, modulo 2^64, at each end
    std::vector<std::vector<std::uint32_t>> buckets_; ///< edges by bucket_of() their weight, those gone included
    std::size_t open_bucket_ = bucket_count;          ///< the bucket being worked off; lower ones wait
    std::vector<queue_entry> run_;                    ///< what is left of it, the next edge at the back
    std::priority_queue<queue_entry> heap_;           ///< edges queued since, not lighter than the open bucket
    hash_index pairs_;                    ///< from pairs of groups to edges; entries of dead groups are useless
    std::vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;
    std::vector<std::vector<std::uint32_t>> strays_;
    std::vector<std::array<std::uint32_t, 2>> links_; ///< by name: its neighbours in the chain, in no order
    std::int64_t clock_;                              ///< the next unused time and sequence number
    std::vector<moving_edge> moving_;                 ///< scratch of one merge
};

merger::merger(const call_profile& profile)
    : groups_(profile.function_count()), edges_(profile.edges().size()), places_(edges_.size()), sums_(edges_.size()),
      buckets_(bucket_count), pairs_(profile.pairs()), incident_(2 * edges_.size()), segments_(groups_.size()),
      links_(groups_.size(), {no_index, no_index}), clock_(static_cast<std::int64_t>(edges_.size())) {
    for (std::uint32_t number = 0; number < edges_.size(); ++number) {
        const call_edge& read = profile.edges()[number];
        edges_[number] = {{read.first, read.second}, read.weight, 0, true};
        places_[number] = {number, number};
        buckets_[bucket_of(read.weight)].push_back(number);
        ++groups_[read.first].entries;
        ++groups_[read.second].entries;
    }
    std::uint64_t begin = 0;
    for (std::uint32_t vertex = 0; vertex < groups_.size(); ++vertex) {
        group& g = groups_[vertex];
        g.head = g.tail = g.label = g.first_segment = g.last_segment = vertex;
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
    while (next_edge(heaviest)) {
        merge(heaviest);
    }
    return write_layout();
}

void merger::enqueue(std::uint32_t number) {
    const std::size_t bucket = bucket_of(edges_[number].weight);
    if (bucket < open_bucket_) {
        buckets_[bucket].push_back(number);
    } else {
        heap_.push(entry_of(number));
    }
}

// Takes the next bucket that is not empty to be worked off; false when there is none.
bool merger::open_next_bucket() {
    while (run_.empty() && open_bucket_ > 0) {
        --open_bucket_;
        const std::vector<std::uint32_t> numbers = std::move(buckets_[open_bucket_]);
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            if (i + 16 < numbers.size()) {
                __builtin_prefetch(&edges_[numbers[i + 16]]);
                __builtin_prefetch(&places_[numbers[i + 16]]);
            }
            const std::uint32_t weight = edges_[numbers[i]].weight;
            if (weight != 0 && bucket_of(weight) == open_bucket_) { // else it is gone, or queued elsewhere
                run_.push_back(entry_of(numbers[i]));
            }
        }
        std::sort(run_.begin(), run_.end());
    }
    return !run_.empty();
}

// The heaviest edge, the oldest among equals; false when none is left.
bool merger::next_edge(std::uint32_t& number) {
    for (;;) {
        if (run_.empty() && heap_.empty() && !open_next_bucket()) {
            return false;
        }
        const bool from_heap = run_.empty() || (!heap_.empty() && run_.back() < heap_.top());
        const queue_entry next = from_heap ? heap_.top() : run_.back();
        if (from_heap) {
            heap_.pop();
        } else {
            run_.pop_back();
        }
        if (edges_[next.number].weight != next.weight) {
            continue; // it is gone, or was queued again when it became heavier
        }
        if (place_of(next.number) == next.at) {
            number = next.number;
            return true;
        }
        heap_.push(entry_of(next.number)); // it moved back
    }
}

// Merges the second end of an edge into its first end.
void merger::merge(std::uint32_t number) {
    const edge joining = edges_[number];
    const std::uint32_t survivor = joining.end[joining.first];
    const std::uint32_t removed = joining.end[1 - joining.first];
    join_chains(joining, sums_[number]);
    edges_[number].weight = 0;
    if (groups_[survivor].entries >= groups_[removed].entries) {
        fold_removed(survivor, removed);
    } else {
        groups_[removed].label = groups_[survivor].label;
        fold_survivor(survivor, removed);
    }
}

// Joins the chains of an edge's ends in the arrangement with the best score, the first among equals.
void merger::join_chains(const edge& joining, const std::array<std::uint64_t, 2>& sums) {
    group& g1 = groups_[joining.end[joining.first]];
    group& g2 = groups_[joining.end[1 - joining.first]];
    const std::uint64_t p = g1.length;
    const std::uint64_t q = g2.length;

    unsigned int best = 0;
    constexpr std::uint64_t saturated = 0x80000000U; // half a score from which it saturates
    if (joining.weight < saturated) {
        const std::uint64_t w = joining.weight;
        const auto in_chain = [w](const group& g, std::uint64_t sum) { // all modulo 2^64, which the results fit
            return static_cast<std::uint64_t>(g.direction) * sum + static_cast<std::uint64_t>(g.offset) * w;
        };
        const std::uint64_t wi = in_chain(g1, sums[joining.first]);
        const std::uint64_t wj = in_chain(g2, sums[1U - joining.first]);
        const std::uint64_t distances[4] = {q * w + wi - wj, wi + wj + w, p * w + wj - wi, (p + q - 1) * w - wi - wj};
        std::uint64_t best_score = 0;
        for (unsigned int join = 0; join < 4; ++join) {
            const std::uint64_t score = std::min((p + q) * w - distances[join], saturated);
            if (score > best_score) {
                best_score = score;
                best = join;
            }
        }
    }

    const bool in_front = best < 2; // chain 2 before chain 1
    const bool reversed = best % 2 == 1;
    const std::uint32_t start2 = reversed ? g2.tail : g2.head;
    const std::uint32_t end2 = reversed ? g2.head : g2.tail;
    connect(in_front ? end2 : g1.tail, in_front ? g1.head : start2);
    const std::uint32_t head = in_front ? start2 : g1.head;
    const std::uint32_t tail = in_front ? g1.tail : end2;

    const auto shift = static_cast<std::int64_t>(in_front ? 0 : p);
    g1.offset += static_cast<std::int64_t>(in_front ? q : 0);
    g2.offset = reversed ? shift + static_cast<std::int64_t>(q) - 1 - g2.offset : shift + g2.offset;
    g2.direction = reversed ? -g2.direction : g2.direction;
    for (group* const g : {&g1, &g2}) { // whichever keeps its storage stands for both
        g->head = head;
        g->tail = tail;
        g->length = static_cast<std::uint32_t>(p + q);
    }
}

// Makes two names, each at an end of its chain, neighbours.
void merger::connect(std::uint32_t name1, std::uint32_t name2) {
    links_[name1][links_[name1][0] == no_index ? 0 : 1] = name2;
    links_[name2][links_[name2][0] == no_index ? 0 : 1] = name1;
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
            enqueue(existing);
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
            enqueue(existing);
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
    const group& gf = groups_[from];
    const group& gk = groups_[kept];
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
        if (g == no_index) {
            continue;
        }
        std::uint32_t previous = no_index;
        for (std::uint32_t name = groups_[g].head; name != no_index;) {
            layout.functions.push_back(name);
            const std::uint32_t next = links_[name][links_[name][0] == previous ? 1 : 0];
            previous = name;
            name = next;
        }
        layout.chain_ends.push_back(static_cast<std::uint32_t>(layout.functions.size()));
    }
    return layout;
}

} // namespace

function_layout merge_fast(const call_profile& profile) {
    return merger(profile).run();
}
