// The call graph as a data structure: its three forms, look-ups, and the insertion of vertices and edges.
#include "ORDWELL/pettis_hansen.h"

#include "DIAG/diag_messages.h"
#include "ORDWELL/call_profile.h"
#include "support/debug_switch.h"

#include <algorithm>

namespace {

const register_option debug_wcg_node("debug:wcg_node");

} // namespace

PETTIS_HANSEN_GRAPH::PETTIS_HANSEN_GRAPH() : profile_(std::make_shared<call_profile>()) {}

PETTIS_HANSEN_GRAPH::PETTIS_HANSEN_GRAPH(const PETTIS_HANSEN_GRAPH& other)
    : profile_(other.profile_), layout_(other.layout_) {
    if (other.adjacency_ == nullptr && !debug_wcg_node) {
        return;
    }
    // Chain by chain, because every filling of a chain is a join that may be traced.
    const std::unique_ptr<adjacency> built = other.adjacency_ == nullptr ? other.build_adjacency() : nullptr;
    const adjacency& source = built == nullptr ? *other.adjacency_ : *built;
    adjacency_ = std::make_unique<adjacency>();
    profile_.reset();
    layout_.reset();
    for (const auto vertex : boost::make_iterator_range(vertices(source))) {
        add_node(source[vertex]);
    }
    const auto weights = get(boost::edge_weight, source);
    for (const auto edge : boost::make_iterator_range(edges(source))) {
        boost::add_edge(boost::source(edge, source), boost::target(edge, source), {weights[edge]}, *adjacency_);
    }
}

PETTIS_HANSEN_GRAPH::~PETTIS_HANSEN_GRAPH() = default;

// The adjacency list of a graph that is as read or laid out.
std::unique_ptr<PETTIS_HANSEN_GRAPH::adjacency> PETTIS_HANSEN_GRAPH::build_adjacency() const {
    auto built = std::make_unique<adjacency>();
    if (layout_.has_value()) {
        std::uint32_t next = 0;
        for (const std::uint32_t end : layout_->chain_ends) {
            PHNODE& chain = (*built)[add_vertex(*built)];
            for (; next < end; ++next) {
                chain.add_node(std::string(profile_->name(layout_->functions[next])));
            }
        }
        return built;
    }
    for (std::uint32_t function = 0; function < profile_->function_count(); ++function) {
        add_vertex(PHNODE(std::string(profile_->name(function))), *built);
    }
    for (const call_edge& edge : profile_->edges()) {
        boost::add_edge(edge.end[0], edge.end[1], {edge.weight}, *built);
    }
    return built;
}

// Brings the graph into the form stepwise.
PETTIS_HANSEN_GRAPH::adjacency& PETTIS_HANSEN_GRAPH::stepwise() {
    if (adjacency_ == nullptr) {
        adjacency_ = build_adjacency();
        profile_.reset();
        layout_.reset();
    }
    return *adjacency_;
}

PETTIS_HANSEN_GRAPH::adjacency& PETTIS_HANSEN_GRAPH::graph() {
    is_handed_out_ = true;
    return stepwise();
}

// The profile of a graph as read, unshared, so that changing it changes no copy of this graph.
call_profile& PETTIS_HANSEN_GRAPH::own_profile() {
    if (profile_.use_count() > 1) {
        profile_ = std::make_shared<call_profile>(*profile_);
    }
    return *profile_;
}

// The first vertex whose chain holds `name`, or no_index.
std::uint32_t PETTIS_HANSEN_GRAPH::name_to_vertex(std::string_view name) {
    if (is_as_read()) {
        return profile_->find(name);
    }
    const adjacency& g = stepwise();
    if (is_handed_out_) {
        for (std::uint32_t vertex = 0; vertex < num_vertices(g); ++vertex) {
            const std::list<std::string>& chain = g[vertex].get_list();
            if (std::find(chain.begin(), chain.end(), name) != chain.end()) {
                return vertex;
            }
        }
        return no_index;
    }
    if (is_index_stale_) {
        name_index_.clear();
        for (std::uint32_t vertex = 0; vertex < num_vertices(g); ++vertex) {
            for (const std::string& held : g[vertex].get_list()) {
                name_index_.emplace(held, vertex);
            }
        }
        is_index_stale_ = false;
    }
    const auto found = name_index_.find(std::string(name));
    return found == name_index_.end() ? no_index : found->second;
}

