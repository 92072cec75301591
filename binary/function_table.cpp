#include "binary/function_table.h"

#include "support/failure.h"

#include <algorithm>
#include <cstdlib>
#include <cxxabi.h>

namespace {

// A name without ".llvm.123" and ".lto_priv.0", wherever they stand in it.
std::string without_additions(std::string_view name) {
    std::string plain(name);
    for (const std::string_view addition : {".llvm.", ".lto_priv."}) {
        const std::size_t start = plain.find(addition);
        if (start == std::string::npos) {
            continue;
        }
        const std::size_t number = start + addition.size();
        const std::size_t end = std::min(plain.find_first_not_of("0123456789", number), plain.size());
        if (end > number) {
            plain.erase(start, end - start);
        }
    }
    return plain;
}

} // namespace

std::string demangled(std::string_view name) {
    if (!name.starts_with("_Z")) {
        return std::string(name);
    }
    int status = 0;
    char* const text = abi::__cxa_demangle(std::string(name).c_str(), nullptr, nullptr, &status);
    std::string readable = text == nullptr ? std::string(name) : text;
    std::free(text);
    return readable;
}

function_table::function_table(const std::string& path) {
    bool is_first = true;
    visit_elf_objects(path, [&](const elf_object& object) {
        if (!is_first || object.label() != path) {
            throw failure(path, "an archive: give the linked program");
        }
        is_first = false;
        switch (object.purpose()) {
        case elf_purpose::program:
            break;
        case elf_purpose::object:
            throw failure(path, "an object file: give the linked program");
        case elf_purpose::core:
            throw failure(path, "a core file: give the program that crashed");
        case elf_purpose::other:
            throw failure(path, "neither a program nor a shared library");
        }
        if (!object.has_symbol_table()) {
            throw failure(path, "no symbol table: link without -s and strip only the copy that you ship, or give the "
                                "file with the separate debug information");
        }
        is_64_bit_ = object.is_64_bit();
        is_little_endian_ = object.is_little_endian();
        symbols_ = object.symbols();
        build_id_ = object.build_id();
        segments_ = object.segments();
        for (elf_symbol& symbol : symbols_) {
            symbol.name = names_.emplace_back(symbol.name);
        }
    });
}

void function_table::index_names() const {
    if (!functions_.empty()) {
        return;
    }
    for (const elf_symbol& symbol : symbols_) {
        if (symbol.kind == symbol_kind::function && functions_.insert(symbol.name).second) {
            const auto [entry, is_only] = plain_.emplace(without_additions(symbol.name), symbol.name);
            entry->second = is_only ? symbol.name : std::string_view();
        }
    }
}

void function_table::index_addresses() const {
    if (!by_address_.empty()) {
        return;
    }
    for (const elf_symbol& symbol : symbols_) {
        if (symbol.kind == symbol_kind::function) {
            by_address_.push_back(&symbol);
        }
    }
    std::stable_sort(by_address_.begin(), by_address_.end(),
                     [](const elf_symbol* a, const elf_symbol* b) { return a->address < b->address; });
}

std::string_view function_table::find(std::string_view name) const {
    index_names();
    if (const auto exact = functions_.find(name); exact != functions_.end()) {
        return *exact;
    }
    const auto similar = plain_.find(without_additions(name));
    return similar == plain_.end() ? std::string_view() : similar->second;
}

std::string_view function_table::at(std::uint64_t address, std::string_view preferred) const {
    index_addresses();
    const auto behind = std::upper_bound(by_address_.begin(), by_address_.end(), address,
                                         [](std::uint64_t a, const elf_symbol* b) { return a < b->address; });
    const elf_symbol* chosen = nullptr;
    for (auto candidate = behind; candidate != by_address_.begin();) {
        const elf_symbol& symbol = **--candidate;
        if (symbol.address != (*(behind - 1))->address) {
            break; // functions do not lie inside each other
        }
        if (address - symbol.address >= std::max<std::uint64_t>(symbol.size, 1)) {
            continue;
        }
        if (symbol.name == preferred) {
            return preferred;
        }
        if (chosen == nullptr || symbol.is_global || !chosen->is_global) { // walked backwards: the first one wins
            chosen = &symbol;
        }
    }
    return chosen == nullptr ? std::string_view() : chosen->name;
}

bool function_table::is_demangled(std::string_view name) const {
    index_names();
    if (demangled_.empty()) {
        demangled_.insert("");
        for (const std::string_view function : functions_) {
            std::string readable = demangled(function);
            if (readable != function) {
                demangled_.insert(readable.substr(0, readable.find('(')));
                demangled_.insert(std::move(readable));
            }
        }
    }
    return !name.empty() && demangled_.contains(std::string(name));
}
