// The JSON file, and the data that the page draws: the same figures, and besides the map of the code and the curves.
#include "report/page_html.h" // made from report/page.html by cmake/embed.cmake
#include "report/result.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>

namespace {

constexpr std::uint64_t page_size = 4096;
constexpr std::uint64_t most_cells = 6000; // of the map: what an eye can follow and a small file can hold
constexpr std::size_t most_listed = 1000;  // missing functions on the page

/// A stretch of the map.
struct cell {
    std::uint64_t calls = 0;     ///< that its functions make and get
    std::uint64_t functions = 0; ///< called ones that start in it
    std::uint64_t hottest_calls = 0;
    std::uint32_t hottest = 0; ///< the function with most calls
};

// The map of a binary's code: cells that hold nothing called are left out.
nlohmann::ordered_json map_of(const called_code& code) {
    const std::uint64_t first_page = code.low / page_size;
    const std::uint64_t pages = code.high == 0 ? 0 : (code.high - 1) / page_size - first_page + 1;
    const std::uint64_t pages_per_cell = std::max<std::uint64_t>((pages + most_cells - 1) / most_cells, 1);
    std::vector<std::uint64_t> calls(code.functions.size());
    for (const counted_calls& c : code.calls) {
        calls[c.first] += c.count;
        calls[c.second] += c.count;
    }
    std::map<std::uint64_t, cell> cells;
    for (std::uint32_t i = 0; i < code.functions.size(); ++i) {
        cell& c = cells[(code.functions[i].address / page_size - first_page) / pages_per_cell];
        c.calls += calls[i];
        if (c.functions++ == 0 || calls[i] > c.hottest_calls) {
            c.hottest_calls = calls[i];
            c.hottest = i;
        }
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& [index, c] : cells) {
        constexpr std::size_t longest_name = 120;
        list.push_back({index, c.calls, c.functions, demangled(code.names[c.hottest]).substr(0, longest_name)});
    }
    return {{"address", first_page * page_size},
            {"cells", (pages + pages_per_cell - 1) / pages_per_cell},
            {"pages_per_cell", pages_per_cell},
            {"called", std::move(list)}};
}

nlohmann::ordered_json drawn(const measured_binary& binary) {
    nlohmann::ordered_json curve = nlohmann::ordered_json::array();
    for (const distance_share& point : distance_curve(binary.code)) {
        curve.push_back({point.distance, point.share});
    }
    return {{"path", binary.path}, {"map", map_of(binary.code)}, {"curve", std::move(curve)}};
}

// The table as rows of texts, formatted as the terminal has it.
nlohmann::ordered_json table_of(const report_result& result) {
    nlohmann::ordered_json table = nlohmann::ordered_json::array();
    const nlohmann::ordered_json bound = bound_of(result.binary.layout);
    for (const figure_row& row : figure_rows()) {
        nlohmann::ordered_json line = {{"key", row.key}, {"title", row.title}, {"unit", row.unit}};
        line["binary"] = format_figure(row.value(result.binary.layout), row.unit);
        if (result.baseline.has_value()) {
            line["baseline"] = format_figure(row.value(result.baseline->layout), row.unit);
        }
        line["random"] = format_figure(row.value(result.random), row.unit);
        line["bound"] = bound.contains(row.key) ? format_figure(bound[row.key].get<double>(), row.unit) : "";
        table.push_back(std::move(line));
    }
    return table;
}

// Text that may stand inside a script element, whatever bytes the names have.
std::string dumped(const nlohmann::ordered_json& data) {
    std::string text = data.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

} // namespace

nlohmann::ordered_json to_json(const report_result& result) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    if (result.is_incomplete) {
        json["incomplete"] = true;
    }
    if (result.order.has_value()) {
        const placement& order = *result.order;
        nlohmann::ordered_json missing = nlohmann::ordered_json::array();
        for (const missing_function& function : order.missing) {
            missing.push_back({{"name", function.name}, {"reason", function.reason}});
        }
        json["order"] = {{"names", order.names},          {"found", order.found},
                         {"missing", std::move(missing)}, {"several_definitions", order.several_definitions},
                         {"in_order", order.in_order},    {"placed", order.placed},
                         {"foreign", order.foreign}};
    }
    json["binary"] = to_json(result.binary.layout);
    if (result.baseline.has_value()) {
        json["baseline"] = to_json(result.baseline->layout);
    }
    json["random"] = to_json(result.random);
    json["bound"] = bound_of(result.binary.layout);
    return json;
}

std::string to_page(const report_result& result) {
    nlohmann::ordered_json data = to_json(result);
    if (result.order.has_value()) {
        data["order"]["missing_count"] = result.order->missing.size();
        nlohmann::ordered_json& missing = data["order"]["missing"];
        if (missing.size() > most_listed) {
            missing.erase(missing.begin() + static_cast<std::ptrdiff_t>(most_listed), missing.end());
        }
        for (nlohmann::ordered_json& function : missing) {
            function["name"] = demangled(function["name"].get<std::string>());
        }
    }
    data["sentences"] = sentences(result);
    data["table"] = table_of(result);
    data["drawn"] = {{"binary", drawn(result.binary)}};
    if (result.baseline.has_value()) {
        data["drawn"]["baseline"] = drawn(*result.baseline);
    }
    // The page as a developer opens it has data of its own between these two marks.
    constexpr std::string_view start_mark = "<script id=\"data\" type=\"application/json\">";
    constexpr std::string_view end_mark = "</script>";
    const std::string_view page(page_html);
    const std::size_t start = page.find(start_mark) + start_mark.size();
    std::string text(page.substr(0, start));
    text += dumped(data);
    text += page.substr(page.find(end_mark, start));
    return text;
}
