#include "export/sections.h"

#include "binary/elf_file.h"
#include "binary/object_list.h"
#include "support/failure.h"

#include <algorithm>

#define HAVE_DECL_BASENAME 1 // else libiberty declares it against the C library
#include <libiberty/demangle.h>

namespace {

constexpr std::string_view cold_prefix = ".text.unlikely.";
constexpr std::string_view prefixes[] = {".text.", ".text.hot.", cold_prefix, ".text.startup.", ".text.exit."};

// Whether a section holds whatever functions its source has.
bool is_shared(std::string_view section) {
    return section == ".text" || std::any_of(std::begin(prefixes), std::end(prefixes), [&](std::string_view prefix) {
               return prefix.size() > sizeof ".text." && section == prefix.substr(0, prefix.size() - 1);
           });
}

// The base-object variant of a complete-object constructor or destructor, in whose section both lie: "C1" becomes "C2",
// and "D1" becomes "D2", where it stands for the kind and is no part of a name. Empty for any other symbol.
// Source of the names: Itanium C++ ABI, section 5.1.4.3.
std::string base_variant(std::string_view function) {
    constexpr std::size_t longest = 16384; // bytes; the demangler needs room on the stack in proportion
    std::string name(function);
    if (!name.starts_with("_Z") || name.size() > longest ||
        (is_gnu_v3_mangled_ctor(name.c_str()) != gnu_v3_complete_object_ctor &&
         is_gnu_v3_mangled_dtor(name.c_str()) != gnu_v3_complete_object_dtor)) {
        return {};
    }
    for (std::size_t at = 0; (at = name.find('1', at)) != std::string::npos; ++at) {
        name[at] = '2';
        if (is_gnu_v3_mangled_ctor(name.c_str()) == gnu_v3_base_object_ctor ||
            is_gnu_v3_mangled_dtor(name.c_str()) == gnu_v3_base_object_dtor) {
            return name;
        }
        name[at] = '1';
    }
    return {};
}

// Whether a symbol of an object is a function: by its type, or, as in assembly sources without types, as what stands in
// code.
bool is_function(const elf_symbol& symbol, std::string_view section) {
    return symbol.kind == symbol_kind::function || (symbol.kind == symbol_kind::other && section.starts_with(".text"));
}

} // namespace

bool is_cold_part(std::string_view symbol) {
    const std::size_t mark = symbol.rfind(".cold");
    const std::string_view number = mark == std::string_view::npos ? symbol : symbol.substr(mark + 5);
    return mark != std::string_view::npos && mark > 0 &&
           (number.empty() || (number.starts_with('.') && number.find_first_not_of("0123456789", 1) == number.npos));
}

std::vector<std::string> usual_sections(std::string_view function) {
    std::vector<std::string> names;
    if (is_cold_part(function)) {
        return names;
    }
    const std::string base = base_variant(function);
    for (const std::string_view prefix : prefixes) {
        if (prefix == cold_prefix) {
            continue;
        }
        names.push_back(std::string(prefix) + std::string(function));
        if (!base.empty()) {
            names.push_back(std::string(prefix) + base);
        }
    }
    return names;
}

void section_table::add(const std::string& argument) {
    for (const std::string& path : listed_objects(argument)) {
        add_file(path);
    }
}

void section_table::add_file(const std::string& path) {
    visit_elf_objects(path, [this](const elf_object& object) {
        if (object.purpose() != elf_purpose::object) {
            throw failure(object.label(), "linked already: give the objects that it was linked of");
        }
        // What one section holds: the address of its first function, and whether there is one at another address.
        struct occupation {
            std::uint64_t address;
            bool is_crowded;
        };
        std::unordered_map<std::uint32_t, occupation> occupations;
        const std::vector<elf_symbol> symbols = object.symbols();
        bool is_crowded = false;
        for (const elf_symbol& symbol : symbols) {
            const bool is_label = symbol.kind == symbol_kind::other && !symbol.is_global;
            if (symbol.section != 0 && !is_label && is_function(symbol, object.section_name(symbol.section))) {
                occupation& here = occupations.emplace(symbol.section, occupation{symbol.address, false}).first->second;
                here.is_crowded |= here.address != symbol.address;
                is_crowded |= here.is_crowded;
            }
        }
        if (is_crowded) {
            objects_.push_back(object.label());
        }
        for (const elf_symbol& symbol : symbols) {
            const std::string_view section = object.section_name(symbol.section);
            if (!is_function(symbol, section)) {
                continue;
            }
            placement& known = placements_[std::string(symbol.name)];
            if (!section.empty() && !is_shared(section) &&
                std::find(known.sections.begin(), known.sections.end(), section) == known.sections.end()) {
                known.sections.emplace_back(section);
            }
            const auto here = occupations.find(symbol.section);
            if (here != occupations.end() && here->second.is_crowded) {
                known.crowded_objects.push_back(static_cast<std::uint32_t>(objects_.size() - 1));
            }
        }
    });
}

const section_table::placement* section_table::find(const std::string& function) const {
    const auto found = placements_.find(function);
    return found == placements_.end() ? nullptr : &found->second;
}
