// The graph class: look-ups, edges, copies, dumps, traces, the oracle, and its internal errors. Each form that a graph
// can have is put through the same questions.
#include "DIAG/diag.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/debug_switch.h"
#include "tests/printed.h"
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using order = PETTIS_HANSEN_GRAPH::function_order;

void fill(PETTIS_HANSEN_GRAPH& graph, const std::vector<std::tuple<std::string, std::string, unsigned long>>& calls) {
    for (const auto& [caller, callee, weight] : calls) {
        graph.add_node(caller);
        graph.add_node(callee);
        graph.add_edge(caller, callee, weight);
    }
}

void fill_example(PETTIS_HANSEN_GRAPH& graph) {
    fill(graph, {{"main", "f", 10}, {"main", "g", 5}, {"f", "g", 3}, {"g", "h", 8}});
}

order layout_of(PETTIS_HANSEN_GRAPH& graph) {
    order result;
    EXPECT_TRUE(graph.get_ordering(result));
    return result;
}

/// Runs a test on a graph as read and on one that has its adjacency list.
class GraphForm : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (GetParam()) {
            graph.graph();
        }
    }
    PETTIS_HANSEN_GRAPH graph;
};
INSTANTIATE_TEST_SUITE_P(Forms, GraphForm, testing::Bool());

TEST_P(GraphForm, FindsNames) {
    EXPECT_EQ(graph.find_node("f"), std::pair(4294967295U, false));
    EXPECT_TRUE(graph.add_node("f"));
    EXPECT_FALSE(graph.add_node("f"));
    EXPECT_EQ(graph.find_node("f"), std::pair(0U, true));
    EXPECT_FALSE(graph.find_node("F").second);
    EXPECT_FALSE(graph.find_node(" f").second);
    PHNODE chain("x");
    chain.add_node("y");
    EXPECT_EQ(graph.add_node(chain), 1U);
    EXPECT_EQ(graph.add_node(PHNODE()), 2U);
    EXPECT_EQ(graph.find_node("y"), std::pair(1U, true));
    EXPECT_FALSE(graph.add_edge("x", "y", 1));
    EXPECT_EQ(graph.add_node(graph.graph()[1]), 3U); // a chain of its own
    EXPECT_EQ(graph.graph()[3].get_list(), chain.get_list());
}

// The adjacency list may be changed from outside, also through a reference that was taken long ago.
TEST_P(GraphForm, AnswersForChangesFromOutside) {
    graph.add_node("a");
    auto& list = graph.graph();
    EXPECT_FALSE(graph.find_node("b").second);
    add_vertex(PHNODE("b"), list);
    EXPECT_EQ(graph.find_node("b"), std::pair(1U, true));
    EXPECT_FALSE(graph.add_node("b"));
    add_edge(1, 0, 7, list);
    EXPECT_TRUE(graph.add_edge("a", "b", 3));
    EXPECT_EQ(num_edges(list), 1U);
    EXPECT_EQ(get(boost::edge_weight, list, boost::edge(0, 1, list).first), 10U);
    list[0].add_node("c");
    EXPECT_EQ(graph.find_node("c"), std::pair(0U, true));
    clear_vertex(0, list);
    remove_vertex(0, list);
    EXPECT_EQ(graph.find_node("b"), std::pair(0U, true));
    EXPECT_FALSE(graph.find_node("a").second);
}

TEST_P(GraphForm, AddsCallsUp) {
    fill(graph, {{"a", "b", 5}, {"c", "d", 1}, {"b", "a", 7}, {"a", "a", 9}, {"d", "c", 4294967290}, {"c", "d", 10}});
    EXPECT_EQ(printed([&] { graph.dump_graph(); }), "START GRAPH=============================================\n"
                                                    "  [ a ]\n    Edges: \n      [ b ](wt:12)\n"
                                                    "  [ b ]\n    Edges: \n      [ a ](wt:12)\n"
                                                    "  [ c ]\n    Edges: \n      [ d ](wt:4294967295)\n"
                                                    "  [ d ]\n    Edges: \n      [ c ](wt:4294967295)\n"
                                                    "END GRAPH=============================================\n");
    const auto first = *edges(graph.graph()).first; // it keeps its ends and its place
    EXPECT_EQ(source(first, graph.graph()), 0U);
    EXPECT_EQ(target(first, graph.graph()), 1U);
}

