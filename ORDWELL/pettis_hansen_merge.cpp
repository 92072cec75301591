// Pettis-Hansen merging, step by step on the adjacency list.
//
// This road does literally what the method says, so it is easy to check and its every step can be traced; it is the
// reference for fast merging. It costs edges x merges for the selection and, for each join, the product of the two
// chains' lengths: right for hundreds of functions, hopeless from some ten thousand on.
//
// Example, edges in creation order (main, f, 10), (main, g, 5), (f, g, 3), (g, h, 8):
//
//     chosen           folded                           chain of the survivor
//     (main, f, 10)    f-g (3) onto main-g, now 8       f main
//     (main, g, 8)     g-h (8) becomes (main, h, 8)     f main g
//     (main, h, 8)     nothing                          f main g h
#include "DIAG/diag_messages.h"
#include "ORDWELL/call_profile.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/debug_switch.h"

namespace {

const register_option debug_merge_wcg("debug:merge_wcg");
const register_option debug_wcg_node("debug:wcg_node");

} // namespace

void PETTIS_HANSEN_GRAPH::merge_nodes(PETTIS_HANSEN_GRAPH& orig) {
    if (!can_merge_fast(orig)) {
        merge_nodes_stepwise(orig);
        return;
    }
    layout_ = merge_fast(*profile_, false);
    merged = true;
}

void PETTIS_HANSEN_GRAPH::merge_nodes(PETTIS_HANSEN_GRAPH&& orig) {
    if (!can_merge_fast(orig) || profile_.use_count() > 2) {
        merge_nodes(orig);
        return;
    }
    orig.profile_ = std::make_shared<call_profile>();
    layout_ = merge_fast(*profile_, true);
    merged = true;
}

// Two graphs as read that share their profile are exact copies of each other. Edges of weight 0, which no input file
// makes, end merging with a diagnostic that only the stepwise road raises.
bool PETTIS_HANSEN_GRAPH::can_merge_fast(const PETTIS_HANSEN_GRAPH& orig) const {
    const bool is_traced = static_cast<bool>(debug_merge_wcg) || static_cast<bool>(debug_wcg_node);
    return !is_traced && this != &orig && is_as_read() && orig.is_as_read() && profile_ == orig.profile_ &&
           !profile_->has_weightless_edge();
}

void PETTIS_HANSEN_GRAPH::merge_nodes_stepwise(PETTIS_HANSEN_GRAPH& orig) {
    if (debug_merge_wcg) {
        dump_graph();
    }
    while (num_edges(stepwise()) > 0) {
        const highest_weight_edge heaviest = find_highest_weight_edge();
        if (!heaviest.found) {
            DIAG::raise<DIAG::owl_fatal_no_valid_max_weight_edge>("ORDWELL/pettis_hansen", 519);
            return; // only in the diagnostics' debug mode: there is nothing left to choose
        }
        merge_node(heaviest.first_end, heaviest.second_end, orig);
        if (debug_merge_wcg >= 3) {
            dump_graph();
        }
    }
    if (debug_merge_wcg) {
        dump_graph();
    }
    merged = true;
}

PETTIS_HANSEN_GRAPH::highest_weight_edge PETTIS_HANSEN_GRAPH::find_highest_weight_edge() {
    adjacency& g = stepwise();
    const auto weights = get(boost::edge_weight, g);
    unsigned long best_weight = 0;
    highest_weight_edge best = {0, 0, false};
    for (const auto edge : boost::make_iterator_range(edges(g))) {
        if (weights[edge] > best_weight) {
            best_weight = weights[edge];
            best = {static_cast<unsigned int>(source(edge, g)), static_cast<unsigned int>(target(edge, g)), true};
        }
    }
    return best;
}

void PETTIS_HANSEN_GRAPH::merge_node(unsigned int first_end, unsigned int second_end, PETTIS_HANSEN_GRAPH& orig) {
    adjacency& g = stepwise();
    PHNODE& chain1 = g[first_end];
    PHNODE& chain2 = g[second_end];
    if (debug_merge_wcg) {
        chain1.dump_list("    Source Node 1: [", "]\n");
        chain2.dump_list("    Source Node 2: [", "]\n");
    }
    if (first_end == second_end) {
        boost::remove_edge(first_end, first_end, g);
        return;
    }

    // The edges to fold, in the order of the removed vertex's out-edges.
    struct moved_edge {
        unsigned long neighbour;
        unsigned long weight;
    };
    std::vector<moved_edge> moved;
    const auto weights = get(boost::edge_weight, g);
    for (const auto edge : boost::make_iterator_range(out_edges(second_end, g))) {
        const unsigned long neighbour = target(edge, g);
        if (neighbour == first_end) {
            continue;
        }
        moved.push_back({neighbour, weights[edge]});
        if (debug_merge_wcg >= 3) {
            chain2.dump_list("     Add edge [", "]\n");
            g[neighbour].dump_list("     to [", "] to merged node\n");
        }
    }
    for (const moved_edge& edge : moved) {
        add_edge_with_weight(first_end, edge.neighbour, edge.weight);
    }

    const auto [place, direction] = merge_order_oracle(&chain1, &chain2, orig);
    chain1.add_node(chain2, place, direction);
    if (debug_merge_wcg >= 2) {
        chain1.dump_list("      >>>> merge_node phn1 now [", "] <<<<\n");
    }
    clear_vertex(second_end, g);
    remove_vertex(second_end, g);
    is_index_stale_ = true;
}
