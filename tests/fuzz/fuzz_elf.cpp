// Fuzz target: binary input, ELF files, archives and gmon.out, through all that reads them. It ends, without a broken
// access, in a clear failure or a result; results hold what they promise of themselves.
#include "export/sections.h"
#include "import/profile_format.h"
#include "report/result.h"
#include "support/failure.h"
#include "tests/fuzz/fuzz.h"

#include <nlohmann/json.hpp>

namespace {

// What the programs do with a file as a linked program.
void report_on(const std::string& path) {
    const function_table functions(path);
    call_profile calls;
    std::vector<std::string> order;
    for (const elf_symbol& symbol : functions.symbols()) {
        calls.find_or_add(symbol.name);
        order.emplace_back(symbol.name);
        if (symbol.kind == symbol_kind::function) {
            functions.at(symbol.address);
        }
        if (calls.function_count() > 1) {
            calls.add_rows(std::array{call_row{calls.name(0), symbol.name, 1}});
        }
    }
    report_result result;
    result.order = find_placement(order, functions);
    require(result.order->in_order <= result.order->found && result.order->found <= order.size(), "placement adds up");
    result.binary = {path, find_called_code(calls, functions, path), {}};
    result.binary.layout = measure(result.binary.code);
    result.random = measure_random(result.binary.code, 1);
    const nlohmann::ordered_json bound = bound_of(result.binary.layout);
    require(bound["pages_4k"].get<double>() <= result.random.pages_4k, "nothing beats the bound");
    require(to_text(result).size() + to_page(result).size() > to_json(result).size(), "all is written");
}

template <typename Work>
void try_to(Work work) {
    try {
        work();
    } catch (const failure& error) {
        require(*error.what() != '\0', "a failure says why");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const function_table this_program("/proc/self/exe");
    const memory_file input({reinterpret_cast<const char*>(data), size});
    try_to([&] { report_on(input.path()); });
    try_to([&] {
        section_table sections;
        sections.add(input.path());
        sections.sections("main");
    });
    for (const auto read : {read_objects, read_gmon}) {
        try_to([&] {
            call_table calls(read == read_gmon ? &this_program : nullptr, {});
            profile_input profile(input.path(), false);
            read(profile, calls);
            calls.summarise();
        });
    }
    return 0;
}
