#include "support/output_file.h"

#include "support/failure.h"
#include "support/memory.h"
#include "support/object_magic.h"
#include "support/real_path.h"
#include "support/write_all.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t block_size = 256 * 1024;

std::string folder_of(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1) + "."; // npos + 1 is 0
}

// The path with all symbolic links resolved, also of one to a file that is still to be made; where there is nothing yet the
// path itself.
std::string resolved(std::string path) {
    constexpr int most_links = 40; // as many as the system follows
    for (int links = 0; links < most_links; ++links) {
        if (std::string real = real_path(path); !real.empty()) {
            return real;
        }
        std::array<char, PATH_MAX> text;
        const ssize_t length = readlink(path.c_str(), text.data(), text.size());
        if (length <= 0) {
            break;
        }
        const std::string target(text.data(), static_cast<std::size_t>(length));
        path = target.front() == '/' ? target : folder_of(path) + "/" + target;
    }
    return path;
}

// Whether a name leads to an open file or a device: /dev/stdout may be a regular file that others write, too.
bool is_special(const std::string& name) {
    const std::string folder = resolved(folder_of(name)) + "/";
    return folder.starts_with("/dev/") || folder.starts_with("/proc/");
}

// The file itself, whatever path leads to it: its device and its number there; nothing for what is no regular file, which
// several may write to.
std::optional<std::pair<dev_t, ino_t>> identity(const std::string& name, int standard_stream) {
    struct stat properties {};
    const bool exists = (name == "-" ? fstat(standard_stream, &properties) : stat(name.c_str(), &properties)) == 0;
    if (!exists || !S_ISREG(properties.st_mode)) {
        return std::nullopt;
    }
    return std::pair(properties.st_dev, properties.st_ino);
}

// Whether a program, an object or an archive stands there, which nobody means to replace by a text.
bool is_binary(const std::string& name) {
    std::error_code ignored;
    std::string start(8, '\0');
    if (std::filesystem::is_regular_file(name, ignored)) {
        std::ifstream(name, std::ios::binary).read(start.data(), static_cast<std::streamsize>(start.size()));
    }
    return starts_as_object(start);
}

// Where a file that is not there yet will be made, its folder without links; empty for a file that exists.
std::string future_path(const std::string& name) {
    struct stat properties {};
    if (name == "-" || stat(name.c_str(), &properties) == 0) {
        return {};
    }
    const std::string path = resolved(name);
    return resolved(folder_of(path)) + "/" + path.substr(path.rfind('/') + 1);
}

} // namespace

output_file::output_file(const std::string& name) : name_(name) {
    if (name.empty() || is_standard_output(name)) { // opened again, that would not go on where others wrote
        name_ = name == "/dev/stdout" ? name : "standard output";
        file_ = STDOUT_FILENO;
        return;
    }
    struct stat existing {};
    const bool exists = stat(name.c_str(), &existing) == 0;
    if (!exists && errno == ELOOP) { // links that lead in a circle must not be replaced
        fail("cannot be opened for writing");
    }
    if (is_special(name) || (exists && !S_ISREG(existing.st_mode))) {
        file_ = open(name.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        if (file_ < 0) {
            fail("cannot be opened for writing");
        }
        return;
    }
    if (exists && access(name.c_str(), W_OK) != 0) { // renaming would get round the protection
        fail("cannot be opened for writing");
    }
    had_target_ = exists;
    target_ = resolved(name);
    temporary_ = target_ + ".XXXXXX";
    file_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (file_ < 0) {
        temporary_.clear();
        fail("cannot be opened for writing");
    }
    const mode_t mask = umask(0);
    umask(mask);
    older_ = std::exchange(newest_, this);
    set_out_of_memory_cleanup(abandon_all);
    static_cast<void>(fchmod(file_, exists ? existing.st_mode & 07777 : 0666 & ~mask)); // else it stays private
}

output_file::~output_file() {
    if (file_ > STDERR_FILENO) {
        close(file_);
    }
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
    for (output_file** file = &newest_; *file != nullptr; file = &(*file)->older_) {
        if (*file == this) {
            *file = older_;
            break;
        }
    }
}

// The end of a process that has no memory left, and runs no destructor.
void output_file::abandon_all() {
    for (output_file* file = newest_; file != nullptr; file = file->older_) {
        file->take_back();
        if (!file->temporary_.empty()) {
            unlink(file->temporary_.c_str());
        }
    }
}

void output_file::write(std::string_view bytes) {
    pending_ += bytes;
    if (pending_.size() >= block_size) {
        flush();
    }
}

void output_file::flush() {
    if (!write_all(file_, pending_)) {
        fail("cannot be written");
    }
    pending_.clear();
}

void output_file::close_file() {
    flush();
    const int file = std::exchange(file_, -1);
    if (file > STDERR_FILENO && close(file) != 0) {
        fail("cannot be written");
    }
}

// Exchanges the names of the two files where the file system can, so that the earlier one is still there to be put back.
void output_file::put_in_place() {
    if (temporary_.empty()) {
        return;
    }
    has_earlier_ = renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_EXCHANGE) == 0;
    if (!has_earlier_ && rename(temporary_.c_str(), target_.c_str()) != 0) {
        fail("cannot be replaced");
    }
    is_in_place_ = true;
}

