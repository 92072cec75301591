// "csv": the rows that ordwell reads (ORDWELL/call_row.h), which this program wrote or somebody else, so that profiles can be
// added up later, restricted to a binary, or weighed. What ordwell skips is skipped; where ordwell would stop reading, the
// work ends. Names are the linker's own.
#include "ORDWELL/call_row.h"
#include "import/profile_format.h"
#include "support/failure.h"

namespace {

void read_row(const call_row& row, call_table& calls) {
    const call_table::function caller = calls.named(row.caller, name_form::linker);
    if (row.caller == row.callee) {
        calls.add_run(caller, row.weight);
    } else {
        calls.add_call(caller, calls.named(row.callee, name_form::linker), row.weight);
    }
}

} // namespace

bool is_csv(std::string_view head) {
    return is_csv_header(take_line(head));
}

void read_csv(profile_input& profile, call_table& calls) {
    std::string_view line;
    if (!profile.next_line(line)) {
        throw failure(profile.name(), "empty");
    }
    if (!is_csv_header(line)) {
        profile.fail(R"(the header "caller","callee","weight" is missing)");
    }
    if (line.substr(0, line.find_last_not_of('\r') + 1).ends_with(" weighed")) {
        throw failure(profile.name(), "the rows are weighed, which are no calls: name the file of the calls");
    }
    while (profile.next_line(line)) {
        call_row row;
        switch (parse_row(line, row)) {
        case line_kind::row:
            read_row(row, calls);
            break;
        case line_kind::skipped:
            break;
        case line_kind::bad_caller:
            profile.fail("no row: the caller is missing");
        case line_kind::bad_callee:
            profile.fail("no row: the callee is missing");
        case line_kind::bad_weight:
            profile.fail("no row: the weight is no number from 0 to 4294967295");
        }
    }
    calls.note_why_empty("there are no rows");
}
