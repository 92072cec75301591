// generate: writes the synthetic call graphs that the benchmarks run on.
//
//   generate FUNCTIONS ROWS csv    > graph.csv     the tool's own input
//   generate FUNCTIONS ROWS pairs  > graph.txt     the same calls as "caller callee count" lines, the
//                                                  form in which a linker takes a call graph
//   generate FUNCTIONS ROWS shuffled > graph.csv   its own input with the rows in random order
//   generate FUNCTIONS ROWS asm    > functions.s   one section a function, so that a linker has
//                                                  something to order
//   generate FUNCTIONS ROWS callgrind|perf|stacks|fdata|pprof  the same calls as profilers tell them, for ordwell-import;
//                                                  some ten cost lines a call, as real files have
//
// The shape follows real programs: functions live in modules of 200; 60% of the calls stay inside the
// caller's module, 30% go to popular callees (allocators, loggers, reference counts) that a power law
// picks, and the rest go anywhere. Counts are heavy-tailed: most are 1 or 2 and tie, few are huge.
// As in a real profile, the rows stand grouped by caller. The same arguments give the same bytes on
// every machine: the generator uses no library distribution, whose results differ between libraries.

#include "bench/random_source.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

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

/// A call of the graph.
struct call {
    std::uint64_t caller;
    std::uint64_t callee;
    std::uint64_t count;
};

std::vector<call> make_calls(std::uint64_t functions, std::uint64_t rows) {
    std::vector<call> calls;
    calls.reserve(rows);
    random_source random(1);
    for (std::uint64_t row = 0; row < rows; ++row) {
        const std::uint64_t caller = row * functions / rows;
        const std::uint64_t callee = callee_of(caller, functions, random);
        calls.push_back({caller, callee, call_count(random)});
    }
    return calls;
}

void write_calls(std::uint64_t functions, const std::vector<call>& calls, const std::string& form) {
    std::uint64_t last = UINT64_MAX;       // the caller of the call before
    std::vector<bool> is_known(functions); // whether callgrind's number of the function is defined
    const auto specification = [&](std::uint64_t function) {
        std::string text = "(" + std::to_string(function) + ")";
        if (!is_known[function]) {
            is_known[function] = true;
            text += " " + function_name(function);
        }
        return text;
    };
    if (form == "callgrind") {
        std::puts("# callgrind format\nversion: 1\npositions: line\nevents: Ir\nob=(1) /usr/bin/app");
    } else if (form == "csv" || form == "shuffled") {
        std::puts("\"caller\",\"callee\",\"weight\"");
    }
    for (const call& c : calls) {
        const std::string caller = function_name(c.caller);
        const std::string callee = function_name(c.callee);
        const auto count = static_cast<unsigned long long>(c.count);
        if (form == "pairs") {
            std::printf("%s %s %llu\n", caller.c_str(), callee.c_str(), count);
        } else if (form == "stacks") {
            std::printf("main;%s;%s %llu\n", caller.c_str(), callee.c_str(), count);
        } else if (form == "fdata") {
            std::printf("1 %s 3fb 1 %s 0 0 %llu\n", caller.c_str(), callee.c_str(), count);
        } else if (form == "perf") {
            std::printf("app 10606  1570.842829:     250000 cpu-clock: \n\t            1253 %s+0x3 (/usr/bin/app)\n"
                        "\t            12b2 %s+0x22 (/usr/bin/app)\n\n",
                        callee.c_str(), caller.c_str());
        } else if (form == "callgrind") {
            if (c.caller != last) {
                std::printf("\nfl=(%llu) f.c\nfn=%s\n16 400\n", static_cast<unsigned long long>(c.caller / 200),
                            specification(c.caller).c_str());
                last = c.caller;
            }
            std::printf("+3 4\n+1 12\n* 7\n+2 31\n-1 4\n+14 120\n+1 1\n-12 16\n+2 8\n+3 44\n+1 4\ncfn=%s\ncalls=%llu "
                        "50\n* 800\n",
                        specification(c.callee).c_str(), count);
        } else {
            std::printf("%s,%s,%llu\n", caller.c_str(), callee.c_str(), count);
        }
    }
}

// Fields of a message of profile.proto: a number, and bytes.
std::string number_field(unsigned int field, std::uint64_t value) {
    std::string bytes(1, static_cast<char>(field << 3U));
    for (; value > 127; value >>= 7U) {
        bytes += static_cast<char>((value & 127U) | 128U);
    }
    return bytes += static_cast<char>(value);
}
std::string bytes_field(unsigned int field, const std::string& content) {
    std::string bytes = number_field(field, content.size()) + content;
    bytes[0] = static_cast<char>(field << 3U | 2U);
    return bytes;
}

// A sample a call; function, location and name of a function have its number plus one.
void write_pprof(std::uint64_t functions, const std::vector<call>& calls) {
    const auto write = [](const std::string& bytes) { std::fwrite(bytes.data(), 1, bytes.size(), stdout); };
    write(bytes_field(1, number_field(1, functions + 1) + number_field(2, functions + 1)));
    for (const call& c : calls) {
        write(bytes_field(2, number_field(1, c.callee + 1) + number_field(1, c.caller + 1) + number_field(2, c.count)));
    }
    for (std::uint64_t f = 1; f <= functions; ++f) {
        write(bytes_field(4, number_field(1, f) + bytes_field(4, number_field(1, f))));
        write(bytes_field(5, number_field(1, f) + number_field(2, f) + number_field(3, f)));
    }
    write(bytes_field(6, ""));
    for (std::uint64_t f = 0; f < functions; ++f) {
        write(bytes_field(6, function_name(f)));
    }
    write(bytes_field(6, "samples"));
}

} // namespace

int main(int argc, char** argv) {
    const std::uint64_t functions = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
    const std::uint64_t rows = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const std::string form = argc > 3 ? argv[3] : "";
    const std::string forms = " csv shuffled pairs asm callgrind perf stacks fdata pprof ";
    if (functions == 0 || rows == 0 || form.empty() || forms.find(" " + form + " ") == std::string::npos) {
        std::fprintf(stderr, "usage: %s FUNCTIONS ROWS csv|shuffled|pairs|asm|callgrind|perf|stacks|fdata|pprof\n",
                     argv[0]);
        return 2;
    }
    if (form == "asm") {
        write_assembly(functions);
    } else {
        std::vector<call> calls = make_calls(functions, rows);
        if (form == "shuffled") {
            random_source random(2);
            shuffle(calls, random);
        }
        if (form == "pprof") {
            write_pprof(functions, calls);
        } else {
            write_calls(functions, calls, form);
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
