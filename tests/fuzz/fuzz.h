// What the fuzz targets share.
#pragma once

#include "DIAG/diag.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
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

/// Undoes what the input before may have left in the process, so that a finding needs no other input than its own.
inline void reset_process() {
    DIAGNOSTIC::error_count_m = 0;
    DIAGNOSTIC::wrap_enabled_m = true;
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
    explicit memory_file(std::string_view bytes) : file_(memfd_create("fuzz", 0)) { assign(bytes); }
    ~memory_file() { close(file_); }
    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(file_); }

    /// Replaces what the file holds; whoever writes to it next begins at its end.
    void assign(std::string_view bytes) {
        require(ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0, "ftruncate");
        require(write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
    }
    /// The open file, for somebody else to close.
    int open_again() const { return dup(file_); }

    std::string bytes() const {
        std::string bytes(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
        require(pread(file_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()), "pread");
        return bytes;
    }

private:
    int file_;
};
