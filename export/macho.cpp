// Mach-O linkers, -order_file: a symbol a line, with the underscore that the format puts in front of C names (Objective-C
// methods have none). "#" begins a comment and ":" ends the name of a processor or object file.
#include "export/linker_format.h"

namespace {

std::optional<std::string> macho_line(std::string_view symbol) {
    if (is_trimmed(symbol) || symbol.find_first_of("#:") != std::string_view::npos) {
        return std::nullopt;
    }
    const bool is_method = symbol.starts_with("-[") || symbol.starts_with("+[");
    std::string line = is_method ? "" : "_";
    line += symbol;
    return line;
}

} // namespace

const linker_format macho_format = {"macho", false, false, "", "", macho_line, "link with ", "-order_file,", true, ""};
