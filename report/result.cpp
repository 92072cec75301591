// The report's outline: read, look up, measure, judge.
#include "report/result.h"

#include "DIAG/diag.h"
#include "ORDWELL/pettis_hansen.h"
#include "support/failure.h"

namespace {

// Reads call graphs one after the other into one. What is wrong with a file or row was said before this fails.
void read_calls(const std::vector<std::string>& paths, PETTIS_HANSEN_GRAPH& graph) {
    for (std::string path : paths) {
        graph.read(path);
        if (DIAGNOSTIC::error_count_m > 0) {
            throw failure(path, "not read to its end: give the call graph that ordwell reads, whole");
        }
        const std::string& header = graph.last_header();
        if (header.substr(0, header.find_last_not_of(" \t\r") + 1).ends_with(" weighed")) {
            throw failure(path, "holds weights for the layout, which are no calls: give the calls they were made from");
        }
    }
}

std::string list_of(const std::vector<std::string>& paths) {
    std::string text;
    for (const std::string& path : paths) {
        text += (text.empty() ? "" : ", ") + path;
    }
    return text;
}

called_code find_code(const std::string& path, const function_table& functions, const call_profile& calls,
                      const std::vector<std::string>& calls_paths) {
    if (calls.function_count() == 0) {
        throw failure(list_of(calls_paths), "there are no rows: give the call graph of a run of " + path);
    }
    called_code code = find_called_code(calls, functions, path);
    if (code.functions.empty()) {
        throw failure(list_of(calls_paths),
                      "none of its " + std::to_string(calls.function_count()) + " functions is in " + path +
                          ": give the program that was profiled, and names that are not demangled");
    }
    return code;
}

// Whether an order is in a binary beyond doubt: few functions may stand so by chance.
bool stands_surely(const placement& order) {
    constexpr std::uint64_t enough = 8;
    return order.counted() >= enough && order.stands();
}

// The first places of the functions of a list that a binary has, in the list's order.
std::vector<extent> first_places(const name_list& list, std::vector<std::string>& names) {
    std::vector<extent> places;
    for (const listed_name& name : list.names) {
        if (name.count != 0) {
            places.push_back(list.places[name.first]);
            names.emplace_back(name.name);
        }
    }
    return places;
}

// The functions of a list that are called ones, by their numbers.
std::vector<std::uint32_t> called_ones(const std::vector<extent>& places, const called_code& code) {
    std::vector<std::uint32_t> numbers;
    for (const extent& place : places) {
        const auto at =
            std::lower_bound(code.functions.begin(), code.functions.end(), place.address,
                             [](const extent& function, std::uint64_t address) { return function.address < address; });
        if (at != code.functions.end() && at->address == place.address) {
            numbers.push_back(static_cast<std::uint32_t>(at - code.functions.begin()));
        }
    }
    return numbers;
}

/// A list of first executions and how much a fault reads.
struct first_run_list {
    std::vector<std::string> names;
    std::uint64_t read_ahead; ///< bytes
};

// Measures a binary where its functions lie.
measured_binary measure_binary(const std::string& path, const function_table& functions, const called_code& code,
                               layout_meter& meter, const std::optional<first_run_list>& first_run,
                               std::uint64_t cell_pages) {
    measured_binary binary;
    binary.path = path;
    binary.build_id = functions.build_id();
    placed_code layout = {code.functions, {}, {}, functions.segments()};
    if (first_run.has_value()) {
        layout.first_run = first_places(look_up(first_run->names, functions), binary.first_names);
        binary.faults = cold_start(layout.first_run, layout.segments, first_run->read_ahead).faults(read_window::ahead);
    }
    binary.layout = meter.measure(layout);
    binary.curve = distance_curve(code);
    binary.map = map_code(code, meter.heat(), cell_pages);
    return binary;
}

} // namespace

report_result make_report(const report_request& request) {
    report_result result;
    result.request = request;
    PETTIS_HANSEN_GRAPH graph;
    read_calls(request.calls, graph);
    const call_profile& calls = *graph.profile();
    const function_table functions(request.binary);
    const called_code code = find_code(request.binary, functions, calls, request.calls);
    std::optional<function_table> baseline_functions;
    std::optional<called_code> baseline_code;
    if (!request.baseline.empty()) {
        baseline_functions.emplace(request.baseline);
        baseline_code = find_code(request.baseline, *baseline_functions, calls, request.calls);
    }
    result.calls = {calls.row_count(), code.all_calls, percent_of(code.inner_calls, code.all_calls)};

    bool is_in_baseline = false;
    if (!request.order.empty()) {
        const std::vector<std::string> names = read_order(request.order);
        const function_table* const baseline = baseline_functions.has_value() ? &*baseline_functions : nullptr;
        result.order = find_placement(names, functions, baseline);
        result.order->path = request.order;
        is_in_baseline = baseline != nullptr && !stands_surely(*result.order) && result.order->found != 0 &&
                         stands_surely(find_placement(names, *baseline, nullptr));
    }
    result.judgement = judge({result.order.has_value() ? &*result.order : nullptr, request.binary, code.inner_calls,
                              code.all_calls, is_in_baseline});

    std::optional<first_run_list> first_run;
    std::optional<std::uint64_t> read_ahead;
    std::optional<name_list> first_names;
    if (!request.first_run.empty()) {
        read_ahead = request.read_ahead_kib * 1024;
        first_run = {read_order(request.first_run), *read_ahead};
        first_names = look_up(first_run->names, functions);
        if (first_names->places.empty()) {
            throw failure(request.first_run, "none of its " + std::to_string(first_names->names.size()) +
                                                 " names is a function of " + request.binary +
                                                 ": give the first run of this program");
        }
    }
    const std::uint64_t cell_pages =
        std::max(pages_per_cell(code), baseline_code.has_value() ? pages_per_cell(*baseline_code) : 1);
    layout_meter meter(code, read_ahead);
    result.binary = measure_binary(request.binary, functions, code, meter, first_run, cell_pages);
    if (first_names.has_value()) {
        result.first_run = {first_names->names.size(), result.binary.first_names.size()};
    }
    if (baseline_code.has_value()) {
        layout_meter baseline_meter(*baseline_code, read_ahead);
        result.baseline = measure_binary(request.baseline, *baseline_functions, *baseline_code, baseline_meter,
                                         first_run, cell_pages);
    }
    std::vector<std::uint32_t> first_called;
    if (first_names.has_value()) {
        std::vector<std::string> unused;
        first_called = called_ones(first_places(*first_names, unused), code);
    }
    result.random = measure_random(code, meter, first_called, request.seed);
    result.bound = bound_of(result.binary.layout);
    for (const std::string& path : request.candidates) {
        const std::vector<std::string> names = read_order(path);
        const name_list list = look_up(names, functions);
        if (list.places.empty()) {
            throw failure(path, "none of its " + std::to_string(list.names.size()) + " names is a function of " +
                                    request.binary + ": give an order of this program");
        }
        result.candidates.push_back(
            {path, called_ones(list.places, code).size(),
             meter.measure(predict(code, list, first_names.has_value() ? &*first_names : nullptr))});
    }
    const std::optional<placement>& order = result.order;
    const gate_facts facts = {order.has_value() ? percent_of(order->in_order, order->counted()) : std::nullopt,
                              order.has_value() ? percent_of(order->found, order->names) : std::nullopt,
                              result.calls.covered};
    const figures* const other = result.baseline.has_value()  ? &result.baseline->layout
                                 : !result.candidates.empty() ? &result.candidates.front().layout
                                                              : nullptr;
    result.gates = try_gates(request.gates, facts, result.binary.layout, other);
    return result;
}
