#include "report/gates.h"

#include "report/wording.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace {

constexpr std::array<gate_row, 3> rows = {{
    {"min-placed", "functions in order", "%", "End with status 3 when fewer of the functions found stand in order",
     true, &gate_request::min_placed, &gate_facts::placed},
    {"min-found", "names found", "%", "End with status 3 when fewer of the order's names are found", true,
     &gate_request::min_found, &gate_facts::found},
    {"min-covered", "calls covered", "%",
     "End with status 3 when fewer of the calls are between functions of the program", false,
     &gate_request::min_covered, &gate_facts::covered},
}};

constexpr double tolerated_percent = 101; // of the other layout's figure

// Two digits behind the point are enough, unless they hide on which side of the wanted value the measured one lies.
std::string value_text(const gate& gate, const std::optional<double>& value) {
    if (!value.has_value()) {
        return "none";
    }
    const auto rounded = [](double number) {
        char text[400];
        std::snprintf(text, sizeof text, "%.2f", number);
        std::string digits = text;
        digits.erase(digits.find_last_not_of('0') + 1);
        return digits.ends_with('.') ? digits.substr(0, digits.size() - 1) : digits;
    };
    std::string text = rounded(*value);
    if (gate.wanted != gate.measured && gate.wanted.has_value() && gate.measured.has_value() &&
        rounded(*gate.wanted) == rounded(*gate.measured)) {
        char exact[400];
        text.assign(exact, std::to_chars(exact, exact + sizeof exact, *value).ptr);
    }
    return text + (gate.unit.empty() ? "" : " " + gate.unit);
}

} // namespace

std::span<const gate_row> gate_rows() {
    return rows;
}

std::vector<gate> try_gates(const gate_request& request, const gate_facts& facts, const figures& binary,
                            const figures* other) {
    std::vector<gate> gates;
    for (const gate_row& row : rows) {
        const std::optional<double>& wanted = request.*row.wanted;
        const std::optional<double>& measured = facts.*row.measured;
        if (wanted.has_value()) {
            gates.push_back({row.key, row.unit, true, wanted, measured, measured.has_value() && *measured >= *wanted});
        }
    }
    if (!request.no_worse || other == nullptr) {
        return gates;
    }
    for (const figure_row& row : figure_rows()) {
        const std::optional<double>& measured = binary[row.which];
        const std::optional<double>& there = (*other)[row.which];
        const bool is_asked = row.which != figure::cold_faults || measured.has_value();
        if (!row.is_guarded || !is_asked) {
            continue;
        }
        gate made = {"no-worse " + std::string(row.key), row.unit, false, std::nullopt, measured, true};
        if (there.has_value()) {
            made.wanted = tolerated_percent * *there / 100;
            made.met = !measured.has_value() || 100 * *measured <= tolerated_percent * *there;
        }
        gates.push_back(made);
    }
    return gates;
}

std::string describe(const gate& gate) {
    return gate.name + ": wanted " + (gate.is_minimum ? "at least " : "at most ") + value_text(gate, gate.wanted) +
           ", measured " + value_text(gate, gate.measured);
}
