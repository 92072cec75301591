// lld, --symbol-ordering-file: a symbol a line. Blanks at a line's ends are lost, and "#" begins a comment.
#include "export/linker_format.h"

namespace {

std::optional<std::string> lld_line(std::string_view symbol) {
    return is_trimmed(symbol) || symbol.front() == '#' ? std::nullopt : std::optional<std::string>(symbol);
}

} // namespace

const linker_format lld_format = {
    "lld", false, true, "", "", lld_line, "link with ", "--symbol-ordering-file=", true, "-fuse-ld=lld "};
