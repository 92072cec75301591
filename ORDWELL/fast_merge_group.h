// What fast merging keeps of a group, in one cache line: its chain and where its edges are listed.
#pragma once

#include "ORDWELL/fast_merge_chains.h"
#include "ORDWELL/fast_merge_edges.h"
#include "support/huge_pages.h"

#include <cstdint>

/// A stretch of the array of incident edges.
struct segment {
    std::uint32_t begin;
    std::uint32_t end;
    std::uint32_t next; ///< number of the next further segment; no_index: the last
};

/// Where the edges of a group are listed (ORDWELL/fast_merge_incidence.h).
struct edge_list {
    segment first = {0, 0, no_index};      ///< the first of its segments
    std::uint32_t last_segment = no_index; ///< the last one; no_index: the first
    std::uint32_t entries = 0;             ///< edges in all its segments, those gone included
};

/// Functions merged so far. It is named by the vertex whose storage it uses.
struct alignas(64) group {
    chain names;
    edge_list edges;
    std::uint32_t label = 0;         ///< the vertex by which it survives; no_index: it is part of another group
    std::uint32_t strays = no_index; ///< its list of strays, once its edges have moved (ORDWELL/fast_merge_places.h)
};
static_assert(sizeof(group) == 64);

/// The side whose edges will be rewritten when an edge's ends are merged.
inline std::uint32_t smaller_side(const huge_vector<group>& groups, const call_edge& e) {
    return groups[e.end[0]].edges.entries < groups[e.end[1]].edges.entries ? e.end[0] : e.end[1];
}