TEST_P(GraphForm, AddsByIndex) {
    fill(graph, {{"a", "b", 5}, {"c", "c", 1}});
    const auto self = graph.add_edge_with_weight(2, 2, 3);
    EXPECT_FALSE(self.existed || self.done || self.edge.has_value());
    const auto again = graph.add_edge_with_weight(1, 0, 3);
    EXPECT_TRUE(again.existed && again.done);
    EXPECT_EQ(get(boost::edge_weight, graph.graph(), *again.edge), 8U);
    const auto created = graph.add_edge_with_weight(2, 1, 3);
    EXPECT_TRUE(!created.existed && created.done);
    EXPECT_EQ(source(*created.edge, graph.graph()), 2U);
}

TEST_P(GraphForm, CopiesAreIndependent) {
    fill_example(graph);
    PETTIS_HANSEN_GRAPH copy(graph);
    const std::string before = printed([&] { copy.dump_graph(); });
    EXPECT_EQ(printed([&] { graph.dump_graph(); }), before);
    fill(graph, {{"new", "main", 1}, {"main", "f", 1}});
    EXPECT_EQ(printed([&] { copy.dump_graph(); }), before);
    fill(copy, {{"main", "f", 1}, {"other", "h", 1}});
    EXPECT_FALSE(graph.find_node("other").second);
}

TEST_P(GraphForm, MergesTheWorkedExample) {
    fill_example(graph);
    graph.add_node("lonely");
    PETTIS_HANSEN_GRAPH orig(graph);
    order untouched = {{"x"}};
    EXPECT_FALSE(graph.get_ordering(untouched));
    EXPECT_EQ(untouched, order({{"x"}}));
    graph.merge_nodes(orig);
    EXPECT_TRUE(graph.merged);
    EXPECT_EQ(layout_of(graph), order({{"f", "main", "g", "h"}, {"lonely"}}));
    EXPECT_EQ(printed([&] { graph.dump_nodes(); }), " f  main  g  h \n lonely \n");
    EXPECT_EQ(printed([&] { graph.dump_graph(); }), "START GRAPH=============================================\n"
                                                    "  [ f  main  g  h ]\n\n  [ lonely ]\n\n"
                                                    "END GRAPH=============================================\n");
    // Look-ups and further calls still work, on the chains.
    EXPECT_EQ(graph.find_node("h"), std::pair(0U, true));
    EXPECT_EQ(graph.find_node("lonely"), std::pair(1U, true));
    EXPECT_FALSE(graph.add_edge("h", "f", 1));
    EXPECT_TRUE(graph.add_edge("h", "lonely", 1));
    EXPECT_FALSE(PETTIS_HANSEN_GRAPH(graph).merged);
    PETTIS_HANSEN_GRAPH empty;
    PETTIS_HANSEN_GRAPH empty_orig(empty);
    empty.merge_nodes(empty_orig);
    EXPECT_EQ(layout_of(empty), order());
}

// Without an untouched copy, all forms judge joins by what is left of the calls.
TEST_P(GraphForm, MergesWithItselfAsOrig) {
    const std::vector<std::tuple<std::string, std::string, unsigned long>> calls = {
        {"a", "b", 9}, {"c", "d", 8}, {"a", "c", 7}};
    fill(graph, calls);
    PETTIS_HANSEN_GRAPH reference;
    fill(reference, calls);
    reference.merge_nodes_stepwise(reference);
    graph.merge_nodes(graph);
    EXPECT_EQ(layout_of(graph), layout_of(reference));
    PETTIS_HANSEN_GRAPH judged_by_copy;
    fill(judged_by_copy, calls);
    PETTIS_HANSEN_GRAPH orig(judged_by_copy);
    judged_by_copy.merge_nodes(orig);
    EXPECT_NE(layout_of(graph), layout_of(judged_by_copy)); // else the example shows nothing
}

