#include "binary/elf_file.h"

#include "binary/thin_archive.h"
#include "support/failure.h"
#include "support/memory.h"

#include <ar.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Section types of clang's call graph profile: today's, and the one until LLVM 12. Since then entries are weights whose
// ends are named by relocations; before, they hold the symbols themselves.
// Source: LLVM's "Extensions", section "SHT_LLVM_CALL_GRAPH_PROFILE".
constexpr std::uint32_t call_graph_type = 0x6fff4c09;
constexpr std::uint32_t old_call_graph_type = 0x6fff4c02;

struct elf_closer {
    void operator()(Elf* elf) const { elf_end(elf); }
};
using elf_handle = std::unique_ptr<Elf, elf_closer>;

// Ends the process if what libelf could not give is so for want of memory: else symbols would go missing in silence.
void check_memory() {
    if (errno == ENOMEM) {
        out_of_memory();
    }
}

std::string libelf_error() {
    check_memory();
    const char* const text = elf_errmsg(-1);
    return text == nullptr ? "damaged" : text;
}

// What a section holds; null where it is damaged. Where libelf has no memory to turn bytes round or to align them, it yields
// data of no bytes, which looks like a section that is empty.
Elf_Data* data_of(Elf_Scn* section) {
    errno = 0;
    Elf_Data* const data = elf_getdata(section, nullptr);
    check_memory();
    return data;
}

constexpr int most_nested = 8; // thin archives in each other

void visit_file(const std::string& path, int depth, const std::function<void(const elf_object&)>& visit);

std::string_view raw_bytes(Elf* elf) {
    std::size_t size = 0;
    errno = 0;
    const char* const start = elf_rawfile(elf, &size);
    check_memory();
    return start == nullptr ? std::string_view() : std::string_view(start, size);
}

// What to do about a file that is no ELF file.
void expect_no_bitcode(std::string_view bytes, const std::string& label) {
    if (is_llvm_bitcode(bytes)) {
        throw failure(label,
                      "LLVM bitcode, not yet code: compile without -flto, or give the object that the linker makes "
                      "of it (lld: --save-temps)");
    }
}

// Ends with a message for an archive whose members go beyond the file, which libelf takes for a shorter one. Members begin at
// even places, behind headers.
void expect_whole_archive(Elf* elf, int file, std::uint64_t size, const std::string& label) {
    for (std::uint64_t at = SARMAG; at + 1 < size;) {
        struct ar_hdr header;
        std::uint64_t length = 0;
        bool is_there = size - at >= sizeof header;
        if (is_there && file >= 0) {
            is_there = pread(file, &header, sizeof header, static_cast<off_t>(at)) == sizeof header;
        } else if (is_there) {
            std::memcpy(&header, raw_bytes(elf).data() + at, sizeof header);
        }
        const char* const end = header.ar_size + sizeof header.ar_size;
        if (!is_there || std::from_chars(header.ar_size, end, length).ec != std::errc() ||
            length > size - at - sizeof header) {
            throw failure(label, "a damaged archive: cut off, or not written to its end");
        }
        at += sizeof header + length + length % 2;
    }
}

// `size`: of the file, in bytes.
void visit_members(Elf* elf, int file, std::uint64_t size, const std::string& label, int depth,
                   const std::function<void(const elf_object&)>& visit) {
    switch (elf_kind(elf)) {
    case ELF_K_ELF:
        visit(elf_object(elf, label, size));
        return;
    case ELF_K_AR:
        expect_whole_archive(elf, file, size, label);
        break;
    default: {
        const std::string_view bytes = raw_bytes(elf);
        if (is_thin_archive(bytes) && depth < most_nested) {
            for (const std::string& member : thin_archive_files(bytes, label)) {
                visit_file(member, depth + 1, visit);
            }
            return;
        }
        expect_no_bitcode(bytes, label);
        throw failure(label, bytes.empty() ? "an empty file"
                             : bytes.starts_with("#!")
                                 ? "a script: give the program that it starts (libtool: .libs/NAME)"
                                 : "neither an ELF file nor an archive");
    }
    }
    for (Elf_Cmd command = ELF_C_READ_MMAP; command != ELF_C_NULL;) {
        const elf_handle member(elf_begin(file, command, elf));
        if (member == nullptr) {
            check_memory();
            return;
        }
        const Elf_Arhdr* const header = elf_getarhdr(member.get());
        if (header == nullptr) {
            check_memory();
        }
        const std::string name = header == nullptr || header->ar_name == nullptr ? "?" : header->ar_name;
        const std::string member_label = label + "(" + name + ")";
        if (elf_kind(member.get()) == ELF_K_ELF) {
            visit(elf_object(member.get(), member_label, size - static_cast<std::uint64_t>(elf_getbase(member.get()))));
        } else {
            expect_no_bitcode(raw_bytes(member.get()), member_label);
        }
        command = elf_next(member.get());
    }
}

