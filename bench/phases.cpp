// phases FILE [stepwise]: runs the pipeline on a profile inside one process and prints the seconds of reading, merging
// and writing, separated by blanks; with "stepwise", merging is done step by step.
#include "ORDWELL/pettis_hansen.h"

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE [stepwise]\n", argv[0]);
        return 2;
    }
    auto last = std::chrono::steady_clock::now();
    const auto lap = [&last] {
        const auto now = std::chrono::steady_clock::now();
        const std::chrono::duration<double> seconds = now - last;
        last = now;
        return seconds.count();
    };

    PETTIS_HANSEN_GRAPH graph;
    std::string filename = argv[1];
    graph.read(filename);
    const double reading = lap();
    PETTIS_HANSEN_GRAPH orig(graph);
    argc > 2 ? graph.merge_nodes_stepwise(orig) : graph.merge_nodes(std::move(orig));
    const double merging = lap();
    std::ofstream out(filename + ".phases.cmd");
    graph.write_order(out);
    std::printf("%.4f %.4f %.4f\n", reading, merging, lap());
    return 0;
}
