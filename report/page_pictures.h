// The pictures of the page, each a figure of SVG with a table of the same facts: the maps of the code, the curves of calls by
// distance, the pages of a cold start.
#pragma once

#include "report/result.h"

#include <string>

/// What the colours of the maps stand for, as items of a list.
std::string map_legend(const report_result& result);

/// The map of the baseline, if there is one, above that of the binary, on one scale: the same pages a cell and the same colours.
std::string maps(const report_result& result);

/// The curves of both on one plane.
std::string curves(const report_result& result);

/// The pages of a cold start in the order of the faults; empty without a list of first executions.
std::string fault_pictures(const report_result& result);