void visit_file(const std::string& path, int depth, const std::function<void(const elf_object&)>& visit) {
    elf_version(EV_CURRENT);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw failure(path, std::strerror(errno));
    }
    const std::unique_ptr<const int, void (*)(const int*)> closer(&file,
                                                                  [](const int* open_file) { close(*open_file); });
    struct stat properties {};
    if (fstat(file, &properties) != 0 || !S_ISREG(properties.st_mode)) {
        throw failure(path,
                      S_ISDIR(properties.st_mode) ? std::strerror(EISDIR) : "not a regular file, which it has to be");
    }
    elf_handle elf(elf_begin(file, ELF_C_READ, nullptr));
    if (elf != nullptr && elf_kind(elf.get()) == ELF_K_AR) {
        elf.reset(elf_begin(file, ELF_C_READ_MMAP, nullptr)); // otherwise libelf never frees its table of long names
    }
    if (elf == nullptr) {
        throw failure(path, "cannot be read: " + libelf_error());
    }
    visit_members(elf.get(), file, static_cast<std::uint64_t>(properties.st_size), path, depth, visit);
}

// Whether a file of `size` bytes is long enough for the sections that its header tells of. Their table stands at the end of
// most files, and libelf takes one that is not there for an empty one.
bool has_sections(Elf* elf, const GElf_Ehdr& header, std::uint64_t size) {
    std::size_t count = 0;
    if (header.e_shoff == 0) {
        return true;
    }
    if (elf_getshdrnum(elf, &count) != 0 || count == 0) {
        check_memory();
        return false;
    }
    return header.e_shoff <= size && header.e_shentsize != 0 && (size - header.e_shoff) / header.e_shentsize >= count;
}

} // namespace

elf_object::elf_object(Elf* elf, std::string label, std::uint64_t size) : elf_(elf), label_(std::move(label)) {
    GElf_Ehdr header;
    if (gelf_getehdr(elf_, &header) == nullptr || elf_getshdrstrndx(elf_, &section_names_) != 0) {
        throw failure(label_, "not a usable ELF file: " + libelf_error());
    }
    if (!has_sections(elf_, header, size)) {
        throw failure(label_, "a damaged ELF file: cut off, or not written to its end");
    }
    is_64_bit_ = gelf_getclass(elf_) == ELFCLASS64;
    is_little_endian_ = header.e_ident[EI_DATA] == ELFDATA2LSB;
    is_arm_ = header.e_machine == EM_ARM;
    purpose_ = header.e_type == ET_EXEC || header.e_type == ET_DYN ? elf_purpose::program
               : header.e_type == ET_REL                           ? elf_purpose::object
               : header.e_type == ET_CORE                          ? elf_purpose::core
                                                                   : elf_purpose::other;
    errno = 0;
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_, section)) != nullptr;) {
        GElf_Shdr properties;
        if (gelf_getshdr(section, &properties) != nullptr && properties.sh_type == SHT_SYMTAB) {
            symbol_section_ = section;
        }
    }
    check_memory();
}

