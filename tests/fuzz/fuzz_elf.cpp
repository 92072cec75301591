// Fuzz target: binary input, ELF files, archives and gmon.out, through all that reads them. It ends, without a broken
// access, in a clear failure or a result; results hold what they promise of themselves.
#include "export/sections.h"
#include "import/profile_format.h"
#include "report/result.h"
#include "support/failure.h"
#include "tests/fuzz/fuzz.h"

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
    result.binary.path = path;
    const called_code code = find_called_code(calls, functions, path);
    result.order = find_placement(order, functions, &functions);
    require(result.order->in_order <= result.order->counted() && result.order->found <= order.size(),
            "placement adds up");
    require(result.order->falls == result.order->kept_falls, "a program is its own baseline");
    result.judgement = judge({&*result.order, path, code.inner_calls, code.all_calls});
    layout_meter meter(code, 16384);
    const name_list list = look_up(order, functions);
    result.binary.layout = meter.measure({code.functions, {}, {}, functions.segments()});
    result.binary.map = map_code(code, meter.heat(), pages_per_cell(code));
    result.random = measure_random(code, meter, {}, 1);
    result.bound = bound_of(result.binary.layout);
    result.candidates.push_back({path, result.order->found, meter.measure(predict(code, list, nullptr))});
    const auto pages = [](const figures& layout) { return *layout[figure::pages_4k]; };
    require(pages(result.bound) <= pages(result.random.mean) &&
                pages(result.bound) <= pages(result.candidates[0].layout),
            "nothing beats the bound");
    require(to_text(result).size() + to_page(result, "").size() + to_markdown(result).size() > 1000, "all is written");
    to_json(result);
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
        sections.find("main");
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
