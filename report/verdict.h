// The verdict: did the order take, in one word, why, and what to do now.
//
// The judgement is about n functions, those of the order that the binary has, each address once. L of them rise with the
// order and F fall (report/placement.h). Chance alone lets c = min(n - 1, 2 * sqrt(n)) of n rise: s(X) = (X - c) / (n - c)
// is 0 for chance and 1 for the whole order.
//
//     took_partly: 61.2 % of the order's 400 functions stand in order; 31 folded functions. Link without --icf.
//     ^ word       ^ why                                                                   ^ advice
//
// Source of c: the expected length for a random order of n (B. F. Logan, L. A. Shepp, 1977; A. M. Vershik, S. V. Kerov, 1977).
#pragma once

#include "report/placement.h"

#include <optional>
#include <span>
#include <string>

/// What the verdict is made from.
struct verdict_facts {
    const placement* order; ///< null without an order
    std::string binary;     ///< path
    std::uint64_t inner_calls;
    std::uint64_t all_calls;
    bool is_in_baseline = false; ///< whether the order is in the baseline instead
};

/// A verdict as it is said: plain words without a point at the end; names and paths are bytes as they came.
struct verdict {
    const char* word;
    std::string why;
    std::string advice;
};

/// A verdict by its word. The first row that fits counts.
struct verdict_row {
    const char* key;
    const char* title;  ///< the word in plain letters
    const char* doc;    ///< when it is given
    const char* advice; ///< what to do
    bool is_good;       ///< whether nothing is wrong
    bool (*fits)(const placement* order);
};

/// All verdicts, in the order in which they are tried; the last one always fits.
std::span<const verdict_row> verdict_rows();

/// The row of a verdict.
const verdict_row& row_of(const verdict& verdict);

verdict judge(const verdict_facts& facts);

/// The missing names as sums by reason: "19 not there, 2 imported"; empty when there are none.
std::string missing_sums(const placement& order);
