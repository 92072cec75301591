#include "bench/layouts/replay.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <unordered_map>

namespace {

constexpr std::uint64_t page_size = 4096;
constexpr std::uint64_t line_size = 64;

/// A cache of `Sets` sets of 8 ways, in each of which the block used last stands first.
template <std::size_t Sets>
class cache {
public:
    /// Uses a block, and says whether it was missing.
    bool misses(std::uint64_t block) {
        if (block == last_) {
            return false; // it stands first in its set
        }
        last_ = block;
        auto& set = sets_[block % Sets];
        const auto found = std::find(set.begin(), set.end(), block);
        const bool is_missing = found == set.end();
        const auto place = is_missing ? set.end() - 1 : found;
        std::move_backward(set.begin(), place, place + 1);
        set.front() = block;
        return is_missing;
    }

private:
    static constexpr std::uint64_t none = UINT64_MAX;
    static constexpr std::array<std::uint64_t, 8> empty = {none, none, none, none, none, none, none, none};
    static constexpr std::array<std::array<std::uint64_t, 8>, Sets> all_empty() {
        std::array<std::array<std::uint64_t, 8>, Sets> sets{};
        sets.fill(empty);
        return sets;
    }
    std::array<std::array<std::uint64_t, 8>, Sets> sets_ = all_empty();
    std::uint64_t last_ = none;
};

/// A run at its address in a layout.
struct placed_run {
    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t first_line;
    std::uint64_t last_line;
    std::uint32_t section;
    bool is_entry; ///< it starts at the first byte of a section
};

std::vector<placed_run> place_runs(const trace& t, const std::vector<section>& layout) {
    std::unordered_map<std::string, std::uint64_t> addresses;
    for (const section& s : layout) {
        addresses[s.name] = s.address;
    }
    std::vector<placed_run> result;
    for (const run& r : t.runs) {
        std::uint64_t begin = r.offset;
        if (r.section != run::foreign) {
            const auto found = addresses.find(t.sections[r.section]);
            if (found == addresses.end()) {
                throw std::runtime_error(t.sections[r.section] + ": was executed, and is not in this link");
            }
            begin += found->second;
        }
        const std::uint64_t end = begin + r.bytes;
        result.push_back({begin, end, begin / line_size, (end - 1) / line_size, r.section,
                          r.section != run::foreign && r.offset == 0});
    }
    return result;
}

// The fewest pages with this share of the instructions; `held` is how many each page has, the fullest first.
std::size_t fewest_pages(const std::vector<double>& held, double share) {
    double wanted = 0;
    for (const double instructions : held) {
        wanted += share * instructions;
    }
    std::size_t pages = 0;
    for (double have = 0; have < wanted && pages < held.size(); ++pages) {
        have += held[pages];
    }
    return pages;
}

// The program's instructions by page, the fullest first. Those of a run over several pages are spread by its bytes.
std::vector<double> instructions_by_page(const trace& t, const std::vector<placed_run>& placed) {
    std::vector<std::uint64_t> times(t.runs.size());
    for (const std::uint32_t step : t.steps) {
        ++times[step];
    }
    std::unordered_map<std::uint64_t, double> by_page;
    for (std::size_t r = 0; r < placed.size(); ++r) {
        if (placed[r].section == run::foreign) {
            continue;
        }
        const double per_byte =
            static_cast<double>(times[r]) * t.runs[r].instructions / static_cast<double>(t.runs[r].bytes);
        for (std::uint64_t begin = placed[r].begin; begin < placed[r].end;) {
            const std::uint64_t page = begin / page_size;
            const std::uint64_t end = std::min(placed[r].end, (page + 1) * page_size);
            by_page[page] += per_byte * static_cast<double>(end - begin);
            begin = end;
        }
    }
    std::vector<double> held;
    held.reserve(by_page.size());
    for (const auto& [page, instructions] : by_page) {
        held.push_back(instructions);
    }
    std::sort(held.begin(), held.end(), std::greater<>());
    return held;
}

} // namespace

costs replay(const trace& t, const std::vector<section>& layout) {
    const std::vector<placed_run> placed = place_runs(t, layout);
    cache<64> lines;
    cache<8> pages;
    costs result{};
    double distances = 0;
    std::uint64_t calls = 0;
    const placed_run* previous = nullptr;
    for (const std::uint32_t step : t.steps) {
        const placed_run& r = placed[step];
        for (std::uint64_t line = r.first_line; line <= r.last_line; ++line) {
            result.cache_misses += lines.misses(line) ? 1 : 0;
            result.tlb_misses += pages.misses(line / (page_size / line_size)) ? 1 : 0;
        }
        if (r.is_entry && previous != nullptr && previous->section != run::foreign && previous->section != r.section) {
            distances += static_cast<double>(std::max(r.begin, previous->end) - std::min(r.begin, previous->end));
            ++calls;
        }
        previous = &r;
    }
    result.distance = calls == 0 ? 0 : distances / static_cast<double>(calls);
    const std::vector<double> held = instructions_by_page(t, placed);
    result.pages = held.size();
    result.pages_90 = fewest_pages(held, 0.90);
    result.pages_99 = fewest_pages(held, 0.99);
    return result;
}
