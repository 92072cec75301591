// gold, --section-ordering-file: a section a line. A line with one of the characters "*?[" is a pattern of the shell's
// kind; in brackets such a character stands for itself, and a backslash is doubled then.
//
//     .text.f*    is written as    .text.f[*]
#include "export/linker_format.h"

namespace {

std::optional<std::string> gold_line(std::string_view section) {
    if (section.find_first_of("*?[") == std::string_view::npos) {
        return std::string(section);
    }
    std::string pattern;
    for (const char c : section) {
        if (c == '*' || c == '?' || c == '[') {
            pattern += {'[', c, ']'};
        } else {
            pattern += c == '\\' ? "\\\\" : std::string(1, c);
        }
    }
    return pattern;
}

} // namespace

const linker_format gold_format = {
    "gold", true, true, "", "", gold_line, "link with ", "--section-ordering-file=", true, "-fuse-ld=gold "};
