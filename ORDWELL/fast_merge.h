// Fast merging: the result of step-by-step Pettis-Hansen merging, byte for byte, in nearly linear time.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"

#include <cstdint>
#include <vector>

/// Functions arranged in chains.
struct function_layout {
    std::vector<std::uint32_t> functions;  ///< every function once, chain after chain, each from its front
    std::vector<std::uint32_t> chain_ends; ///< for each chain, how many functions stand up to its end
};

/// What a merging has done, in entries looked at or written: what its time grows with.
struct merge_work {
    std::uint64_t incidences; ///< edges in the lists of groups
    std::uint64_t pairs;      ///< entries that lead from two groups to their edge
    std::uint64_t places;     ///< edges listed because their place in creation order changes
    std::uint64_t queued;     ///< entries of the queue of edges
};

/// Merges a profile until no edge is left. `edges`, none of which may have weight 0, are its edges or a copy of them.
/// The chains stand in vertex order: by the first-read function among those by which they survived. Takes the profile's
/// index of pairs. `work`, where it is not null, is told what there was to do.
function_layout merge_fast(call_profile& profile, huge_vector<call_edge> edges, merge_work* work = nullptr);
