// Fast merging: the result of step-by-step Pettis-Hansen merging, byte for byte, in nearly linear time.
#pragma once

#include <cstdint>
#include <vector>

class call_profile;

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

/// Merges a profile, none of whose edges may have weight 0, until no edge is left. The chains stand in vertex order: by
/// the first-read function among those by which they survived. Takes the profile's index of pairs and, with
/// `takes_edges`, its edges. `work`, where it is not null, is told what there was to do.
function_layout merge_fast(call_profile& profile, bool takes_edges, merge_work* work = nullptr);
