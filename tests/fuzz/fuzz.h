// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>

/// A fuzz target: checks one input and aborts when it breaks a promise.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

inline void require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}
