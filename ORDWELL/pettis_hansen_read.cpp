// The reader of weighted call graph files (ORDWELL/call_row.h). The first bad row ends the file with one message; what was
// read before it stays.
//
// The file is read in blocks of whole lines (support/line_blocks.h), so that a row is looked at where it was read and
// its names are copied only when they are new. Rows go to the graph in batches (ORDWELL/call_profile.h says why). The
// input may be anything that can be read, such as a pipe; a directory opens but yields no line. At a read error the
// lines before it count, and the one that it cut off does not: its weight might have lost digits.
#include "DIAG/diag_messages.h"
#include "ORDWELL/call_profile.h"
#include "ORDWELL/call_row.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/debug_switch.h"
#include "support/line_blocks.h"

namespace {

const register_option debug_wcg("debug:wcg");

constexpr const char* graph_file = "ORDWELL/pettis_hansen";

void report_bad_row(line_kind kind, const char* filename, int line_number) {
    switch (kind) {
    case line_kind::bad_caller:
        DIAG::raise<DIAG::owl_caller_read_failure>(graph_file, 230, filename, line_number);
        break;
    case line_kind::bad_callee:
        DIAG::raise<DIAG::owl_callee_read_failure>(graph_file, 236, filename, line_number);
        break;
    case line_kind::bad_weight:
        DIAG::raise<DIAG::owl_weight_read_failure>(graph_file, 242, filename, line_number);
        break;
    case line_kind::row:
    case line_kind::skipped:
        break;
    }
}

} // namespace

void PETTIS_HANSEN_GRAPH::read(std::string& filename) {
    line_blocks blocks(filename.c_str());
    last_header_.clear();
    if (!blocks.is_open()) {
        DIAG::raise<DIAG::owl_nonfatal_error_opening_inputfile>(graph_file, 177, filename.c_str());
        return;
    }
    std::string_view block = blocks.next();
    last_header_ = take_line(block);
    if (!verify_csv_header(last_header_)) {
        DIAG::raise<DIAG::owl_bad_csv_file_header>(graph_file, 189, filename.c_str());
        return;
    }
    line_kind kind = line_kind::row;
    int line_number = 1;
    std::vector<call_row> rows; // those of one block
    const std::size_t size = blocks.file_size();
    std::size_t taken = 0; // bytes
    if (is_as_read()) {
        own_profile().begin_input();
    }
    do {
        if (is_as_read() && taken != 0 && taken < size) {
            own_profile().expect_growth(static_cast<double>(size) / static_cast<double>(taken));
        }
        taken += block.size();
        rows.clear();
        while (!block.empty()) {
            ++line_number;
            call_row row;
            kind = parse_row(take_line(block), row);
            if (kind == line_kind::row) {
                rows.push_back(row);
            } else if (kind != line_kind::skipped) {
                break;
            }
        }
        add_rows(rows);
        if (kind != line_kind::row && kind != line_kind::skipped) {
            report_bad_row(kind, filename.c_str(), line_number);
            break;
        }
        block = blocks.next();
    } while (!block.empty());
    if (debug_wcg) {
        dump_graph();
    }
}

bool PETTIS_HANSEN_GRAPH::verify_csv_header(std::string& line) {
    return is_csv_header(line);
}
