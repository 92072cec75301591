// "stacks": collapsed stacks, the form that every profiler's output can be brought to: the functions of a call chain, the
// outermost first, and how often the chain was seen.
//
//     main;f;g 17
//
// Only the innermost pair counts, f calls g 17 times: the outer calls were made once for many samples, and counting them
// in each gives an order that is worse than none. A chain says that its innermost function ran, also where it is alone.
#include "import/profile_format.h"

namespace {

// Takes the innermost frame off the back of a stack; empty when none is left.
std::string_view take_innermost(std::string_view& stack) {
    const std::size_t separator = stack.rfind(';');
    const std::string_view frame = separator == std::string_view::npos ? stack : stack.substr(separator + 1);
    stack = separator == std::string_view::npos ? std::string_view() : stack.substr(0, separator);
    return frame;
}

// Splits a line into stack and count; false when it has no count.
bool split_line(std::string_view line, std::string_view& stack, std::uint64_t& count) {
    while (line.ends_with('\r') || line.ends_with(' ')) {
        line.remove_suffix(1);
    }
    const std::size_t blank = line.rfind(' ');
    stack = line.substr(0, blank);
    return blank != std::string_view::npos && parse_count(line.substr(blank + 1), count);
}

} // namespace

bool is_stacks(std::string_view head) {
    const std::string_view line = first_line(head);
    std::string_view stack;
    std::uint64_t count = 0;
    return split_line(line, stack, count) &&
           (stack.find(';') != std::string_view::npos || stack.find(' ') == stack.npos);
}

void read_stacks(profile_input& profile, call_table& calls) {
    for (std::string_view line; profile.next_line(line);) {
        if (line.empty() || line == "\r" || line.starts_with('#')) {
            continue;
        }
        std::string_view stack;
        std::uint64_t count = 0;
        if (!split_line(line, stack, count)) {
            profile.fail("not a line of a stack and its count");
        }
        calls.add_chain(count, [&](call_table::function& next) {
            if (stack.empty()) {
                return false;
            }
            next = calls.named(take_innermost(stack));
            return true;
        });
    }
}
