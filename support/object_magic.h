// How what a linker reads and writes begins, by which it is told from text.
#pragma once

#include <string_view>

/// Whether a file that starts so is an ELF file or an archive of them, thin ones included.
inline bool starts_as_object(std::string_view start) {
    return start.starts_with("\177ELF") || start.starts_with("!<arch>\n") || start.starts_with("!<thin>\n");
}
