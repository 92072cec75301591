// shapes FOLDER [RUNS [EVERY]]: whether time stays in proportion on every shape of call graph (bench/shapes.h). Prints,
// for each of the worst and then of all, the seconds of a whole run (read, merge, write) on 100,000, 500,000 and 1,000,000
// rows, how many times as long the second takes as the first, and the third as the path that is read forward. Each figure
// is the smallest of the runs, 3 if not said. There are 624 combinations, which takes long; EVERY of 7 measures each
// seventh, among which are all shapes, orders and counts. Files are written to the folder.
#include "ORDWELL/pettis_hansen.h"
#include "bench/shapes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

struct measured {
    call_shape shape;
    std::array<double, 3> seconds; ///< on so many rows as row_counts says
    double growth() const { return seconds[1] / seconds[0]; }
};
constexpr std::array<std::uint32_t, 3> row_counts = {100000, 500000, 1000000};

void write_calls(const std::string& path, const std::vector<shape_call>& calls) {
    FILE* const file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        std::perror(path.c_str());
        std::exit(1);
    }
    std::fputs("\"caller\",\"callee\",\"weight\"\n", file);
    for (const shape_call& call : calls) {
        std::fprintf(file, "f%lu,f%lu,%lu\n", static_cast<unsigned long>(call.caller),
                     static_cast<unsigned long>(call.callee), static_cast<unsigned long>(call.count));
    }
    std::fclose(file);
}

double seconds_of_run(std::string path) {
    const auto start = std::chrono::steady_clock::now();
    PETTIS_HANSEN_GRAPH graph;
    graph.read(path);
    PETTIS_HANSEN_GRAPH orig(graph);
    graph.merge_nodes(std::move(orig));
    std::ofstream out(path + ".cmd");
    graph.write_order(out);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void print(const measured& m, const measured& path) {
    std::printf("%-50s %7.3f %7.3f %7.3f %6.2fx %6.2fx\n", m.shape.name().c_str(), m.seconds[0], m.seconds[1],
                m.seconds[2], m.growth(), m.seconds[2] / path.seconds[2]);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FOLDER [RUNS [EVERY]]\n", argv[0]);
        return 2;
    }
    const std::string path = std::string(argv[1]) + "/shape.csv";
    const int runs = argc > 2 ? std::atoi(argv[2]) : 3;
    const std::size_t every = argc > 3 ? static_cast<std::size_t>(std::max(std::atoi(argv[3]), 1)) : 1;
    const std::vector<call_shape> shapes = call_shape::all();
    std::vector<measured> all;
    for (std::size_t number = 0; number < shapes.size(); number += every) {
        const call_shape& shape = shapes[number];
        measured m = {shape, {}};
        for (std::size_t i = 0; i < row_counts.size(); ++i) {
            write_calls(path, shape.calls(row_counts[i]));
            m.seconds[i] = seconds_of_run(path);
            for (int run = 1; run < runs; ++run) {
                m.seconds[i] = std::min(m.seconds[i], seconds_of_run(path));
            }
        }
        all.push_back(m);
    }
    const auto worst_growth = std::max_element(
        all.begin(), all.end(), [](const measured& a, const measured& b) { return a.growth() < b.growth(); });
    const auto longest = std::max_element(
        all.begin(), all.end(), [](const measured& a, const measured& b) { return a.seconds[2] < b.seconds[2]; });
    std::printf("%-50s %7s %7s %7s %7s %7s\n", "rows", "100,000", "500,000", "million", "growth", "to path");
    print(all.front(), all.front());
    print(*worst_growth, all.front());
    print(*longest, all.front());
    std::puts("");
    for (const measured& m : all) {
        print(m, all.front());
    }
    return 0;
}
