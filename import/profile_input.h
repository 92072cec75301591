// A profile as a stream of lines or as a whole, from a file or standard input, with the place for messages and the
// progress for whoever waits at a terminal.
#pragma once

#include "import/profile_source.h"
#include "support/line_blocks.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class profile_input {
public:
    /// Opens a profile; "-" is standard input. Where it is perf.data, `wants_time` has perf print when samples were taken.
    /// Throws `failure`.
    profile_input(const std::string& name, bool shows_progress, bool wants_time = false);
    ~profile_input();

    /// What messages call it.
    const std::string& name() const { return source_.name(); }
    /// The event to take, as --event names it; empty: none was asked for.
    const std::string& event() const { return event_; }
    void set_event(const std::string& event) { event_ = event; }
    /// What is known of perf.data, whose text this is; null for everything else.
    const perf_data* perf() const { return source_.perf(); }
    /// The first bytes, 512 or all.
    const std::string& begun() const { return source_.begun(); }
    /// The first bytes, up to the end of some line; all of a file without line feeds.
    std::string_view head() const { return rest_; }

    /// Takes the next line, without its line feed; false at the end. Throws `failure` at a read error, and for data that is
    /// no text.
    bool next_line(std::string_view& line) {
        if (rest_.empty() && !next_block()) {
            return false;
        }
        if (!is_text_) {
            expect_text();
        }
        const std::size_t size = rest_.size();
        line = take_line(rest_);
        has_line_feed_ = line.size() < size;
        ++line_number_;
        return true;
    }

    /// Whether the line that was taken last ended in a line feed; where not, it is the last and may have been cut off.
    bool has_line_feed() const { return has_line_feed_; }

    /// Everything that was not taken yet. Throws `failure` at a read error.
    std::string whole();

    /// Ends the work because of the line that was taken last.
    [[noreturn]] void fail(const std::string& text) const;

private:
    bool next_block();
    void expect_text();
    void show_progress();

    profile_source source_;
    std::string event_;
    line_blocks blocks_;
    std::string_view rest_; ///< of the current block
    bool is_text_ = false;  ///< whether the current block was looked through
    std::size_t line_number_ = 0;
    bool has_line_feed_ = true;
    bool shows_progress_;
    bool has_shown_ = false;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::uint64_t taken_ = 0; ///< bytes
    std::uint64_t size_ = 0;  ///< bytes in all; 0 where that is not known
};
