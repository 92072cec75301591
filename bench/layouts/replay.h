// A trace replayed under the addresses of a link: what a layout costs on a simulated processor.
//
// The caches are those that cachegrind would be told to simulate with --I1=32768,8,64, and a TLB of 64 entries; both put out what
// was used longest ago. They start empty. No prefetching, no second level, no other program.
#pragma once

#include "bench/layouts/link_map.h"
#include "bench/layouts/trace.h"

#include <array>
#include <cstdint>

/// What is counted.
struct costs {
    std::uint64_t cache_misses; ///< of a first-level instruction cache: 32 KiB, 8 ways, lines of 64 bytes
    std::uint64_t tlb_misses;   ///< of an instruction TLB: 64 entries, 8 ways, pages of 4 KiB
    double distance;            ///< bytes from a jump to the first byte of another section, mean: calls and tail calls
    std::size_t pages;          ///< of 4 KiB, touched in the program itself
    std::size_t pages_90;       ///< the fewest of them that hold 90 % of the program's executed instructions
    std::size_t pages_99;
};

/// Throws std::runtime_error when a section of the trace is not in the layout.
costs replay(const trace& t, const std::vector<section>& layout);
