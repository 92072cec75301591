// Fast merging against the step-by-step reference, on random graphs of many shapes. A graph on which the two differ is
// shrunk row by row and printed as an input file.
#include "ORDWELL/pettis_hansen.h"
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <sstream>

namespace {

struct row {
    unsigned int caller;
    unsigned int callee;
    std::uint32_t weight;
};
using rows = std::vector<row>;

std::string name_of(unsigned int function) {
    std::string name = "f";
    return name += std::to_string(function);
}

// What must be the same after either road.
struct final_state {
    PETTIS_HANSEN_GRAPH::function_order order;
    bool merged;
    std::size_t edges;
    std::vector<unsigned int> vertices; // of the functions, as find_node() tells
    bool operator==(const final_state&) const = default;
};

final_state state_after(const rows& calls, bool fast) {
    PETTIS_HANSEN_GRAPH graph;
    for (const row& call : calls) {
        graph.add_node(name_of(call.caller));
        graph.add_node(name_of(call.callee));
        graph.add_edge(name_of(call.caller), name_of(call.callee), call.weight);
    }
    PETTIS_HANSEN_GRAPH orig(graph);
    fast ? graph.merge_nodes(orig) : graph.merge_nodes_stepwise(orig);
    final_state state = {{}, graph.merged, 0, {}};
    EXPECT_TRUE(graph.get_ordering(state.order));
    for (const row& call : calls) {
        state.vertices.push_back(graph.find_node(name_of(call.caller)).first);
        state.vertices.push_back(graph.find_node(name_of(call.callee)).first);
    }
    state.edges = num_edges(graph.graph());
    return state;
}

bool differ(const rows& calls) {
    return !(state_after(calls, true) == state_after(calls, false));
}

// Leaves out rows as long as the two roads still differ, and gives the rest as an input file.
std::string shrunk(rows calls) {
    for (std::size_t step = calls.size(); step > 0; step /= 2) {
        for (std::size_t i = 0; i + step <= calls.size();) {
            rows fewer = calls;
            fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i),
                        fewer.begin() + static_cast<std::ptrdiff_t>(i + step));
            if (differ(fewer)) {
                calls = fewer;
            } else {
                i += step;
            }
        }
    }
    std::ostringstream file;
    for (const row& call : calls) {
        file << name_of(call.caller) << ',' << name_of(call.callee) << ',' << call.weight << '\n';
    }
    return csv(file.str());
}

using random_bits = std::mt19937;

unsigned int below(random_bits& random, unsigned int bound) {
    return static_cast<unsigned int>(random() % bound);
}

// How the weights of a graph are drawn.
const std::function<std::uint32_t(random_bits&)> weight_kinds[] = {
    [](random_bits&) { return 1U; },
    [](random_bits& random) { return 1 + below(random, 2); },
    [](random_bits& random) { return 1 + below(random, 5); },
    [](random_bits& random) { return 1 + below(random, 1000); },
    [](random_bits& random) { return 2147483648U - 3 + below(random, 6); },
    [](random_bits& random) { return 4294967295U - below(random, 5); },
    [](random_bits& random) { return 1U << below(random, 32); },
};

