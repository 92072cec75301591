// An output file that appears whole or not at all. A regular file is written beside its name and renamed at the end, so
// that a reader never sees half of it and a failed run leaves the earlier file as it was. Anything else, such as a pipe
// or /dev/stdout, cannot be replaced and is written in place.
#pragma once

#include <string>
#include <string_view>

class output_file {
public:
    /// Opens the file for writing; an empty name or "-" is standard output. Throws `failure`.
    explicit output_file(const std::string& name);
    /// Without finish(), removes what was written beside the name.
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    /// Appends bytes. Throws `failure`.
    void write(std::string_view bytes);
    /// Completes the file. Throws `failure`.
    void finish();

private:
    void flush();
    [[noreturn]] void fail(const char* what) const;

    std::string name_;      ///< for messages
    std::string target_;    ///< what a regular file will be called; empty when written in place
    std::string temporary_; ///< what it is called until then
    std::string pending_;   ///< bytes not written yet
    int file_ = -1;
};
