// Names and counts on their way from profiles to the CSV.
//
// A format hands over functions as its profile knows them and gets a number for each; then it enters calls between the
// numbers. On the way a name becomes that of a function that can be linked: versions, stubs and recursion marks are taken
// off, and with a binary only its own functions are kept, under the names that it has for them. What is not kept gets one
// of three numbers that say why, and its calls are counted as left out. But a function whose every call is left out was
// executed all the same and belongs into the order: it gets a row to itself.
//
//     main -> f 10   f -> puts 3   libc's qsort -> cmp 5       with a binary that defines main, f and cmp
//
//     "caller","callee","weight"
//     main,f,10
//     cmp,cmp,5
//
// Counts are sums of 64 bits, saturating; the CSV holds 32. When one is larger, all are divided by the same power of two.
// Memory is proportional to the distinct functions and pairs.
#pragma once

#include "ORDWELL/call_profile.h"
#include "binary/function_table.h"
#include "support/huge_pages.h"
#include "support/output_file.h"

#include <array>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// The last part of a path.
std::string_view base_name(std::string_view path);

/// What is known of the form of a profile's names.
enum class name_form {
    any,   ///< may be demangled
    linker ///< the linker's own, even if it looks demangled
};

class call_table {
public:
    /// The number of a kept function, or one of the three reasons why a function is not kept.
    using function = std::uint32_t;
    static constexpr function outside = 4294967292U;    ///< not in the binary, or not in the wanted object
    static constexpr function unknown = 4294967293U;    ///< the profiler had no symbol
    static constexpr function unholdable = 4294967294U; ///< no row of the CSV can hold the name
    static bool is_kept(function f) { return f < outside; }

    /// What became of the calls.
    struct summary {
        std::uint64_t functions = 0;                   ///< in rows
        std::uint64_t calls = 0;                       ///< between two of them, before they are divided
        std::array<std::uint64_t, 3> left_out_calls{}; ///< by reason: outside, unknown, unholdable
        std::uint64_t unholdable_names = 0;
        unsigned int divisor_bits = 0; ///< counts were divided by 2 to the power of this
    };

    /// Keeps the functions of `binary`, unless it is null, and of the wanted object, named by `objects`: base names, one of
    /// which has to fit; none for any object.
    call_table(const function_table* binary, std::vector<std::string> objects);

    // For the formats.

    /// The binary, or null.
    const function_table* binary() const { return binary_; }
    /// Whether an object that the profile names, by its path, is the wanted one.
    bool is_wanted_object(std::string_view object);
    /// A function of the wanted object by its name in the profile.
    function named(std::string_view name, name_form form = name_form::any);
    /// A function of the wanted object by a link-time address in it and its name in the profile, empty where it has none.
    function at(std::uint64_t address, std::string_view name, name_form form = name_form::any);
    /// Tells the build ID of the wanted object, in lower-case hexadecimal digits, that the profile was recorded with.
    void note_build_id(std::string_view build_id);
    /// Notes a line for the user, which is no reason to fail.
    void tell(std::string text) { told_.push_back(std::move(text)); }
    /// Adds calls. Where only one of the functions is kept, it was executed.
    void add_call(function caller, function callee, std::uint64_t count);
    /// Notes that a function was executed, `count` times as far as is known.
    void add_run(function f, std::uint64_t count);
    /// Adds the innermost call of a call chain. `next(f)` gives the functions, the innermost first, until it returns false.
    template <typename Next>
    void add_chain(std::uint64_t count, Next next) {
        function callee = unknown;
        function caller = unknown;
        if (!next(callee)) {
            return;
        }
        if (!next(caller)) {
            add_run(callee, count);
            return;
        }
        add_call(caller, callee, count);
        if (caller == callee) {
            add_run(callee, count);
        }
        if (!is_kept(callee) && !is_kept(caller)) {
            while (!is_kept(caller) && next(caller)) { // who had them do the work
            }
            add_run(caller, count);
        }
    }

    // For the driver.

    /// Starts a profile, whose names are judged on their own.
    void begin_profile();
    /// Completes a profile. Throws `failure` when its names, as those of `profile`, are demangled.
    void end_profile(const std::string& profile);
    /// Whether there is nothing to write but the header.
    bool is_empty() const;
    /// What will be written and what not.
    summary summarise() const;
    /// A row of the CSV, whose count is not divided yet; a function that calls itself was only executed.
    struct row {
        function caller;
        function callee;
        std::uint64_t count;
    };
    /// Calls `visit(row)` for each row, in the order of the CSV.
    template <typename Visit>
    void visit_rows(Visit visit) const {
        for (const pair& p : pairs_) {
            if (is_row(p)) {
                visit(row{p.caller, p.callee, p.count});
            }
        }
    }
    /// The name in the CSV of a function of a row, or of one that named() or at() gave since begin_profile(), once
    /// end_profile() was called; empty when it is not kept.
    std::string_view name_of(function f) const { return is_kept(f) ? kept_names_.name(f) : std::string_view(); }
    /// What the user should hear of.
    const std::vector<std::string>& told() const { return told_; }
    /// Writes the CSV.
    void write(output_file& out) const;
    /// Some of the objects that were not the wanted one.
    const std::vector<std::string>& other_objects() const { return other_objects_; }

private:
    struct pair {
        function caller;
        function callee; ///< the caller itself: executions
        std::uint64_t count;
    };
    struct kept_function {
        bool has_call = false;     ///< is in a row with another function
        bool was_executed = false; ///< beyond calls to itself
    };

    bool is_row(const pair& p) const;
    function resolve(std::string_view name);
    function keep(std::string_view name);
    void add_pair(function caller, function callee, std::uint64_t count);
    void enter_pending_pairs();

    const function_table* binary_;
    std::vector<std::string> objects_;
    std::string last_object_; ///< the last that was asked for, and the answer
    bool is_last_wanted_ = true;
    std::vector<std::string> other_objects_;
    std::vector<std::string> told_;

    call_profile kept_names_;              ///< numbers the names of the CSV
    std::vector<kept_function> functions_; ///< by their numbers
    huge_vector<pair> pairs_;              ///< in order of first appearance
    hash_index pair_index_;                ///< from caller and callee to pairs_
    std::array<pair, 16> pending_;         ///< pairs whose slots of the index are on their way into the cache
    std::size_t pending_count_ = 0;        ///< of the current profile
    std::array<std::uint64_t, 3> left_out_calls_{};
    std::set<std::string, std::less<>> unholdable_names_;

    std::unique_ptr<call_profile> profile_names_; ///< numbers the names of the current profile as it has them
    std::vector<function> resolved_;              ///< what they stand for
    std::uint64_t symbol_count_ = 0;              ///< names of the current profile that are symbols
    std::uint64_t demangled_count_ = 0;           ///< those that look demangled and are not in the binary
};
