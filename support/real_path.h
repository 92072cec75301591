// Paths without symbolic links.
#pragma once

#include "support/memory.h"

#include <cerrno>
#include <cstdlib>
#include <string>

/// The path with all symbolic links resolved; empty where nothing is there.
inline std::string real_path(const std::string& path) {
    char* const real = realpath(path.c_str(), nullptr);
    if (real == nullptr && errno == ENOMEM) {
        out_of_memory(); // else a link would be taken for a file, and replaced by one
    }
    std::string result = real == nullptr ? "" : real;
    std::free(real);
    return result;
}
