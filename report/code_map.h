// The map of a binary's code: its pages, or stretches of so many pages that an eye can follow their number.
//
//     code from 0x1000 to 0x4fff, called: f [0x1800, 0x2100) of 90 calls
//
//     address 0x1000   cells 4   cell 0: 90 calls, f   cell 1: 0 calls, f
#pragma once

#include "report/called_code.h"

#include <cstdint>
#include <string>
#include <vector>

/// A cell of the map that a called function overlaps.
struct map_cell {
    std::uint64_t index;     ///< from the start of the map
    std::uint64_t calls;     ///< that its functions make and get; a function counts where it starts
    std::uint64_t functions; ///< called ones that overlap it
    std::string hottest;     ///< the one of them with most calls
};

struct code_map {
    std::uint64_t address = 0;        ///< of the first cell
    std::uint64_t cells = 0;          ///< count
    std::uint64_t pages_per_cell = 1; ///< of 4 KiB
    std::vector<map_cell> called;     ///< ascending
};

/// How many pages a cell must have for the map of a binary to have at most 3,000 cells.
std::uint64_t pages_per_cell(const called_code& code);

/// Draws the map. `heat` are the calls of each function, by its number. Linear in the functions and cells.
code_map map_code(const called_code& code, const std::vector<std::uint64_t>& heat, std::uint64_t pages_per_cell);
