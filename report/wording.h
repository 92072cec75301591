// How numbers and names are said, to people: in the text, in Markdown and on the page alike.
#pragma once

#include "report/figures.h"

#include <optional>
#include <string>
#include <string_view>

/// A whole number with its digits in groups of three.
std::string grouped(double whole);
std::string grouped(std::uint64_t whole);

/// A percentage with one digit behind the point: "12.3 %". What is below 100 does not read "100.0 %".
std::string format_percent(double percent);

/// A figure: grouped digits, at most one behind the point, with a "%" if that is its unit; "-" for none.
std::string format_figure(const std::optional<double>& value, const std::string& unit);

/// "1 function", "2 functions".
std::string counted(std::uint64_t count, const std::string& what);

/// Text of any bytes as a terminal can show it: control characters, those that turn the direction of writing, and bytes
/// that are no UTF-8 read \xNN.
std::string printable(std::string_view bytes);

/// The same of a function's name, in its readable form.
std::string readable_name(std::string_view name);

/// At most so many characters of printable text; what is cut off ends in "...".
std::string shortened(const std::string& text, std::size_t most);

/// Printable text as it stands in HTML and SVG.
std::string html_text(std::string_view text);

/// A function's name in its readable form as it stands in HTML, in at most so many bytes of it.
std::string name_html(std::string_view name, std::size_t most);

/// Printable text as it stands in a line or a table cell of Markdown.
std::string markdown_text(std::string_view text);
