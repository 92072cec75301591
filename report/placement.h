// Whether an order is in a binary.
//
// Of the functions that the binary has, those count as in order that form the longest sequence of rising addresses in the
// order file's order: what the linker put elsewhere, whether one function or half of them, falls out of it. A name at the
// address of an earlier name (an alias, or a function folded with another by --icf) is found, and counts for nothing else.
//
//     order: f main g h      addresses: f 0x10  main 0x40  g 0x05  h 0x80      in order: f, main, h; placed: 75 %
//
// Source of the method: patience sorting (C. Schensted, "Longest increasing and decreasing subsequences", 1961), in
// n log n steps for n functions.
#pragma once

#include "report/name_list.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Why a name of the order is no function of the binary.
enum class missing_reason { absent, undefined, no_function, cold_part, mangled };

/// A reason as it is said.
struct missing_reason_row {
    const char* key;
    const char* title;
};

/// The reasons, in the order of missing_reason.
inline constexpr std::array<missing_reason_row, 5> missing_reasons = {{
    {"absent", "not there"},
    {"undefined", "imported: another file defines it"},
    {"no_function", "data, or a symbol of size 0"},
    {"cold_part", "only its .cold part is there"},
    {"mangled", "there under its mangled name"},
}};

/// A name of the order that is no function of the binary.
struct missing_name {
    std::string name;
    missing_reason reason;
};

/// A run of bytes between ordered functions that belongs to none of them.
struct hole {
    std::uint64_t address;
    std::uint64_t bytes;
    std::optional<std::string> function; ///< the one with most bytes in it; none: only padding
};

struct placement {
    std::string path;                  ///< of the order file
    std::uint64_t names = 0;           ///< in the order file, all different
    std::uint64_t found = 0;           ///< functions of known size in the binary
    std::uint64_t folded = 0;          ///< found ones at the address of an earlier name
    std::uint64_t in_order = 0;        ///< length of the longest rising sequence of the others
    std::uint64_t in_reverse = 0;      ///< and of the longest falling one
    std::vector<missing_name> missing; ///< in the order's order
    std::array<std::uint64_t, missing_reasons.size()> missing_sums = {}; ///< by reason
    std::uint64_t gap_bytes = 0;      ///< from the lowest of them to the end of the highest, what belongs to no name
    std::optional<hole> largest_hole; ///< the longest run of such bytes, the lowest of equal ones
    std::uint64_t foreign = 0;        ///< functions that start among them and belong to no name
    std::uint64_t falls = 0;          ///< neighbours by address that stand the other way round in the order
    std::uint64_t kept_falls = 0;     ///< those that are neighbours, the same way round, in the baseline, too
    bool has_baseline = false;        ///< whether kept_falls is known
    std::uint64_t low = 0;            ///< where the lowest of them begins
    std::uint64_t high = 0;           ///< and where the last of them ends; 0 for none
    std::vector<extent> owned;        ///< what belongs to names of the order: merged, ascending

    /// The functions whose order counts.
    std::uint64_t counted() const { return found - folded; }
    /// Whether at least 95 % of them stand in order.
    bool stands() const { return 20 * in_order >= 19 * counted(); }
};

/// Looks for an order in a binary. `baseline`, which may be null, tells what linking without the order leaves as it was.
placement find_placement(const std::vector<std::string>& order, const function_table& binary,
                         const function_table* baseline);
