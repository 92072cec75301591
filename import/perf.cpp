// "perf": the text of perf script, with its default fields or -F ip,sym,symoff,dso, with branch stacks (brstacksym) or
// call chains.
//
//     app 10606  1570.842829:     250000 cpu-clock:            a sample: command, process, time, event,
//                   1253 fib+0x3 (/tmp/app)                    then its chain, the innermost frame first,
//                   12b2 spin+0x22 (/tmp/app)                  each behind a tab, up to an empty line
//
//                  app 10613  1572.1: 1 cycles:  1253 fib+0x3 (/tmp/app)    a sample without chain
//      main+0x5/f+0x0/P/-/-/0  f+0x9/g+0x0/P/-/-/0                          the branches of a sample
//
// A branch whose target is a function's first byte is a call. Without branches the innermost pair of the chain counts,
// once a sample. A sample is taken at regular times, so its outer frames do not say that they called again, and counting
// them gives an order that is worse than none.
//
// perf's addresses are file offsets in chains and run-time addresses without them, so functions go by name.
#include "import/profile_format.h"

#include <vector>

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

/// A place in a function, as perf prints it: "f+0x1c (/tmp/app)".
struct symbol_place {
    std::string_view symbol;
    std::string_view object;    ///< empty: not printed
    bool is_first_byte = false; ///< whether the offset is 0
};

// Splits "symbol+0xOFFSET (OBJECT)", whose offset and object may be missing.
symbol_place parse_place(std::string_view text) {
    symbol_place place;
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    while (text.ends_with(' ') || text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    if (const std::size_t bracket = text.rfind('(');
        text.ends_with(')') && bracket != std::string_view::npos &&
        (bracket == 0 || text[bracket - 1] == ' ' || text[bracket + 1] == '/')) {
        place.object = text.substr(bracket + 1, text.size() - bracket - 2);
        text = text.substr(0, bracket);
        while (text.ends_with(' ')) {
            text.remove_suffix(1);
        }
    }
    const std::size_t offset = text.rfind("+0x");
    if (offset != std::string_view::npos && offset + 3 < text.size() &&
        text.find_first_not_of(hex_digits, offset + 3) == std::string_view::npos) {
        place.is_first_byte = text.find_first_not_of('0', offset + 3) == std::string_view::npos;
        text = text.substr(0, offset);
    }
    place.symbol = text;
    return place;
}

// Takes an instruction pointer off the front; false when there is none.
bool take_address(std::string_view& text) {
    std::string_view rest = text;
    const std::string_view word = take_word(rest);
    if (word.empty() || word.find_first_not_of(hex_digits) != std::string_view::npos) {
        return false;
    }
    text = rest;
    return true;
}

// Whether a line has a time, which all samples' first lines have unless -F leaves it out: "1570.842829:".
bool has_time(std::string_view line) {
    while (!line.empty()) {
        const std::string_view word = take_word(line);
        if (word.ends_with(':') && word.find('.') != std::string_view::npos &&
            word.find_first_not_of("0123456789.") == word.size() - 1) {
            return true;
        }
    }
    return false;
}

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls) {}

    void run() {
        for (std::string_view line; profile_.next_line(line);) {
            if (line.empty() || line == "\r") {
                end_sample();
            } else if (line.starts_with('\t')) {
                read_frame(line);
            } else if (!line.starts_with('#')) {
                read_sample_line(line);
            }
        }
        end_sample();
    }

