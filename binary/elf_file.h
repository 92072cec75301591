// ELF files as far as the order of functions is concerned: symbols with their sections, in executables, shared libraries,
// object files and archives, of 32 and 64 bits and both byte orders. Read with libelf.
//
// Format: "System V Application Binary Interface", chapters 4 and 5; archives as ar(5) describes them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

using Elf = struct Elf;
using Elf_Scn = struct Elf_Scn;

/// What a symbol stands for.
enum class symbol_kind {
    function,  ///< code that this file defines
    other,     ///< anything else that it defines: data, a section, a source file
    undefined, ///< something that another file defines
};

/// A symbol. A version behind "@" is no part of its name.
struct elf_symbol {
    std::string_view name; ///< borrowed from the object
    std::uint64_t address; ///< of a function's first byte; in object files counted from the start of the section
    std::uint64_t size;    ///< in bytes; 0 where it is not known
    std::uint32_t section; ///< index of the defining section; 0 for none
    symbol_kind kind;
    bool is_global; ///< visible to other files: global or weak
};

/// What an ELF file is for.
enum class elf_purpose {
    program, ///< an executable or a shared library, or the debug information of one
    object,  ///< to be linked
    core,    ///< the memory of a program that crashed
    other,
};

/// A stretch of the file that lies in memory while the program runs.
struct elf_segment {
    std::uint64_t address;    ///< of its first byte
    std::uint64_t size;       ///< bytes that come from the file
    std::uint64_t offset = 0; ///< of its first byte in the file
};

/// Calls between two functions as a compiler wrote them into an object file.
struct elf_call {
    std::string_view caller; ///< borrowed from the object
    std::string_view callee; ///< borrowed from the object
    std::uint64_t count;
};

/// An open ELF file or archive member.
class elf_object {
public:
    /// Looks at an open ELF descriptor, which stays the caller's. `label` is its name in messages, `size`
    /// how many bytes the file has from its beginning on. Throws `failure` for one that is damaged or cut off.
    elf_object(Elf* elf, std::string label, std::uint64_t size);

    const std::string& label() const { return label_; }
    bool is_64_bit() const { return is_64_bit_; }
    bool is_little_endian() const { return is_little_endian_; }
    elf_purpose purpose() const { return purpose_; }

    /// The build ID that the linker wrote, in lower-case hexadecimal digits; empty when there is none.
    std::string build_id() const;
    /// What is loaded, in the order of the file.
    std::vector<elf_segment> segments() const;

    /// Whether it has a symbol table; stripped files have at most that of the dynamic linker.
    bool has_symbol_table() const { return symbol_section_ != nullptr; }
    /// The symbols that have a name, in the order of the table; none without a symbol table. Throws `failure` for a
    /// damaged table.
    std::vector<elf_symbol> symbols() const;
    /// The name of a section; empty when there is none of that index.
    std::string_view section_name(std::uint32_t section) const;
    /// clang's call graph profile, in file order; usually none. Throws `failure` for a damaged one.
    std::vector<elf_call> call_graph_profile() const;

private:
    std::string_view symbol_name(std::size_t index) const;

    Elf* elf_;
    std::string label_;
    bool is_64_bit_ = false;
    bool is_little_endian_ = false;
    bool is_arm_ = false;
    elf_purpose purpose_ = elf_purpose::other;
    std::size_t section_names_ = 0;     ///< index of the section with the names of sections
    Elf_Scn* symbol_section_ = nullptr; ///< null: stripped
};

/// Whether a file that begins like this is code for LLVM's optimiser, which clang -flto writes as object files.
bool is_llvm_bitcode(std::string_view bytes);

/// Visits an ELF file, or every ELF member of an archive, also of a thin one. Throws `failure` for a file that cannot be read,
/// is cut off, or is neither.
void visit_elf_objects(const std::string& path, const std::function<void(const elf_object&)>& visit);

/// The same for a file whose bytes are in memory; they must not be constant, since libelf may turn them to this machine's
/// byte order.
void visit_elf_objects(std::string& bytes, const std::string& label,
                       const std::function<void(const elf_object&)>& visit);
