// The merge order oracle: in which of four arrangements to join two chains.
//
// Position in a chain stands for place in memory, so a pair of functions that call each other w times should lie few
// positions apart. A candidate chain of L names scores w x (L - distance) for every edge of the orig graph between the
// two chains, counted from either end and so twice. For chains a b and c d with the one edge b-d of weight 10:
//
//     0  c d a b   distance 2, score 40        2  a b c d   distance 2, score 40
//     1  d c a b   distance 3, score 20        3  a b d c   distance 1, score 60: the choice
//
// A tie goes to the lower number. The first chain need not be reversed: that changes no distance.
#include "DIAG/diag_messages.h"
#include "ORDWELL/call_profile.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/debug_switch.h"

#include <array>

namespace {

const register_option debug_merge_wcg("debug:merge_wcg");

struct candidate {
    PH_push_fore_aft place;
    PH_add_fwd_rev direction;
};
constexpr std::array<candidate, 4> candidates = {
    {{PH_FORE, PH_FWD}, {PH_FORE, PH_REV}, {PH_AFT, PH_FWD}, {PH_AFT, PH_REV}}};

} // namespace

std::pair<PH_push_fore_aft, PH_add_fwd_rev> PETTIS_HANSEN_GRAPH::merge_order_oracle(const PHNODE* chain1,
                                                                                    const PHNODE* chain2,
                                                                                    PETTIS_HANSEN_GRAPH& orig) {
    if (debug_merge_wcg >= 2) {
        chain1->dump_list("      identify edges in orig graph between [", "]\n");
        chain2->dump_list("      and [", "]\n");
    }
    adjacency& orig_graph = orig.stepwise();

    edge_records records;
    for (const std::string& a : chain1->get_list()) {
        for (const std::string& b : chain2->get_list()) {
            const auto [vertex_a, found_a] = orig.find_node(a);
            if (!found_a) {
                DIAG::raise<DIAG::owl_fatal_node_not_found>("ORDWELL/pettis_hansen", 713, a.c_str());
                continue;
            }
            const auto [vertex_b, found_b] = orig.find_node(b);
            if (!found_b) {
                DIAG::raise<DIAG::owl_fatal_node_not_found>("ORDWELL/pettis_hansen", 718, b.c_str());
                continue;
            }
            if (const auto [edge, found] = boost::edge(vertex_a, vertex_b, orig_graph); found) {
                records.push_back(edge);
            }
            if (const auto [edge, found] = boost::edge(vertex_b, vertex_a, orig_graph); found) {
                records.push_back(edge);
            }
        }
    }

    std::array<PHNODE, 4> joined;
    joined.fill(*chain1);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        joined[i].add_node(*chain2, candidates[i].place, candidates[i].direction);
    }
    std::array<unsigned int, 4> score;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        score[i] = score_calc(joined[i], records, orig_graph);
    }
    std::size_t best = 0;
    for (std::size_t i = 1; i < candidates.size(); ++i) {
        if (score[i] > score[best]) {
            best = i;
        }
    }
    return {candidates[best].place, candidates[best].direction};
}

unsigned int PETTIS_HANSEN_GRAPH::score_calc(PHNODE& candidate, edge_records& records, adjacency& orig_graph) {
    const auto weights = get(boost::edge_weight, orig_graph);
    const auto length = static_cast<unsigned int>(candidate.get_list().size());
    std::uint64_t sum = 0;
    for (const adjacency::edge_descriptor& record : records) {
        const std::string& a = orig_graph[source(record, orig_graph)].get_list().front();
        const std::string& b = orig_graph[target(record, orig_graph)].get_list().front();
        sum += std::uint64_t{length - PH_distance(candidate, a, b)} * weights[record];
        if (sum >= max_weight) {
            return max_weight;
        }
    }
    return static_cast<unsigned int>(sum);
}
