// The functions of a linked program, by name and by address.
//
// One address may have several names (aliases, folded copies), one name several addresses (static functions of one name
// in two sources). Some optimisations name their copies anew in each build, "f.llvm.123" or "f.lto_priv.0"; find() tells
// which of today's names an earlier build's was.
#pragma once

#include "binary/elf_file.h"

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class function_table {
public:
    /// Reads an executable or shared library. Throws `failure` for any other file and for a stripped one.
    explicit function_table(const std::string& path);
    function_table(const function_table&) = delete;
    function_table& operator=(const function_table&) = delete;

    /// All named symbols, in the order of the file's table.
    const std::vector<elf_symbol>& symbols() const { return symbols_; }
    /// The file's build ID in lower-case hexadecimal digits; empty when it has none.
    const std::string& build_id() const { return build_id_; }
    /// What of the file is loaded when it runs.
    const std::vector<elf_segment>& segments() const { return segments_; }
    bool is_64_bit() const { return is_64_bit_; }
    bool is_little_endian() const { return is_little_endian_; }

    /// The name of today's function that a profile calls `name`: the same where the file defines it, else the only one
    /// that differs from it in what link-time optimisation added. Empty when there is none.
    std::string_view find(std::string_view name) const;
    /// The name of the function at or around an address: `preferred` if that is one of its names, else the first global
    /// one, else the first. Empty when there is no function.
    std::string_view at(std::uint64_t address, std::string_view preferred = {}) const;
    /// Whether a name is what a demangler makes of one of the functions, with or without its argument list.
    bool is_demangled(std::string_view name) const;

private:
    void index_names() const;
    void index_addresses() const;

    std::deque<std::string> names_; ///< what symbols_ borrows from
    std::vector<elf_symbol> symbols_;
    std::string build_id_;
    std::vector<elf_segment> segments_;
    bool is_64_bit_ = false;
    bool is_little_endian_ = false;

    // Indexes, each made at the first question: not every user asks all.
    mutable std::vector<const elf_symbol*> by_address_;               ///< functions, ascending; several may share one
    mutable std::unordered_set<std::string_view> functions_;          ///< the names of functions
    mutable std::unordered_map<std::string, std::string_view> plain_; ///< by name without additions; empty: several
    mutable std::unordered_set<std::string> demangled_;
};

/// The readable form of a mangled C++ name; the name itself for any other.
std::string demangled(std::string_view name);
