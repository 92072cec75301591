// Runs the built tool from outside, as a user's shell would, in a scratch folder of the test.
#pragma once

#include <string>

/// What a command left behind. The status is the shell's: 128 + signal for a command that a signal ended.
struct outcome {
    int status;
    std::string out;
    std::string err;
};

/// A scratch folder, removed with its contents at the end of the test.
class scratch_folder {
public:
    scratch_folder();
    ~scratch_folder();
    scratch_folder(const scratch_folder&) = delete;
    scratch_folder& operator=(const scratch_folder&) = delete;

    std::string path(const std::string& name) const { return path_ + "/" + name; }
    void write(const std::string& name, const std::string& bytes) const;
    std::string read(const std::string& name) const;
    bool has(const std::string& name) const;
    /// Runs a shell command in the folder. "ordwell" is the built tool, and the companions are found by their names.
    outcome run(const std::string& command) const;

private:
    std::string path_;
};

/// A file's text: the header line and `rows`.
std::string csv(const std::string& rows);

/// The order file that names these functions, which are separated by blanks.
std::string order_of(const std::string& names);
