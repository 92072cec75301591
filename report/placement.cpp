#include "report/placement.h"

#include "report/called_code.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace {

/// What is known of a name of the order.
struct known_name {
    std::uint64_t lowest = UINT64_MAX; ///< address; valid if is_function
    bool is_function = false;
    bool has_several = false;
    bool is_undefined = false;
    bool is_other = false; ///< defined, but no function of known size
};

/// The longest sequence of never falling numbers among `addresses`: its length, and its first and last number.
struct sequence {
    std::size_t length = 0;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
};

// By patience sorting: of all sequences of one length the one with the smallest end is kept.
sequence longest_rising(const std::vector<std::uint64_t>& addresses) {
    struct end_of_sequence {
        std::uint64_t last;
        std::uint64_t first;
    };
    std::vector<end_of_sequence> ends; // by length - 1
    for (const std::uint64_t address : addresses) {
        const auto longer = std::upper_bound(ends.begin(), ends.end(), address,
                                             [](std::uint64_t a, const end_of_sequence& end) { return a < end.last; });
        const std::uint64_t first = longer == ends.begin() ? address : (longer - 1)->first;
        if (longer == ends.end()) {
            ends.push_back({address, first});
        } else {
            *longer = {address, first};
        }
    }
    return ends.empty() ? sequence() : sequence{ends.size(), ends.back().first, ends.back().last};
}

} // namespace

placement find_placement(const std::vector<std::string>& order, const function_table& binary) {
    std::unordered_map<std::string_view, known_name> known;
    for (const std::string& name : order) {
        known.emplace(name, known_name());
    }
    std::unordered_set<std::uint64_t> ordered_addresses;
    for (const elf_symbol& symbol : binary.symbols()) {
        const auto entry = known.find(symbol.name);
        if (entry == known.end()) {
            continue;
        }
        known_name& name = entry->second;
        if (is_placed_function(symbol)) {
            name.has_several |= name.is_function && name.lowest != symbol.address;
            name.is_function = true;
            name.lowest = std::min(name.lowest, symbol.address);
            ordered_addresses.insert(symbol.address);
        } else {
            (symbol.kind == symbol_kind::undefined ? name.is_undefined : name.is_other) = true;
        }
    }

    placement result;
    result.names = order.size();
    std::vector<std::uint64_t> addresses;
    for (const std::string& text : order) {
        const known_name& name = known.at(text);
        if (name.is_function) {
            ++result.found;
            result.several_definitions += name.has_several ? 1 : 0;
            addresses.push_back(name.lowest);
        } else {
            result.missing.push_back({text, name.is_other       ? "not a function"
                                            : name.is_undefined ? "undefined: bound in a shared library"
                                                                : "not there"});
        }
    }
    const sequence longest = longest_rising(addresses);
    result.in_order = longest.length;
    result.placed = order.empty() ? 0 : 100.0 * static_cast<double>(longest.length) / static_cast<double>(order.size());
    std::unordered_set<std::uint64_t> foreign;
    for (const elf_symbol& symbol : binary.symbols()) {
        if (is_placed_function(symbol) && symbol.address > longest.first && symbol.address < longest.last &&
            !ordered_addresses.contains(symbol.address)) {
            foreign.insert(symbol.address);
        }
    }
    result.foreign = foreign.size();
    return result;
}
