#include "report/summary.h"

#include "report/wording.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

std::string signed_percent(double percent) {
    char text[400];
    // -99.97 % is not -100.0 %.
    std::snprintf(text, sizeof text, percent < -99.9 && percent > -100 ? "%+.3f %%" : "%+.1f %%", percent);
    return text;
}

headline_row headline_of(const figure_row& row, const std::optional<double>& from, const std::optional<double>& to,
                         const std::optional<double>& deviation) {
    headline_row result = {&row, format_figure(from, row.unit), format_figure(to, row.unit), "", 0};
    if (!from.has_value() || !to.has_value()) {
        result.change = "not known";
        return result;
    }
    const double change = *to - *from;
    if (change == 0 || (deviation.has_value() && std::abs(change) < 2 * *deviation)) {
        result.change = deviation.has_value() ? "no difference" : "no change";
        return result;
    }
    result.better = (change > 0) == (row.better > 0) ? 1 : -1;
    result.change =
        *from == 0 ? (change > 0 ? "+" : "") + format_figure(change, row.unit) : signed_percent(100 * change / *from);
    return result;
}

} // namespace

std::vector<headline_row> headline(const report_result& result) {
    std::vector<headline_row> rows;
    const bool is_random = !result.baseline.has_value();
    const figures& from = is_random ? result.random.mean : result.baseline->layout;
    for (const figure_row& row : figure_rows()) {
        if (!row.is_headline || (row.which == figure::cold_faults && result.request.first_run.empty())) {
            continue;
        }
        rows.push_back(headline_of(row, from[row.which], result.binary.layout[row.which],
                                   is_random ? result.random.deviation[row.which] : std::nullopt));
    }
    return rows;
}

std::string compared_with(const report_result& result) {
    if (!result.baseline.has_value()) {
        return "a random order";
    }
    const std::optional<double> here = result.binary.layout[figure::calls];
    const std::optional<double> there = result.baseline->layout[figure::calls];
    constexpr double enough = 0.9; // of the calls, for the two to be compared without a word
    return result.baseline->path + (*there < enough * *here ? ", which has only " + grouped(*there) + " of the " +
                                                                  grouped(*here) + " calls (another program?)"
                                                            : "");
}

std::string title_of(const figure_row& row) {
    const std::string_view title = row.title;
    const bool is_said = title.find(row.unit) != std::string_view::npos;
    return row.title + (is_said || row.unit == std::string_view("%") ? "" : ", " + std::string(row.unit));
}

table figure_table(const report_result& result) {
    table made;
    std::vector<const figures*> columns = {&result.binary.layout};
    made.head = {"", "binary"};
    if (result.baseline.has_value()) {
        columns.push_back(&result.baseline->layout);
        made.head.emplace_back("baseline");
    }
    columns.push_back(&result.random.mean);
    made.head.emplace_back("random");
    columns.push_back(&result.random.deviation);
    made.head.emplace_back("deviation");
    columns.push_back(&result.bound);
    made.head.emplace_back("bound");
    for (const candidate& one : result.candidates) {
        columns.push_back(&one.layout);
        made.head.push_back(printable(one.path));
    }
    for (const figure_row& row : figure_rows()) {
        const bool is_cold = row.which == figure::cold_faults || row.which == figure::cold_faults_around;
        if (is_cold && result.request.first_run.empty()) {
            continue;
        }
        std::vector<std::string> cells = {title_of(row)};
        for (const figures* const column : columns) {
            const bool is_left_out =
                column == &result.bound ? !row.has_bound : column == &result.random.deviation && row.better == 0;
            cells.push_back(is_left_out ? "" : format_figure((*column)[row.which], row.unit));
        }
        made.rows.push_back(std::move(cells));
        made.docs.push_back(row.doc);
    }
    return made;
}

std::string candidate_note(const report_result& result) {
    std::string note;
    const std::optional<double> functions = result.binary.layout[figure::functions];
    for (const candidate& one : result.candidates) {
        const double unnamed = *functions - static_cast<double>(one.named); // each may be on a page of its own
        constexpr double tolerated = 0.02;
        if (unnamed > std::max(1.0, tolerated * *one.layout[figure::pages_4k])) {
            note += (note.empty() ? "foretold better than a link can be, which does not pack what an order leaves out: "
                                  : ", ") +
                    one.path + " names " + grouped(one.named) + " of the " + grouped(*functions) + " called functions";
        }
    }
    return note;
}

table order_table(const placement& order) {
    table made;
    made.head = {"", ""};
    const auto add = [&](const char* title, const std::string& value, const char* doc) {
        made.rows.push_back({title, value});
        made.docs.push_back(doc);
    };
    add("names in the order", grouped(order.names), "each once");
    add("found in the binary", grouped(order.found), "names that are functions of known size");
    add("found, share", format_figure(percent_of(order.found, order.names), "%"), "of the names");
    add("folded", grouped(order.folded), "found names at the address of an earlier one");
    add("in order", grouped(order.in_order), "the longest sequence of rising addresses among the found functions");
    add("placed", format_figure(percent_of(order.in_order, order.counted()), "%"),
        "those in order, of the functions found without folded ones");
    add("missing", grouped(static_cast<std::uint64_t>(order.missing.size())),
        "names that are no function of the binary");
    for (std::size_t i = 0; i < missing_reasons.size(); ++i) {
        if (order.missing_sums[i] != 0) {
            add(("missing, " + std::string(missing_reasons[i].title)).c_str(), grouped(order.missing_sums[i]), nullptr);
        }
    }
    add("foreign functions between", grouped(order.foreign),
        "functions among the ordered ones that the order does not name");
    add("bytes between", grouped(order.gap_bytes), "bytes among the ordered functions that belong to none of them");
    if (order.largest_hole.has_value()) {
        const hole& hole = *order.largest_hole;
        char address[32];
        std::snprintf(address, sizeof address, "0x%llx", static_cast<unsigned long long>(hole.address));
        constexpr std::size_t longest_name = 60;
        add("largest hole, bytes", grouped(hole.bytes), "the longest run of such bytes");
        add("largest hole, address", address, nullptr);
        add("largest hole, most of it",
            hole.function.has_value() ? shortened(readable_name(*hole.function), longest_name) : "padding", nullptr);
    }
    return made;
}

std::string calls_line(const report_result& result) {
    return counted(result.calls.total, "call") + " in " + counted(result.calls.rows, "row") + ", " +
           (result.calls.covered.has_value() ? format_percent(*result.calls.covered) : "none") +
           " of them between functions of the binary" +
           (result.first_run.has_value() ? "; it has " + grouped(result.first_run->found) + " of the first run's " +
                                               counted(result.first_run->names, "function")
                                         : "");
}
