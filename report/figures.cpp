#include "report/figures.h"

#include "support/prefetch.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numeric>
#include <random>

namespace {

constexpr std::uint64_t page = 4096;
constexpr std::uint64_t block = 65536;
constexpr std::uint64_t huge_page = 2097152;
constexpr unsigned int random_orders = 20;

constexpr std::array<figure_row, 10> rows = {{
    {"functions", "functions", "", [](const figures& f) { return std::optional(f.functions); }, false},
    {"bytes", "bytes of code", "bytes", [](const figures& f) { return std::optional(f.bytes); }, false},
    {"calls", "calls", "", [](const figures& f) { return std::optional(f.calls); }, false},
    {"pages_4k", "4 KiB pages touched", "", [](const figures& f) { return std::optional(f.pages_4k); }, true},
    {"blocks_64k", "64 KiB blocks touched", "", [](const figures& f) { return std::optional(f.blocks_64k); }, true},
    {"pages_2m", "2 MiB pages touched", "", [](const figures& f) { return std::optional(f.pages_2m); }, true},
    {"mean_distance", "mean distance of a call", "bytes", [](const figures& f) { return f.mean_distance; }, true},
    {"median_distance", "median distance of a call", "bytes", [](const figures& f) { return f.median_distance; }, true},
    {"same_page", "calls within a 4 KiB page", "%", [](const figures& f) { return f.same_page; }, true},
    {"same_64k", "calls within a 64 KiB block", "%", [](const figures& f) { return f.same_64k; }, true},
}};

// How many blocks of a size the functions overlap. `places` ascend by address.
double count_blocks(std::span<const extent> places, std::uint64_t size) {
    std::uint64_t count = 0;
    std::uint64_t next = 0; // the first block that is not counted yet
    for (const extent& place : places) {
        const std::uint64_t first = std::max(place.address / size, next);
        const std::uint64_t last = (place.address + place.size - 1) / size;
        if (last >= first) {
            count += last - first + 1;
            next = last + 1;
        }
    }
    return static_cast<double>(count);
}

std::uint64_t distance_of(const counted_calls& calls, std::span<const extent> functions) {
    const std::uint64_t a = functions[calls.first].address;
    const std::uint64_t b = functions[calls.second].address;
    return a < b ? b - a : a - b;
}

/// A distance and the calls that go so far.
using weighted_distance = std::pair<std::uint64_t, std::uint64_t>;

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

// The figures of calls, which do not depend on the order of `functions`. `distances` is scratch, kept from layout to layout.
void measure_calls(std::span<const extent> functions, std::span<const counted_calls> all,
                   std::vector<weighted_distance>& distances, figures& result) {
    distances.clear();
    distances.reserve(all.size());
    std::uint64_t calls = 0;
    std::uint64_t on_page = 0;
    std::uint64_t in_block = 0;
    std::uint64_t largest = 0;
    double weighted_sum = 0;
    constexpr std::size_t ahead = 24; // calls between prefetch and use: their functions lie anywhere
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (i + ahead < all.size()) {
            prefetch_line(&functions[all[i + ahead].first]);
            prefetch_line(&functions[all[i + ahead].second]);
        }
        const counted_calls& c = all[i];
        const std::uint64_t a = functions[c.first].address;
        const std::uint64_t b = functions[c.second].address;
        const std::uint64_t distance = distance_of(c, functions);
        distances.emplace_back(distance, c.count);
        largest = std::max(largest, distance);
        calls += c.count;
        on_page += a / page == b / page ? c.count : 0;
        in_block += a / block == b / block ? c.count : 0;
        weighted_sum += static_cast<double>(distance) * static_cast<double>(c.count);
    }
    result.calls = static_cast<double>(calls);
    if (calls != 0) {
        result.mean_distance = weighted_sum / result.calls;
        result.median_distance = weighted_median(distances, largest, calls);
        result.same_page = 100.0 * static_cast<double>(on_page) / result.calls;
        result.same_64k = 100.0 * static_cast<double>(in_block) / result.calls;
    }
}

