// Fast merging against the step-by-step reference, on random graphs of many shapes. A graph on which the two differ is
// printed as an input file.
#include "ORDWELL/call_profile.h"
#include "ORDWELL/pettis_hansen.h"
#include "bench/random_source.h"
#include "bench/shapes.h"
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <random>
#include <sstream>

namespace {

struct row {
    unsigned int caller;
    unsigned int callee;
    std::uint32_t weight;
};
using rows = std::vector<row>;

// Names of 1 to 300 bytes, different in their first ones.
std::string name_of(unsigned int function) {
    std::string name;
    for (unsigned int rest = function + 1; rest > 0; rest /= 60) {
        name += static_cast<char>('A' + (rest - 1) % 60); // up to "|"
        rest -= rest % 60 == 0 ? 60 : 0;
    }
    name.resize(std::max<std::size_t>(name.size(), 1 + function * 97 % 300), '~');
    return name;
}

std::string rows_of(const rows& calls) {
    std::ostringstream file;
    for (const row& call : calls) {
        file << name_of(call.caller) << ',' << name_of(call.callee) << ',' << call.weight << '\n';
    }
    return csv(file.str());
}

// What must be the same after either road.
struct final_state {
    PETTIS_HANSEN_GRAPH::function_order order;
    bool merged;
    std::size_t edges;
    std::vector<unsigned int> vertices; // of the functions, as find_node() tells
    bool operator==(const final_state&) const = default;
};

// The fast road begins with a file, so that reading is tried, too.
final_state state_after(const rows& calls, bool fast) {
    PETTIS_HANSEN_GRAPH graph;
    if (fast) {
        static const scratch_folder folder;
        std::string path = folder.path("a.csv");
        folder.write("a.csv", rows_of(calls));
        graph.read(path);
    }
    for (const row& call : fast ? rows() : calls) {
        graph.add_node(name_of(call.caller));
        graph.add_node(name_of(call.callee));
        graph.add_edge(name_of(call.caller), name_of(call.callee), call.weight);
    }
    PETTIS_HANSEN_GRAPH orig(graph);
    fast ? graph.merge_nodes(std::move(orig)) : graph.merge_nodes_stepwise(orig);
    final_state state = {{}, graph.merged, 0, {}};
    EXPECT_TRUE(graph.get_ordering(state.order));
    for (const row& call : calls) {
        state.vertices.push_back(graph.find_node(name_of(call.caller)).first);
        state.vertices.push_back(graph.find_node(name_of(call.callee)).first);
    }
    state.edges = num_edges(graph.graph());
    return state;
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

// The shapes: with which functions before it the function i exchanges calls.
using partners = std::vector<unsigned int>;
const std::function<partners(unsigned int, random_bits&)> shapes[] = {
    [](unsigned int i, random_bits& random) { // anything, self-calls and repetitions included
        partners several(below(random, 5));
        std::generate(several.begin(), several.end(), [&] { return below(random, i + 1); });
        return several;
    },
    [](unsigned int i, random_bits& random) { // a star, with a few edges between its points
        return random() % 4 == 0 ? partners{0, below(random, i)} : partners{0};
    },
    [](unsigned int i, random_bits&) { // a clique
        partners all(std::min(i, 12U));
        std::iota(all.begin(), all.end(), 0U);
        return all;
    },
    [](unsigned int i, random_bits&) { return partners{i - 1}; }, // a path
    [](unsigned int i, random_bits& random) {                     // callers that share a few popular functions
        return random() % 2 == 0 ? partners{below(random, std::min(i, 3U)), below(random, i)}
                                 : partners{below(random, std::min(i, 3U))};
    },
};

rows random_calls(unsigned int seed) {
    random_bits random(seed);
    const auto& kind = weight_kinds[seed % std::size(weight_kinds)];
    const auto weight = [&] { return kind(random); };
    rows calls;
    for (unsigned int components = 1 + below(random, 3), first = 0; components > 0; --components, first += 100) {
        const auto& shape = shapes[below(random, std::size(shapes))];
        const unsigned int functions = 2 + below(random, 45);
        const unsigned int direction = below(random, 3); // later ones call, are called, or both
        for (unsigned int i = 1; i < functions; ++i) {
            for (const unsigned int partner : shape(i, random)) {
                const bool calls_earlier = direction == 0 || (direction == 2 && random() % 2 == 0);
                calls.push_back(calls_earlier ? row{first + i, first + partner, weight()}
                                              : row{first + partner, first + i, weight()});
            }
        }
    }
    if (random() % 2 == 0) { // join the components
        for (unsigned int bridges = below(random, 8); bridges > 0 && !calls.empty(); --bridges) {
            calls.push_back({calls[below(random, static_cast<unsigned int>(calls.size()))].callee,
                             calls[below(random, static_cast<unsigned int>(calls.size()))].caller, weight()});
        }
    }
    if (random() % 2 == 0) {
        std::shuffle(calls.begin(), calls.end(), random);
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
        ASSERT_TRUE(state_after(calls, true) == state_after(calls, false)) << "seed " << seed << "\n" << rows_of(calls);
    }
}

// Graphs of the regular shapes, half of them with rows left out, half with some between any two functions.
// ORDWELL_GRAPHS says how many of each combination; 1000 / 12 make a thousand of every shape and order.
TEST(FastMerge, EqualsStepwiseMergingOnEveryShape) {
    const char* const wanted = std::getenv("ORDWELL_GRAPHS");
    const int graphs = wanted != nullptr ? std::atoi(wanted) : 3;
    std::uint64_t seed = 0;
    for (const call_shape& shape : call_shape::all()) {
        for (int graph = 0; graph < graphs; ++graph) {
            random_source random(++seed);
            const std::uint64_t kept = random.below(2) == 0 ? 10 : 6 + random.below(4); // of ten rows
            const auto size = static_cast<std::uint32_t>(2 + random.below(48));
            rows calls;
            for (const shape_call& c : shape.calls(size, seed)) {
                if (random.below(10) < kept) {
                    calls.push_back({c.caller, c.callee, c.count});
                }
            }
            for (std::uint64_t more = random.below(2) * random.below(10); more > 0 && !calls.empty(); --more) {
                calls.push_back({calls[random.below(calls.size())].callee, calls[random.below(calls.size())].caller,
                                 calls[random.below(calls.size())].weight});
            }
            ASSERT_TRUE(state_after(calls, true) == state_after(calls, false))
                << shape.name() << ", seed " << seed << "\n"
                << rows_of(calls);
        }
    }
}

// Every edge is listed at two groups, and where all merges join equals, a list is looked at and rewritten log2(functions)
// times: so 2 x edges x log2(functions) entries. The other work goes with the edges rewritten, which that many are only
// if all of them are left each time; what the shapes need is less than half of it. Work that grows with the square of
// the edges is some thousand times as much.
TEST(FastMerge, WorkStaysInProportionOnEveryShape) {
#ifdef ORDWELL_SANITIZED
    constexpr std::uint32_t size = 2000;
#else
    constexpr std::uint32_t size = 20000;
#endif
    for (const call_shape& shape : call_shape::all()) {
        call_profile profile;
        for (const shape_call& c : shape.calls(size)) {
            const std::uint32_t caller = profile.find_or_add(std::to_string(c.caller));
            profile.add_edge(caller, profile.find_or_add(std::to_string(c.callee)), c.count);
        }
        merge_work work{};
        const double edges = static_cast<double>(profile.edges().size());
        merge_fast(profile, true, &work);
        EXPECT_LT(static_cast<double>(work.incidences + work.pairs + work.places + work.queued),
                  2.0 * edges * std::log2(profile.function_count()))
            << shape.name();
    }
}

TEST(FastMerge, EqualsStepwiseMergingOnTheExample) {
#ifdef ORDWELL_SANITIZED
    GTEST_SKIP() << "takes a minute on the sanitized build";
#endif
    std::string path = ORDWELL_SOURCE "/examples/interpreter-startup.csv";
    PETTIS_HANSEN_GRAPH orig;
    orig.read(path);
    PETTIS_HANSEN_GRAPH::function_order orders[2];
    for (const bool fast : {false, true}) {
        PETTIS_HANSEN_GRAPH graph(orig);
        fast ? graph.merge_nodes(orig) : graph.merge_nodes_stepwise(orig);
        ASSERT_TRUE(graph.get_ordering(orders[fast ? 1 : 0]));
    }
    EXPECT_EQ(orders[0], orders[1]);
}

} // namespace
