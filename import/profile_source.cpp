#include "import/profile_source.h"

#include "support/failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

profile_source::profile_source(const std::string& name, bool wants_time)
    : name_(name == "-" ? "standard input" : name),
      file_(name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_.get() < 0) {
        throw failure(name_, std::strerror(errno));
    }
    struct stat properties {};
    const bool is_regular = fstat(file_.get(), &properties) == 0 && S_ISREG(properties.st_mode);
    std::string path = is_regular && name != "-" ? name : ""; // what another program may open
    size_ = is_regular ? static_cast<std::uint64_t>(properties.st_size) : 0;
    begin();
    if (is_compressed(begun_)) {
        pipe_ends pipe;
        unpacker_ = std::make_unique<unpacker>(name_, std::move(file_), begun_, std::move(pipe.writing));
        file_ = std::move(pipe.reading);
        size_ = 0;
        path.clear();
        begin();
    }
    if (is_perf_data(begun_)) {
        if (path.empty()) {
            open_file copy = temporary_file();
            append_all(copy, begun_, file_, name_);
            finish();
            perf_ = std::make_unique<perf_data>(name_, std::move(copy));
        } else {
            perf_ = std::make_unique<perf_data>(name_, path);
        }
        file_ = perf_->print(wants_time);
        size_ = 0;
        begin();
    }
}

void profile_source::begin() {
    begun_.clear();
    char bytes[most_begun];
    while (begun_.size() < most_begun) {
        const ssize_t count = read(file_.get(), bytes, most_begun - begun_.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw failure(name_, std::string("cannot be read: ") + std::strerror(errno));
        }
        if (count == 0) {
            finish();
            return;
        }
        begun_.append(bytes, static_cast<std::size_t>(count));
    }
}

void profile_source::finish() {
    if (unpacker_ != nullptr) {
        unpacker_->finish();
    }
    if (perf_ != nullptr) {
        perf_->finish();
    }
}
