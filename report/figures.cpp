#include "report/figures.h"

#include "report/cold_start.h"
#include "support/prefetch.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

constexpr std::uint64_t page = 4096;
constexpr std::uint64_t block = 65536;
constexpr std::uint64_t huge_page = 2097152;

constexpr std::array<figure_row, figure_count> rows = {{
    {figure::functions, "functions", "functions", "", "called functions, by address", 0, false, false, false},
    {figure::bytes, "bytes", "bytes of code", "bytes", "bytes that at least one called function covers", 0, false,
     false, false},
    {figure::calls, "calls", "calls", "", "calls between two different functions of the program", 0, false, false,
     false},
    {figure::pages_4k, "pages_4k", "4 KiB pages touched", "", "pages that a called function overlaps", -1, true, true,
     true},
    {figure::blocks_64k, "blocks_64k", "64 KiB blocks touched", "", "blocks that a called function overlaps", -1, true,
     false, false},
    {figure::pages_2m, "pages_2m", "2 MiB pages touched", "", "huge pages that a called function overlaps", -1, true,
     false, false},
    {figure::hot_pages_90, "hot_pages_90", "pages that hold 90 % of the calls", "",
     "the least number of 4 KiB pages on which 90 % of the ends of calls start", -1, false, true, true},
    {figure::hot_pages_99, "hot_pages_99", "pages that hold 99 % of the calls", "",
     "the least number of 4 KiB pages on which 99 % of the ends of calls start", -1, false, false, false},
    {figure::mean_distance, "mean_distance", "mean distance of a call", "bytes",
     "bytes between the starts of the two functions of a call, on average", -1, false, true, true},
    {figure::median_distance, "median_distance", "median distance of a call", "bytes",
     "the smallest distance that half of the calls do not exceed", -1, false, false, false},
    {figure::same_page, "same_page", "calls within a 4 KiB page", "%",
     "share of the calls whose two functions start on one page", 1, false, false, false},
    {figure::same_64k, "same_64k", "calls within a 64 KiB block", "%",
     "share of the calls whose two functions start in one block", 1, false, false, false},
    {figure::cold_faults, "cold_faults", "faults of a cold start", "",
     "faults in code when the functions first run, each reading ahead", -1, false, true, true},
    {figure::cold_faults_around, "cold_faults_around", "the same, reading around", "",
     "faults in code when the functions first run, each reading around itself", -1, false, false, false},
}};

// How many blocks of a size the functions overlap. `places` ascend by address.
double count_blocks(std::span<const extent> places, std::uint64_t size) {
    std::uint64_t count = 0;
    std::uint64_t next = 0; // the first block that is not counted yet
    for (const extent& place : places) {
        const std::uint64_t first = std::max(place.address / size, next);
        const std::uint64_t last = (place.end() - 1) / size;
        if (last >= first) {
            count += last - first + 1;
            next = last + 1;
        }
    }
    return static_cast<double>(count);
}

// How many bytes at least one function covers. `places` ascend by address.
double count_bytes(std::span<const extent> places) {
    std::uint64_t count = 0;
    std::uint64_t next = 0; // the first byte that is not counted yet
    for (const extent& place : places) {
        const std::uint64_t first = std::max(place.address, next);
        if (place.end() > first) {
            count += place.end() - first;
            next = place.end();
        }
    }
    return static_cast<double>(count);
}

// So many percent of a number, rounded up.
std::uint64_t share_of(std::uint64_t whole, std::uint64_t percent) {
    return whole / 100 * percent + (whole % 100 * percent + 99) / 100;
}

// The least number of pages that hold at least `wanted`. `heats` descend.
double count_hottest(std::span<const std::uint64_t> heats, std::uint64_t wanted) {
    std::uint64_t held = 0;
    std::size_t count = 0;
    while (held < wanted && count < heats.size()) {
        held += heats[count++];
    }
    return static_cast<double>(count);
}

/// A distance and the calls that go so far.
using weighted_distance = std::pair<std::uint64_t, std::uint32_t>;

// The smallest distance at which half of the calls are reached. First a count by the distance's leading bits finds the
// stretch of it, then only that is sorted.
double weighted_median(std::span<const weighted_distance> distances, std::uint64_t largest, std::uint64_t calls) {
    constexpr int bucket_bits = 14;
    const unsigned int shift =
        static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(largest)) - bucket_bits, 0));
    std::vector<std::uint64_t> buckets(std::size_t{1} << bucket_bits);
    for (const auto& [distance, count] : distances) {
        buckets[distance >> shift] += count;
    }
    std::uint64_t before = 0;
    std::size_t bucket = 0;
    const std::uint64_t half = calls / 2 + calls % 2;
    while (before + buckets[bucket] < half) {
        before += buckets[bucket++];
    }
    std::vector<weighted_distance> candidates;
    std::copy_if(distances.begin(), distances.end(), std::back_inserter(candidates),
                 [&](const weighted_distance& d) { return d.first >> shift == bucket; });
    std::sort(candidates.begin(), candidates.end());
    for (const auto& [distance, count] : candidates) {
        before += count;
        if (before >= half) {
            return static_cast<double>(distance);
        }
    }
    return static_cast<double>(largest);
}

} // namespace

std::span<const figure_row> figure_rows() {
    return rows;
}