// A copy that is given away may lose its edges to merging, one that others have may not.
TEST(Graph, MergesWithACopyGivenAway) {
    std::vector<std::tuple<std::string, std::string, unsigned long>> calls;
    for (unsigned int i = 0; i < 400; ++i) {
        calls.emplace_back(std::to_string(i % 61), std::to_string(i * 7 % 59), i % 13 + 1);
    }
    PETTIS_HANSEN_GRAPH reference;
    fill(reference, calls);
    PETTIS_HANSEN_GRAPH orig(reference);
    reference.merge_nodes_stepwise(orig);
    PETTIS_HANSEN_GRAPH graph;
    fill(graph, calls);
    const std::size_t edges = num_edges(PETTIS_HANSEN_GRAPH(graph).graph());
    {
        PETTIS_HANSEN_GRAPH first(graph);
        first.merge_nodes(PETTIS_HANSEN_GRAPH(first));
        EXPECT_EQ(layout_of(first), layout_of(reference));
    }
    EXPECT_EQ(num_edges(PETTIS_HANSEN_GRAPH(graph).graph()), edges);
    graph.merge_nodes(PETTIS_HANSEN_GRAPH(graph)); // whose index of pairs the first one took
    EXPECT_EQ(layout_of(graph), layout_of(reference));
    EXPECT_EQ(graph.find_node("7").first, reference.find_node("7").first);
}

TEST(Graph, SurvivorOfAHigherIndexMovesDown) {
    PETTIS_HANSEN_GRAPH graph;
    fill(graph, {{"a", "a", 1}, {"b", "b", 1}, {"c", "a", 3}, {"b", "c", 2}, {"a", "b", 4294967295}});
    PETTIS_HANSEN_GRAPH orig(graph);
    const auto heaviest = graph.find_highest_weight_edge();
    EXPECT_TRUE(heaviest.found && heaviest.first_end == 0 && heaviest.second_end == 1);
    graph.merge_node(2, 0, orig); // c survives, a goes
    EXPECT_EQ(graph.find_node("c"), std::pair(1U, true));
    EXPECT_EQ(graph.find_node("a"), std::pair(1U, true));
    EXPECT_EQ(graph.find_node("b"), std::pair(0U, true));
    EXPECT_EQ(
        printed([&] { graph.dump_graph(); }),
        "START GRAPH=============================================\n"
        "  [ b ]\n    Edges: \n      [ a  c ](wt:4294967295)\n  [ a  c ]\n    Edges: \n      [ b ](wt:4294967295)\n"
        "END GRAPH=============================================\n");
}

TEST(Graph, TracesAMerge) {
    register_option merge_trace("debug:merge_wcg");
    PETTIS_HANSEN_GRAPH graph;
    fill_example(graph);
    PETTIS_HANSEN_GRAPH orig(graph);
    merge_trace = 3;
    const std::string trace = printed([&] { graph.merge_nodes(orig); });
    merge_trace = 0;
    std::ifstream expected(ORDWELL_SOURCE "/tests/sample/merge_trace.txt");
    EXPECT_EQ(trace, std::string(std::istreambuf_iterator<char>(expected), {}));

    const auto counts = [&](int level) { // of dumps, chosen edges, joins and folded edges
        PETTIS_HANSEN_GRAPH traced;
        fill_example(traced);
        PETTIS_HANSEN_GRAPH copy(traced);
        merge_trace = level;
        const std::string text = printed([&] { traced.merge_nodes(copy); });
        merge_trace = 0;
        std::vector<int> found;
        for (const char* const line : {"START GRAPH", "Source Node 1", ">>>> merge_node", "Add edge"}) {
            found.push_back(0);
            for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
                ++found.back();
            }
        }
        return found;
    };
    EXPECT_EQ(counts(0), std::vector<int>({0, 0, 0, 0}));
    EXPECT_EQ(counts(1), std::vector<int>({2, 3, 0, 0}));
    EXPECT_EQ(counts(2), std::vector<int>({2, 3, 3, 0}));
    EXPECT_EQ(counts(3), std::vector<int>({5, 3, 3, 2}));
    EXPECT_EQ(counts(-1), std::vector<int>({2, 3, 0, 0}));
}

