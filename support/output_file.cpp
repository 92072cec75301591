#include "support/output_file.h"

#include "support/failure.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t block_size = 256 * 1024;

// The path with all symbolic links resolved; the path itself where there is nothing yet.
std::string resolved(const std::string& path) {
    char* const real = realpath(path.c_str(), nullptr);
    std::string result = real == nullptr ? path : real;
    std::free(real);
    return result;
}

// Whether a name leads to an open file or a device: /dev/stdout may be a regular file that others write, too.
bool is_special(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    const std::string folder = resolved(slash == std::string::npos ? "." : name.substr(0, slash + 1)) + "/";
    return folder.starts_with("/dev/") || folder.starts_with("/proc/");
}

} // namespace

output_file::output_file(const std::string& name) : name_(name) {
    if (name.empty() || name == "-" || name == "/dev/stdout") { // opened again, that would not go on where others wrote
        name_ = name == "/dev/stdout" ? name : "standard output";
        file_ = STDOUT_FILENO;
        return;
    }
    struct stat existing {};
    const bool exists = stat(name.c_str(), &existing) == 0;
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
    target_ = resolved(name);
    temporary_ = target_ + ".XXXXXX";
    file_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (file_ < 0) {
        temporary_.clear();
        fail("cannot be opened for writing");
    }
    const mode_t mask = umask(0);
    umask(mask);
    static_cast<void>(fchmod(file_, exists ? existing.st_mode & 07777 : 0666 & ~mask)); // else it stays private
}

output_file::~output_file() {
    if (file_ > STDERR_FILENO) {
        close(file_);
    }
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
}

void output_file::write(std::string_view bytes) {
    pending_ += bytes;
    if (pending_.size() >= block_size) {
        flush();
    }
}

void output_file::flush() {
    for (std::string_view rest = pending_; !rest.empty();) {
        const ssize_t count = ::write(file_, rest.data(), rest.size());
        if (count < 0 && errno != EINTR) {
            fail("cannot be written");
        }
        rest.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    pending_.clear();
}

void output_file::finish() {
    flush();
    const int file = std::exchange(file_, -1);
    if (file > STDERR_FILENO && close(file) != 0) {
        fail("cannot be written");
    }
    if (!temporary_.empty() && rename(temporary_.c_str(), target_.c_str()) != 0) {
        fail("cannot be replaced");
    }
    temporary_.clear();
}

void output_file::fail(const char* what) const {
    const int error = errno;
    if (!temporary_.empty()) {
        unlink(temporary_.c_str()); // a constructor that throws has no destructor
    }
    throw failure(name_, std::string(what) + ": " + std::strerror(error));
}
