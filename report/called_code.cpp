#include "report/called_code.h"

#include "support/failure.h"

#include <algorithm>

namespace {

/// A function symbol that the call graph names.
struct named_place {
    extent place;
    std::uint32_t name; ///< number in the call graph
};

} // namespace

called_code find_called_code(const call_profile& calls, const function_table& binary, const std::string& path) {
    constexpr std::uint64_t largest = std::uint64_t{1} << 40U; // no function has a terabyte, and sums must not overflow
    called_code code;
    code.low = UINT64_MAX;
    std::vector<named_place> places;
    for (const elf_symbol& symbol : binary.symbols()) {
        if (!is_placed_function(symbol)) {
            continue;
        }
        if (symbol.size > largest || symbol.address > UINT64_MAX - symbol.size) {
            throw failure(path, "damaged symbol table: the size of " + std::string(symbol.name) + " is impossible");
        }
        code.low = std::min(code.low, symbol.address);
        code.high = std::max(code.high, symbol.address + symbol.size);
        if (const std::uint32_t name = calls.find(symbol.name); name != no_index) {
            places.push_back({{symbol.address, symbol.size}, name});
        }
    }
    if (code.high == 0) {
        throw failure(path,
                      "no symbol is a function of known size: give the program as the linker wrote it, not stripped");
    }
    // By address, so that names of one address stand together and the first place of a name is its lowest.
    std::stable_sort(places.begin(), places.end(),
                     [](const named_place& a, const named_place& b) { return a.place.address < b.place.address; });
    std::vector<std::uint32_t> function_of(calls.function_count(), no_index); // by name: at its lowest address
    for (const named_place& p : places) {
        if (code.functions.empty() || code.functions.back().address != p.place.address) {
            code.functions.push_back(p.place);
            code.names.push_back(calls.name(p.name));
        }
        code.functions.back().size = std::max(code.functions.back().size, p.place.size);
        if (function_of[p.name] == no_index) {
            function_of[p.name] = static_cast<std::uint32_t>(code.functions.size() - 1);
        }
    }
    for (const call_edge& edge : calls.edges()) {
        const std::uint32_t first = function_of[edge.end[0]];
        const std::uint32_t second = function_of[edge.end[1]];
        if (first == no_index || second == no_index) {
            code.all_calls += edge.weight;
        } else if (first != second) {
            code.all_calls += edge.weight;
            code.inner_calls += edge.weight;
            code.calls.push_back({first, second, edge.weight});
        }
    }
    return code;
}
