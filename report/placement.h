// Whether an order is in a binary.
//
// Of the functions that the binary has, those count as in order that form the longest sequence of never falling addresses
// in the order file's order: what the linker put elsewhere, whether one function or half of them, falls out of it.
//
//     order: f main g h      addresses: f 0x10  main 0x40  g 0x05  h 0x80      in order: f, main, h; placed: 75 %
#pragma once

#include "binary/function_table.h"

#include <cstdint>
#include <string>
#include <vector>

/// A function of the order that the binary does not have, and why.
struct missing_function {
    std::string name;
    const char* reason;
};

struct placement {
    std::uint64_t names = 0;               ///< in the order file
    std::uint64_t found = 0;               ///< functions of known size in the binary
    std::vector<missing_function> missing; ///< the others, in the order's order
    std::uint64_t several_definitions = 0; ///< found ones with more than one address
    std::uint64_t in_order = 0;            ///< length of the longest sequence
    double placed = 0;                     ///< in_order / names, in percent
    std::uint64_t foreign = 0; ///< function addresses inside the sequence that belong to no name of the order
};

placement find_placement(const std::vector<std::string>& order, const function_table& binary);
