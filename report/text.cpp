// The report in words: the sentences at the top, and the tables for a terminal.
#include "report/result.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr double took_mostly = 90; // percent of the names from which an order is said to have taken
constexpr std::size_t listed_missing = 20;

std::string formatted(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string grouped(double whole) {
    std::string digits = formatted("%.0f", std::abs(whole));
    for (std::size_t i = digits.size(); i > 3; i -= 3) {
        digits.insert(i - 3, ",");
    }
    return (whole < 0 ? "-" : "") + digits;
}

/// How much a figure changed from one layout to the other.
struct change {
    const figure_row* row;
    double percent;
};

// The figures in which orders compete, those that changed most first.
std::vector<change> largest_changes(const figures& from, const figures& to) {
    std::vector<change> changes;
    for (const figure_row& row : figure_rows()) {
        const std::optional<double> before = row.value(from);
        const std::optional<double> after = row.value(to);
        if (row.is_cost && before.has_value() && after.has_value() && *before != 0 && *before != *after) {
            changes.push_back({&row, 100.0 * (*after - *before) / *before});
        }
    }
    std::stable_sort(changes.begin(), changes.end(),
                     [](const change& a, const change& b) { return std::abs(a.percent) > std::abs(b.percent); });
    return changes;
}

std::string sentence_on_order(const placement& order, const std::optional<double>& wanted) {
    const std::string share = formatted("%.1f", order.placed) + " % of its " +
                              grouped(static_cast<double>(order.names)) + " functions stand in it";
    if (order.placed >= wanted.value_or(took_mostly)) {
        return "The order took: " + share + ".";
    }
    return "The order did not take" + std::string(order.placed > 50 ? " fully" : "") + ": only " + share + ".";
}

} // namespace

std::vector<std::string> sentences(const report_result& result) {
    constexpr std::size_t most = 3;
    std::vector<std::string> all;
    if (result.is_incomplete) {
        all.emplace_back("The call graph has a bad row; this report is incomplete.");
    }
    if (result.order.has_value()) {
        all.push_back(sentence_on_order(*result.order, result.wanted_placed));
    }
    const figures& from = result.baseline.has_value() ? result.baseline->layout : result.random;
    std::vector<change> changes = largest_changes(from, result.binary.layout);
    changes.resize(std::min(changes.size(), most));
    std::string text = result.baseline.has_value() ? "Against " + result.baseline->path : "Against a random order";
    for (const change& c : changes) {
        text += &c == changes.data() ? ": " : ", ";
        text += c.row->title;
        // -99.7 % is not -100 %.
        text += " " + formatted(std::abs(c.percent) < 99 ? "%+.0f" : "%+.1f", c.percent) + " %";
    }
    all.push_back(text + (changes.empty() ? " nothing changed." : "."));
    return all;
}

std::string format_figure(const std::optional<double>& value, const std::string& unit) {
    if (!value.has_value()) {
        return "-";
    }
    if (unit == "%") {
        return formatted("%.1f %%", *value);
    }
    return std::floor(*value) == *value || std::abs(*value) >= 1000 ? grouped(std::round(*value))
                                                                    : formatted("%.1f", *value);
}

std::string to_text(const report_result& result) {
    std::string text;
    for (const std::string& sentence : sentences(result)) {
        text += sentence + "\n";
    }
    char line[256];
    if (result.order.has_value()) {
        const placement& order = *result.order;
        text += "\n";
        const auto row = [&](const char* title, const std::string& value) {
            std::snprintf(line, sizeof line, "%-28s %14s\n", title, value.c_str());
            text += line;
        };
        row("names in the order", grouped(static_cast<double>(order.names)));
        row("found in the binary", grouped(static_cast<double>(order.found)));
        row("missing", grouped(static_cast<double>(order.missing.size())));
        row("with several definitions", grouped(static_cast<double>(order.several_definitions)));
        row("in order", grouped(static_cast<double>(order.in_order)));
        row("placed", formatted("%.1f %%", order.placed));
        row("foreign functions between", grouped(static_cast<double>(order.foreign)));
    }
    std::snprintf(line, sizeof line, "\n%-28s %14s %14s %14s %14s\n", "", "binary",
                  result.baseline.has_value() ? "baseline" : "", "random", "bound");
    text += line;
    const nlohmann::ordered_json bound = bound_of(result.binary.layout);
    for (const figure_row& row : figure_rows()) {
        const auto cell = [&](const figures& layout) { return format_figure(row.value(layout), row.unit); };
        const std::string baseline = result.baseline.has_value() ? cell(result.baseline->layout) : "";
        const std::string least = bound.contains(row.key) ? format_figure(bound[row.key].get<double>(), row.unit) : "";
        std::snprintf(line, sizeof line, "%-28s %14s %14s %14s %14s\n", row.title, cell(result.binary.layout).c_str(),
                      baseline.c_str(), cell(result.random).c_str(), least.c_str());
        text += line;
    }
    if (result.order.has_value() && !result.order->missing.empty()) {
        const std::vector<missing_function>& missing = result.order->missing;
        text += "\nmissing:\n";
        for (std::size_t i = 0; i < std::min(missing.size(), listed_missing); ++i) {
            text += "  " + demangled(missing[i].name) + " (" + missing[i].reason + ")\n";
        }
        if (missing.size() > listed_missing) {
            text += "  and " + grouped(static_cast<double>(missing.size() - listed_missing)) + " more: see --json\n";
        }
    }
    return text;
}
