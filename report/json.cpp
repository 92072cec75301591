// The JSON file: every key, always, with null where there is no value. docs/ordwell-report.1 describes them.
#include "report/result.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace {

using nlohmann::ordered_json;

// Whole numbers as such.
ordered_json number(const std::optional<double>& value) {
    constexpr double largest_whole = 9007199254740992.0; // 2^53
    if (!value.has_value()) {
        return nullptr;
    }
    if (std::floor(*value) == *value && std::abs(*value) <= largest_whole) {
        return static_cast<std::int64_t>(*value);
    }
    return *value;
}

ordered_json text_or_null(const std::string& text) {
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

void add_figures(ordered_json& object, const figures& layout) {
    for (const figure_row& row : figure_rows()) {
        object[row.key] = number(layout[row.which]);
    }
}

ordered_json figures_of(const figures& layout) {
    ordered_json object = ordered_json::object();
    add_figures(object, layout);
    return object;
}

ordered_json file_of(const measured_binary& binary) {
    return {{"path", binary.path}, {"build_id", text_or_null(binary.build_id)}};
}

ordered_json order_of(const placement& order) {
    ordered_json missing = ordered_json::array();
    for (const missing_name& name : order.missing) {
        missing.push_back(
            {{"name", name.name}, {"reason", missing_reasons[static_cast<std::size_t>(name.reason)].key}});
    }
    ordered_json largest = nullptr;
    if (order.largest_hole.has_value()) {
        const hole& hole = *order.largest_hole;
        largest = {{"address", hole.address}, {"bytes", hole.bytes}, {"function", nullptr}};
        if (hole.function.has_value()) {
            largest["function"] = *hole.function;
        }
    }
    return {{"path", order.path},           {"names", order.names},
            {"found", order.found},         {"found_share", number(percent_of(order.found, order.names))},
            {"in_order", order.in_order},   {"placed", number(percent_of(order.in_order, order.counted()))},
            {"folded", order.folded},       {"missing", std::move(missing)},
            {"gap_bytes", order.gap_bytes}, {"largest_hole", std::move(largest)}};
}

ordered_json layouts_of(const report_result& result) {
    ordered_json random = figures_of(result.random.mean);
    random["deviation"] = figures_of(result.random.deviation);
    ordered_json candidates = ordered_json::array();
    for (const candidate& one : result.candidates) {
        ordered_json object = {{"path", one.path}};
        add_figures(object, one.layout);
        candidates.push_back(std::move(object));
    }
    ordered_json baseline = nullptr;
    if (result.baseline.has_value()) {
        baseline = figures_of(result.baseline->layout);
    }
    return {{"binary", figures_of(result.binary.layout)},
            {"baseline", std::move(baseline)},
            {"random", std::move(random)},
            {"bound", figures_of(result.bound)},
            {"candidates", std::move(candidates)}};
}

} // namespace

std::string to_json(const report_result& result) {
    ordered_json gates = ordered_json::array();
    for (const gate& gate : result.gates) {
        gates.push_back({{"name", gate.name},
                         {"wanted", number(gate.wanted)},
                         {"measured", number(gate.measured)},
                         {"met", gate.met}});
    }
    ordered_json baseline = nullptr;
    if (result.baseline.has_value()) {
        baseline = file_of(*result.baseline);
    }
    ordered_json order = nullptr;
    if (result.order.has_value()) {
        order = order_of(*result.order);
    }
    ordered_json first_run = nullptr;
    if (result.first_run.has_value()) {
        first_run = {
            {"path", result.request.first_run}, {"names", result.first_run->names}, {"found", result.first_run->found}};
    }
    const ordered_json json = {
        {"format", 2},
        {"tool", {{"name", "ordwell-report"}, {"version", ORDWELL_VERSION}}},
        {"binary", file_of(result.binary)},
        {"baseline", std::move(baseline)},
        {"order", std::move(order)},
        {"first_run", std::move(first_run)},
        {"calls",
         {{"paths", result.request.calls},
          {"rows", result.calls.rows},
          {"total", result.calls.total},
          {"covered", number(result.calls.covered)}}},
        {"verdict",
         {{"word", result.judgement.word}, {"why", result.judgement.why}, {"advice", result.judgement.advice}}},
        {"layouts", layouts_of(result)},
        {"gates", std::move(gates)},
    };
    return json.dump(2, ' ', true, ordered_json::error_handler_t::replace) + "\n";
}
