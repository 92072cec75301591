// The rows of weighted call graph files, as everything that reads them takes them apart.
//
//     "caller","callee","weight"
//     main,f,10
//     f,g,3
//
// The first line is the header. Every further line is a row of three fields; anything behind the weight is ignored, and
// so is a row that starts with a double quote (the header again, where files were concatenated) or whose weight is
// 0. Names are taken byte for byte. The first bad row ends a file.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/strcase.h"

#include <charconv>
#include <string_view>

/// Takes the text up to the next comma, and the comma, off the front of `rest`.
inline std::string_view take_field(std::string_view& rest) {
    const std::size_t comma = rest.find(',');
    const std::string_view field = rest.substr(0, comma);
    rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    return field;
}

/// Whether a first line is the header; anything may follow the word "weight" behind white space.
inline bool is_csv_header(std::string_view line) {
    if (take_field(line) != "\"caller\"" || take_field(line) != "\"callee\"") {
        return false;
    }
    while (!line.empty() && is_space(line.front())) {
        line.remove_prefix(1);
    }
    std::size_t length = 0;
    while (length < line.size() && !is_space(line[length])) {
        ++length;
    }
    return line.substr(0, length) == "\"weight\"";
}

/// Reads a weight: white space, an optional sign, decimal digits. A minus sign negates modulo 2^32. False when there is
/// no digit or the digits exceed 4294967295.
inline bool parse_weight(std::string_view text, std::uint32_t& weight) {
    while (!text.empty() && is_space(text.front())) {
        text.remove_prefix(1);
    }
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    if (std::from_chars(text.data(), text.data() + text.size(), weight).ec != std::errc()) {
        return false;
    }
    weight = negative ? 0 - weight : weight;
    return true;
}

/// What a line after the header turned out to be.
enum class line_kind { row, skipped, bad_caller, bad_callee, bad_weight };

/// Takes a line, without its line feed, apart; `row` is valid where it is one.
inline line_kind parse_row(std::string_view line, call_row& row) {
    if (line.starts_with('"')) {
        return line_kind::skipped;
    }
    if (line.empty()) {
        return line_kind::bad_caller;
    }
    row.caller = take_field(line);
    if (line.empty()) {
        return line_kind::bad_callee;
    }
    row.callee = take_field(line);
    if (!parse_weight(line, row.weight)) {
        return line_kind::bad_weight;
    }
    return row.weight == 0 ? line_kind::skipped : line_kind::row;
}
