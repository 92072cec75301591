// The order file read back: the function names that write_order() wrote, for programs that take it further.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What stands before and behind a name in a line of the order file. The name itself stands there byte for byte.
inline constexpr std::string_view order_line_start = "--preferred_order=\"";
inline constexpr std::string_view order_line_end = "\"";

/// Takes an order file apart: the names in their order. False when it cannot be read, with `bad_line` 0 and errno
/// set, or has a line of another form, with the line's number, counted from 1, in `bad_line`.
bool read_order_file(const std::string& path, std::vector<std::string>& names, std::size_t& bad_line);
