// What a layout of functions is worth, in figures: the memory that its functions touch, and how far calls go.
//
// Blocks are aligned stretches: 4 KiB, a page of memory; 64 KiB; 2 MiB, a huge page. A call counts half for the page on
// which each of its two functions starts: the least number of pages that hold 90 % of the calls tells orders apart that
// touch the same number of pages. The faults of a cold start are in report/cold_start.h.
//
//     f at 0x1000, 0x100 bytes; g at 0x1ff0, 0x20 bytes; h at 0x9000; calls f-g 90, g-h 10
//
//     pages_4k 3   hot_pages_90 1 (95 %)   hot_pages_99 2   mean_distance (90 * 0xff0 + 10 * 0x7010) / 100 = 6,540.8
#pragma once

#include "report/called_code.h"

#include <array>
#include <optional>
#include <span>
#include <vector>

/// The figures, in the order of the table.
enum class figure {
    functions,
    bytes,
    calls,
    pages_4k,
    blocks_64k,
    pages_2m,
    hot_pages_90,
    hot_pages_99,
    mean_distance,
    median_distance,
    same_page,
    same_64k,
    cold_faults,
    cold_faults_around,
};
inline constexpr std::size_t figure_count = 14;

/// The figures of one layout; none where there is nothing to measure. Means of several layouts need not be whole numbers.
struct figures {
    std::array<std::optional<double>, figure_count> values;

    std::optional<double>& operator[](figure f) { return values[static_cast<std::size_t>(f)]; }
    const std::optional<double>& operator[](figure f) const { return values[static_cast<std::size_t>(f)]; }
};

/// A figure by its key, with what people call it.
struct figure_row {
    figure which;
    const char* key;
    const char* title;
    const char* unit; ///< "", "bytes" or "%"
    const char* doc;  ///< what it means
    int better;       ///< -1: the lower the better; 1: the higher; 0: orders do not compete in it
    bool has_bound;   ///< whether there is a value that no order can beat
    bool is_headline; ///< whether it stands at the top of the report
    bool is_guarded;  ///< whether --no-worse compares it
};

/// All figures, in the order of `figure`.
std::span<const figure_row> figure_rows();

/// Functions where they lie, or where an order would put them.
struct placed_code {
    std::vector<extent> by_address;     ///< of all called functions, ascending
    std::vector<std::uint32_t> numbers; ///< of the same, in called_code; empty: that order is theirs
    std::vector<extent> first_run;      ///< places of functions in the order of their first execution
    std::vector<elf_segment> segments;  ///< what is loaded around them
};

/// Measures layouts of the same functions and calls; what does not depend on the layout is computed once.
class layout_meter {
public:
    /// `code` must live as long. `read_ahead` is what a fault reads, in bytes; none without a list of first executions.
    layout_meter(const called_code& code, std::optional<std::uint64_t> read_ahead);

    figures measure(const placed_code& layout);

    /// The calls that each function makes and gets, by its number.
    const std::vector<std::uint64_t>& heat() const { return heat_; }

private:
    void measure_space(const placed_code& layout, figures& result) const;
    void measure_heat(const placed_code& layout, figures& result);
    void measure_calls(const placed_code& layout, figures& result);

    const called_code& code_;
    std::optional<std::uint64_t> read_ahead_;
    std::vector<std::uint64_t> heat_;
    std::vector<std::uint64_t> addresses_;                           ///< of the functions by number; scratch
    std::vector<std::uint64_t> page_heat_;                           ///< scratch
    std::vector<std::pair<std::uint64_t, std::uint32_t>> distances_; ///< with their calls; scratch
};

/// A part in percent of the whole, the nearest number to it: 999 of 1,000 is what 99.9 is. None for a whole of 0.
std::optional<double> percent_of(std::uint64_t part, std::uint64_t whole);

/// A point of the curve of calls by distance.
struct distance_share {
    std::uint64_t distance; ///< bytes
    double share;           ///< percent of the calls that go at most so far
};

/// The curve at distances that double every two points; empty without calls.
std::vector<distance_share> distance_curve(const called_code& code);
