// A file or stream as a sequence of blocks of whole lines, so that a line is looked at where it was read.
#pragma once

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

/// Reads anything that can be read, such as a pipe; a directory opens but yields an error.
class line_blocks {
public:
    /// Opens a file; is_open() tells whether that worked.
    explicit line_blocks(const char* filename) : line_blocks(open(filename, O_RDONLY | O_CLOEXEC)) {}
    /// Takes over an open file, or a negative number for none.
    explicit line_blocks(int file) : file_(file), buffer_(block_size) {}
    /// The same, whose first bytes, at most a block, were read before.
    line_blocks(int file, std::string_view begun) : line_blocks(file) {
        std::memcpy(buffer_.data(), begun.data(), begun.size());
        filled_ = begun.size();
    }
    ~line_blocks() {
        if (is_open()) {
            close(file_);
        }
    }
    line_blocks(const line_blocks&) = delete;
    line_blocks& operator=(const line_blocks&) = delete;

    bool is_open() const { return file_ >= 0; }

    /// The size of the file in bytes; 0 where it is not known, as of a pipe.
    std::size_t file_size() const {
        struct stat properties {};
        const bool is_known = fstat(file_, &properties) == 0 && S_ISREG(properties.st_mode);
        return is_known ? static_cast<std::size_t>(properties.st_size) : 0;
    }

    /// The next lines with their line feeds, which only the last line of the file may lack; empty at the end of the
    /// file, after which nothing more is read, or at a read error. Valid until the next call.
    std::string_view next() {
        // What is left of the last block is the start of a line: it moves to the front.
        std::memmove(buffer_.data(), buffer_.data() + taken_, filled_ - taken_);
        filled_ -= taken_;
        taken_ = 0;
        while (!ended_) {
            if (filled_ == buffer_.size()) { // a line longer than the buffer
                buffer_.resize(buffer_.size() * 2);
            }
            const ssize_t count = ::read(file_, buffer_.data() + filled_, buffer_.size() - filled_);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                ended_ = true;
                error_ = count < 0 ? errno : 0;
                taken_ = count < 0 ? 0 : filled_;
                return {buffer_.data(), taken_};
            }
            const char* const added = buffer_.data() + filled_;
            filled_ += static_cast<std::size_t>(count);
            const void* const line_feed = memrchr(added, '\n', static_cast<std::size_t>(count));
            if (line_feed != nullptr) {
                taken_ = static_cast<std::size_t>(static_cast<const char*>(line_feed) - buffer_.data()) + 1;
                return {buffer_.data(), taken_};
            }
        }
        return {};
    }

    /// Whether next() gave the last lines, or met an error.
    bool has_ended() const { return ended_; }

    /// The errno value of the read error that ended the input; 0 when there was none.
    int error() const { return error_; }

private:
    static constexpr std::size_t block_size =
        64 * 1024; // fits the second-level cache together with the rows found in it

    int file_;
    std::vector<char> buffer_;
    std::size_t filled_ = 0; ///< bytes in the buffer
    std::size_t taken_ = 0;  ///< how many of them were handed out
    bool ended_ = false;     ///< whether the end of the file or an error was met
    int error_ = 0;
};

/// Takes the first line, without its line feed, off the front of `block`.
inline std::string_view take_line(std::string_view& block) {
    const std::size_t line_feed = block.find('\n');
    const std::string_view line = block.substr(0, line_feed);
    block.remove_prefix(line_feed == std::string_view::npos ? block.size() : line_feed + 1);
    return line;
}
