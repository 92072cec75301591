// Micro-benchmarks of reading, merging and writing, on graphs of the shape that bench/generate.cpp writes, cut down to
// what a benchmark library likes to repeat.
#include "ORDWELL/pettis_hansen.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>

namespace {

constexpr const char* profile_path = "/tmp/ordwell-benchmark.csv";

// Writes a profile of `functions` functions and six times as many rows, and gives its size in bytes.
long write_profile(long functions) {
    std::mt19937 random(1);
    FILE* const file = std::fopen(profile_path, "w");
    std::fputs("\"caller\",\"callee\",\"weight\"\n", file);
    for (long row = 0; row < 6 * functions; ++row) {
        const long caller = row / 6;
        const long near = caller / 200 * 200 + static_cast<long>(random() % 200);
        const long callee = random() % 3 != 0 ? near % functions : static_cast<long>(random()) % functions / 50;
        std::fprintf(file, "_ZN6module8function%011ldEv,_ZN6module8function%011ldEv,%lu\n", caller, callee,
                     1 + 4294967295UL / (random() | 1U));
    }
    const long size = std::ftell(file);
    std::fclose(file);
    return size;
}

void read_profile(PETTIS_HANSEN_GRAPH& graph) {
    std::string path = profile_path;
    graph.read(path);
}

void Read(benchmark::State& state) {
    const long size = write_profile(state.range(0));
    for (auto _ : state) {
        PETTIS_HANSEN_GRAPH graph;
        read_profile(graph);
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void Merge(benchmark::State& state) {
    write_profile(state.range(0));
    PETTIS_HANSEN_GRAPH orig;
    read_profile(orig);
    for (auto _ : state) {
        PETTIS_HANSEN_GRAPH graph(orig);
        graph.merge_nodes(orig);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Write(benchmark::State& state) {
    write_profile(state.range(0));
    PETTIS_HANSEN_GRAPH graph;
    read_profile(graph);
    PETTIS_HANSEN_GRAPH orig(graph);
    graph.merge_nodes(orig);
    for (auto _ : state) {
        std::ofstream out("/tmp/ordwell-benchmark.cmd");
        graph.write_order(out);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Read)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(Merge)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(Write)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace
