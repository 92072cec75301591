// Dumps of the graph for the developers of this tool, on standard output. A graph that is not stepwise is dumped
// through an adjacency list of the moment, so that looking at it does not change its form.
#include "ORDWELL/pettis_hansen.h"

#include <cstdio>
#include <cstdlib>

void PETTIS_HANSEN_GRAPH::dump_graph() {
    const std::unique_ptr<adjacency> built = adjacency_ == nullptr ? build_adjacency() : nullptr;
    const adjacency& g = built == nullptr ? *adjacency_ : *built;
    const auto weights = get(boost::edge_weight, g);
    std::printf("START GRAPH=============================================\n");
    for (const auto vertex : boost::make_iterator_range(vertices(g))) {
        g[vertex].dump_list("  [", "]\n");
        if (out_degree(vertex, g) > 0) {
            std::printf("    Edges: ");
        }
        for (const auto entry : boost::make_iterator_range(out_edges(vertex, g))) {
            const auto [edge, found] = boost::edge(vertex, target(entry, g), g);
            if (!found) {
                std::printf("Did not find edge from edge iterator.  Something is seriously wrong\n");
                std::exit(1);
            }
            g[target(entry, g)].dump_list("\n      [", "]");
            std::printf("(wt:%lu)", weights[edge]);
        }
        std::printf("\n");
    }
    std::printf("END GRAPH=============================================\n");
}

void PETTIS_HANSEN_GRAPH::dump_nodes() {
    const std::unique_ptr<adjacency> built = adjacency_ == nullptr ? build_adjacency() : nullptr;
    const adjacency& g = built == nullptr ? *adjacency_ : *built;
    for (const auto vertex : boost::make_iterator_range(vertices(g))) {
        g[vertex].dump_list(nullptr, nullptr);
        std::printf("\n");
    }
}