std::vector<elf_symbol> elf_object::symbols() const {
    std::vector<elf_symbol> symbols;
    if (symbol_section_ == nullptr) {
        return symbols;
    }
    GElf_Shdr table;
    Elf_Data* const data = data_of(symbol_section_);
    if (gelf_getshdr(symbol_section_, &table) == nullptr || data == nullptr || table.sh_entsize == 0) {
        throw failure(label_, "damaged symbol table: " + libelf_error());
    }
    // Files of more than 65,279 sections have their symbols' section numbers in a table of its own.
    Elf_Data* long_numbers = nullptr;
    if (const int section = elf_scnshndx(symbol_section_); section > 0) {
        long_numbers = data_of(elf_getscn(elf_, static_cast<std::size_t>(section)));
    }
    const std::size_t count = data->d_size / table.sh_entsize;
    symbols.reserve(count);
    for (std::size_t i = 1; i < count; ++i) {
        GElf_Sym entry;
        Elf32_Word section = 0;
        if (gelf_getsymshndx(data, long_numbers, static_cast<int>(i), &entry, &section) == nullptr) {
            throw failure(label_, "damaged symbol table: " + libelf_error());
        }
        const char* const text = elf_strptr(elf_, table.sh_link, entry.st_name);
        if (text == nullptr) {
            throw failure(label_, "damaged symbol table: " + libelf_error());
        }
        std::string_view name(text);
        name = name.substr(0, name.find('@', 1)); // "f@@V1"; a name may begin with "@"
        if (name.empty()) {
            continue;
        }
        const bool is_function =
            GELF_ST_TYPE(entry.st_info) == STT_FUNC || GELF_ST_TYPE(entry.st_info) == STT_GNU_IFUNC;
        const symbol_kind kind = entry.st_shndx == SHN_UNDEF ? symbol_kind::undefined
                                 : is_function               ? symbol_kind::function
                                                             : symbol_kind::other;
        const std::uint64_t thumb_bit = is_arm_ && is_function ? entry.st_value & 1U : 0; // marks the instruction set
        if (entry.st_shndx != SHN_XINDEX) {
            section = entry.st_shndx < SHN_LORESERVE ? entry.st_shndx : 0;
        }
        symbols.push_back(
            {name, entry.st_value - thumb_bit, entry.st_size, section, kind, GELF_ST_BIND(entry.st_info) != STB_LOCAL});
    }
    return symbols;
}

std::string elf_object::build_id() const {
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_, section)) != nullptr;) {
        GElf_Shdr properties;
        Elf_Data* notes = nullptr;
        if (gelf_getshdr(section, &properties) == nullptr || properties.sh_type != SHT_NOTE ||
            (notes = data_of(section)) == nullptr || notes->d_buf == nullptr) {
            check_memory();
            continue;
        }
        GElf_Nhdr note;
        std::size_t name = 0;
        std::size_t content = 0;
        for (std::size_t at = 0; (at = gelf_getnote(notes, at, &note, &name, &content)) != 0;) {
            const std::string_view bytes(static_cast<const char*>(notes->d_buf), notes->d_size);
            if (note.n_type != NT_GNU_BUILD_ID || bytes.substr(name, note.n_namesz) != std::string_view("GNU\0", 4)) {
                continue;
            }
            std::string digits;
            for (const char byte : bytes.substr(content, note.n_descsz)) {
                const auto value = static_cast<unsigned char>(byte);
                digits += "0123456789abcdef"[value >> 4U];
                digits += "0123456789abcdef"[value & 15U];
            }
            return digits;
        }
    }
    return {};
}

std::vector<elf_segment> elf_object::segments() const {
    std::vector<elf_segment> segments;
    std::size_t count = 0;
    errno = 0;
    if (elf_getphdrnum(elf_, &count) != 0) {
        check_memory();
        return segments;
    }
    for (std::size_t i = 0; i < count && i <= INT32_MAX; ++i) {
        GElf_Phdr properties;
        if (gelf_getphdr(elf_, static_cast<int>(i), &properties) != nullptr && properties.p_type == PT_LOAD) {
            segments.push_back({properties.p_vaddr, properties.p_filesz, properties.p_offset});
        }
    }
    check_memory();
    return segments;
}

std::string_view elf_object::section_name(std::uint32_t section) const {
    GElf_Shdr properties;
    if (section == 0 || gelf_getshdr(elf_getscn(elf_, section), &properties) == nullptr) {
        return {};
    }
    const char* const name = elf_strptr(elf_, section_names_, properties.sh_name);
    if (name == nullptr) {
        check_memory();
    }
    return name == nullptr ? std::string_view() : name;
}

