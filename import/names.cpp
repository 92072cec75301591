// "names": functions in the order in which they were first executed, one a line, as a tracer, an emulator or hooks of
// -finstrument-functions can tell. There are no calls, so each function gets a row to itself. Any text is such a list, so it
// is read where it is asked for only; other formats and data that is no text are refused then.
#include "ORDWELL/order_file.h"
#include "import/profile_format.h"
#include "import/refused.h"
#include "support/failure.h"

#include <boost/unordered/unordered_flat_set.hpp>

#include <algorithm>
#include <string>

bool is_names(std::string_view /*head*/) {
    return false;
}

void read_names(profile_input& profile, call_table& calls) {
    if (const std::string_view why = why_refused(profile.begun()); !why.empty()) {
        throw failure(profile.name(), std::string(why));
    }
    for (const profile_format& other : profile_formats()) {
        if (other.recognises(profile.head())) {
            throw failure(profile.name(), "no list of names, but of the format " + std::string(other.name) +
                                              ": leave out --format=names");
        }
    }
    boost::unordered_flat_set<call_table::function> known;
    for (std::string_view line; profile.next_line(line);) {
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        if (line.empty()) {
            continue;
        }
        if (std::any_of(line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; })) {
            profile.fail("a control character: a list of names is text, one a line");
        }
        // Demangled names, "f(int, T<char>)" or "f [clone .cold]", hold blanks, too.
        if (line.starts_with(order_line_start)) {
            profile.fail("a line of an order file, which needs no import: give it to ordwell-export");
        }
        if (line.find(' ') != std::string_view::npos && line.find_first_of("(<[") == std::string_view::npos) {
            profile.fail("more than a name: a list has one a line and nothing else");
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
