// GNU ld: a linker script fragment. With INSERT it is read beside the default script, whose output section .text gets what
// ours has not claimed before; so the ordered functions stand in an output section of their own in front of it.
//
//     SECTIONS
//     {
//       .text.ordered :
//       {
//         *(.text.f)
//         *(".text.odd name")
//       }
//     }
//     INSERT BEFORE .text;
//
// Names of other characters than letters, digits and "_.$" are quoted. Two characters cannot be quoted, "[" and the quote
// itself, and wildcards stay wildcards inside quotes: for all of them "?" stands, which fits any one character.
#include "export/linker_format.h"

namespace {

std::optional<std::string> ld_line(std::string_view section) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.$";
    std::string name(section);
    if (section.find_first_not_of(plain) != std::string_view::npos) {
        for (char& c : name) {
            if (c == '[' || c == '"' || c == '*') {
                c = '?';
            }
        }
        name = '"' + name + '"';
    }
    return "    *(" + name + ")";
}

} // namespace

const linker_format ld_format = {
    "ld",  true, true, "SECTIONS\n{\n  .text.ordered :\n  {\n", "  }\n}\nINSERT BEFORE .text;\n", ld_line, "link with ",
    "-T,", true, ""};