TEST(Graph, TracesReadingAndJoining) {
    register_option read_trace("debug:wcg");
    register_option join_trace("debug:wcg_node");
    const scratch_folder folder;
    std::string path = folder.path("a.csv");
    folder.write("a.csv", csv("main,f,1\nbad\n"));
    PETTIS_HANSEN_GRAPH graph;
    DIAGNOSTIC::fp_m = std::tmpfile();
    read_trace = 1;
    EXPECT_EQ(printed([&] { graph.read(path); }), "START GRAPH=============================================\n"
                                                  "  [ main ]\n    Edges: \n      [ f ](wt:1)\n"
                                                  "  [ f ]\n    Edges: \n      [ main ](wt:1)\n"
                                                  "END GRAPH=============================================\n");
    read_trace = 0;
    std::fclose(std::exchange(DIAGNOSTIC::fp_m, nullptr));
    DIAGNOSTIC::error_count_m = 0;

    PETTIS_HANSEN_GRAPH orig(graph);
    join_trace = 1;
    EXPECT_EQ(printed([&] { graph.merge_nodes(orig); }), " f  main  f  main  main  f  main  f  f  main ");
    join_trace = 0;

    // A copy's chains are filled by joins, in every form; a name that is added is none.
    PETTIS_HANSEN_GRAPH as_read;
    fill(as_read, {{"a", "b", 1}});
    PETTIS_HANSEN_GRAPH stepwise(as_read);
    stepwise.graph();
    PETTIS_HANSEN_GRAPH laid_out(as_read);
    laid_out.merge_nodes(as_read);
    join_trace = 1;
    for (PETTIS_HANSEN_GRAPH* const form : {&as_read, &stepwise, &laid_out}) {
        EXPECT_EQ(printed([&] { PETTIS_HANSEN_GRAPH{*form}; }), form == &laid_out ? " b  a " : " a  b ");
        EXPECT_EQ(printed([&] { form->dump_nodes(); }), form == &laid_out ? " b  a \n" : " a \n b \n");
        EXPECT_EQ(printed([&] { form->add_node("new"); }), "");
    }
    join_trace = 0;
}

TEST(Graph, RaisesReadErrorsAtTheirLines) {
    const scratch_folder folder;
    DIAGNOSTIC::display_ipos_m = true;
    const std::pair<std::string, int> cases[] = {
        {"", 189}, {csv("\n"), 230}, {csv("a\n"), 236}, {csv("a,b\n"), 242}, {"no file", 177}};
    for (const auto& [text, line] : cases) {
        std::string path = folder.path(line == 177 ? "gone" : "a.csv");
        folder.write("a.csv", text);
        testing::internal::CaptureStderr();
        PETTIS_HANSEN_GRAPH().read(path);
        EXPECT_EQ(testing::internal::GetCapturedStderr().find("ORDWELL/pettis_hansen:" + std::to_string(line) + ":e"),
                  0U)
            << line;
    }
    DIAGNOSTIC::display_ipos_m = false;
    DIAGNOSTIC::error_count_m = 0;
}

// Reading gives the same graph whatever form the graph had before.
TEST_P(GraphForm, ReadsOnTopOfWhatIsThere) {
    const scratch_folder folder;
    std::string path = folder.path("a.csv");
    folder.write("a.csv", csv("f,main,1\nf,x,2\n\"skipped\",f,1\nx,x,7\ny,y,1\n"));
    fill_example(graph);
    graph.read(path);
    graph.read(path);
    PETTIS_HANSEN_GRAPH expected;
    fill_example(expected);
    fill(expected, {{"f", "main", 2}, {"f", "x", 4}, {"y", "y", 1}});
    EXPECT_EQ(printed([&] { graph.dump_graph(); }), printed([&] { expected.dump_graph(); }));
}

TEST(Chain, JoinsInFourWays) {
    const struct {
        PH_push_fore_aft place;
        PH_add_fwd_rev direction;
        std::list<std::string> expected;
    } cases[] = {
        {PH_FORE, PH_FWD, {"c", "d", "a", "b"}},
        {PH_FORE, PH_REV, {"d", "c", "a", "b"}},
        {PH_AFT, PH_FWD, {"a", "b", "c", "d"}},
        {PH_AFT, PH_REV, {"a", "b", "d", "c"}},
    };
    PHNODE other("c");
    other.add_node("d");
    for (const auto& c : cases) {
        PHNODE chain("a");
        chain.add_node("b");
        EXPECT_TRUE(chain.add_node(other, c.place, c.direction));
        EXPECT_EQ(chain.get_list(), c.expected);
        EXPECT_TRUE(chain.add_node(PHNODE(), c.place, c.direction));
        EXPECT_EQ(printed([&] { EXPECT_FALSE(PHNODE(other).add_node(other, c.place, c.direction)); }), " c  d ");
    }
    EXPECT_EQ(printed([&] { other.dump_list("  [", "]\n"); }), "  [ c  d ]\n");
}

