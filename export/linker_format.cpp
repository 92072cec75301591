#include "export/linker_format.h"

#include <array>

namespace {

constexpr std::array formats = {&lld_format, &gold_format, &ld_format, &macho_format, &coff_format, &bolt_format};

} // namespace

std::span<const linker_format* const> linker_formats() {
    return formats;
}

bool is_trimmed(std::string_view name) {
    constexpr std::string_view blanks = " \t\v\f\r";
    return name.empty() || blanks.find(name.front()) != std::string_view::npos ||
           blanks.find(name.back()) != std::string_view::npos;
}
