#include "import/profile_input.h"

#include "support/failure.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

profile_input::profile_input(const std::string& name, bool shows_progress, bool wants_time)
    : source_(name, wants_time), blocks_(source_.take_file(), source_.begun()), shows_progress_(shows_progress),
      size_(source_.size()) {
    next_block();
}

profile_input::~profile_input() {
    if (has_shown_) {
        std::fprintf(stderr, "\r\033[K"); // to the start of the line, and clear it
    }
}

bool profile_input::next_block() {
    rest_ = blocks_.next();
    is_text_ = false;
    if (blocks_.error() != 0) {
        throw failure(name(), std::string("cannot be read: ") + std::strerror(blocks_.error()));
    }
    if (blocks_.has_ended()) {
        source_.finish();
    }
    taken_ += rest_.size();
    if (shows_progress_) {
        show_progress();
    }
    return !rest_.empty();
}

// A machine that crashed leaves zeros where a file was not written, and they would go into names.
void profile_input::expect_text() {
    const std::size_t zero = rest_.find('\0');
    if (zero != std::string_view::npos) {
        const auto before = std::count(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(zero), '\n');
        throw failure(name(), line_number_ + static_cast<std::size_t>(before) + 1,
                      "a zero byte, which no text has: the file is damaged");
    }
    is_text_ = true;
}

// From the first second on, four times a second.
void profile_input::show_progress() {
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < (has_shown_ ? std::chrono::milliseconds(250) : std::chrono::milliseconds(1000))) {
        return;
    }
    start_ = now;
    has_shown_ = true;
    if (size_ != 0) {
        std::fprintf(stderr, "\r%s: %3.0f %%", name().c_str(),
                     100.0 * static_cast<double>(taken_) / static_cast<double>(size_));
    } else {
        std::fprintf(stderr, "\r%s: %.0f MB", name().c_str(), static_cast<double>(taken_) / 1e6);
    }
}

std::string profile_input::whole() {
    std::string bytes(rest_);
    while (next_block()) {
        bytes += rest_;
    }
    rest_ = {};
    return bytes;
}

void profile_input::fail(const std::string& text) const {
    throw failure(name(), line_number_, text);
}