TEST(Oracle, ScoresAndDistances) {
    PHNODE a("a");
    a.add_node("b");
    PHNODE b("c");
    b.add_node("d");
    PETTIS_HANSEN_GRAPH orig;
    fill(orig, {{"a", "a", 1}, {"b", "d", 10}, {"c", "c", 1}});
    PETTIS_HANSEN_GRAPH graph;
    EXPECT_EQ(graph.merge_order_oracle(&a, &b, orig), std::pair(PH_AFT, PH_REV)); // 40, 20, 40, 60
    PETTIS_HANSEN_GRAPH::edge_records records = {
        boost::edge(orig.find_node("b").first, orig.find_node("d").first, orig.graph()).first};
    records.push_back(records.front());
    PHNODE candidate(a);
    candidate.add_node(b, PH_AFT, PH_FWD);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::score_calc(candidate, records, orig.graph()), 40U);
    EXPECT_EQ(PH_distance(candidate, "d", "b"), 2U);
    put(boost::edge_weight, orig.graph(), records.front(), 2147483648UL);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::score_calc(candidate, records, orig.graph()), 4294967295U);
    EXPECT_EQ(graph.merge_order_oracle(&a, &b, orig), std::pair(PH_FORE, PH_FWD)); // all saturate: a tie

    PETTIS_HANSEN_GRAPH silent; // no calls between the chains: all scores are 0
    fill(silent, {{"a", "b", 1}, {"c", "d", 1}});
    EXPECT_EQ(graph.merge_order_oracle(&a, &b, silent), std::pair(PH_FORE, PH_FWD));
}

TEST(Graph, SaturatesSums) {
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(1, 2), 3U);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(4294967295, 0), 4294967295U);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(2147483648, 2147483647), 4294967295U);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(2147483648, 2147483648), 4294967295U);
    EXPECT_EQ(PETTIS_HANSEN_GRAPH::saturated_add_edge_weights(2147483648, 2147483646), 4294967294U);
}

TEST(GraphDeath, InternalErrorsAbort) {
    PETTIS_HANSEN_GRAPH graph;
    graph.add_node("main");
    EXPECT_DEATH(graph.add_edge("f", "main", 1), "^ORDWELL/pettis_hansen:350:internal fatal error #22005: \\(f\\)\n$");
    EXPECT_DEATH(graph.add_edge("main", "f", 1), "^ORDWELL/pettis_hansen:353:internal fatal error #22005: \\(f\\)\n$");
    DIAGNOSTIC::push_debug_mode(true); // then they return
    DIAGNOSTIC::fp_m = std::tmpfile();
    EXPECT_FALSE(graph.add_edge("f", "main", 1) || graph.add_edge("main", "f", 1));
    std::fclose(std::exchange(DIAGNOSTIC::fp_m, nullptr));
    DIAGNOSTIC::pop_debug_mode();
    const PHNODE known("main");
    const PHNODE unknown("f");
    EXPECT_DEATH(graph.merge_order_oracle(&unknown, &known, graph), "pettis_hansen:713:internal fatal error #22005: ");
    EXPECT_DEATH(graph.merge_order_oracle(&known, &unknown, graph), "pettis_hansen:718:internal fatal error #22005: ");
    EXPECT_DEATH(PH_distance(known, "main", "f"), "^ORDWELL/phnode:270:internal fatal error #22004: \\(main, f\\)\n$");
    std::ofstream out("/dev/null");
    EXPECT_DEATH(graph.write_order(out), "^ORDWELL/pettis_hansen:938:internal fatal error #22008: \\(\\)\n$");
    fill(graph, {{"main", "f", 0}});
    PETTIS_HANSEN_GRAPH orig(graph);
    EXPECT_DEATH(graph.merge_nodes(orig), "^ORDWELL/pettis_hansen:519:internal fatal error #22007: \\(\\)\n$");
}

} // namespace
