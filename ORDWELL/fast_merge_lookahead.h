// Looking ahead in fast merging: fetching what later merges will touch.
//
// Most of merging is waiting for memory: each merge follows pointers, from the edge to its groups, to the list of the
// smaller one's edges, to these edges, to their other ends, to the edges into which they will be folded. No step can
// begin before the one before it has arrived, so one merge alone waits five times. But the edges of the open bucket
// stand in their order, so what the next merges will follow is known as far as nothing changes: it is fetched in
// stages, one step of that chase in each merge that passes. Of the merge that is nine edges ahead only the edge is
// fetched, of the one seven ahead the groups, and so on; when an edge's turn comes, all is there. A stage is two
// merges behind the one that fed it, as far as that is worth its while.
//
//     edges ahead   9      7        5                   4                2                    1
//     fetched       edge   groups   list of edges,      the edges that   where the pairs      the edges of
//                                   ends of chains      are listed       are looked up        these pairs
//
// Three of five merges are of edges that became heavier and went to the queue's heap. Of the heap only its first edge
// is known to be the next, but one of the two below that will be the next but one, most probably, and one of the four
// below these will follow. So the level of the heap takes the place of the distance, as far as that leads: of the four
// the edges are fetched, of the two the groups, of the first the list of edges and the ends of chains.
//
// It is a guess and costs what it fetches in vain: where the data fits the caches it is not done, and of a long list
// only the first edges are fetched. On 1,000,000 functions it takes a fifth off the time of merging.
#pragma once

#include "ORDWELL/fast_merge_edges.h"
#include "ORDWELL/fast_merge_incidence.h"
#include "ORDWELL/fast_merge_queue.h"

/// The data of fast merging, to look at.
class merge_lookahead {
public:
    merge_lookahead(const edge_queue& queue, const huge_vector<call_edge>& edges, const huge_vector<group>& groups,
                    const incidence_lists& incidence, const edges_by_pair& pairs, const chain_links& links)
        : queue_(queue), edges_(edges), groups_(groups), incidence_(incidence), pairs_(pairs), links_(links) {}

    /// To be called once for each edge that was taken from the queue, before it is merged.
    void prefetch_upcoming() const;

private:
    void prefetch_of_bucket() const;
    void prefetch_of_heap() const;
    void prefetch_groups(const call_edge& e) const;
    void prefetch_lists_and_chains(const call_edge& e) const;
    std::span<const std::uint32_t> first_edges(std::uint32_t group) const;
    template <typename Action>
    void with_upcoming(std::size_t distance, Action action) const;
    template <typename Action>
    void with_pairs(const call_edge& e, Action action) const;

    const edge_queue& queue_;
    const huge_vector<call_edge>& edges_;
    const huge_vector<group>& groups_;
    const incidence_lists& incidence_;
    const edges_by_pair& pairs_;
    const chain_links& links_;
};
