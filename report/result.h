// All that the report says, computed once; the text, Markdown, JSON and the page only say it.
#pragma once

#include "report/code_map.h"
#include "report/cold_start.h"
#include "report/figures.h"
#include "report/gates.h"
#include "report/layouts.h"
#include "report/placement.h"
#include "report/verdict.h"

#include <optional>
#include <string>
#include <vector>

/// What the report is to be about: the command line without its outputs.
struct report_request {
    std::vector<std::string> calls;
    std::string order; ///< empty: none
    std::vector<std::string> candidates;
    std::string first_run; ///< empty: none
    std::uint64_t read_ahead_kib = 128;
    std::uint64_t seed = 1;
    gate_request gates;
    std::string binary;
    std::string baseline; ///< empty: none
};

/// The calls of all CSV files together.
struct call_facts {
    std::uint64_t rows = 0;        ///< that count
    std::uint64_t total = 0;       ///< calls between functions, in both directions and saturated as ordwell adds them
    std::optional<double> covered; ///< percent of them whose two functions are in the binary; none without calls
};

/// A binary's part of the report.
struct measured_binary {
    std::string path;
    std::string build_id; ///< empty: none
    figures layout;
    code_map map;
    std::vector<distance_share> curve;
    std::vector<cold_fault> faults;       ///< in the order of time, reading ahead; only with a list of first executions
    std::vector<std::string> first_names; ///< of the functions of that list that it has
};

/// A predicted layout.
struct candidate {
    std::string path;
    std::uint64_t named; ///< how many of the called functions it names
    figures layout;
};

/// The list of first executions.
struct first_run_facts {
    std::uint64_t names = 0; ///< each once
    std::uint64_t found = 0; ///< of them, functions of the binary
    /// Whether most are not of the binary: the list of another program, or of all objects of the run.
    bool is_doubtful() const { return found < names - found; }
};

struct report_result {
    report_request request;
    call_facts calls;
    std::optional<placement> order;
    std::optional<first_run_facts> first_run;
    verdict judgement;
    measured_binary binary;
    std::optional<measured_binary> baseline;
    random_control random;
    figures bound;
    std::vector<candidate> candidates;
    std::vector<gate> gates;
};

/// Computes the report. Throws `failure` for input that it cannot be about.
report_result make_report(const report_request& request);

/// The text on standard output.
std::string to_text(const report_result& result);

/// The file of --markdown.
std::string to_markdown(const report_result& result);

/// The file of --json.
std::string to_json(const report_result& result);

/// The page: report/page.html with what is to be said in place of its sample. `command` is what made the report.
std::string to_page(const report_result& result, const std::string& command);
