#include "report/verdict.h"

#include "report/wording.h"

#include <array>
#include <cmath>

namespace {

constexpr std::uint64_t enough_covered = 90; // percent of the calls below which the verdict names them

// s(X): how far beyond chance X of n functions in one direction are.
double beyond_chance(std::uint64_t length, std::uint64_t n) {
    const auto whole = static_cast<double>(n);
    const double chance = std::min(whole - 1, 2 * std::sqrt(whole));
    return (static_cast<double>(length) - chance) / (whole - chance);
}

constexpr std::array<verdict_row, 7> rows = {{
    {"none", "no order", "no order was given",
     "Give the order file that ordwell wrote with --order, to know whether it took", true,
     [](const placement* order) { return order == nullptr; }},
    {"wrong_profile", "wrong profile", "less than 50 % of the order's names are functions of the program",
     "Give the program that was profiled, not stripped and of the same variant, and record names as the linker knows "
     "them, "
     "not demangled",
     false, [](const placement* order) { return 2 * order->found < order->names; }},
    {"took", "took", "at least 95 % of the functions stand in order, and at least 95 % of the names are there",
     "Nothing needs to be done", true,
     [](const placement* order) { return order->stands() && 20 * order->found >= 19 * order->names; }},
    {"stale", "stale", "at least 95 % of the functions stand in order, but less than 95 % of the names are there",
     "Record a new profile: the program has changed since this one", false,
     [](const placement* order) { return order->stands(); }},
    {"reversed", "reversed", "the functions stand in the order from its end to its start",
     "Turn the linker's list round: something on the way from ordwell to the linker reversed it", false,
     [](const placement* order) {
         return order->in_reverse > order->in_order && beyond_chance(order->in_reverse, order->counted()) >= 0.5;
     }},
    {"took_partly", "took partly", "clearly more functions stand in order than chance would let, but less than 95 %",
     "", false, [](const placement* order) { return beyond_chance(order->in_order, order->counted()) >= 0.2; }},
    {"did_not_take", "did not take", "no more functions stand in order than chance would let",
     "Compile everything with -ffunction-sections, and give the linker the list that ordwell-export wrote for it, with "
     "the "
     "option that it named",
     false, [](const placement*) { return true; }},
}};

/// Why an order may have taken only partly.
struct partly_reason {
    const char* title;
    const char* advice;
    /// Whether the files show it, and whether they leave it possible.
    bool (*is_shown)(const placement& order);
    bool (*is_possible)(const placement& order);
    /// How many there are; 0 where that is not known.
    std::uint64_t (*count)(const placement& order);
};

constexpr std::array<partly_reason, 3> partly_reasons = {{
    {"folded functions", "link without --icf, or accept that folded functions lie where one of them was",
     [](const placement& order) { return order.folded > 0; }, [](const placement& order) { return order.folded > 0; },
     [](const placement& order) { return order.folded; }},
    {"runs of functions that stand as in the source", "compile everything with -ffunction-sections",
     [](const placement& order) { return order.has_baseline && 2 * order.kept_falls >= order.falls; },
     [](const placement& order) { return !order.has_baseline; }, [](const placement&) { return std::uint64_t{0}; }},
    {"foreign functions in between",
     "look at what the linker puts between them: sections of several functions, or those "
     "that a linker script places",
     [](const placement& order) { return order.foreign > 0; }, [](const placement& order) { return order.foreign > 0; },
     [](const placement& order) { return order.foreign; }},
}};

// The reasons as part of a sentence, and what to do about them.
void explain_partly(const placement& order, verdict& result) {
    std::string shown;
    std::string possible;
    std::string advice;
    for (const partly_reason& reason : partly_reasons) {
        const bool is_shown = reason.is_shown(order);
        if (!is_shown && !reason.is_possible(order)) {
            continue;
        }
        std::string& list = is_shown ? shown : possible;
        const std::uint64_t count = is_shown ? reason.count(order) : 0;
        list +=
            (list.empty() ? "" : ", ") + std::string(reason.title) + (count == 0 ? "" : " (" + grouped(count) + ")");
        advice += (advice.empty() ? "" : "; ") + std::string(reason.advice);
    }
    if (!shown.empty()) {
        result.why += ", because of " + shown;
    }
    if (!possible.empty()) {
        result.why += (shown.empty() ? ", perhaps because of " : ", and perhaps ") + possible;
    }
    if (shown.empty() && possible.empty()) {
        advice = "compare the linker's list with the order: some of it did not reach the linker";
    }
    advice.front() = static_cast<char>(advice.front() - 'a' + 'A');
    result.advice = advice;
}

std::string why_of(const placement& order, std::string_view word, const std::string& binary) {
    const std::string found = format_percent(*percent_of(order.found, order.names));
    if (order.found == 0) {
        return (order.names == 1 ? "the order's only name is no function of "
                                 : "none of the order's " + counted(order.names, "name") + " is a function of ") +
               binary + " (" + missing_sums(order) + ")";
    }
    if (word == "wrong_profile") {
        return "only " + found + " of the order's " + counted(order.names, "name") + " are functions of " + binary +
               " (" + missing_sums(order) + ")";
    }
    const std::uint64_t length = word == "reversed" ? order.in_reverse : order.in_order;
    std::string share = (word == "took" || word == "stale" || word == "reversed" ? "" : "only ") +
                        format_percent(*percent_of(length, order.counted())) + " of the " +
                        counted(order.counted(), "function") + " found stand in " +
                        (word == "reversed" ? "the reverse of the order" : "order");
    if (order.found == order.names) {
        return share;
    }
    return share + (word == "stale" ? ", but only " : ", and ") + found + " of the " + counted(order.names, "name") +
           " are there (missing: " + missing_sums(order) + ")";
}

} // namespace

std::span<const verdict_row> verdict_rows() {
    return rows;
}

std::string missing_sums(const placement& order) {
    std::string text;
    for (std::size_t i = 0; i < missing_reasons.size(); ++i) {
        if (order.missing_sums[i] != 0) {
            text += (text.empty() ? "" : ", ") + grouped(order.missing_sums[i]) + " " + missing_reasons[i].title;
        }
    }
    return text;
}

const verdict_row& row_of(const verdict& verdict) {
    for (const verdict_row& row : rows) {
        if (row.key == std::string_view(verdict.word)) {
            return row;
        }
    }
    return rows.back();
}

verdict judge(const verdict_facts& facts) {
    const verdict_row* row = rows.data();
    while (!row->fits(facts.order)) {
        ++row;
    }
    verdict result = {row->key, row->doc, row->advice};
    if (facts.order != nullptr) {
        result.why = why_of(*facts.order, row->key, facts.binary);
        if (row->advice[0] == '\0') {
            explain_partly(*facts.order, result);
        }
    }
    if (facts.is_in_baseline) {
        result.advice = "Give the two programs the other way round: the order is in the baseline";
    }
    const std::uint64_t all = facts.all_calls;
    if (all != 0 && facts.inner_calls < all / 100 * enough_covered + (all % 100 * enough_covered + 99) / 100) {
        result.why += "; only " + format_percent(std::floor(*percent_of(facts.inner_calls, all) * 10) / 10) +
                      " of the calls are between functions of " + facts.binary;
        const bool is_fine = facts.order != nullptr && row->is_good;
        result.advice =
            is_fine ? "Record a new profile with this program, or take away the calls of others" : result.advice;
    }
    return result;
}
