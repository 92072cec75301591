#include "import/profile_source.h"

#include "support/failure.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t most_layers = 3; // of compression; hostile data may unpack to itself

} // namespace

profile_source::profile_source(const std::string& name, bool wants_time)
    : name_(name == "-" ? "standard input" : name),
      file_(name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (file_.get() < 0) {
        throw failure(name_, std::strerror(errno));
    }
    struct stat properties {};
    const bool is_known = fstat(file_.get(), &properties) == 0;
    if (is_known && S_ISDIR(properties.st_mode)) {
        throw failure(name_, "a folder: give the profiles in it, or what perf script prints of one that perf record "
                             "--threads made");
    }
    const bool is_regular = is_known && S_ISREG(properties.st_mode);
    std::string path = is_regular && name != "-" ? name : ""; // what another program may open
    size_ = is_regular ? static_cast<std::uint64_t>(properties.st_size) : 0;
    begin();
    while (is_compressed(begun_)) {
        if (unpackers_.size() == most_layers) {
            throw failure(name_, "compressed again and again: unpack it");
        }
        pipe_ends pipe;
        unpackers_.push_back(std::make_unique<unpacker>(name_, std::move(file_), begun_, std::move(pipe.writing)));
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
    for (const auto& layer : unpackers_) {
        layer->finish();
    }
    if (perf_ != nullptr) {
        perf_->finish();
    }
}
