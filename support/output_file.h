// An output file that appears whole or not at all. A regular file is written beside its name and renamed at the end, so
// that a reader never sees half of it and a failed run leaves the earlier file as it was. Anything else, such as a pipe
// or /dev/stdout, cannot be replaced and is written in place.
//
// Files that belong together appear together:
//
//     check_outputs({"app.csv", "app.layout.csv"}, {"app.prof", "app"});
//     output_file calls("app.csv"), weighed("app.layout.csv");
//     ...
//     finish_together({&calls, &weighed});    // one cannot be written: both stay as they were
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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

    friend void finish_together(std::span<output_file* const> files);

private:
    void flush();
    void close_file();
    void put_in_place();
    void take_back();
    static void abandon_all();
    [[noreturn]] void fail(const char* what) const;

    std::string name_;      ///< for messages
    std::string target_;    ///< what a regular file will be called; empty when written in place
    std::string temporary_; ///< what it is called until then
    std::string pending_;   ///< bytes not written yet
    int file_ = -1;
    bool had_target_ = false;  ///< whether there was a regular file before
    bool is_in_place_ = false; ///< whether `target_` is what was written here
    bool has_earlier_ = false; ///< whether `temporary_` then is the file that stood there before

    static inline output_file* newest_ = nullptr; ///< of the regular files that are being written,
    output_file* older_ = nullptr;                ///< and the one that was opened before this
};

/// Completes all of the files, or none that is regular: they are written to their ends first, then those that are written
/// in place, then the regular ones appear, and what standard output still has to get comes last: when only that fails, the
/// files stay. Throws `failure`.
void finish_together(std::span<output_file* const> files);
inline void finish_together(std::initializer_list<output_file*> files) {
    finish_together(std::span<output_file* const>(files.begin(), files.size()));
}

/// Whether a name stands for the process's standard output.
bool is_standard_output(const std::string& name);

/// Whether two names lead to one regular file, also by another path or a link, or would once it is made. "-" is the
/// process's standard output as an output and its standard input as an input.
bool is_same_output(const std::string& output, const std::string& other_output);
bool is_output_of_input(const std::string& output, const std::string& input);

/// Throws `failure` when an output is one of the inputs, another output, or a program, object or archive. Names that are
/// empty stand for nothing.
void check_outputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);
