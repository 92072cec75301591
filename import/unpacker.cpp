#include "import/unpacker.h"

#include "support/failure.h"
#include "support/memory.h"
#include "support/write_all.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace {

using namespace std::string_view_literals;

constexpr std::string_view gzip_magic = "\x1f\x8b"sv;
constexpr std::string_view magics[] = {gzip_magic,
                                       "\xfd"
                                       "7zXZ\0"sv,
                                       "\x28\xb5\x2f\xfd"sv, "BZh"sv};
constexpr std::size_t block_size = 256 * 1024;
constexpr std::size_t small_blocks = 1024 * 1024; // bytes, more than libarchive takes of them
constexpr const char* damaged = "ends early or is damaged: ";

// Why unpacking failed, where it is not for want of memory; libraries put that in the words of damage.
std::string why_damaged(const char* text) {
    if (errno == ENOMEM) {
        out_of_memory();
    }
    return std::string(damaged) + (text == nullptr ? "unpacking failed" : text);
}

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
    errno = 0;
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        if (errno == ENOMEM) { // for its stack
            out_of_memory();
        }
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
        own.taken_ = static_cast<long>(own.buffer_.size());
        *bytes = own.buffer_.data();
        return static_cast<long>(own.buffer_.size());
    }
    own.buffer_.resize(block_size);
    *bytes = own.buffer_.data();
    ssize_t count = -1;
    do {
        count = read(own.packed_.get(), own.buffer_.data(), block_size);
    } while (count < 0 && errno == EINTR);
    own.taken_ += count;
    return count;
}

void unpacker::run() {
    sigset_t pipe_signal; // a reader that has seen enough is no reason to end the program
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
    unpack();
    unpacked_.close();
    packed_.close(); // so that whatever writes to it ends, too
}

void unpacker::unpack() {
    if (buffer_.starts_with(gzip_magic)) {
        z_stream stream{};
        constexpr int gzip_window = 15 + 16; // bits of the largest window; the header and the checksum are gzip's
        if (inflateInit2(&stream, gzip_window) == Z_OK) {
            unpack_gzip(stream);
            inflateEnd(&stream);
        } else {
            out_of_memory();
        }
    } else if (archive* const reader = archive_read_new()) {
        unpack_other(reader);
        archive_read_free(reader);
    } else {
        out_of_memory();
    }
}

// Members may follow each other, and zeros the last one.
void unpacker::unpack_gzip(z_stream& stream) {
    std::string unpacked(block_size, '\0');
    for (int result = Z_OK;;) {
        const void* bytes = nullptr;
        const long count = read_packed(*this, &bytes);
        if (count < 0) {
            error_ = std::string("cannot be read: ") + std::strerror(errno);
            return;
        }
        if (count == 0) {
            error_ = result == Z_STREAM_END ? "" : std::string(damaged) + "the last bytes are missing";
            return;
        }
        stream.next_in = const_cast<Bytef*>(static_cast<const Bytef*>(bytes)); // inflate changes none
        stream.avail_in = static_cast<uInt>(count);
        do {
            if (result == Z_STREAM_END && *stream.next_in == 0) {
                ++stream.next_in;
                --stream.avail_in;
                continue;
            }
            if (result == Z_STREAM_END) {
                inflateReset(&stream);
            }
            stream.next_out = reinterpret_cast<Bytef*>(unpacked.data());
            stream.avail_out = static_cast<uInt>(unpacked.size());
            errno = 0;
            result = inflate(&stream, Z_NO_FLUSH);
            if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
                error_ = why_damaged(stream.msg);
                return;
            }
            if (!write_all(unpacked_.get(), {unpacked.data(), unpacked.size() - stream.avail_out})) {
                return; // nobody reads any more
            }
        } while (stream.avail_in != 0 || (result != Z_STREAM_END && stream.avail_out == 0));
    }
}

void unpacker::unpack_other(archive* reader) {
    const auto read_own = [](archive*, void* own, const void** bytes) -> la_ssize_t {
        return read_packed(*static_cast<unpacker*>(own), bytes);
    };
    // libarchive follows null pointers where it gets no memory for its small blocks: there is some, or the work ends here.
    std::free(safemalloc(small_blocks));
    errno = 0;
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_filter_bzip2(reader);
    archive_read_support_format_raw(reader);
    archive_read_support_format_empty(reader);
    archive_entry* entry = nullptr;
    int result = archive_read_open(reader, this, nullptr, read_own, nullptr);
    result = result == ARCHIVE_OK ? archive_read_next_header(reader, &entry) : result;
    if (result == ARCHIVE_OK && archive_filter_code(reader, 0) == ARCHIVE_FILTER_NONE) {
        error_ = std::string(damaged) + "the header of a compressed file is not whole";
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
    const bool is_damaged =
        result != ARCHIVE_EOF || archive_errno(reader) != 0; // a first block that is looks like no bytes
    if (is_damaged) {
        error_ = why_damaged(archive_error_string(reader));
    } else if (const void* bytes = nullptr;
               archive_filter_bytes(reader, -1) < taken_ || read_packed(*this, &bytes) != 0) {
        error_ = std::string(damaged) + "other bytes follow its end";
    }
}
