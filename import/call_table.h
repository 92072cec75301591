// Names and counts on their way from profiles to the CSV.
//
// A format hands over functions as its profile knows them and gets a number for each; then it enters calls between the
// numbers. On the way a name becomes that of a function that can be linked (import/profile_names.h). What is not kept gets
// one of four numbers that say why, and its calls are counted as left out. But a function whose every call is left out was
// executed all the same and belongs into the order: it gets a row to itself.
//
//     main -> f 10   f -> puts 3   libc's qsort -> cmp 5       with a binary that defines main, f and cmp
//
//     "caller","callee","weight"
//     main,f,10
//     cmp,cmp,5
//
// Of a call chain only the innermost call counts: samples are taken at regular times, so outer frames do not say that they
// called again. They say that they ran, which is worth a row where no other has them: main of the chain main, f, g.
//
// What some functions are is known at the end of their profile only, the pending ones of import/profile_names.h. From the
// first of them on, the profile's pairs go to a table of their own, which is added to the common one at the end.
//
// Counts are sums of 64 bits, saturating; the CSV holds 32. When one is larger, all are divided by the same power of two.
// Memory is proportional to the distinct functions and pairs.
#pragma once

#include "import/pair_table.h"
#include "import/profile_names.h"
#include "support/output_file.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// The last part of a path.
std::string_view base_name(std::string_view path);

class call_table {
public:
    /// The number of a function, or one of the reasons why it is not kept.
    using function = profile_names::function;
    static constexpr function outside = profile_names::outside; ///< not in the binary, or not in the wanted object
    static constexpr function unknown = profile_names::unknown; ///< the profiler had no symbol

    /// What became of the calls.
    struct summary {
        std::uint64_t functions = 0; ///< in rows
        std::uint64_t calls = 0;     ///< between two of them, before they are divided
        std::array<std::uint64_t, profile_names::reason_count> left_out_calls{}; ///< by reason, from `outside` on
        std::uint64_t unholdable_names = 0;
        unsigned int divisor_bits = 0; ///< counts were divided by 2 to the power of this
    };

    /// Keeps the functions of `binary`, unless it is null, and of the wanted object, named by `objects`: base names, one of
    /// which has to fit; none for any object.
    call_table(const function_table* binary, std::vector<std::string> objects);

    // For the formats.

    /// The binary, or null.
    const function_table* binary() const { return names_.binary(); }
    /// Whether an object that the profile names, by its path, is the wanted one.
    bool is_wanted_object(std::string_view object);
    /// A function of the wanted object by its name in the profile.
    function named(std::string_view name, name_form form = name_form::any) { return names_.named(name, form); }
    /// A function of the wanted object by a link-time address in it and its name in the profile, empty where it has none.
    function at(std::uint64_t address, std::string_view name, name_form form = name_form::any) {
        return names_.at(address, name, form);
    }
    /// A build ID of the wanted object, in lower-case hexadecimal digits, that the profile was recorded with.
    void note_build_id(std::string_view build_id) { names_.note_build_id(build_id); }
    /// Notes a line for the user, which is no reason to fail.
    void tell(std::string text) { told_.push_back(std::move(text)); }
    /// Whether the order of first execution is wanted.
    bool keeps_first_run() const { return keeps_first_run_; }
    /// Notes that a function was executed, behind all that were noted before; the first time counts.
    void note_first_run(function f);
    /// Adds calls. Where only one of the functions is kept, it was executed.
    void add_call(function caller, function callee, std::uint64_t count);
    /// Notes that a function was executed, `count` times as far as is known.
    void add_run(function f, std::uint64_t count);
    /// Adds a call chain that was seen `count` times: its innermost call, and that the others ran, each once. `next(f)` gives
    /// the functions, the innermost first, until it returns false.
    template <typename Next>
    void add_chain(std::uint64_t count, Next next) {
        function callee = unknown;
        function caller = unknown;
        if (count == 0 || !next(callee)) {
            return;
        }
        begin_chain();
        is_new_in_chain(callee);
        if (!next(caller)) {
            add_run(callee, count);
            return;
        }
        add_call(caller, callee, count);
        is_new_in_chain(caller);
        if (caller == callee) {
            add_run(callee, count);
        }
        for (function outer = unknown; next(outer);) {
            if (is_new_in_chain(outer)) {
                add_run(outer, count);
            }
        }
    }
    /// Notes what to say should nothing be kept at all.
    void note_why_empty(std::string text) { why_empty_ = std::move(text); }

    // For the driver.

    /// Keeps the order of first execution, from all profiles that follow.
    void keep_first_run() { keeps_first_run_ = true; }
    /// Starts a profile, whose names are judged on their own.
    void begin_profile();
    /// Completes a profile. Throws `failure` when its names are demangled and nothing tells what they stand for.
    void end_profile(const std::string& profile);
    /// Whether there is nothing to write but the header.
    bool is_empty() const;
    /// What to say of an empty result; empty: that is not known.
    const std::string& why_empty() const { return why_empty_; }
    /// What will be written and what not.
    summary summarise() const;
    using row = counted_pair;
    /// Calls visit(row) for each row, in the order of the CSV, with the count before it is divided. A row of a function with
    /// itself says that it was executed.
    template <typename Visit>
    void visit_rows(Visit visit) const {
        const std::vector<bool> has_call = functions_with_calls();
        for (const counted_pair& p : pairs_.pairs()) {
            if (p.caller != p.callee || !has_call[p.caller]) {
                visit(p);
            }
        }
    }
    /// The name in the CSV of a function of a row, or of one that named() or at() gave for the last profile, once
    /// end_profile() was called; empty when it is not kept.
    std::string_view name_of(function f) const {
        const function known = names_.final(f);
        return profile_names::is_kept(known) ? names_.name(known) : std::string_view();
    }
    /// What the user should hear of.
    const std::vector<std::string>& told() const { return told_; }
    /// Writes the CSV.
    void write(output_file& out) const;
    /// Writes an order file of the functions in the order of first execution: the first profile's, then what only the next
    /// ones have.
    void write_first_run(output_file& out) const;
    /// Whether functions of different objects were taken, as no one was wanted.
    bool has_several_objects() const { return has_several_objects_; }
    /// Some of the objects that were not the wanted one.
    const std::vector<std::string>& other_objects() const { return other_objects_; }

private:
    std::vector<bool> functions_with_calls() const;
    /// Where pairs of the current profile go.
    pair_table& current_pairs() { return names_.has_pending() ? pending_pairs_ : pairs_; }
    void begin_chain();
    bool is_new_in_chain(function f);
    void settle_pending_pairs();
    void settle_first_run();

    profile_names names_;
    std::vector<std::string> objects_;
    std::string last_object_; ///< the last that was asked for, and the answer
    bool is_last_wanted_ = true;
    bool has_several_objects_ = false;
    std::vector<std::string> other_objects_;
    std::vector<std::string> told_;
    std::string why_empty_;

    pair_table pairs_;         ///< between kept functions
    pair_table pending_pairs_; ///< of the current profile, once it has pending functions
    std::array<std::uint64_t, profile_names::reason_count> left_out_calls_{};

    bool keeps_first_run_ = false;
    std::vector<function> noted_run_;           ///< in order: of the current profile, may be pending
    std::array<std::vector<bool>, 2> is_noted_; ///< by number: of kept, of pending ones
    std::vector<function> first_run_;           ///< of all complete profiles
    std::vector<bool> has_run_;                 ///< by number

    std::uint32_t chain_ = 0;                              ///< the current chain's number
    std::array<std::vector<std::uint32_t>, 2> last_chain_; ///< in which a function stood: of kept, of pending ones
};
