// COFF linkers, /order:@FILE: a symbol a line; ";" begins a comment. The objects need a section per function, which
// -ffunction-sections or /Gy gives them.
#include "export/linker_format.h"

namespace {

std::optional<std::string> coff_line(std::string_view symbol) {
    return is_trimmed(symbol) || symbol.front() == ';' ? std::nullopt : std::optional<std::string>(symbol);
}

} // namespace

const linker_format coff_format = {"coff", false, true, "", "", coff_line, "link with ", "/order:@", false, ""};
