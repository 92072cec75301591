// The profile formats: each is a file that reads a profile and yields calls, and a row in the table of profile_format.cpp.
#pragma once

#include "import/call_table.h"
#include "import/profile_input.h"

#include <cstdint>
#include <span>
#include <string_view>

/// A profile format.
struct profile_format {
    const char* name; ///< as --format names it
    /// Whether a profile that begins like this is of this format. Formats are asked in the order of their table.
    bool (*recognises)(std::string_view head);
    /// Enters the calls of a profile. Throws `failure` for one that does not keep to the format.
    void (*read)(profile_input& profile, call_table& calls);
    bool has_events = false; ///< whether a profile may hold several events, of which --event takes one
    bool has_time = false;   ///< whether a profile may know in which order functions were first executed
};

/// All formats, in the order in which a profile is tried.
std::span<const profile_format> profile_formats();

/// Helpers of text formats.

/// Takes the first word, and the blanks and tabs around it, off the front of a text; empty when there is none.
inline std::string_view take_word(std::string_view& text) {
    const auto is_blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    std::size_t start = 0;
    while (start < text.size() && is_blank(text[start])) {
        ++start;
    }
    std::size_t end = start;
    while (end < text.size() && !is_blank(text[end])) {
        ++end;
    }
    std::size_t next = end;
    while (next < text.size() && is_blank(text[next])) {
        ++next;
    }
    const std::string_view word = text.substr(start, end - start);
    text.remove_prefix(next);
    return word;
}

/// Reads a whole text as a decimal number; false when it is none or exceeds 64 bits.
bool parse_count(std::string_view text, std::uint64_t& count);
/// The same of a hexadecimal one, without "0x".
bool parse_hexadecimal(std::string_view text, std::uint64_t& number);

/// The first line that says something: neither empty nor a comment that starts with "#".
std::string_view first_line(std::string_view head);

bool is_csv(std::string_view head);
bool is_callgrind(std::string_view head);
bool is_perf(std::string_view head);
bool is_pairs(std::string_view head);
bool is_stacks(std::string_view head);
bool is_fdata(std::string_view head);
bool is_gperftools(std::string_view head);
bool is_pprof(std::string_view head);
bool is_gmon(std::string_view head);
bool is_names(std::string_view head);
bool is_objects(std::string_view head);

void read_csv(profile_input& profile, call_table& calls);
void read_callgrind(profile_input& profile, call_table& calls);
void read_perf(profile_input& profile, call_table& calls);
void read_pairs(profile_input& profile, call_table& calls);
void read_stacks(profile_input& profile, call_table& calls);
void read_fdata(profile_input& profile, call_table& calls);
void read_gperftools(profile_input& profile, call_table& calls);
void read_pprof(profile_input& profile, call_table& calls);
void read_gmon(profile_input& profile, call_table& calls);
void read_names(profile_input& profile, call_table& calls);
void read_objects(profile_input& profile, call_table& calls);
