// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

/// A fuzz target: checks one input and aborts when it breaks a promise.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

inline void require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// Sends what is written to a stream nowhere.
inline void silence(FILE*& stream) {
    static FILE* const nowhere = std::fopen("/dev/null", "w");
    require(nowhere != nullptr, "/dev/null");
    stream = nowhere;
}

/// The bytes as a file that can be opened by name.
class memory_file {
public:
    explicit memory_file(std::string_view bytes) : file_(memfd_create("fuzz", 0)) {
        require(write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
    }
    ~memory_file() { close(file_); }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }
    std::string bytes() const {
        std::ifstream file(path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    int file_;
};