// The name of a symbol by its index in the table, with its version.
std::string_view elf_object::symbol_name(std::size_t index) const {
    GElf_Shdr table;
    GElf_Sym entry;
    Elf_Data* const data = symbol_section_ == nullptr ? nullptr : data_of(symbol_section_);
    const char* name = nullptr;
    if (data != nullptr && index <= INT32_MAX && gelf_getshdr(symbol_section_, &table) != nullptr &&
        gelf_getsym(data, static_cast<int>(index), &entry) != nullptr) {
        name = elf_strptr(elf_, table.sh_link, entry.st_name);
    }
    if (name == nullptr) {
        throw failure(label_, "damaged call graph profile: no symbol " + std::to_string(index));
    }
    return name;
}

std::vector<elf_call> elf_object::call_graph_profile() const {
    struct old_entry {
        std::uint32_t caller;
        std::uint32_t callee;
        std::uint64_t count;
    };
    std::vector<elf_call> calls;
    for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_, section)) != nullptr;) {
        GElf_Shdr properties;
        if (gelf_getshdr(section, &properties) == nullptr ||
            (properties.sh_type != call_graph_type && properties.sh_type != old_call_graph_type)) {
            continue;
        }
        const bool is_old = properties.sh_entsize == sizeof(old_entry);
        // libelf does not know the type, so it leaves the bytes as they are.
        Elf_Data* const data = elf_rawdata(section, nullptr);
        if (data == nullptr) {
            throw failure(label_, "damaged call graph profile: " + libelf_error());
        }
        const auto* const bytes = static_cast<const unsigned char*>(data->d_buf);
        const auto number = [&](std::size_t at, std::size_t size) {
            std::uint64_t value = 0;
            for (std::size_t i = 0; i < size; ++i) {
                value = value << 8U | bytes[is_little_endian_ ? at + size - 1 - i : at + i];
            }
            return value;
        };
        if (is_old) {
            for (std::size_t at = 0; at + sizeof(old_entry) <= data->d_size; at += sizeof(old_entry)) {
                calls.push_back({symbol_name(number(at, 4)), symbol_name(number(at + 4, 4)), number(at + 8, 8)});
            }
            continue;
        }
        const std::size_t own_index = elf_ndxscn(section);
        for (Elf_Scn* other = nullptr; (other = elf_nextscn(elf_, other)) != nullptr;) {
            GElf_Shdr relocations;
            if (gelf_getshdr(other, &relocations) == nullptr || relocations.sh_info != own_index ||
                (relocations.sh_type != SHT_REL && relocations.sh_type != SHT_RELA)) {
                continue;
            }
            Elf_Data* const entries = data_of(other);
            const auto symbol_of = [&](std::size_t index) {
                GElf_Rela with_addend;
                GElf_Rel without;
                if (relocations.sh_type == SHT_RELA && index <= INT32_MAX &&
                    gelf_getrela(entries, static_cast<int>(index), &with_addend) != nullptr) {
                    return symbol_name(GELF_R_SYM(with_addend.r_info));
                }
                if (relocations.sh_type == SHT_REL && index <= INT32_MAX &&
                    gelf_getrel(entries, static_cast<int>(index), &without) != nullptr) {
                    return symbol_name(GELF_R_SYM(without.r_info));
                }
                throw failure(label_, "damaged call graph profile: a call without its two functions");
            };
            for (std::size_t i = 0; (i + 1) * 8 <= data->d_size; ++i) {
                calls.push_back({symbol_of(2 * i), symbol_of(2 * i + 1), number(8 * i, 8)});
            }
        }
    }
    return calls;
}

bool is_llvm_bitcode(std::string_view bytes) {
    return bytes.starts_with("BC\xc0\xde") || bytes.starts_with("\xde\xc0\x17\x0b"); // the latter with a header
}

void visit_elf_objects(const std::string& path, const std::function<void(const elf_object&)>& visit) {
    visit_file(path, 0, visit);
}

void visit_elf_objects(std::string& bytes, const std::string& label,
                       const std::function<void(const elf_object&)>& visit) {
    elf_version(EV_CURRENT);
    const elf_handle elf(elf_memory(bytes.data(), bytes.size()));
    if (elf == nullptr) {
        throw failure(label, "cannot be read: " + libelf_error());
    }
    visit_members(elf.get(), -1, bytes.size(), label, 0, visit);
}
