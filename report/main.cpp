// ordwell-report: whether an order is in a binary, and what it is worth there.
//
//     ordwell-report --calls=app.csv --order=app.cmd --html=report.html --min-placed=95 app app.old
//
// Nothing is run: the call graph and the symbol tables are all it needs, so it works in a build, for another processor and
// for yesterday's binary. What is computed stands in report/placement.h (did it take?) and report/figures.h (what is it
// worth?), how it is said in report/text.cpp and report/page.cpp.
#include "DIAG/diag.h"
#include "ORDWELL/order_file.h"
#include "ORDWELL/pettis_hansen.h"
#include "report/result.h"
#include "support/companion.h"
#include "support/failure.h"
#include "support/output_file.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

/// The command line.
struct settings {
    std::string calls;
    std::string order;
    std::string html;
    std::string json;
    std::optional<double> min_placed;
    std::uint64_t seed = 1;
    std::string binary;
    std::string baseline;
};

void write_file(const std::string& path, const std::string& text) {
    output_file out(path);
    out.write(text);
    out.finish();
}

measured_binary measure_binary(const std::string& path, const function_table& functions, const call_profile& calls) {
    measured_binary binary = {path, find_called_code(calls, functions, path), {}};
    binary.layout = measure(binary.code);
    return binary;
}

int report(const settings& chosen) {
    PETTIS_HANSEN_GRAPH graph;
    std::string calls_file = chosen.calls;
    graph.read(calls_file); // says itself what is wrong
    const call_profile& calls = *graph.profile();

    report_result result;
    result.is_incomplete = DIAGNOSTIC::error_count_m > 0;
    result.wanted_placed = chosen.min_placed;
    const function_table functions(chosen.binary);
    if (!chosen.order.empty()) {
        std::vector<std::string> order;
        std::size_t bad_line = 0;
        if (!read_order_file(chosen.order, order, bad_line)) {
            throw bad_line == 0 ? failure(chosen.order, std::strerror(errno))
                                : failure(chosen.order, bad_line, "not a line of an order file");
        }
        result.order = find_placement(order, functions);
    }
    result.binary = measure_binary(chosen.binary, functions, calls);
    if (result.binary.code.functions.empty()) {
        throw failure(chosen.calls,
                      "none of its " + std::to_string(calls.function_count()) + " functions is in " + chosen.binary);
    }
    if (!chosen.baseline.empty()) {
        result.baseline = measure_binary(chosen.baseline, function_table(chosen.baseline), calls);
    }
    result.random = measure_random(result.binary.code, chosen.seed);

    write_file("", to_text(result));
    if (!chosen.json.empty()) {
        write_file(chosen.json,
                   to_json(result).dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    }
    if (!chosen.html.empty()) {
        write_file(chosen.html, to_page(result));
    }
    const bool is_too_low = chosen.min_placed.has_value() && result.order->placed < *chosen.min_placed;
    return result.is_incomplete || is_too_low ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    settings chosen;
    CLI::App command_line("Tells whether an order is in a binary, and what it is worth there.");
    prepare_command_line(command_line, "ordwell-report");
    command_line.add_option("--calls", chosen.calls, "The call graph, as ordwell reads it")
        ->required()
        ->option_text("CSV");
    CLI::Option* const order = command_line.add_option("--order", chosen.order, "The order file that ordwell wrote")
                                   ->option_text("ORDER_FILE");
    command_line.add_option("--html", chosen.html, "Write the report as a page")->option_text("FILE");
    command_line.add_option("--json", chosen.json, "Write the report as JSON")->option_text("FILE");
    command_line.add_option("--min-placed", chosen.min_placed, "End with status 1 when fewer functions stand in order")
        ->needs(order)
        ->check(CLI::Range(0.0, 100.0))
        ->option_text("PERCENT");
    command_line.add_option("--seed", chosen.seed, "Of the random orders to compare with (1)")->option_text("N");
    command_line.add_option("BINARY", chosen.binary, "The program")->required()->option_text("");
    command_line.add_option("BASELINE", chosen.baseline, "The program without the order")->option_text("");
    return run_companion(command_line, argc, argv, [&] { return report(chosen); });
}
