// What a layout of functions is worth, in figures: the blocks of memory that its functions touch, and how far calls go.
//
// Blocks are aligned stretches: 4 KiB, a page of memory; 64 KiB, what a page fault brings in at once; 2 MiB, a huge page.
// Two controls show what is due to the order and what to mere collecting: the same functions packed in random order, and
// the bound that no order can beat.
#pragma once

#include "report/called_code.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <span>

/// The figures of one layout. Means of several layouts need not be whole numbers.
struct figures {
    double functions = 0;
    double bytes = 0;    ///< sum of the functions' sizes
    double calls = 0;    ///< between different functions
    double pages_4k = 0; ///< distinct aligned blocks with a part of a function
    double blocks_64k = 0;
    double pages_2m = 0;
    std::optional<double>
        mean_distance; ///< bytes between the starts of the two functions of a call; none without calls
    std::optional<double> median_distance; ///< the smallest distance at which half of the calls are reached
    std::optional<double> same_page;       ///< percent of the calls whose two functions start in the same 4 KiB block
    std::optional<double> same_64k;        ///< the same for 64 KiB
};

/// A figure by its key, with what people call it.
struct figure_row {
    const char* key;
    const char* title;
    const char* unit; ///< "", "bytes" or "%"
    /// The value, if the layout has it.
    std::optional<double> (*value)(const figures& layout);
    bool is_cost; ///< whether orders compete in it; the lower the better, or for "%" the higher
};

/// All figures, in the order of the table.
std::span<const figure_row> figure_rows();

/// The figures of functions where they lie.
figures measure(const called_code& code);

/// The mean over 20 random orders of the functions, packed from a 2 MiB boundary on, each aligned to 16 bytes.
figures measure_random(const called_code& code, std::uint64_t seed);

/// The blocks that no order can go below, as an object of the keys.
nlohmann::ordered_json bound_of(const figures& layout);

/// The figures as an object of the keys; null where there are no calls to measure.
nlohmann::ordered_json to_json(const figures& layout);

/// A point of the curve of calls by distance.
struct distance_share {
    std::uint64_t distance; ///< bytes
    double share;           ///< percent of the calls that go at most so far
};

/// The curve at distances that double every two points; empty without calls.
std::vector<distance_share> distance_curve(const called_code& code);
