// What layouts of a program cost, from one recorded execution; scripts/layout-bench is the road around it.
//
//     layouts record MAP TRACE              reads lackey's output on the program with this map of lld, and writes the trace
//     layouts replay TRACE MAP FIRST LAST   a line for each luck in this range (0: as linked): misses of the instruction cache, of
//                                           the instruction TLB, mean distance of a call, pages touched, for 90 and for 99 %
//     layouts perturb NUMBER                copies a call graph with each count multiplied by 0.8 to 1.25, by chance of that number
#include "bench/layouts/replay.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <random>
#include <stdexcept>

namespace {

void perturb(unsigned int number) {
    std::mt19937_64 random(number);
    std::string line;
    std::getline(std::cin, line);
    std::cout << line << '\n';
    while (std::getline(std::cin, line)) {
        const std::size_t comma = line.rfind(',') + 1;
        if (comma == 0 || line.find_first_not_of("0123456789", comma) != std::string::npos || comma == line.size()) {
            throw std::runtime_error("no row of a call graph: " + line);
        }
        const double chance = static_cast<double>(random() >> 11U) / 9007199254740992.0; // of 53 bits, below 1
        const double count = std::stod(line.substr(comma)) * 0.8 * std::pow(1.25 / 0.8, chance);
        std::cout << line.substr(0, comma)
                  << static_cast<std::uint64_t>(std::fmax(1, std::fmin(4294967295.0, std::round(count)))) << '\n';
    }
}

void print_costs(const trace& t, const std::string& map, unsigned int first, unsigned int last) {
    const std::vector<section> linked = read_link_map(map);
    if (first > last) {
        throw std::runtime_error("the last luck comes before the first");
    }
    for (unsigned int luck = first; luck <= last; ++luck) {
        std::vector<section> layout = linked;
        shake(layout, luck);
        const costs c = replay(t, layout);
        std::printf("%llu %llu %.1f %zu %zu %zu\n", static_cast<unsigned long long>(c.cache_misses),
                    static_cast<unsigned long long>(c.tlb_misses), c.distance, c.pages, c.pages_90, c.pages_99);
    }
}

unsigned int number(const std::string& text) {
    unsigned int result = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), result);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) {
        throw std::runtime_error(text + ": no number");
    }
    return result;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::ios::sync_with_stdio(false);
    try {
        if (arguments.size() == 3 && arguments[0] == "record") {
            save(record(std::cin, read_link_map(arguments[1])), arguments[2]);
        } else if (arguments.size() == 5 && arguments[0] == "replay") {
            print_costs(load(arguments[1]), arguments[2], number(arguments[3]), number(arguments[4]));
        } else if (arguments.size() == 2 && arguments[0] == "perturb") {
            perturb(number(arguments[1]));
        } else {
            std::cerr << "usage: layouts record MAP TRACE | replay TRACE MAP FIRST LAST | perturb NUMBER\n";
            return 2;
        }
    } catch (const std::exception& e) {
        std::cerr << "layouts: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
