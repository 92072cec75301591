#include "report/placement.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace {

/// A function whose order counts.
struct ranked_place {
    std::uint32_t rank; ///< number of its name in the order
    extent place;
};

// The length of the longest rising sequence: of all sequences of one length the smallest end is kept.
std::uint64_t longest_rising(const std::vector<std::uint64_t>& numbers) {
    std::vector<std::uint64_t> ends; // by length - 1
    for (const std::uint64_t number : numbers) {
        const auto longer = std::lower_bound(ends.begin(), ends.end(), number);
        if (longer == ends.end()) {
            ends.push_back(number);
        } else {
            *longer = number;
        }
    }
    return ends.size();
}

// The found functions without folded ones, in the order's order.
std::vector<ranked_place> ranked_places(const name_list& list) {
    std::vector<ranked_place> ranked;
    std::unordered_set<std::uint64_t> taken;
    for (std::uint32_t rank = 0; rank < list.names.size(); ++rank) {
        const listed_name& name = list.names[rank];
        if (name.count != 0 && taken.insert(list.places[name.first].address).second) {
            ranked.push_back({rank, list.places[name.first]});
        }
    }
    return ranked;
}

void sort_by_address(std::vector<ranked_place>& ranked) {
    std::sort(ranked.begin(), ranked.end(),
              [](const ranked_place& a, const ranked_place& b) { return a.place.address < b.place.address; });
}

// Extents merged where they touch or overlap, ascending.
std::vector<extent> merged(std::vector<extent> places) {
    std::sort(places.begin(), places.end(), [](const extent& a, const extent& b) { return a.address < b.address; });
    std::vector<extent> result;
    for (const extent& place : places) {
        if (result.empty() || result.back().end() < place.address) {
            result.push_back(place);
        } else {
            result.back().size = std::max(result.back().end(), place.end()) - result.back().address;
        }
    }
    return result;
}

/// Finds out why names are missing; what is expensive to know is gathered at the first question.
class missing_explainer {
public:
    explicit missing_explainer(const function_table& binary) : binary_(binary) {}

    missing_reason explain(const listed_name& name) {
        if (name.is_other) {
            return missing_reason::no_function;
        }
        if (name.is_undefined) {
            return missing_reason::undefined;
        }
        if (!has_cold_parts_) {
            gather_cold_parts();
        }
        if (cold_parts_.contains(name.name)) {
            return missing_reason::cold_part;
        }
        const bool is_readable = !binary_.find(name.name, known_form::demangled).empty();
        return is_readable ? missing_reason::mangled : missing_reason::absent;
    }

private:
    // GCC calls the cold part of f "f.cold", and until version 8 "f.cold.17".
    void gather_cold_parts() {
        constexpr std::string_view mark = ".cold";
        for (const elf_symbol& symbol : binary_.symbols()) {
            const std::size_t at = symbol.name.rfind(mark);
            if (is_placed_function(symbol) && at != std::string_view::npos &&
                symbol.name.find_first_not_of(".0123456789", at + mark.size()) == std::string_view::npos) {
                cold_parts_.insert(symbol.name.substr(0, at));
            }
        }
        has_cold_parts_ = true;
    }

    const function_table& binary_;
    std::unordered_set<std::string_view> cold_parts_; ///< the names of the functions
    bool has_cold_parts_ = false;
};

// The function with most bytes in a hole, the lowest of equal ones.
std::optional<std::string> main_function(const hole& hole, const function_table& binary) {
    const elf_symbol* chosen = nullptr;
    std::uint64_t most = 0;
    for (const elf_symbol& symbol : binary.symbols()) {
        if (!is_placed_function(symbol)) {
            continue;
        }
        const std::uint64_t start = std::max(symbol.address, hole.address);
        const std::uint64_t end = std::min(symbol.address + symbol.size, hole.address + hole.bytes);
        const std::uint64_t bytes = end > start ? end - start : 0;
        if (bytes > most || (bytes == most && bytes != 0 && symbol.address < chosen->address)) {
            chosen = &symbol;
            most = bytes;
        }
    }
    return chosen == nullptr ? std::nullopt : std::optional(std::string(chosen->name));
}

// What lies between the first and the last of the counted functions and belongs to no name of the order.
void measure_gaps(const function_table& binary, placement& result) {
    std::uint64_t at = result.low;
    hole largest = {0, 0, std::nullopt};
    const auto end_hole = [&](std::uint64_t end) {
        if (end > at) {
            result.gap_bytes += end - at;
            if (end - at > largest.bytes) {
                largest = {at, end - at, std::nullopt};
            }
        }
    };
    for (const extent& owned : result.owned) {
        end_hole(std::min(owned.address, result.high));
        at = std::max(at, owned.end());
    }
    end_hole(result.high);
    if (largest.bytes != 0) {
        largest.function = main_function(largest, binary);
        result.largest_hole = std::move(largest);
    }
    std::unordered_set<std::uint64_t> foreign;
    for (const elf_symbol& symbol : binary.symbols()) {
        if (is_placed_function(symbol) && symbol.address >= result.low && symbol.address < result.high) {
            const auto behind =
                std::upper_bound(result.owned.begin(), result.owned.end(), symbol.address,
                                 [](std::uint64_t address, const extent& owned) { return address < owned.address; });
            if (behind == result.owned.begin() || (behind - 1)->end() <= symbol.address) {
                foreign.insert(symbol.address);
            }
        }
    }
    result.foreign = foreign.size();
}

// Neighbours by address whose order is not the list's, and how many of them the baseline has as neighbours, too.
void count_falls(const std::vector<ranked_place>& by_address, const std::vector<std::string>& order,
                 const function_table* baseline, placement& result) {
    std::unordered_map<std::uint32_t, std::uint32_t> follower; // in the baseline, by rank
    if (baseline != nullptr) {
        const name_list list = look_up(order, *baseline);
        std::vector<ranked_place> before = ranked_places(list);
        sort_by_address(before);
        for (std::size_t i = 1; i < before.size(); ++i) {
            follower[before[i - 1].rank] = before[i].rank;
        }
    }
    result.has_baseline = baseline != nullptr;
    for (std::size_t i = 1; i < by_address.size(); ++i) {
        if (by_address[i - 1].rank > by_address[i].rank) {
            ++result.falls;
            const auto entry = follower.find(by_address[i - 1].rank);
            result.kept_falls += entry != follower.end() && entry->second == by_address[i].rank ? 1 : 0;
        }
    }
}

} // namespace

placement find_placement(const std::vector<std::string>& order, const function_table& binary,
                         const function_table* baseline) {
    const name_list list = look_up(order, binary);
    placement result;
    result.names = list.names.size();
    missing_explainer explainer(binary);
    for (const listed_name& name : list.names) {
        if (name.count != 0) {
            ++result.found;
            continue;
        }
        const missing_reason reason = explainer.explain(name);
        result.missing.push_back({std::string(name.name), reason});
        ++result.missing_sums[static_cast<std::size_t>(reason)];
    }
    std::vector<ranked_place> ranked = ranked_places(list);
    result.folded = result.found - ranked.size();
    std::vector<std::uint64_t> addresses;
    addresses.reserve(ranked.size());
    for (const ranked_place& function : ranked) {
        addresses.push_back(function.place.address);
    }
    result.in_order = longest_rising(addresses);
    std::reverse(addresses.begin(), addresses.end());
    result.in_reverse = longest_rising(addresses);
    sort_by_address(ranked);
    if (!ranked.empty()) {
        result.low = ranked.front().place.address;
        for (const ranked_place& function : ranked) {
            result.high = std::max(result.high, function.place.end());
        }
        result.owned = merged(list.places);
        measure_gaps(binary, result);
    }
    count_falls(ranked, order, baseline, result);
    return result;
}
