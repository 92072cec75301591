#include "report/page_pictures.h"

#include "report/wording.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

constexpr std::uint64_t page = 4096;
constexpr std::uint64_t columns = 64; // of a map: what is still to be seen at 400 pixels
constexpr std::uint64_t side = 10;    // of a cell, in the picture's own unit
constexpr int heats = 5;
constexpr std::size_t most_rows = 50;        // of a table behind a picture
constexpr std::size_t most_faults = 300;     // in the picture of a cold start
constexpr std::size_t most_fault_rows = 200; // in its table
constexpr std::size_t name_bytes = 90000;    // of all names of a map's cells together

std::string escaped(std::string_view bytes) {
    return html_text(printable(bytes));
}

std::string hexadecimal(std::uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
    return text;
}

// A coordinate: a tenth is exact enough.
std::string coordinate(double value) {
    char text[400];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string table_behind(const std::string& title, const std::vector<std::string>& head,
                         const std::vector<std::vector<std::string>>& rows) { // of HTML
    std::string html = "<details><summary>" + title + "</summary><div class=\"scroll\"><table><thead><tr>";
    for (const std::string& cell : head) {
        html += "<th scope=\"col\">" + cell + "</th>";
    }
    html += "</tr></thead>\n<tbody>\n";
    for (const std::vector<std::string>& row : rows) {
        html += "<tr>";
        for (const std::string& cell : row) {
            html += "<td>" + cell + "</td>";
        }
        html += "</tr>\n";
    }
    return html + "</tbody></table></div></details>\n";
}

// The binaries as they stand on the page, the baseline above.
struct named_binary {
    const char* title;
    const char* style; ///< class of its marks
    const measured_binary* binary;
};
std::vector<named_binary> shown_binaries(const report_result& result) {
    std::vector<named_binary> shown;
    if (result.baseline.has_value()) {
        shown.push_back({"Baseline", "baseline", &*result.baseline});
    }
    shown.push_back({"Binary", "binary", &result.binary});
    return shown;
}

std::uint64_t most_calls(const report_result& result) {
    std::uint64_t most = 1;
    for (const named_binary& shown : shown_binaries(result)) {
        for (const map_cell& cell : shown.binary->map.called) {
            most = std::max(most, cell.calls);
        }
    }
    return most;
}

// The colour of so many calls: 0 to 4, on a logarithmic scale.
int heat_of(std::uint64_t calls, std::uint64_t most) {
    const double share = std::log1p(static_cast<double>(calls)) / std::log1p(static_cast<double>(most));
    return std::min(heats - 1, static_cast<int>(heats * share));
}

// The fewest calls of a colour.
std::uint64_t heat_start(int heat, std::uint64_t most) {
    const double share = static_cast<double>(heat) / heats;
    return static_cast<std::uint64_t>(std::ceil(std::expm1(share * std::log1p(static_cast<double>(most)))));
}

/// What of a map the order owns.
struct order_part {
    std::uint64_t first = 1; ///< cell; beyond `last`: none
    std::uint64_t last = 0;
    std::vector<char> has_order; ///< by cell, whether a byte belongs to a name of the order
};

order_part part_of(const code_map& map, const placement& order) {
    order_part part;
    part.has_order.resize(map.cells);
    if (order.high == 0) {
        return part;
    }
    const auto cell_of = [&](std::uint64_t address) {
        return std::min((address - map.address) / page / map.pages_per_cell, map.cells - 1);
    };
    part.first = cell_of(order.low);
    part.last = cell_of(order.high - 1);
    for (const extent& owned : order.owned) {
        for (std::uint64_t cell = cell_of(owned.address); cell <= cell_of(owned.end() - 1); ++cell) {
            part.has_order[cell] = 1;
        }
    }
    return part;
}

// The outline of the cells from `first` to `last`, which run from row to row like text.
std::string outline(std::uint64_t first, std::uint64_t last, std::uint64_t width) {
    const auto at = [](std::uint64_t column, std::uint64_t row) {
        return std::to_string(column * side) + " " + std::to_string(row * side);
    };
    const std::uint64_t top = first / width;
    const std::uint64_t bottom = last / width;
    const std::uint64_t left = first % width;
    const std::uint64_t right = last % width + 1;
    if (top == bottom) {
        return "M" + at(left, top) + "L" + at(right, top) + "L" + at(right, top + 1) + "L" + at(left, top + 1) + "Z";
    }
    return "M" + at(left, top) + "L" + at(width, top) + "L" + at(width, bottom) + "L" + at(right, bottom) + "L" +
           at(right, bottom + 1) + "L" + at(0, bottom + 1) + "L" + at(0, top + 1) + "L" + at(left, top + 1) + "Z";
}

std::string addresses_of(const code_map& map, std::uint64_t first, std::uint64_t last) {
    const std::uint64_t bytes = map.pages_per_cell * page;
    return hexadecimal(map.address + first * bytes) + "-" + hexadecimal(map.address + (last + 1) * bytes - 1);
}

/// Draws one map.
class map_picture {
public:
    map_picture(const named_binary& shown, const placement* order, std::uint64_t most)
        : shown_(shown), map_(shown.binary->map), width_(std::min(columns, map_.cells)), most_(most) {
        if (order != nullptr) {
            part_ = part_of(map_, *order);
        }
    }

    std::string html() {
        const std::uint64_t rows = (map_.cells + width_ - 1) / width_;
        std::string text = "<figure>\n<figcaption>" + caption() + "</figcaption>\n<svg viewBox=\"-1 -1 " +
                           std::to_string(width_ * side + 2) + " " + std::to_string(rows * side + 2) +
                           "\" style=\"max-width:" + std::to_string(width_ * 16) +
                           "px\" role=\"img\" aria-label=\"Map of the code of " + escaped(shown_.binary->path) +
                           "; a table follows\">\n";
        auto called = map_.called.begin();
        for (std::uint64_t cell = 0; cell < map_.cells;) {
            if (called != map_.called.end() && called->index == cell) {
                text += rectangle(cell, cell, "h" + std::to_string(heat_of(called->calls, most_)), title_of(*called));
                ++called;
                ++cell;
                continue;
            }
            // Cells of one kind up to the next called one, or the row's end, are one shape.
            const std::uint64_t row_end = (cell / width_ + 1) * width_;
            const std::uint64_t end =
                std::min({called == map_.called.end() ? map_.cells : called->index, row_end, map_.cells});
            const bool hole = is_hole(cell);
            std::uint64_t last = cell;
            while (last + 1 < end && is_hole(last + 1) == hole) {
                ++last;
            }
            text += rectangle(cell, last, hole ? "o" : "e",
                              addresses_of(map_, cell, last) +
                                  (hole ? ": a hole, no function of the order" : ": nothing called"));
            cell = last + 1;
        }
        if (part_.first <= part_.last) {
            text += "<path class=\"f\" d=\"" + outline(part_.first, part_.last, width_) + "\"/>\n";
        }
        return text + "</svg>\n" + busiest() + "</figure>\n";
    }

private:
    bool is_hole(std::uint64_t cell) const {
        return cell >= part_.first && cell <= part_.last && part_.has_order[cell] == 0;
    }

    std::string caption() const {
        std::string text = std::string(shown_.title) + ": " + escaped(shown_.binary->path) +
                           ". Called functions lie in " + grouped(static_cast<std::uint64_t>(map_.called.size())) +
                           " of " + grouped(map_.cells) + " cells, each ";
        text += map_.pages_per_cell == 1 ? "a 4 KiB page."
                                         : grouped(map_.pages_per_cell) +
                                               " pages of 4 KiB, since a map of more cells would not be readable.";
        return text;
    }

    std::string rectangle(std::uint64_t first, std::uint64_t last, const std::string& style,
                          const std::string& title) const {
        const std::uint64_t x = first % width_ * side;
        const std::string width = std::to_string((last - first + 1) * side - 1);
        return "<path d=\"M" + std::to_string(x) + " " + std::to_string(first / width_ * side) + "h" + width + "v9h-" +
               width + "z\" class=" + style + "><title>" + title + "</title></path>\n"; // shorter than <rect>
    }

    std::string title_of(const map_cell& cell) const {
        const std::size_t longest = std::min<std::size_t>(name_bytes / map_.called.size(), 200);
        const bool hole = is_hole(cell.index);
        return addresses_of(map_, cell.index, cell.index) + ": " + counted(cell.calls, "call") + ", " +
               counted(cell.functions, "called function") + ", most in " + name_html(cell.hottest, longest) +
               (hole ? "; none of the order" : "");
    }

    std::string busiest() const {
        std::vector<const map_cell*> cells;
        for (const map_cell& cell : map_.called) {
            cells.push_back(&cell);
        }
        std::stable_sort(cells.begin(), cells.end(),
                         [](const map_cell* a, const map_cell* b) { return a->calls > b->calls; });
        std::vector<std::vector<std::string>> rows;
        for (std::size_t i = 0; i < std::min(cells.size(), most_rows); ++i) {
            const map_cell& cell = *cells[i];
            rows.push_back({addresses_of(map_, cell.index, cell.index), grouped(cell.calls), grouped(cell.functions),
                            name_html(cell.hottest, 200)});
        }
        return table_behind(cells.size() > most_rows
                                ? "The " + std::to_string(most_rows) + " busiest cells as a table, of " +
                                      grouped(static_cast<std::uint64_t>(cells.size()))
                                : "The cells as a table",
                            {"Addresses", "Calls", "Called functions", "Most calls"}, rows);
    }

    const named_binary& shown_;
    const code_map& map_;
    std::uint64_t width_; ///< cells a row
    std::uint64_t most_;  ///< calls of any cell of any map
    order_part part_;
};

std::string bytes_text(double bytes) {
    const auto shown = [](double value, const char* unit) {
        return (std::floor(value) == value ? std::to_string(static_cast<std::uint64_t>(value)) : coordinate(value)) +
               unit;
    };
    constexpr double kib = 1024;
    return bytes < kib               ? shown(bytes, " bytes")
           : bytes < kib * kib       ? shown(bytes / kib, " KiB")
           : bytes < kib * kib * kib ? shown(bytes / kib / kib, " MiB")
                                     : shown(bytes / kib / kib / kib, " GiB");
}

/// A plane with axes: from the values that are shown to the picture's unit.
struct plane {
    static constexpr double width = 400;
    static constexpr double height = 250;
    static constexpr double left = 58;
    static constexpr double right = 10;
    static constexpr double top = 8;
    static constexpr double bottom = 38;

    static double x(double share) { return left + (width - left - right) * share; }
    static double y(double share) { return top + (height - top - bottom) * (1 - share); }

    static std::string start(const std::string& label) {
        return "<svg viewBox=\"0 0 400 250\" style=\"max-width:40rem\" role=\"img\" aria-label=\"" + label + "\">\n";
    }
    static std::string row(double share, const std::string& text) {
        return "<path class=\"grid\" d=\"M" + coordinate(x(0)) + " " + coordinate(y(share)) + "H" + coordinate(x(1)) +
               "\"/><text x=\"" + coordinate(left - 5) + "\" y=\"" + coordinate(y(share) + 4) +
               "\" text-anchor=\"end\">" + text + "</text>\n";
    }
    static std::string column(double share, const std::string& text) {
        return "<path class=\"grid\" d=\"M" + coordinate(x(share)) + " " + coordinate(y(0)) + "V" + coordinate(y(1)) +
               "\"/><text x=\"" + coordinate(x(share)) + "\" y=\"" + coordinate(height - bottom + 15) +
               "\" text-anchor=\"" +
               (share > 0.9 ? "end"
                : share > 0 ? "middle"
                            : "start") +
               "\">" + text + "</text>\n";
    }
    static std::string title_below(const std::string& text) {
        return "<text x=\"" + coordinate(x(0.5)) + "\" y=\"" + coordinate(height - 6) + "\" text-anchor=\"middle\">" +
               text + "</text>\n";
    }
};

std::string legend_of(const std::vector<named_binary>& shown, const char* hint) {
    std::string html = "<ul class=\"legend\">";
    for (const named_binary& one : shown) {
        html += "<li><span class=\"" + std::string(one.style) + "\"></span>" + one.title + ": " +
                escaped(one.binary->path) + (one.binary == shown.back().binary ? "" : hint) + "</li>";
    }
    return html + "</ul>\n";
}

} // namespace