// The shapes. Each appends calls between the functions from `first` on.
using weight_source = std::function<std::uint32_t()>;
void add_random(rows& calls, random_bits& random, unsigned int first, const weight_source& weight) {
    const unsigned int functions = 2 + below(random, 30);
    for (unsigned int count = below(random, 5 * functions); count > 0; --count) { // self-calls and repetitions included
        calls.push_back({first + below(random, functions), first + below(random, functions), weight()});
    }
}
void add_star(rows& calls, random_bits& random, unsigned int first, const weight_source& weight) {
    const unsigned int callers = 1 + below(random, 40);
    const unsigned int direction = below(random, 3); // hub called, hub calling, both
    for (unsigned int i = 1; i <= callers; ++i) {
        const bool called = direction == 0 || (direction == 2 && random() % 2 == 0);
        calls.push_back(called ? row{first + i, first, weight()} : row{first, first + i, weight()});
        if (random() % 4 == 0) {
            calls.push_back({first + i, first + 1 + below(random, callers), weight()});
        }
    }
}
void add_clique(rows& calls, random_bits& random, unsigned int first, const weight_source& weight) {
    const unsigned int functions = 2 + below(random, 10);
    for (unsigned int i = 0; i < functions; ++i) {
        for (unsigned int j = 0; j < i; ++j) {
            calls.push_back(random() % 2 == 0 ? row{first + i, first + j, weight()}
                                              : row{first + j, first + i, weight()});
        }
    }
}
void add_path(rows& calls, random_bits& random, unsigned int first, const weight_source& weight) {
    const unsigned int functions = 2 + below(random, 60);
    for (unsigned int i = 1; i < functions; ++i) {
        calls.push_back(random() % 3 == 0 ? row{first + i, first + i - 1, weight()}
                                          : row{first + i - 1, first + i, weight()});
    }
}
// Chains of callers that lead into a few popular functions: the larger side keeps being the removed one.
void add_hubs(rows& calls, random_bits& random, unsigned int first, const weight_source& weight) {
    const unsigned int functions = 8 + below(random, 50);
    const unsigned int hubs = 1 + below(random, 4);
    for (unsigned int i = hubs; i < functions; ++i) {
        for (unsigned int hub = 0; hub < hubs; ++hub) {
            if (random() % 2 == 0) {
                calls.push_back({first + i, first + hub, weight()});
            }
        }
        if (random() % 2 == 0) {
            calls.push_back({first + i, first + below(random, i), weight()});
        }
    }
}

rows random_calls(unsigned int seed) {
    random_bits random(seed);
    const auto& kind = weight_kinds[seed % std::size(weight_kinds)];
    const weight_source weight = [&] { return kind(random); };
    constexpr decltype(&add_random) shapes[] = {add_random, add_star, add_clique, add_path, add_hubs};
    rows calls;
    for (unsigned int components = 1 + below(random, 3), first = 0; components > 0; --components, first += 100) {
        shapes[below(random, std::size(shapes))](calls, random, first, weight);
    }
    if (random() % 2 == 0) { // join the components
        for (unsigned int bridges = below(random, 8); bridges > 0 && !calls.empty(); --bridges) {
            calls.push_back({calls[below(random, static_cast<unsigned int>(calls.size()))].callee,
                             calls[below(random, static_cast<unsigned int>(calls.size()))].caller, weight()});
        }
    }
    return calls;
}

TEST(FastMerge, EqualsStepwiseMergingOnRandomGraphs) {
#ifdef ORDWELL_SANITIZED
    constexpr unsigned int graphs = 600;
#else
    constexpr unsigned int graphs = 6000;
#endif
    for (unsigned int seed = 0; seed < graphs; ++seed) {
        const rows calls = random_calls(seed);
        ASSERT_FALSE(differ(calls)) << "seed " << seed << "\n" << shrunk(calls);
    }
}

TEST(FastMerge, EqualsStepwiseMergingOnTheExample) {
#ifdef ORDWELL_SANITIZED
    GTEST_SKIP() << "takes a minute on the sanitized build";
#endif
    std::string path = ORDWELL_SOURCE "/examples/interpreter-startup.csv";
    PETTIS_HANSEN_GRAPH graph;
    graph.read(path);
    PETTIS_HANSEN_GRAPH stepwise(graph);
    PETTIS_HANSEN_GRAPH orig(graph);
    graph.merge_nodes(orig);
    stepwise.merge_nodes_stepwise(orig);
    PETTIS_HANSEN_GRAPH::function_order fast_order;
    PETTIS_HANSEN_GRAPH::function_order stepwise_order;
    ASSERT_TRUE(graph.get_ordering(fast_order) && stepwise.get_ordering(stepwise_order));
    EXPECT_EQ(fast_order, stepwise_order);
}

} // namespace
