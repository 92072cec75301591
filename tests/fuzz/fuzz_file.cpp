// Fuzz target: the bytes of an input file through the reader and the whole pipeline.
//
// A plain second reader, made of string streams, tells which rows count. For every input the order file must name every
// function of a counted row exactly once, a second run must give the same bytes, and on small graphs step-by-step merging
// must give them too.
#include "DIAG/diag.h"
#include "ORDWELL/pettis_hansen.h"
#include "tests/fuzz/fuzz.h"

#include <set>
#include <sstream>

namespace {

using function_order = PETTIS_HANSEN_GRAPH::function_order;

struct pipeline_result {
    function_order chains;
    std::string order_file;
};

pipeline_result run_pipeline(const memory_file& input, bool stepwise) {
    std::string name = input.path();
    PETTIS_HANSEN_GRAPH graph;
    graph.read(name);
    PETTIS_HANSEN_GRAPH orig(graph);
    stepwise ? graph.merge_nodes_stepwise(orig) : graph.merge_nodes(orig);
    const memory_file output("");
    std::ofstream out(output.path());
    graph.write_order(out);
    pipeline_result result = {{}, output.bytes()};
    require(graph.get_ordering(result.chains), "merged");
    return result;
}

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
    static constexpr std::size_t small = 60; // functions
    DIAGNOSTIC::error_count_m = 0;
    const memory_file input(bytes);
    const pipeline_result result = run_pipeline(input, false);
    std::set<std::string> expected = read_plainly(bytes);
    const bool is_small = expected.size() <= small;

    std::string order_file;
    for (const std::list<std::string>& chain : result.chains) {
        for (const std::string& name : chain) {
            require(expected.erase(name) == 1, "every name is that of a counted row, once");
            order_file += "--preferred_order=\"" + name + "\"\n";
        }
    }
    require(expected.empty(), "every function is named");
    require(result.order_file == order_file, "the order file has the chains");
    require(run_pipeline(input, false).order_file == order_file, "a second run gives the same bytes");
    require(!is_small || run_pipeline(input, true).order_file == order_file, "stepwise merging gives the same bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    silence(DIAGNOSTIC::fp_m);
    check({reinterpret_cast<const char*>(data), size});
    return 0;
}
