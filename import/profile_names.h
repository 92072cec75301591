// Where the name of a function comes from: from the names and addresses of a profile to functions that can be linked.
//
// Without a binary, names stand as they are, but for a version ("f@@V1") and the mark of a stub ("f@plt"). Those that look
// demangled are left out, since no linker knows them. With a binary only its own functions are kept. What a name stands for
// is asked in this order, and the first answer counts:
//
//     as it stands         f -> f, where the binary defines it
//     without additions    f.llvm.123 -> f.llvm.77, where only that one fits
//     demangled            shop::order(int) -> _ZN4shop5orderEi
//     by address           no name, at 0x1040 -> _start
//                          helper, defined in two sources, at 0x1530 -> the one that lies there
//
// A function of the binary goes by the first global one of its names, else by the first, whichever of them the profile has.
//
// A name goes before an address because a profile may be older than the binary. It is, when the build IDs differ, or when
// of the functions that have an address and a name which fits one function, more than 2 % and at least 3 lie elsewhere.
// That is known at the end of the profile; then addresses decide nothing. So a function that needs its address gets a
// number for the time being, a pending one, and final() tells at the end what it was.
//
// Memory is proportional to the distinct names of a profile and the kept functions.
#pragma once

#include "ORDWELL/call_profile.h"
#include "binary/function_table.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// What is known of the form of a profile's names.
enum class name_form {
    any,   ///< may be demangled, or be a profiler's word for a function without a name
    linker ///< the linker's own, even if it looks otherwise
};

class profile_names {
public:
    /// The number of a kept function, of a pending one, or one of the reasons why a function is not kept.
    using function = std::uint32_t;
    static constexpr function first_pending = 2147483648U;
    static constexpr function outside = 4294967291U;    ///< not in the binary, or not in the wanted object
    static constexpr function unknown = 4294967292U;    ///< the profiler had no symbol
    static constexpr function readable = 4294967293U;   ///< demangled, without a binary that could tell of what
    static constexpr function unholdable = 4294967294U; ///< no row of the CSV can hold the name
    static constexpr std::size_t reason_count = 4;
    static bool is_kept(function f) { return f < outside; }
    /// Whether the name alone did not tell what a function is.
    static bool depends_on_address(function f) { return is_pending(f) || f == unknown; }
    static bool is_pending(function f) { return f >= first_pending && f < outside; }

    /// With the functions of `binary`, or with any where it is null.
    explicit profile_names(const function_table* binary) : binary_(binary) { begin_profile(); }

    /// The binary, or null.
    const function_table* binary() const { return binary_; }
    /// The function of a name.
    function named(std::string_view name, name_form form) { return by_name(entries_[entry_of(name, form)]); }
    /// The function around a link-time address, which the profile calls `name`; empty: it has no name for it.
    function at(std::uint64_t address, std::string_view name, name_form form);
    /// A build ID of the binary that the profile was recorded with.
    void note_build_id(std::string_view build_id);

    /// Starts a profile, whose names and addresses are judged on their own.
    void begin_profile();
    /// Completes a profile and returns what the user should hear of its names. Throws `failure` for demangled ones.
    std::vector<std::string> end_profile(const std::string& profile);
    /// Whether the current profile has pending functions: no longer when it is complete.
    bool has_pending() const { return !is_complete_ && !pending_.empty(); }
    std::uint32_t pending_count() const { return static_cast<std::uint32_t>(pending_.size()); }
    /// What a number stands for: valid from end_profile() to the next begin_profile().
    function final(function f) const { return is_pending(f) ? pending_[f - first_pending].final : f; }

    std::uint32_t kept_count() const { return kept_.function_count(); }
    /// The name of a kept function that is not pending.
    std::string_view name(function f) const { return kept_.name(f); }
    /// How many names no row can hold.
    std::size_t unholdable_count() const { return unholdable_names_.size(); }

private:
    /// What is known of a name of the current profile.
    struct entry {
        function by_name;              ///< what it stands for where no address decides
        std::uint32_t fits = no_index; ///< place in fits_, where its address matters
        bool needs_address = false;    ///< fits functions of several names
        bool is_unused_guess =
            false; ///< demangled, fits functions of several names, and no function was taken for it yet
    };
    /// What a name fits, and whether the addresses that the profile has for it agree.
    struct name_fits {
        std::vector<const linked_function*> functions;
        bool is_compared = false;
        bool lies_elsewhere = false;
    };
    /// A function that needs its address.
    struct pending_function {
        const linked_function* lies_in;
        std::uint32_t entry; ///< of its name; no_index: it has none
        function final;
    };

    std::uint32_t entry_of(std::string_view name, name_form form);
    entry resolve(std::string_view name, name_form form);
    entry resolve_in_binary(std::string_view name);
    entry entry_for(std::vector<const linked_function*> fits, function otherwise);
    function by_name(entry& e) {
        guess_count_ += e.is_unused_guess ? 1 : 0;
        e.is_unused_guess = false;
        return e.by_name;
    }
    void compare(name_fits& fits, std::uint64_t address);
    function pending_at(const linked_function& lies_in, std::uint32_t number);
    function keep(std::string_view name);
    bool is_of_another_build() const;

    const function_table* binary_;
    call_profile kept_; ///< numbers the names of the CSV
    std::set<std::string, std::less<>> unholdable_names_;

    // Of the current profile:
    std::unique_ptr<call_profile> names_; ///< numbers the names as it has them
    std::vector<entry> entries_;          ///< by that number
    std::vector<name_fits> fits_;
    std::vector<pending_function> pending_;
    boost::unordered_flat_map<std::uint64_t, function> pending_numbers_; ///< by function of the binary, and entry
    std::uint64_t symbol_count_ = 0;                                     ///< names that are symbols
    std::uint64_t readable_count_ = 0;  ///< those that are demangled and not in a binary
    std::uint64_t guess_count_ = 0;     ///< those that fit several functions and were taken for one
    std::uint64_t compared_count_ = 0;  ///< names that fit one function and have an address
    std::uint64_t elsewhere_count_ = 0; ///< those that lie outside of it
    bool is_complete_ = false;
    bool has_equal_build_id_ = false;
    bool has_other_build_id_ = false;
};