layout_meter::layout_meter(const called_code& code, std::optional<std::uint64_t> read_ahead)
    : code_(code), read_ahead_(read_ahead), heat_(code.functions.size()), addresses_(code.functions.size()) {
    for (const counted_calls& c : code.calls) {
        heat_[c.first] += c.count;
        heat_[c.second] += c.count;
    }
}

figures layout_meter::measure(const placed_code& layout) {
    figures result;
    measure_space(layout, result);
    if (code_.inner_calls != 0) {
        measure_heat(layout, result);
        measure_calls(layout, result);
    }
    if (read_ahead_.has_value()) {
        const cold_start start(layout.first_run, layout.segments, *read_ahead_);
        result[figure::cold_faults] = static_cast<double>(start.faults(read_window::ahead).size());
        result[figure::cold_faults_around] = static_cast<double>(start.faults(read_window::around).size());
    }
    return result;
}

void layout_meter::measure_space(const placed_code& layout, figures& result) const {
    result[figure::functions] = static_cast<double>(layout.by_address.size());
    result[figure::bytes] = count_bytes(layout.by_address);
    result[figure::calls] = static_cast<double>(code_.inner_calls);
    result[figure::pages_4k] = count_blocks(layout.by_address, page);
    result[figure::blocks_64k] = count_blocks(layout.by_address, block);
    result[figure::pages_2m] = count_blocks(layout.by_address, huge_page);
}

void layout_meter::measure_heat(const placed_code& layout, figures& result) {
    page_heat_.clear();
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < layout.by_address.size(); ++i) {
        const std::uint64_t number = layout.by_address[i].address / page;
        if (page_heat_.empty() || number != last) {
            page_heat_.push_back(0);
            last = number;
        }
        page_heat_.back() += heat_[layout.numbers.empty() ? i : layout.numbers[i]];
    }
    std::sort(page_heat_.begin(), page_heat_.end(), std::greater<>());
    const std::uint64_t ends = 2 * code_.inner_calls;
    result[figure::hot_pages_90] = count_hottest(page_heat_, share_of(ends, 90));
    result[figure::hot_pages_99] = count_hottest(page_heat_, share_of(ends, 99));
}

void layout_meter::measure_calls(const placed_code& layout, figures& result) {
    for (std::size_t i = 0; i < layout.by_address.size(); ++i) {
        addresses_[layout.numbers.empty() ? i : layout.numbers[i]] = layout.by_address[i].address;
    }
    const std::vector<counted_calls>& all = code_.calls;
    distances_.clear();
    distances_.reserve(all.size());
    std::uint64_t on_page = 0;
    std::uint64_t in_block = 0;
    std::uint64_t largest = 0;
    double weighted_sum = 0;
    constexpr std::size_t ahead = 24; // calls between prefetch and use: their functions lie anywhere
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (i + ahead < all.size()) {
            prefetch_line(&addresses_[all[i + ahead].first]);
            prefetch_line(&addresses_[all[i + ahead].second]);
        }
        const counted_calls& c = all[i];
        const std::uint64_t a = addresses_[c.first];
        const std::uint64_t b = addresses_[c.second];
        const std::uint64_t distance = a < b ? b - a : a - b;
        distances_.emplace_back(distance, c.count);
        largest = std::max(largest, distance);
        on_page += a / page == b / page ? c.count : 0;
        in_block += a / block == b / block ? c.count : 0;
        weighted_sum += static_cast<double>(distance) * c.count;
    }
    result[figure::mean_distance] = weighted_sum / static_cast<double>(code_.inner_calls);
    result[figure::median_distance] = weighted_median(distances_, largest, code_.inner_calls);
    result[figure::same_page] = percent_of(on_page, code_.inner_calls);
    result[figure::same_64k] = percent_of(in_block, code_.inner_calls);
}

std::optional<double> percent_of(std::uint64_t part, std::uint64_t whole) {
    if (whole == 0) {
        return std::nullopt;
    }
    constexpr std::uint64_t largest_whole = std::uint64_t{1} << 53U;
    const double divisor = static_cast<double>(whole);
    if (part <= largest_whole / 100 && whole <= largest_whole) {
        return static_cast<double>(part * 100) / divisor; // both exact, so this is the double nearest to the share
    }
    return 100.0 * (static_cast<double>(part) / divisor); // no share of so much is met by chance
}

std::vector<distance_share> distance_curve(const called_code& code) {
    std::vector<weighted_distance> distances;
    distances.reserve(code.calls.size());
    for (const counted_calls& c : code.calls) {
        const std::uint64_t a = code.functions[c.first].address;
        const std::uint64_t b = code.functions[c.second].address;
        distances.emplace_back(a < b ? b - a : a - b, c.count);
    }
    std::vector<distance_share> curve;
    std::sort(distances.begin(), distances.end());
    std::uint64_t reached = 0;
    std::size_t next = 0;
    for (double limit = 16; next < distances.size(); limit *= std::sqrt(2.0)) {
        constexpr double beyond = 18446744073709551616.0; // 2^64
        const std::uint64_t distance = limit < beyond ? static_cast<std::uint64_t>(limit) : UINT64_MAX;
        for (; next < distances.size() && distances[next].first <= distance; ++next) {
            reached += distances[next].second;
        }
        curve.push_back({distance, *percent_of(reached, code.inner_calls)});
    }
    return curve;
}