std::pair<unsigned int, bool> PETTIS_HANSEN_GRAPH::find_node(std::string name) {
    const std::uint32_t vertex = name_to_vertex(name);
    return {vertex, vertex != no_index};
}

bool PETTIS_HANSEN_GRAPH::add_node(std::string name) {
    if (name_to_vertex(name) != no_index) {
        return false;
    }
    if (is_as_read()) {
        own_profile().find_or_add(name);
    } else {
        append_vertex(PHNODE(std::move(name)));
    }
    return true;
}

unsigned int PETTIS_HANSEN_GRAPH::add_node(const PHNODE& chain) {
    PHNODE filled;
    filled.add_node(chain, PH_AFT, PH_FWD); // complete before the graph grows: the chain may be one of its own
    return append_vertex(filled);
}

unsigned int PETTIS_HANSEN_GRAPH::append_vertex(const PHNODE& chain) {
    const auto vertex = static_cast<unsigned int>(num_vertices(stepwise()));
    if (!is_index_stale_) {
        for (const std::string& name : chain.get_list()) {
            name_index_.emplace(name, vertex);
        }
    }
    add_vertex(chain, *adjacency_);
    return vertex;
}

bool PETTIS_HANSEN_GRAPH::add_edge(std::string caller, std::string callee, unsigned long weight) {
    const std::uint32_t u = name_to_vertex(caller);
    if (u == no_index) {
        DIAG::raise<DIAG::owl_fatal_node_not_found>("ORDWELL/pettis_hansen", 350, caller.c_str());
        return false;
    }
    const std::uint32_t v = name_to_vertex(callee);
    if (v == no_index) {
        DIAG::raise<DIAG::owl_fatal_node_not_found>("ORDWELL/pettis_hansen", 353, callee.c_str());
        return false;
    }
    if (u == v) {
        return false;
    }
    if (is_as_read()) {
        own_profile().add_edge(u, v, static_cast<std::uint32_t>(std::min<unsigned long>(weight, max_weight)));
    } else {
        add_edge_with_weight(u, v, weight);
    }
    return true;
}

PETTIS_HANSEN_GRAPH::added_edge PETTIS_HANSEN_GRAPH::add_edge_with_weight(unsigned long u, unsigned long v,
                                                                          unsigned long weight) {
    adjacency& g = stepwise();
    added_edge result = {static_cast<unsigned int>(u), static_cast<unsigned int>(v), std::nullopt, false, false};
    if (u == v) {
        return result;
    }
    const auto [edge, existed] = boost::edge(u, v, g); // the first entry for v among u's out-edges
    result.edge = edge;
    result.existed = existed;
    if (existed) {
        unsigned long& stored = get(boost::edge_weight, g, edge);
        stored = saturated_add_edge_weights(weight, stored);
    } else {
        result.edge = boost::add_edge(u, v, {std::min<unsigned long>(weight, max_weight)}, g).first;
    }
    result.done = true;
    return result;
}

unsigned long PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(unsigned long a, unsigned long b) {
    if (a >= max_weight || b >= max_weight) {
        return max_weight;
    }
    return saturating_sum(static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(b));
}

// Adds the rows of an input file: see read().
void PETTIS_HANSEN_GRAPH::add_rows(const std::vector<call_row>& rows) {
    if (is_as_read()) {
        own_profile().add_rows(rows);
        return;
    }
    for (const call_row& row : rows) {
        add_node(std::string(row.caller));
        add_node(std::string(row.callee));
        add_edge(std::string(row.caller), std::string(row.callee), row.weight);
    }
}
