// Writing to a file by its number, to the last byte.
#pragma once

#include <cerrno>
#include <string_view>
#include <unistd.h>

/// Writes all bytes; false, with errno, when that is not possible.
inline bool write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}
