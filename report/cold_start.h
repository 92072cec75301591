// The faults of a cold start, foretold: which pages of a program's code a first run has to wait for.
//
// A program that is not in memory is read from its file page by page, as its code first runs. A page that was not read yet
// is a fault, and the kernel reads more than the one page: today's read ahead, forward from the fault, older ones around it.
// So the faults follow from the order in which functions first run, from where they lie, and from how much is read at once;
// what is read never leaves the program's loaded segment. A function is taken to run whole, from its first page to its last.
//
//     first run: main 0x5000, f 0x1000, g 0x6000     reading ahead 16 KiB     segment: 0x1000 to 0x8000
//
//     fault at 0x5000 (reads pages 5, 6, 7)   fault at 0x1000 (reads 1 to 4)   g is there: 2 faults
#pragma once

#include "report/called_code.h"

#include <cstdint>
#include <span>
#include <vector>

/// What a fault reads.
enum class read_window {
    ahead,  ///< n pages forward
    around, ///< n pages, half of them before it
};

/// A page that was waited for.
struct cold_fault {
    std::uint64_t address;  ///< of the page
    std::uint32_t function; ///< in the list of first executions
};

class cold_start {
public:
    /// `first_run` are the places of functions in the order of their first execution; both spans stay the caller's.
    /// A fault reads `read_ahead` bytes, one page at least.
    cold_start(std::span<const extent> first_run, std::span<const elf_segment> segments, std::uint64_t read_ahead);

    /// The faults in the order of time.
    std::vector<cold_fault> faults(read_window window) const;

private:
    std::span<const extent> first_run_;
    std::span<const elf_segment> segments_;
    std::uint64_t window_pages_;       ///< that a fault reads
    std::vector<std::uint64_t> pages_; ///< numbers of those that hold functions, ascending
};
