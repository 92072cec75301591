// GNU ld: a linker script fragment. With INSERT it is read beside the default script, whose output section .text gets what ours
// has not claimed before. Ours claims all code, the ordered functions first and then the rest as the default script has it:
// valgrind and other tools know the functions of one section .text only, so those of a section beside it would be nameless.
//
//     SECTIONS
//     {
//       .text :
//       {
//         *(.text.f)
//         *(".text.odd name")
//         *(.text.unlikely .text.*_unlikely .text.unlikely.*)
//         ...
//         *(.text .stub .text.* .gnu.linkonce.t.*)
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

constexpr const char* end = R"(    *(.text.unlikely .text.*_unlikely .text.unlikely.*)
    *(.text.exit .text.exit.*)
    *(.text.startup .text.startup.*)
    *(.text.hot .text.hot.*)
    *(SORT(.text.sorted.*))
    *(.text .stub .text.* .gnu.linkonce.t.*)
  }
}
INSERT BEFORE .text;
)";

} // namespace

const linker_format ld_format = {"ld",  true, true, "SECTIONS\n{\n  .text :\n  {\n", end, ld_line, "link with ",
                                 "-T,", true, ""};
