// The writer of the order file: one line per function,
//
//     --preferred_order="main"
//
// in the order of the layout. Names are written byte for byte, without escaping, as the linker expects them. Each line
// is flushed as it is written, so that whoever watches the file sees whole lines.
#include "DIAG/diag_messages.h"
#include "ORDWELL/call_profile.h"
#include "ORDWELL/order_file.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/write_all.h"

#include <cerrno>
#include <unistd.h>

namespace {

/// The line of one function, whose buffer and start stay from name to name.
class order_line {
public:
    std::string_view of(std::string_view name) {
        line_.resize(order_line_start.size());
        line_ += name;
        line_ += order_line_end;
        line_ += '\n';
        return line_;
    }

private:
    std::string line_{order_line_start};
};

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

// Visits the names of the layout in their order.
template <typename Visit>
void PETTIS_HANSEN_GRAPH::visit_order(Visit visit) {
    if (merged && layout_.has_value()) {
        const std::vector<std::uint32_t>& functions = layout_->functions;
        for (std::size_t i = 0; i < functions.size(); ++i) {
            if (i + 8 < functions.size()) {
                profile_->prefetch_name(functions[i + 8]);
                profile_->prefetch_name_bytes(functions[i + 4]);
            }
            visit(profile_->name(functions[i]));
        }
        return;
    }
    function_order order;
    if (!get_ordering(order)) {
        DIAG::raise<DIAG::owl_fatal_no_valid_function_order>("ORDWELL/pettis_hansen", 938);
    }
    for (const std::list<std::string>& chain : order) {
        for (const std::string& name : chain) {
            visit(name);
        }
    }
}

void PETTIS_HANSEN_GRAPH::write_order(std::ofstream& out) {
    order_line line;
    visit_order([&](std::string_view name) {
        const std::string_view text = line.of(name);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.flush();
    });
    out.close();
}

void PETTIS_HANSEN_GRAPH::write_order(int file) {
    order_line line;
    bool is_good = true; // like a stream's state: after an error nothing more is written
    visit_order([&](std::string_view name) { is_good = is_good && write_all(file, line.of(name)); });
    close(file);
}
