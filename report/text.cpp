// The report in words: for a terminal, and in Markdown for a merge request.
#include "report/summary.h"
#include "report/wording.h"

#include <algorithm>

namespace {

constexpr std::size_t listed_missing = 20;

// The number of characters, not of bytes.
std::size_t width_of(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80; }));
}

// A table whose columns are as wide as they need to be, the first to the left.
std::string aligned(const table& rows) {
    std::vector<std::vector<std::string>> lines = rows.rows;
    const bool has_head = std::any_of(rows.head.begin(), rows.head.end(), [](const auto& h) { return !h.empty(); });
    if (has_head) {
        lines.insert(lines.begin(), rows.head);
    }
    std::vector<std::size_t> widths(rows.head.size());
    for (const std::vector<std::string>& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(line[i]));
        }
    }
    std::string text;
    for (const std::vector<std::string>& line : lines) {
        std::string written;
        for (std::size_t i = 0; i < line.size(); ++i) {
            const std::string blanks(widths[i] - width_of(line[i]), ' ');
            written += i == 0 ? line[i] + blanks : "  " + blanks + line[i];
        }
        text += written.substr(0, written.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string line_of(const headline_row& row) {
    return title_of(*row.figure) + ": " + row.from + " -> " + row.to + " (" + row.change + ")";
}

} // namespace

std::string to_text(const report_result& result) {
    const verdict& judgement = result.judgement;
    std::string text = std::string(judgement.word) + ": " + printable(judgement.why) + ". " +
                       printable(judgement.advice) + ".\n\nagainst " + printable(compared_with(result)) + ":\n";
    for (const headline_row& row : headline(result)) {
        text += "  " + line_of(row) + "\n";
    }
    text += "\n" + calls_line(result) + "\n";
    if (!result.gates.empty()) {
        text += "\n";
        for (const gate& gate : result.gates) {
            text += describe(gate) + (gate.met ? ": met\n" : ": not met\n");
        }
    }
    if (result.order.has_value()) {
        text += "\n" + aligned(order_table(*result.order));
    }
    text += "\n" + aligned(figure_table(result));
    if (const std::string note = candidate_note(result); !note.empty()) {
        text += printable(note) + "\n";
    }
    if (result.order.has_value() && !result.order->missing.empty()) {
        const std::vector<missing_name>& missing = result.order->missing;
        text += "\nmissing:\n";
        for (std::size_t i = 0; i < std::min(missing.size(), listed_missing); ++i) {
            text += "  " + readable_name(missing[i].name) + " (" +
                    missing_reasons[static_cast<std::size_t>(missing[i].reason)].title + ")\n";
        }
        if (missing.size() > listed_missing) {
            text +=
                "  and " + grouped(static_cast<std::uint64_t>(missing.size() - listed_missing)) + " more: see --json\n";
        }
    }
    return text;
}

std::string to_markdown(const report_result& result) {
    const verdict& judgement = result.judgement;
    const auto escaped = [](const std::string& text) { return markdown_text(printable(text)); };
    std::string text = "**" + std::string(judgement.word) + "**: " + escaped(judgement.why) + ". " +
                       escaped(judgement.advice) + ".\n\nAgainst " + escaped(compared_with(result)) + ":\n\n";
    for (const headline_row& row : headline(result)) {
        text += "- " + markdown_text(title_of(*row.figure)) + ": " + row.from + " -> " + row.to + " (**" + row.change +
                "**)\n";
    }
    text += "\n" + escaped(calls_line(result)) + ".\n";
    if (result.order.has_value() && !result.order->missing.empty()) {
        text += "\nMissing names: " + escaped(missing_sums(*result.order)) + ".\n";
    }
    if (!result.gates.empty()) {
        text += "\n";
        for (const gate& gate : result.gates) {
            text += "- " + escaped(describe(gate)) + (gate.met ? ": met\n" : ": **not met**\n");
        }
    }
    const table figures = figure_table(result);
    const auto add_line = [&](const std::vector<std::string>& cells) {
        for (const std::string& cell : cells) {
            text += "| " + markdown_text(cell) + " ";
        }
        text += "|\n";
    };
    text += "\n";
    add_line(figures.head);
    for (std::size_t i = 0; i < figures.head.size(); ++i) {
        text += i == 0 ? "|---" : "|---:";
    }
    text += "|\n";
    for (const std::vector<std::string>& row : figures.rows) {
        add_line(row);
    }
    if (const std::string note = candidate_note(result); !note.empty()) {
        text += "\n" + escaped(note) + ".\n";
    }
    return text;
}
