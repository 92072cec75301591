// "pairs": calls as lines of caller, callee and count, separated by blanks, as lld's --call-graph-ordering-file takes
// them. Empty lines and lines that start with "#" are comments.
//
//     main f 10
//     f g 3
#include "import/profile_format.h"

bool is_pairs(std::string_view head) {
    std::string_view line = first_line(head);
    const bool has_names = !take_word(line).empty() && !take_word(line).empty();
    std::uint64_t count = 0;
    return has_names && parse_count(take_word(line), count) && line.empty();
}

void read_pairs(profile_input& profile, call_table& calls) {
    std::string last_caller; // lines are often grouped by caller
    call_table::function from = call_table::unknown;
    for (std::string_view line; profile.next_line(line);) {
        const std::string_view caller = take_word(line);
        if (caller.empty() || caller.starts_with('#')) {
            continue;
        }
        const std::string_view callee = take_word(line);
        std::uint64_t count = 0;
        if (!parse_count(take_word(line), count) || !line.empty()) {
            profile.fail("not a line of caller, callee and count");
        }
        if (caller != last_caller) {
            last_caller = caller;
            from = calls.named(caller);
        }
        calls.add_call(from, calls.named(callee), count);
    }
}
