// llvm-bolt, -reorder-functions=user -function-order=FILE: a symbol a line, as it stands. It is no linker but lays a linked
// program out anew, for which it needs the relocations that --emit-relocs keeps. A local function, whose symbol it knows as
// "f/1", "f/2" and so on, goes by its plain name; all that share one are placed together.
#include "export/linker_format.h"

namespace {

std::optional<std::string> bolt_line(std::string_view symbol) {
    return symbol.empty() ? std::nullopt : std::optional<std::string>(symbol);
}

} // namespace

const linker_format bolt_format = {
    "bolt",
    false,
    false,
    "",
    "",
    bolt_line,
    "link with -Wl,--emit-relocs, then run llvm-bolt PROGRAM -o PROGRAM.bolt -reorder-functions=user ",
    "-function-order=",
    false,
    ""};