// Undoes put_in_place(). Where names could not be exchanged and a file stood there, there is nothing to go back to.
void output_file::take_back() {
    if (is_in_place_ && has_earlier_) {
        static_cast<void>(rename(temporary_.c_str(), target_.c_str()));
        temporary_.clear();
    } else if (is_in_place_ && !had_target_) {
        unlink(target_.c_str());
    }
    is_in_place_ = false;
}

void output_file::finish() {
    finish_together({this});
}

void finish_together(std::span<output_file* const> files) {
    const auto for_each = [&](bool (*is_meant)(const output_file&), void (output_file::*step)()) {
        for (output_file* const file : files) {
            if (is_meant(*file)) {
                (file->*step)();
            }
        }
    };
    const auto is_regular = [](const output_file& file) { return !file.target_.empty(); };
    const auto is_standard = [](const output_file& file) { return file.file_ == STDOUT_FILENO; };
    const auto is_other = [](const output_file& file) { return file.target_.empty() && file.file_ != STDOUT_FILENO; };
    for_each(is_regular, &output_file::close_file);
    for_each(is_other, &output_file::close_file);
    try {
        for_each(is_regular, &output_file::put_in_place);
    } catch (const failure&) {
        for_each(is_regular, &output_file::take_back);
        throw;
    }
    for_each(is_standard, &output_file::close_file);
}

bool is_standard_output(const std::string& name) {
    return name == "-" || name == "/dev/stdout";
}

bool is_same_output(const std::string& output, const std::string& other_output) {
    const std::string path = future_path(output);
    const auto file = identity(output, STDOUT_FILENO);
    return path.empty() ? file.has_value() && file == identity(other_output, STDOUT_FILENO)
                        : path == future_path(other_output);
}

bool is_output_of_input(const std::string& output, const std::string& input) {
    const auto file = identity(output, STDOUT_FILENO);
    return file.has_value() && file == identity(input, STDIN_FILENO);
}

void check_outputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs) {
    for (auto output = outputs.begin(); output != outputs.end(); ++output) {
        const auto is_it = [&](const std::string& other) { return !other.empty() && is_same_output(*output, other); };
        const auto is_read = [&](const std::string& input) { return is_output_of_input(*output, input); };
        if (output->empty()) {
            continue;
        }
        if (std::any_of(inputs.begin(), inputs.end(), is_read)) {
            throw failure(*output, "is an input as well: write to another file");
        }
        if (is_binary(*output)) {
            throw failure(*output, "is a program, an object or an archive: write to another file");
        }
        if (std::any_of(output + 1, outputs.end(), is_it)) {
            throw failure(*output, "is named for two outputs: give each a file of its own");
        }
    }
}

void output_file::fail(const char* what) const {
    const int error = errno;
    if (!temporary_.empty()) {
        unlink(temporary_.c_str()); // a constructor that throws has no destructor
    }
    throw failure(name_, std::string(what) + ": " + std::strerror(error));
}
