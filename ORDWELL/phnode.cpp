#include "ORDWELL/phnode.h"

#include "DIAG/diag_messages.h"
#include "support/debug_switch.h"

#include <cstdio>
#include <utility>

namespace {

const register_option debug_wcg_node("debug:wcg_node");

// Prints a name as " NAME ", byte for byte.
void print_name(const std::string& name) {
    std::putchar(' ');
    std::fwrite(name.data(), 1, name.size(), stdout);
    std::putchar(' ');
}

} // namespace

PHNODE::PHNODE(std::string name) {
    node_list.push_back(std::move(name));
}

bool PHNODE::add_node(std::string name) {
    node_list.push_back(std::move(name));
    return true;
}

bool PHNODE::add_node(const PHNODE& other, PH_push_fore_aft place, PH_add_fwd_rev direction) {
    if (node_list == other.node_list) {
        dump_list(nullptr, nullptr);
        return false;
    }
    std::list<std::string> added = other.node_list;
    if (direction == PH_REV) {
        added.reverse();
    }
    node_list.splice(place == PH_FORE ? node_list.begin() : node_list.end(), added);
    if (debug_wcg_node) {
        dump_list(nullptr, nullptr);
    }
    return true;
}

void PHNODE::dump_list(const char* prefix, const char* suffix) const {
    std::printf("%s", prefix == nullptr ? "" : prefix);
    for (const std::string& name : node_list) {
        print_name(name);
    }
    std::printf("%s", suffix == nullptr ? "" : suffix);
}

unsigned int PH_distance(PHNODE chain, std::string a, std::string b) {
    unsigned int position = 0;
    unsigned int first_position = 0;
    bool found_first = false;
    for (const std::string& name : chain.get_list()) {
        if (name == a || name == b) {
            if (found_first) {
                return position - first_position;
            }
            found_first = true;
            first_position = position;
        }
        ++position;
    }
    DIAG::raise<DIAG::owl_fatal_distance_calc_failure>("ORDWELL/phnode", 270, a.c_str(), b.c_str());
    return 2147483647;
}
