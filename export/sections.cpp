#include "export/sections.h"

#include "binary/elf_file.h"
#include "support/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

constexpr std::string_view prefixes[] = {".text.", ".text.hot.", ".text.unlikely.", ".text.startup.", ".text.exit."};

// Whether a section holds whatever functions its source has.
bool is_shared(std::string_view section) {
    return section == ".text" || std::any_of(std::begin(prefixes), std::end(prefixes), [&](std::string_view prefix) {
               return prefix.size() > sizeof ".text." && section == prefix.substr(0, prefix.size() - 1);
           });
}

// The base-object variant of a complete-object constructor or destructor, in whose section both lie: "C1E" becomes "C2E".
// Empty for any other name. Source of the names: Itanium C++ ABI, section 5.1.4.3.
std::string base_variant(std::string_view function) {
    for (const std::string_view complete : {"C1E", "D1E"}) {
        const std::size_t at = function.rfind(complete);
        if (function.starts_with("_Z") && at != std::string_view::npos) {
            std::string base(function);
            base[at + 1] = '2';
            return base;
        }
    }
    return {};
}

} // namespace

std::vector<std::string> usual_sections(std::string_view function) {
    std::vector<std::string> names;
    if (function.ends_with(".cold")) { // the unlikely part of another function
        function.remove_suffix(5);
        names.push_back(".text.unlikely." + std::string(function));
        return names;
    }
    const std::string base = base_variant(function);
    for (const std::string_view prefix : prefixes) {
        names.push_back(std::string(prefix) + std::string(function));
        if (!base.empty()) {
            names.push_back(std::string(prefix) + base);
        }
    }
    return names;
}

void section_table::add(const std::string& path) {
    if (path.starts_with('@')) {
        std::ifstream list(path.substr(1));
        if (!list.is_open()) {
            throw failure(path.substr(1), std::strerror(errno));
        }
        for (std::string object; list >> object;) {
            add(object);
        }
        return;
    }
    visit_elf_objects(path, [this](const elf_object& object) {
        for (const elf_symbol& symbol : object.symbols()) {
            const std::string_view section = object.section_name(symbol.section);
            const bool is_assembly = symbol.kind == symbol_kind::other && section.starts_with(".text");
            if (symbol.kind != symbol_kind::function && !is_assembly) {
                continue;
            }
            std::vector<std::string>& known = sections_[std::string(symbol.name)];
            if (!section.empty() && !is_shared(section) &&
                std::find(known.begin(), known.end(), section) == known.end()) {
                known.emplace_back(section);
            }
        }
    });
}

const std::vector<std::string>& section_table::sections(const std::string& function) const {
    static const std::vector<std::string> none;
    const auto found = sections_.find(function);
    return found == sections_.end() ? none : found->second;
}
