// generate: writes the synthetic call graphs that the benchmarks run on.
//
//   generate FUNCTIONS ROWS csv    > graph.csv     the tool's own input
//   generate FUNCTIONS ROWS pairs  > graph.txt     the same calls as "caller callee count" lines, the
//                                                  form in which a linker takes a call graph
//   generate FUNCTIONS ROWS asm    > functions.s   one section a function, so that a linker has
//                                                  something to order
//
// The shape follows real programs: functions live in modules of 200; 60% of the calls stay inside the
// caller's module, 30% go to popular callees (allocators, loggers, reference counts) that a power law
// picks, and the rest go anywhere. Counts are heavy-tailed: most are 1 or 2 and tie, few are huge.
// As in a real profile, the rows stand grouped by caller. The same arguments give the same bytes on
// every machine: the generator uses no library distribution, whose results differ between libraries.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// SplitMix64 (G. Steele, D. Lea, C. Flood, "Fast splittable pseudorandom number generators", 2014).
class random_source {
public:
    explicit random_source(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15U);
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }

    std::uint64_t below(std::uint64_t bound) { return next() % bound; }

    /// A real number in (0, 1].
    double unit() { return static_cast<double>((next() >> 11U) + 1) / 9007199254740992.0; }

private:
    std::uint64_t state_;
};

constexpr std::uint64_t functions_per_module = 200;

// A symbol-like name of 30 bytes, unique by its number, scrambled so that neighbours share no long prefix.
std::string function_name(std::uint64_t function) {
    random_source scramble(function);
    char name[40];
    std::snprintf(name, sizeof name, "_ZN4mod%06u8fn%07u%08xEv", static_cast<unsigned>(function / functions_per_module),
                  static_cast<unsigned>(function), static_cast<unsigned>(scramble.next() & 0xffffffffU));
    return std::string(name, 30);
}

std::uint64_t callee_of(std::uint64_t caller, std::uint64_t functions, random_source& random) {
    const std::uint64_t kind = random.below(100);
    if (kind < 60) {
        const std::uint64_t module = caller / functions_per_module * functions_per_module;
        const std::uint64_t size =
            functions - module < functions_per_module ? functions - module : functions_per_module;
        return module + random.below(size);
    }
    if (kind < 90) { // power law over the whole program: rank r is called in proportion to 1 / r
        const double rank = std::pow(static_cast<double>(functions), random.unit());
        const std::uint64_t popular = static_cast<std::uint64_t>(rank) - 1;
        return (popular * 7919U) % functions; // spreads the popular ones over the modules
    }
    return random.below(functions);
}

// Pareto with exponent 1: half of the counts are 1, a quarter 2 or 3, and so on, up to about 10^9.
std::uint64_t call_count(random_source& random) {
    const double count = 1.0 / random.unit();
    return count > 1e9 ? 1000000000U : static_cast<std::uint64_t>(count);
}

void write_assembly(std::uint64_t functions) {
    for (std::uint64_t f = 0; f < functions; ++f) {
        const std::string name = function_name(f);
        std::printf(".section .text.%s,\"ax\",@progbits\n.globl %s\n%s:\nret\n", name.c_str(), name.c_str(),
                    name.c_str());
    }
}

void write_calls(std::uint64_t functions, std::uint64_t rows, char separator) {
    random_source random(1);
    for (std::uint64_t row = 0; row < rows; ++row) {
        const std::uint64_t caller = row * functions / rows;
        const std::uint64_t callee = callee_of(caller, functions, random);
        std::printf("%s%c%s%c%llu\n", function_name(caller).c_str(), separator, function_name(callee).c_str(),
                    separator, static_cast<unsigned long long>(call_count(random)));
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::uint64_t functions = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
    const std::uint64_t rows = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const std::string form = argc > 3 ? argv[3] : "";
    if (functions == 0 || rows == 0 || (form != "csv" && form != "pairs" && form != "asm")) {
        std::fprintf(stderr, "usage: %s FUNCTIONS ROWS csv|pairs|asm\n", argv[0]);
        return 2;
    }
    if (form == "asm") {
        write_assembly(functions);
    } else {
        if (form == "csv") {
            std::puts("\"caller\",\"callee\",\"weight\"");
        }
        write_calls(functions, rows, form == "csv" ? ',' : ' ');
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
