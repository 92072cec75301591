// Fuzz target: the bytes of an input file through the reader and the whole pipeline.
//
// A plain second reader, made of string streams, tells which rows count. For every input the order file must name every
// function of a counted row exactly once, and merging the same rows again must give the same order: step by step where
// the graph is small, for that costs the product of edges and merges.
#include "ORDWELL/call_profile.h"
#include "ORDWELL/pettis_hansen.h"
#include "tests/fuzz/fuzz.h"

#include <set>
#include <sstream>

namespace {

using function_order = PETTIS_HANSEN_GRAPH::function_order;

/// The functions of the counted rows.
std::set<std::string> read_plainly(std::string_view bytes) {
    std::set<std::string> functions;
    std::istringstream file{std::string(bytes)};
    std::string line;
    std::getline(file, line);
    std::istringstream header(line);
    std::string caller;
    std::string callee;
    std::string weight_name;
    std::getline(header, caller, ',');
    std::getline(header, callee, ',');
    if (caller != "\"caller\"" || callee != "\"callee\"" || !(header >> weight_name) || weight_name != "\"weight\"") {
        return functions;
    }
    while (std::getline(file, line)) {
        if (line.starts_with('"')) {
            continue;
        }
        std::istringstream row(line);
        unsigned int weight = 0;
        if (!std::getline(row, caller, ',') || !std::getline(row, callee, ',') || !(row >> weight)) {
            break;
        }
        if (weight != 0) {
            functions.insert({caller, callee});
        }
    }
    return functions;
}

void check(std::string_view bytes) {
    static constexpr std::size_t small = 400; // edges times functions
    static memory_file input("");
    static memory_file output("");
    input.assign(bytes);
    output.assign("");
    std::string name = input.path();
    PETTIS_HANSEN_GRAPH graph;
    graph.read(name);
    const call_profile& profile = *graph.profile();
    const bool is_small = profile.function_count() * profile.edges().size() <= small;
    function_order repeated;
    {
        PETTIS_HANSEN_GRAPH again(graph);
        PETTIS_HANSEN_GRAPH orig(graph);
        is_small ? again.merge_nodes_stepwise(orig) : again.merge_nodes(orig);
        require(again.get_ordering(repeated), "merged");
    }
    graph.merge_nodes(PETTIS_HANSEN_GRAPH(graph)); // nobody else has the edges now
    graph.write_order(output.open_again());

    function_order chains;
    require(graph.get_ordering(chains), "merged");
    std::set<std::string> expected = read_plainly(bytes);
    std::string order_file;
    for (const std::list<std::string>& chain : chains) {
        for (const std::string& function : chain) {
            require(expected.erase(function) == 1, "every name is that of a counted row, once");
            order_file += "--preferred_order=\"" + function + "\"\n";
        }
    }
    require(expected.empty(), "every function is named");
    require(output.bytes() == order_file, "the order file has the chains");
    require(repeated == chains, "another way of merging gives the same chains");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    silence(DIAGNOSTIC::fp_m);
    reset_process();
    check({reinterpret_cast<const char*>(data), size});
    return 0;
}