std::string map_legend(const report_result& result) {
    const std::uint64_t most = most_calls(result);
    std::string html = "<li><span class=\"e\"></span>nothing called</li>\n";
    for (int heat = 0; heat < heats; ++heat) {
        const std::uint64_t start = heat == 0 ? 0 : heat_start(heat, most);
        const std::uint64_t end = heat == heats - 1 ? most : std::max(heat_start(heat + 1, most), std::uint64_t{1}) - 1;
        if (start <= end) {
            html += "<li><span class=\"h" + std::to_string(heat) + "\"></span>" +
                    (start == end ? counted(start, "call") : grouped(start) + " to " + grouped(end) + " calls") +
                    "</li>\n";
        }
    }
    if (result.order.has_value()) {
        html += "<li><span class=\"f\"></span>the order's part</li>\n<li><span class=\"o\"></span>a hole in it</li>\n";
    }
    return html;
}

std::string maps(const report_result& result) {
    const std::uint64_t most = most_calls(result);
    std::string html;
    for (const named_binary& shown : shown_binaries(result)) {
        const bool has_order = shown.binary == &result.binary && result.order.has_value();
        html += map_picture(shown, has_order ? &*result.order : nullptr, most).html();
    }
    return html;
}

std::string curves(const report_result& result) {
    const std::vector<named_binary> shown = shown_binaries(result);
    constexpr double least = 16; // bytes
    double most = 64;
    for (const named_binary& one : shown) {
        if (!one.binary->curve.empty()) {
            most = std::max(most, static_cast<double>(one.binary->curve.back().distance));
        }
    }
    if (result.binary.curve.empty()) {
        return "<p>There are no calls between functions of the binary.</p>";
    }
    const auto x = [&](double distance) {
        return std::log(std::max(distance, least) / least) / std::log(most / least);
    };
    std::string html = "<figure>\n<figcaption>Share of the calls that go at most so far</figcaption>\n" +
                       legend_of(shown, " (dashed)") + plane::start("Share of the calls by distance; a table follows");
    for (const int share : {0, 25, 50, 75, 100}) {
        html += plane::row(share / 100.0, std::to_string(share) + " %");
    }
    const double step = most > least * 65536 ? 64 : 16;
    for (double distance = least; distance <= most; distance *= step) {
        html += plane::column(x(distance), bytes_text(distance));
    }
    html += plane::title_below("distance between the two functions of a call");
    std::vector<std::vector<std::string>> rows;
    for (const named_binary& one : shown) {
        std::string line;
        std::string dots;
        for (const distance_share& point : one.binary->curve) {
            const double px = plane::x(x(static_cast<double>(point.distance)));
            const double py = plane::y(point.share / 100);
            line += (line.empty() ? "M" : "L") + coordinate(px) + " " + coordinate(py);
            const std::string share = format_percent(point.share);
            const std::string distance = bytes_text(static_cast<double>(point.distance));
            dots += "<circle cx=\"" + coordinate(px) + "\" cy=\"" + coordinate(py) +
                    "\" r=\"5\" class=\"dot\"><title>" + one.title + ": " + share + " of the calls go at most " +
                    distance + "</title></circle>\n";
            rows.push_back({one.title, distance, share});
        }
        html += "<path class=\"" + std::string(one.style) + "\" d=\"" + line + "\"/>\n" + dots;
    }
    return html + "</svg>\n" + table_behind("The curves as a table", {"Program", "At most", "Calls"}, rows) +
           "</figure>";
}

