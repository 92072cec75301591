#include "import/unpacker.h"

#include "support/failure.h"

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace {

using namespace std::string_view_literals;

constexpr std::string_view magics[] = {"\x1f\x8b"sv,
                                       "\xfd"
                                       "7zXZ\0"sv,
                                       "\x28\xb5\x2f\xfd"sv, "BZh"sv};
constexpr std::size_t block_size = 256 * 1024;

} // namespace

bool is_compressed(std::string_view begun) {
    for (const std::string_view magic : magics) {
        if (begun.starts_with(magic)) {
            return true;
        }
    }
    return false;
}

unpacker::unpacker(std::string name, open_file packed, std::string begun, open_file unpacked)
    : name_(std::move(name)), packed_(std::move(packed)), buffer_(std::move(begun)), unpacked_(std::move(unpacked)) {
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        throw failure(name_, std::string("cannot be unpacked: ") + error.what());
    }
}

unpacker::~unpacker() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void unpacker::finish() {
    if (thread_.joinable()) {
        thread_.join();
    }
    if (!error_.empty()) {
        throw failure(name_, error_);
    }
}

// What libarchive asks for: the next bytes.
long read_packed(unpacker& own, const void** bytes) {
    if (!own.is_begun_) {
        own.is_begun_ = true;
        *bytes = own.buffer_.data();
        return static_cast<long>(own.buffer_.size());
    }
    own.buffer_.resize(block_size);
    *bytes = own.buffer_.data();
    ssize_t count = -1;
    do {
        count = read(own.packed_.get(), own.buffer_.data(), block_size);
    } while (count < 0 && errno == EINTR);
    return count;
}

void unpacker::run() {
    sigset_t pipe_signal; // a reader that has seen enough is no reason to end the program
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
    archive* const reader = archive_read_new();
    if (reader == nullptr) {
        error_ = "cannot be unpacked: memory exhausted";
    } else {
        unpack(reader);
        archive_read_free(reader);
    }
    unpacked_.close();
}

void unpacker::unpack(archive* reader) {
    const auto read_own = [](archive*, void* own, const void** bytes) -> la_ssize_t {
        return read_packed(*static_cast<unpacker*>(own), bytes);
    };
    archive_read_support_filter_gzip(reader);
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_filter_bzip2(reader);
    archive_read_support_format_raw(reader);
    archive_read_support_format_empty(reader);
    archive_entry* entry = nullptr;
    int result = archive_read_open(reader, this, nullptr, read_own, nullptr);
    result = result == ARCHIVE_OK ? archive_read_next_header(reader, &entry) : result;
    if (result == ARCHIVE_OK && archive_filter_code(reader, 0) == ARCHIVE_FILTER_NONE) {
        error_ = "ends early or is damaged: the header of a compressed file is not whole";
        return;
    }
    while (result == ARCHIVE_OK) {
        const void* bytes = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        result = archive_read_data_block(reader, &bytes, &size, &offset);
        if (result == ARCHIVE_OK && !write_all(unpacked_.get(), {static_cast<const char*>(bytes), size})) {
            return; // nobody reads any more
        }
    }
    if (result != ARCHIVE_EOF) {
        const char* const why = archive_error_string(reader);
        error_ = std::string("ends early or is damaged: ") + (why == nullptr ? "unpacking failed" : why);
    }
}
