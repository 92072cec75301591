// The writer of the order file: one line per function,
//
//     --preferred_order="main"
//
// in the order of the layout. Names are written byte for byte, without escaping, as the linker expects them. Each line
// is flushed as it is written, so that whoever watches the file sees whole lines.
#include "DIAG/diag_messages.h"
#include "ORDWELL/order_file.h"
#include "ORDWELL/pettis_hansen.h"

namespace {

void write_line(std::ofstream& out, std::string& line, std::string_view name) {
    line = order_line_start;
    line += name;
    line += order_line_end;
    line += '\n';
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
    out.flush();
}

} // namespace

bool PETTIS_HANSEN_GRAPH::get_ordering(function_order& order) {
    if (!merged) {
        return false;
    }
    order.clear();
    const adjacency& g = stepwise();
    for (const auto vertex : boost::make_iterator_range(vertices(g))) {
        order.push_back(g[vertex].get_list());
    }
    return true;
}

void PETTIS_HANSEN_GRAPH::write_order(std::ofstream& out) {
    std::string line; // reused, so that a line costs no allocation
    if (merged && layout_.has_value()) {
        for (const std::uint32_t function : layout_->functions) {
            write_line(out, line, profile_->name(function));
        }
        out.close();
        return;
    }
    function_order order;
    if (!get_ordering(order)) {
        DIAG::raise<DIAG::owl_fatal_no_valid_function_order>("ORDWELL/pettis_hansen", 938);
    }
    for (const std::list<std::string>& chain : order) {
        for (const std::string& name : chain) {
            write_line(out, line, name);
        }
    }
    out.close();
}
