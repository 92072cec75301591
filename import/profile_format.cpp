#include "import/profile_format.h"

#include <charconv>

namespace {

// clang-format off
constexpr profile_format formats[] = {
    {"gmon",       is_gmon,       read_gmon},
    {"objects",    is_objects,    read_objects},
    {"gperftools", is_gperftools, read_gperftools},
    {"csv",        is_csv,        read_csv},
    {"callgrind",  is_callgrind,  read_callgrind,  false, true},
    {"pprof",      is_pprof,      read_pprof,      true},
    {"fdata",      is_fdata,      read_fdata},
    {"perf",       is_perf,       read_perf,       true,  true},
    {"pairs",      is_pairs,      read_pairs},
    {"stacks",     is_stacks,     read_stacks},
    {"names",      is_names,      read_names,      false, true},
};
// clang-format on

// Whether a whole text is a number.
bool parse_number(std::string_view text, int base, std::uint64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

std::span<const profile_format> profile_formats() {
    return formats;
}

bool parse_count(std::string_view text, std::uint64_t& count) {
    return parse_number(text, 10, count);
}

bool parse_hexadecimal(std::string_view text, std::uint64_t& number) {
    return parse_number(text, 16, number);
}

std::string_view first_line(std::string_view head) {
    std::string_view line;
    while (!head.empty()) {
        line = take_line(head);
        std::string_view words = line;
        const std::string_view word = take_word(words);
        if (!word.empty() && !word.starts_with('#')) {
            return line;
        }
    }
    return {};
}
