// "names": functions in the order in which they were first executed, one a line, as a tracer, an emulator or hooks of
// -finstrument-functions can tell. There are no calls, so each function gets a row to itself. Any text is such a list, so it
// is read where it is asked for only.
#include "import/profile_format.h"

#include <boost/unordered/unordered_flat_set.hpp>

bool is_names(std::string_view /*head*/) {
    return false;
}

void read_names(profile_input& profile, call_table& calls) {
    boost::unordered_flat_set<call_table::function> known;
    for (std::string_view line; profile.next_line(line);) {
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (line.empty()) {
            continue;
        }
        const call_table::function f = calls.named(line);
        calls.note_first_run(f);
        if (!profile_names::is_kept(f)) {
            calls.add_call(f, f, 1); // is counted as left out
        } else if (known.insert(f).second) {
            calls.add_run(f, 1);
        }
    }
}
