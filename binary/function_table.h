// The functions of a linked program, by name and by address.
//
// One address may have several names (aliases, folded copies), one name several addresses (static functions of one name
// in two sources). A function is what lies at one address, and it goes by one of its names: the first global one, else the
// first.
//
// A profiler may know a name in another form than the file: demangled ("f(int)" for _Z1fi), or from another build, since
// some optimisations name their copies anew in each one ("f.llvm.123", "f.lto_priv.0"). find() takes each form.
#pragma once

#include "binary/elf_file.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A function of the program: what begins at one address, whatever its names.
struct linked_function {
    std::uint64_t address;
    std::uint64_t size;    ///< in bytes, of its largest symbol; 0 where it is not known
    std::string_view name; ///< of its names the first global one, else the first; borrowed from the table
};

/// A form in which a profiler may know a name.
enum class known_form {
    as_it_stands,      ///< as the file has it
    without_additions, ///< but for what link-time optimisation added, in the file or in the profile
    demangled          ///< readable, with or without parameters
};

class function_table {
public:
    /// Reads an executable or shared library. Throws `failure` for any other file and for a stripped one.
    explicit function_table(const std::string& path);
    function_table(const function_table&) = delete;
    function_table& operator=(const function_table&) = delete;

    /// The path as given.
    const std::string& path() const { return path_; }
    /// All named symbols, in the order of the file's table.
    const std::vector<elf_symbol>& symbols() const { return symbols_; }
    /// The file's build ID in lower-case hexadecimal digits; empty when it has none.
    const std::string& build_id() const { return build_id_; }
    /// What of the file is loaded when it runs.
    const std::vector<elf_segment>& segments() const { return segments_; }
    /// The link-time address of a byte of the file; none for one that is not loaded.
    std::optional<std::uint64_t> address_of_byte(std::uint64_t offset) const;
    bool is_64_bit() const { return is_64_bit_; }
    bool is_little_endian() const { return is_little_endian_; }

    /// All functions, by ascending address.
    const std::vector<linked_function>& functions() const;
    /// The last function that begins at or before an address; null when there is none.
    const linked_function* nearest(std::uint64_t address) const;
    /// The function at or around an address; null when there is none.
    const linked_function* at(std::uint64_t address) const;
    /// The functions that a name in some form fits: the lowest first, but demangled names' before their clones (".part.0").
    std::vector<const linked_function*> find(std::string_view name, known_form form) const;

private:
    /// Symbols of functions by a form of their names.
    struct name_entry {
        std::size_t hash; ///< of the form
        std::uint32_t symbol;
    };
    using name_index = std::vector<name_entry>; ///< ascending by hash

    void visit_forms(const elf_symbol& symbol, known_form form, const auto& visit) const;
    const name_index& index_of(known_form form) const;

    std::string path_;
    std::deque<std::string> names_; ///< what symbols_ borrows from
    std::vector<elf_symbol> symbols_;
    std::string build_id_;
    std::vector<elf_segment> segments_;
    bool is_64_bit_ = false;
    bool is_little_endian_ = false;

    // Each made at the first question: not every user asks all.
    mutable std::vector<linked_function> functions_;
    mutable std::array<std::optional<name_index>, 3> indexes_; ///< by known_form
};
