// Files by their numbers, which close by themselves, and where bytes go on the way from a profile to its format.
#pragma once

#include <string>
#include <string_view>
#include <utility>

/// An open file, or none. Programs that are started do not inherit it.
class open_file {
public:
    explicit open_file(int file = -1) : file_(file) {}
    open_file(open_file&& other) noexcept : file_(other.release()) {}
    open_file& operator=(open_file&& other) noexcept {
        std::swap(file_, other.file_);
        return *this;
    }
    ~open_file();
    /// Its number; negative: none.
    int get() const { return file_; }
    /// Gives it up to the caller.
    int release() { return std::exchange(file_, -1); }
    void close() { open_file(std::move(*this)); }

private:
    int file_;
};

/// A pipe. Throws `failure`.
struct pipe_ends {
    pipe_ends();
    open_file reading;
    open_file writing;
};

/// A file below TMPDIR that is gone when it is closed. Throws `failure`.
open_file temporary_file();

/// Writes `begun` and all that is left of a profile to a file and goes to its start. Throws `failure`.
void append_all(const open_file& to, std::string_view begun, const open_file& from, const std::string& name);
