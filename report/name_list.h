// The names of a list, such as an order file, looked up in a binary.
//
// A name that the list has twice counts once, where it first stands. One that the binary defines several times (static
// functions of one name) has several places, and the first of them, the lowest, is where it is said to lie.
//
//     list: f g f h        binary: f at 0x5000 and 0x1000, data h
//
//     names  f: 0x1000, 0x5000    g: none    h: none, is_other
#pragma once

#include "report/called_code.h"

#include <span>
#include <string>
#include <vector>

/// A name of a list, with what a binary has under it.
struct listed_name {
    std::string_view name;     ///< borrowed from the list
    std::uint32_t first = 0;   ///< number of its lowest place in name_list::places
    std::uint32_t count = 0;   ///< of its places; 0 when it is no function of known size
    bool is_undefined = false; ///< another file defines it
    bool is_other = false;     ///< defined, but as no function of known size
};

struct name_list {
    std::vector<listed_name> names; ///< all different, in the list's order
    std::vector<extent> places;     ///< by name, those of one ascending by address and all different

    /// The places of a name, the lowest first.
    std::span<const extent> places_of(const listed_name& name) const {
        return std::span(places).subspan(name.first, name.count);
    }
};

/// Reads an order file. Throws `failure` when it cannot be read, is none, or has no name.
std::vector<std::string> read_order(const std::string& path);

/// Looks the names of a list up, which must live as long as the result.
name_list look_up(const std::vector<std::string>& list, const function_table& binary);
