// What the top of the report and its tables say, row by row, for the text, Markdown and the page alike.
#pragma once

#include "report/result.h"

#include <string>
#include <utility>
#include <vector>

/// A figure of the headline: how it changed from the baseline or, without one, from random orders.
struct headline_row {
    const figure_row* figure;
    std::string from; ///< with its unit only for "%"
    std::string to;
    std::string change; ///< "-43.2 %", "no difference"
    int better;         ///< 1: the change is for the better; -1: for the worse; 0: neither
};

/// The headline: 4 KiB pages touched, pages that hold 90 % of the calls, mean distance of a call, and with a list of first
/// executions the faults of a cold start.
std::vector<headline_row> headline(const report_result& result);

/// What the headline compares with: "app.old" or "a random order", and whether that is fair; bytes as they came.
std::string compared_with(const report_result& result);

/// The title of a figure with its unit, where the values do not carry it.
std::string title_of(const figure_row& row);

/// A table: the head, and below it rows of as many cells. The first column are titles.
struct table {
    std::vector<std::string> head;
    std::vector<std::vector<std::string>> rows;
    std::vector<const char*> docs; ///< of the rows, what they mean; null for none
};

/// The figures of all layouts; what has no value anywhere is left out.
table figure_table(const report_result& result);

/// Which candidates name so few of the called functions that no link packs these as foretold; empty for none. A path is
/// bytes as it came.
std::string candidate_note(const report_result& result);

/// What is known of the order: two columns.
table order_table(const placement& order);

/// How many calls there are, and how many of them the binary covers.
std::string calls_line(const report_result& result);
