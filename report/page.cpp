// The page: report/page.html with its marked places filled. Everything is drawn here, as text, tables and SVG, so that the
// page needs no script; a title stands on what a pointer may ask about, and a table tells the same to keyboard and reader.
//
//     <!--[headline]-->sample<!--[/headline]-->    becomes what fill_in("headline", ...) brings
//
// The pictures are in report/page_pictures.cpp. A page has at most some 1.4 MB: maps have at most 3,000 cells, lists at
// most 200 lines, and names are cut.
#include "report/page_html.h" // made from report/page.html by cmake/embed.cmake
#include "report/page_pictures.h"
#include "report/summary.h"
#include "report/wording.h"

#include <algorithm>

namespace {

constexpr std::size_t most_listed = 200;
constexpr std::size_t longest_name = 120;    // characters
constexpr std::size_t longest_missing = 300; // bytes

std::string escaped(std::string_view bytes) {
    return html_text(printable(bytes));
}

// Replaces the sample between the marks of a place.
void fill_in(std::string& page, const std::string& place, const std::string& html) {
    const std::string start_mark = "<!--[" + place + "]-->";
    const std::size_t start = page.find(start_mark);
    const std::size_t end = page.find("<!--[/" + place + "]-->", start);
    page.replace(start, end + start_mark.size() + 1 - start, html);
}

const char* class_of(int better) {
    return better > 0 ? "good" : better < 0 ? "bad" : "plain";
}

std::string verdict_html(const verdict& judgement) {
    const verdict_row& row = row_of(judgement);
    const char* const kind = judgement.word == std::string_view("none") ? "plain" : row.is_good ? "good" : "bad";
    return "<header class=\"" + std::string(kind) + "\">\n<h1 title=\"" + html_text(row.doc) + "\">" + judgement.word +
           "</h1>\n<p class=\"why\">" + escaped(judgement.why) + ".</p>\n<p class=\"advice\">" +
           escaped(judgement.advice) + ".</p>\n</header>";
}

std::string headline_html(const report_result& result) {
    std::string html;
    for (const headline_row& row : headline(result)) {
        html += "<li title=\"" + html_text(row.figure->doc) + "\">" + html_text(title_of(*row.figure)) + "<b>" +
                row.from + " → " + row.to + "</b><i class=\"" + class_of(row.better) + "\">" + row.change +
                "</i></li>\n";
    }
    return html;
}

std::string gates_html(const report_result& result) {
    if (result.gates.empty()) {
        return {};
    }
    std::string html = "<section aria-labelledby=\"gates\">\n<h2 id=\"gates\">Gates</h2>\n<ul>\n";
    for (const gate& gate : result.gates) {
        html += "<li>" + escaped(describe(gate)) + ": <b class=\"" + (gate.met ? "good\">met" : "bad\">not met") +
                "</b></li>\n";
    }
    return html + "</ul>\n</section>";
}

std::string cell_html(const std::string& text, bool is_best) {
    return (is_best ? "<td class=\"best\">" : "<td>") + html_text(text) + "</td>";
}

// The head of a column; of a long path its end, which tells candidates of one folder apart.
std::string column_head(const std::string& text) {
    constexpr std::size_t longest_head = 24; // characters
    const std::size_t slash = text.rfind('/');
    const bool is_cut = text.size() > longest_head && slash != std::string::npos;
    return shortened(is_cut ? "…" + text.substr(slash) : text, longest_name);
}

std::string table_html(const table& rows, const std::string& label, const std::vector<std::vector<bool>>& best) {
    std::string html = "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"" + label + "\"><table>";
    if (!rows.head.back().empty()) {
        html += "<thead><tr><th scope=\"col\">Figure</th>";
        for (std::size_t i = 1; i < rows.head.size(); ++i) {
            html += "<th scope=\"col\" title=\"" + html_text(rows.head[i]) + "\">" +
                    html_text(column_head(rows.head[i])) + "</th>";
        }
        html += "</tr></thead>";
    }
    html += "\n<tbody>\n";
    for (std::size_t i = 0; i < rows.rows.size(); ++i) {
        const std::vector<std::string>& cells = rows.rows[i];
        const std::string doc = rows.docs[i] == nullptr ? "" : " title=\"" + html_text(rows.docs[i]) + "\"";
        html += "<tr" + doc + "><th scope=\"row\">" + html_text(cells[0]) + "</th>";
        for (std::size_t column = 1; column < cells.size(); ++column) {
            html += cell_html(cells[column], !best.empty() && best[i][column]);
        }
        html += "</tr>\n";
    }
    return html + "</tbody></table></div>";
}

// Which cells of the table of figures are the best of the real and predicted layouts.
std::vector<std::vector<bool>> best_cells(const report_result& result, const table& rows) {
    std::vector<std::pair<std::size_t, const figures*>> columns = {{1, &result.binary.layout}};
    std::size_t next = 2;
    if (result.baseline.has_value()) {
        columns.emplace_back(next++, &result.baseline->layout);
    }
    next += 3; // random, its deviation, bound
    for (const candidate& one : result.candidates) {
        columns.emplace_back(next++, &one.layout);
    }
    std::vector<std::vector<bool>> best;
    for (const figure_row& row : figure_rows()) {
        if (best.size() == rows.rows.size()) {
            break; // the figures of a cold start are left out
        }
        std::vector<bool>& line = best.emplace_back(rows.head.size());
        std::optional<double> least;
        for (const auto& [column, layout] : columns) {
            const std::optional<double>& value = (*layout)[row.which];
            if (value.has_value() && row.better != 0) {
                const double cost = -row.better * *value;
                least = least.has_value() ? std::min(*least, cost) : cost;
            }
        }
        for (const auto& [column, layout] : columns) {
            const std::optional<double>& value = (*layout)[row.which];
            line[column] =
                columns.size() > 1 && least.has_value() && value.has_value() && -row.better * *value == *least;
        }
    }
    return best;
}

std::string order_html(const placement& order) {
    return "<section aria-labelledby=\"order\">\n<h2 id=\"order\">The order in the binary</h2>\n" +
           table_html(order_table(order), "the order in the binary", {}) + "\n</section>";
}

std::string missing_html(const placement& order) {
    if (order.missing.empty()) {
        return {};
    }
    std::string html =
        "<section aria-labelledby=\"missing\">\n<h2 id=\"missing\">Missing functions</h2>\n<p class=\"quiet\">" +
        html_text(missing_sums(order)) +
        "</p>\n<div class=\"scroll\" tabindex=\"0\" role=\"region\" "
        "aria-label=\"missing functions\"><table class=\"names\"><thead><tr><th scope=\"col\">Function</th>"
        "<th scope=\"col\">Reason</th></tr></thead>\n<tbody>\n";
    for (std::size_t i = 0; i < std::min(order.missing.size(), most_listed); ++i) {
        const missing_name& name = order.missing[i];
        html += "<tr><td>" + name_html(name.name, longest_missing) + "</td><td>" +
                html_text(missing_reasons[static_cast<std::size_t>(name.reason)].title) + "</td></tr>\n";
    }
    html += "</tbody></table></div>\n";
    if (order.missing.size() > most_listed) {
        html += "<p class=\"quiet\">and " + grouped(static_cast<std::uint64_t>(order.missing.size() - most_listed)) +
                " more, which the JSON file lists</p>\n";
    }
    return html + "</section>";
}

std::string file_line(const char* title, const measured_binary& binary) {
    return std::string(title) + escaped(binary.path) + ", build ID " +
           (binary.build_id.empty() ? "unknown" : binary.build_id) + "<br>\n";
}

std::string made_html(const report_result& result, const std::string& command) {
    constexpr std::size_t longest_command = 4000;
    std::string html =
        "<pre>" + html_text(shortened(printable(command), longest_command)) + "</pre>\n<p class=\"quiet\">";
    html += file_line("Binary: ", result.binary);
    if (result.baseline.has_value()) {
        html += file_line("Baseline: ", *result.baseline);
    }
    return html + "ordwell-report " ORDWELL_VERSION "</p>";
}

} // namespace

std::string to_page(const report_result& result, const std::string& command) {
    std::string page = page_html;
    const table figures = figure_table(result);
    fill_in(page, "verdict", verdict_html(result.judgement));
    fill_in(page, "against", "Against " + escaped(compared_with(result)));
    fill_in(page, "headline", headline_html(result));
    fill_in(page, "calls", html_text(calls_line(result)));
    fill_in(page, "gates", gates_html(result));
    fill_in(page, "legend", map_legend(result));
    fill_in(page, "maps", maps(result));
    fill_in(page, "curve", curves(result));
    fill_in(page, "faults", fault_pictures(result));
    const std::string note = candidate_note(result);
    fill_in(page, "figures",
            table_html(figures, "the figures", best_cells(result, figures)) +
                (note.empty() ? "" : "\n<p>" + escaped(note) + ".</p>"));
    fill_in(page, "order", result.order.has_value() ? order_html(*result.order) : "");
    fill_in(page, "missing", result.order.has_value() ? missing_html(*result.order) : "");
    fill_in(page, "command", made_html(result, command));
    return page;
}
