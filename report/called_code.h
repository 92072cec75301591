// The part of a binary that the call graph is about: where its functions lie, and the calls between them.
//
// A name of several definitions (static functions of one name) counts for its lowest address in the calls, since nobody
// knows which of them made a call, and for all of them in the space they take. Names of one address are one function, and
// calls between them are calls to oneself, which count nowhere.
//
//     CSV: main,f,10  f,g,3        binary: main at 0x1100, f at 0x1000 and 0x5000, no g
//
//     functions  0x1000 (f)  0x1100 (main)  0x5000 (f)        calls  1 -> 0: 10        all_calls  13
#pragma once

#include "ORDWELL/call_profile.h"
#include "binary/function_table.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// A function's place: [address, address + size), in bytes.
struct extent {
    std::uint64_t address;
    std::uint64_t size; ///< above 0

    std::uint64_t end() const { return address + size; }
};

/// The calls between two different functions, by their numbers.
struct counted_calls {
    std::uint32_t first;
    std::uint32_t second;
    std::uint32_t count; ///< in both directions, saturating at 4294967295
};

/// The functions of a call graph that a binary has.
struct called_code {
    std::vector<extent> functions;       ///< ascending by address, all different
    std::vector<std::string_view> names; ///< one name of each, borrowed from the call graph
    std::vector<counted_calls> calls;
    std::uint64_t inner_calls = 0; ///< sum of `calls`
    std::uint64_t all_calls = 0;   ///< and with those of which one function or both are not in the binary
    std::uint64_t low = 0;         ///< where the code begins: the lowest address of any function, called or not
    std::uint64_t high = 0;        ///< and behind the highest one
};

/// Finds the functions of a call graph in a binary. Throws `failure` for a damaged binary and for one without functions.
called_code find_called_code(const call_profile& calls, const function_table& binary, const std::string& path);

/// Whether a symbol is a function whose place and size are known.
inline bool is_placed_function(const elf_symbol& symbol) {
    return symbol.kind == symbol_kind::function && symbol.size > 0;
}
