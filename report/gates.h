// Gates: what a build demands of the report, and whether it is so.
//
//     ordwell-report: min-placed: wanted at least 95 %, measured 61.2 %
//
// A share must reach what was wanted. A guarded figure (report/figures.h) must be at most 1.01 times that of the baseline
// or, without one, of the first candidate; what cannot be measured is not worse.
#pragma once

#include "report/figures.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

/// The gates that the command line sets.
struct gate_request {
    std::optional<double> min_placed;  ///< percent
    std::optional<double> min_found;   ///< percent
    std::optional<double> min_covered; ///< percent
    bool no_worse = false;
};

/// The shares that gates compare, in percent; none where there is nothing to measure.
struct gate_facts {
    std::optional<double> placed;
    std::optional<double> found;
    std::optional<double> covered;
};

/// A gate of a share.
struct gate_row {
    const char* key; ///< the option without its dashes
    const char* title;
    const char* unit;
    const char* doc; ///< for --help
    bool needs_order;
    std::optional<double> gate_request::*wanted;
    std::optional<double> gate_facts::*measured;
};

/// The gates of shares.
std::span<const gate_row> gate_rows();

/// A gate that was set.
struct gate {
    std::string name;
    std::string unit;
    bool is_minimum;              ///< else a maximum
    std::optional<double> wanted; ///< none: nothing to compare with
    std::optional<double> measured;
    bool met;
};

/// Tries the gates that were set. `other` is what the guarded figures are compared with; it may be null.
std::vector<gate> try_gates(const gate_request& request, const gate_facts& facts, const figures& binary,
                            const figures* other);

/// What a gate wanted and measured, in words.
std::string describe(const gate& gate);
