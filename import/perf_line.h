// The lines of perf script, taken apart: the parts of import/perf.cpp that know how perf prints.
//
//     f+0x1c (/tmp/my app (2))                               a frame: symbol, offset, object; perf prints what -F lists
//     f+0x1c (/tmp/app)main+0x5(/tmp/app)/f+0x0(/tmp/app)/P/-/-/0    and, on the same line, the first of its branches
//
// Symbols, objects and commands may hold blanks and brackets. What ends them is told by what perf prints next to them: the
// offset before an object, the first letter of a path, the width of an address.
#pragma once

#include <cstdint>
#include <string_view>

/// A place in a function.
struct perf_place {
    std::string_view symbol;    ///< empty: not printed
    std::string_view object;    ///< empty: not printed
    bool is_first_byte = false; ///< whether the offset is 0
};

/// Splits "symbol+0xOFFSET (OBJECT)" or, as branches have it, "symbol+0xOFFSET(OBJECT)"; offset and object may be missing.
perf_place parse_perf_place(std::string_view text);

/// Takes an address and the blanks behind it off the front of a text; false when there is none.
bool take_perf_address(std::string_view& text);
/// The same, and its value modulo 2^64.
bool take_perf_address(std::string_view& text, std::uint64_t& address);

/// Whether a line has a time, which all samples' first lines have unless -F leaves it out: "1570.842829:".
bool has_perf_time(std::string_view line);

/// The first line of a sample.
struct perf_head {
    std::string_view event; ///< as perf prints it; empty: not printed
    std::string_view rest;  ///< from the address on; empty: there is none
    bool ends_with_event = false;
    std::uint64_t process = 0; ///< 0: not printed
};
perf_head parse_perf_head(std::string_view line);

/// Takes the next branch, "FROM/TO/P/-/-/0", off the front of a line; false when none is left. `flag_count` becomes the number
/// of fields behind TO.
bool take_perf_branch(std::string_view& line, std::string_view& ends, std::size_t& flag_count);

/// Splits the two ends of a branch; false when there are not two.
bool split_perf_branch(std::string_view ends, std::string_view& from, std::string_view& to);

/// Reads the two ends of a branch without symbols, "0xFROM/0xTO"; false for another.
bool parse_perf_addresses(std::string_view ends, std::uint64_t& from, std::uint64_t& to);

/// Splits a frame from the branch that perf printed right behind it; false when nothing tells where it ends.
bool split_perf_frame(std::string_view text, std::string_view& frame, std::string_view& branch);
