// All that the report says, computed once for its three forms: text, JSON and page.
#pragma once

#include "report/figures.h"
#include "report/placement.h"

#include <optional>
#include <string>
#include <vector>

/// A binary's part of the report.
struct measured_binary {
    std::string path;
    called_code code;
    figures layout;
};

struct report_result {
    bool is_incomplete = false;          ///< the call graph has a bad row: what follows it is not in here
    std::optional<placement> order;      ///< with an order file
    std::optional<double> wanted_placed; ///< percent: --min-placed
    measured_binary binary;
    std::optional<measured_binary> baseline;
    figures random;
};

/// The sentences at the top: whether the order took, and what changed most.
std::vector<std::string> sentences(const report_result& result);

/// A figure for people: grouped digits, at most two behind the point, with its unit; "-" for none.
std::string format_figure(const std::optional<double>& value, const std::string& unit);

/// The text on standard output.
std::string to_text(const report_result& result);

/// The file of --json.
nlohmann::ordered_json to_json(const report_result& result);

/// The page (report/page.html) with its data.
std::string to_page(const report_result& result);