std::string fault_pictures(const report_result& result) {
    if (result.request.first_run.empty()) {
        return {};
    }
    const std::vector<named_binary> shown = shown_binaries(result);
    std::size_t count = 1;
    double height = 1; // of the code from its first page on, in bytes
    for (const named_binary& one : shown) {
        count = std::max(count, std::min(one.binary->faults.size(), most_faults));
        for (const cold_fault& fault : one.binary->faults) {
            height = std::max(height, static_cast<double>(fault.address - one.binary->map.address + page));
        }
    }
    std::string html =
        "<section aria-labelledby=\"cold\">\n<h2 id=\"cold\">A cold start</h2>\n<figure>\n<figcaption>The pages "
        "that are waited for, in the order of the faults; a line that rises is read ahead, one that falls is "
        "not</figcaption>\n" +
        legend_of(shown, " (squares)") + plane::start("Pages in the order of the faults; a table follows");
    for (int quarter = 0; quarter <= 4; ++quarter) {
        html += plane::row(quarter / 4.0, bytes_text(std::floor(height / 4 * quarter)));
        const double faults = std::round(static_cast<double>(count) / 4 * quarter);
        html += plane::column(faults / static_cast<double>(count),
                              coordinate(faults).substr(0, coordinate(faults).find('.')));
    }
    html += plane::title_below("faults");
    std::vector<std::vector<std::string>> rows;
    bool is_cut = false;
    for (const named_binary& one : shown) {
        const std::vector<cold_fault>& faults = one.binary->faults;
        is_cut |= faults.size() > most_faults;
        for (std::size_t i = 0; i < std::min(faults.size(), most_faults); ++i) {
            const double px = plane::x(static_cast<double>(i + 1) / static_cast<double>(count));
            const double py = plane::y(static_cast<double>(faults[i].address - one.binary->map.address) / height);
            const std::string name = name_html(one.binary->first_names[faults[i].function], 60);
            const std::string title = "<title>" + std::string(one.title) + ", fault " +
                                      grouped(static_cast<std::uint64_t>(i + 1)) + ": " +
                                      hexadecimal(faults[i].address) + ", " + name + "</title>";
            html += one.binary == &result.binary
                        ? "<circle cx=\"" + coordinate(px) + "\" cy=\"" + coordinate(py) +
                              "\" r=\"3\" class=\"binary\">" + title + "</circle>\n"
                        : "<rect x=\"" + coordinate(px - 2.5) + "\" y=\"" + coordinate(py - 2.5) +
                              "\" width=\"5\" height=\"5\" class=\"baseline\">" + title + "</rect>\n";
            if (i < most_fault_rows) {
                rows.push_back({one.title, std::to_string(i + 1), hexadecimal(faults[i].address), name});
            }
        }
    }
    html += "</svg>\n";
    if (is_cut) {
        html += "<p class=\"quiet\">The first " + std::to_string(most_faults) + " faults of each.</p>\n";
    }
    return html +
           table_behind("The faults as a table, at most " + std::to_string(most_fault_rows) + " of each",
                        {"Program", "Fault", "Page", "Function"}, rows) +
           "</figure>\n</section>";
}