void measure_space(std::span<const extent> places, figures& result) {
    result.functions = static_cast<double>(places.size());
    result.bytes = 0;
    for (const extent& place : places) {
        result.bytes += static_cast<double>(place.size);
    }
    result.pages_4k = count_blocks(places, page);
    result.blocks_64k = count_blocks(places, block);
    result.pages_2m = count_blocks(places, huge_page);
}

/// The sum of a figure over the random orders, divided only at the end, so that whole numbers stay whole.
class mean {
public:
    void add(const std::optional<double>& value) {
        if (value.has_value()) {
            sum_ = sum_.value_or(0) + *value;
        }
    }
    std::optional<double> value() const {
        return sum_.has_value() ? std::optional(*sum_ / random_orders) : std::nullopt;
    }

private:
    std::optional<double> sum_;
};

} // namespace

std::span<const figure_row> figure_rows() {
    return rows;
}

figures measure(const called_code& code) {
    figures result;
    measure_space(code.functions, result);
    std::vector<weighted_distance> distances;
    measure_calls(code.functions, code.calls, distances, result);
    return result;
}

figures measure_random(const called_code& code, std::uint64_t seed) {
    constexpr std::uint64_t alignment = 16;
    figures layout;
    std::array<mean, 7> means;
    std::vector<weighted_distance> distances;
    std::vector<std::uint32_t> order(code.functions.size());
    std::vector<extent> by_number(code.functions.size());
    std::vector<extent> by_address(code.functions.size());
    for (unsigned int i = 0; i < random_orders; ++i) {
        // Fisher-Yates, by hand: the library's shuffle differs between libraries, and the figures must not.
        std::mt19937_64 random(seed + i);
        std::iota(order.begin(), order.end(), 0U);
        for (std::size_t left = order.size(); left > 1; --left) {
            std::swap(order[left - 1], order[random() % left]);
        }
        std::uint64_t address = 0;
        for (std::size_t place = 0; place < order.size(); ++place) {
            const std::uint64_t size = code.functions[order[place]].size;
            by_number[order[place]] = by_address[place] = {address, size};
            address = (address + size + alignment - 1) / alignment * alignment;
        }
        layout = {};
        measure_space(by_address, layout);
        measure_calls(by_number, code.calls, distances, layout);
        const std::optional<double> values[] = {layout.pages_4k,      layout.blocks_64k,      layout.pages_2m,
                                                layout.mean_distance, layout.median_distance, layout.same_page,
                                                layout.same_64k};
        for (std::size_t figure = 0; figure < means.size(); ++figure) {
            means[figure].add(values[figure]);
        }
    }
    return {layout.functions,  layout.bytes,     layout.calls,     *means[0].value(), *means[1].value(),
            *means[2].value(), means[3].value(), means[4].value(), means[5].value(),  means[6].value()};
}

namespace {

// Whole numbers as such.
nlohmann::ordered_json to_json(const std::optional<double>& value) {
    constexpr double largest_whole = 9007199254740992.0; // 2^53
    if (!value.has_value()) {
        return nullptr;
    }
    if (std::floor(*value) == *value && std::abs(*value) <= largest_whole) {
        return static_cast<std::int64_t>(*value);
    }
    return *value;
}

} // namespace

nlohmann::ordered_json bound_of(const figures& layout) {
    const auto blocks = [&](std::uint64_t size) {
        return to_json(std::optional(std::ceil(layout.bytes / static_cast<double>(size))));
    };
    return {{"pages_4k", blocks(page)}, {"blocks_64k", blocks(block)}, {"pages_2m", blocks(huge_page)}};
}

nlohmann::ordered_json to_json(const figures& layout) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const figure_row& row : rows) {
        object[row.key] = to_json(row.value(layout));
    }
    return object;
}

std::vector<distance_share> distance_curve(const called_code& code) {
    std::vector<weighted_distance> distances;
    std::uint64_t calls = 0;
    for (const counted_calls& c : code.calls) {
        distances.emplace_back(distance_of(c, code.functions), c.count);
        calls += c.count;
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
        curve.push_back({distance, 100.0 * static_cast<double>(reached) / static_cast<double>(calls)});
    }
    return curve;
}