private:
    /// A branch from one function to another.
    struct branch {
        call_table::function from;
        call_table::function to;
    };

    // A frame of a chain, perhaps with the branches behind the last one.
    void read_frame(std::string_view line) {
        if (read_branches(line)) {
            return;
        }
        if (!take_address(line)) {
            profile_.fail("not a frame of perf script");
        }
        add_frame(line);
    }

    void add_frame(std::string_view text) {
        const symbol_place place = parse_place(text);
        if (place.object != "inlined") {
            frames_.push_back(number_of(place));
        }
    }

    // A line that begins a sample or holds all of it.
    void read_sample_line(std::string_view line) {
        const bool is_indented = line.starts_with(' ');
        std::string_view rest = line;
        if (is_indented && !has_time(line) && (read_branches(line) || take_address(rest))) {
            if (rest.size() != line.size() && !read_branches(rest)) { // an address was taken off
                end_sample();
                add_frame(rest);
            }
            return;
        }
        end_sample();
        const std::size_t colon = line.rfind(": ");
        const bool ends_with_event =
            line.find_last_not_of(" \r") != std::string_view::npos && line[line.find_last_not_of(" \r")] == ':';
        if (colon == std::string_view::npos && !ends_with_event) {
            profile_.fail("not a line of perf script");
        }
        rest = ends_with_event ? std::string_view() : line.substr(colon + 2);
        if (!rest.empty() && !read_branches(rest) && take_address(rest)) {
            add_frame(rest);
        }
    }

    // Reads the branches in a line, "FROM/TO/P/-/-/0 ...", perhaps behind a frame; false when there are none.
    bool read_branches(std::string_view line) {
        bool found = false;
        for (;;) {
            std::size_t flags = std::string_view::npos; // whether predicted (P), mispredicted (M) or unknown (-)
            for (const std::string_view mark : {"/P/", "/M/", "/-/"}) {
                flags = std::min(flags, line.find(mark));
            }
            if (flags == std::string_view::npos) {
                return found;
            }
            add_branch(line.substr(0, flags), !found);
            found = true;
            line.remove_prefix(flags);
            line.remove_prefix(std::min(line.find(' '), line.size()));
            line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        }
    }

    // A branch, "FROM/TO", each a symbol with its offset and perhaps its object. The first one of a line may have an
    // address and a frame before it.
    void add_branch(std::string_view text, bool is_first) {
        if (is_first) {
            take_address(text);
            if (const std::size_t frame_end = text.rfind(") "); frame_end != std::string_view::npos) {
                add_frame(text.substr(0, frame_end + 1));
                text.remove_prefix(std::min(text.find_first_not_of(' ', frame_end + 1), text.size()));
            }
        }
        std::size_t slash = text.find('/');
        if (const std::size_t object = text.find('('); object != std::string_view::npos && object < slash) {
            slash = text.find(")/", object);
            slash += slash == std::string_view::npos ? 0 : 1;
        }
        if (slash == std::string_view::npos) {
            profile_.fail("a branch without its two ends");
        }
        const symbol_place from = parse_place(text.substr(0, slash));
        const symbol_place to = parse_place(text.substr(slash + 1));
        has_branches_ = true;
        if (to.is_first_byte) {
            branches_.push_back({number_of(from), number_of(to)});
        }
    }

    call_table::function number_of(const symbol_place& place) {
        if (place.symbol == "[unknown]" || place.symbol.empty()) {
            return call_table::unknown;
        }
        if (!place.object.empty() && !calls_.is_wanted_object(place.object)) {
            return call_table::outside;
        }
        return calls_.named(place.symbol);
    }

    void end_sample() {
        if (has_branches_) {
            for (const branch& b : branches_) {
                calls_.add_call(b.from, b.to, 1);
            }
            if (!frames_.empty()) {
                calls_.add_run(frames_.front(), 1);
            }
        } else {
            std::size_t next = 0;
            calls_.add_chain(1, [&](call_table::function& f) {
                if (next == frames_.size()) {
                    return false;
                }
                f = frames_[next++];
                return true;
            });
        }
        frames_.clear();
        branches_.clear();
        has_branches_ = false;
    }

    profile_input& profile_;
    call_table& calls_;
    std::vector<call_table::function> frames_; ///< of the current sample, the innermost first
    std::vector<branch> branches_;             ///< of the current sample: calls
    bool has_branches_ = false;                ///< whether it has any branch, calls or not
};

} // namespace

bool is_perf(std::string_view head) {
    std::string_view line = first_line(head);
    if (has_time(line) || line.find("+0x") != std::string_view::npos) {
        return true;
    }
    std::string_view frame = line;
    return (line.starts_with('\t') || line.starts_with(' ')) && take_address(frame);
}

void read_perf(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
