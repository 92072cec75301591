#include "binary/function_table.h"

#include "binary/demangle.h"
#include "support/failure.h"

#include <algorithm>
#include <functional>

namespace {

// How many symbols find() looks at: no more than a name ever has, but for a damaged file.
constexpr std::size_t most_fits = 4096;

// A name without the number of an addition such as ".llvm.123", wherever it stands in it, and without the addition;
// demanglers put it into brackets.
void remove_addition(std::string& name, std::string_view before, std::string_view behind) {
    const std::size_t start = name.find(before);
    if (start == std::string::npos) {
        return;
    }
    const std::size_t number = start + before.size();
    const std::size_t end = std::min(name.find_first_not_of("0123456789", number), name.size());
    if (end > number && name.compare(end, behind.size(), behind) == 0) {
        name.erase(start, end + behind.size() - start);
    }
}

std::string without_additions(std::string_view name) {
    std::string plain(name);
    remove_addition(plain, ".llvm.", "");
    remove_addition(plain, ".lto_priv.", "");
    remove_addition(plain, " [clone .llvm.", "]");
    remove_addition(plain, " [clone .lto_priv.", "]");
    return plain;
}

// Whether a mangled name is that of a part or copy that the compiler made of a function, such as "_Z1fi.part.0".
bool is_clone(const elf_symbol& symbol) {
    return without_additions(symbol.name).find('.') != std::string::npos;
}

} // namespace

function_table::function_table(const std::string& path) : path_(path) {
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

const std::vector<linked_function>& function_table::functions() const {
    if (!functions_.empty()) {
        return functions_;
    }
    std::vector<const elf_symbol*> by_address;
    for (const elf_symbol& symbol : symbols_) {
        if (symbol.kind == symbol_kind::function) {
            by_address.push_back(&symbol);
        }
    }
    std::stable_sort(by_address.begin(), by_address.end(), [](const elf_symbol* a, const elf_symbol* b) {
        return a->address != b->address ? a->address < b->address : a->is_global && !b->is_global;
    });
    for (const elf_symbol* const symbol : by_address) {
        if (functions_.empty() || functions_.back().address != symbol->address) {
            functions_.push_back({symbol->address, symbol->size, symbol->name});
        }
        functions_.back().size = std::max(functions_.back().size, symbol->size);
    }
    return functions_;
}

const linked_function* function_table::nearest(std::uint64_t address) const {
    const auto behind = std::upper_bound(functions().begin(), functions().end(), address,
                                         [](std::uint64_t a, const linked_function& b) { return a < b.address; });
    return behind == functions_.begin() ? nullptr : &*(behind - 1);
}

const linked_function* function_table::at(std::uint64_t address) const {
    const linked_function* const found = nearest(address); // functions do not lie inside each other
    const bool is_in = found != nullptr && address - found->address < std::max<std::uint64_t>(found->size, 1);
    return is_in ? found : nullptr;
}

// Calls visit(text) for a form of a symbol's name; demangled ones have two.
void function_table::visit_forms(const elf_symbol& symbol, known_form form, const auto& visit) const {
    if (form == known_form::as_it_stands) {
        visit(symbol.name);
    } else if (form == known_form::without_additions) {
        visit(std::string_view(without_additions(symbol.name)));
    } else if (const std::string plain = without_additions(symbol.name);
               plain.starts_with("_Z") || plain.starts_with("_R")) {
        const std::string with_parameters = demangled(plain);
        const std::string without = demangled_without_parameters(plain);
        if (with_parameters != plain) {
            visit(std::string_view(with_parameters));
        }
        if (without != plain && without != with_parameters) {
            visit(std::string_view(without));
        }
    }
}

const function_table::name_index& function_table::index_of(known_form form) const {
    std::optional<name_index>& made = indexes_[static_cast<std::size_t>(form)];
    if (!made.has_value()) {
        name_index& index = made.emplace();
        for (std::uint32_t i = 0; i < symbols_.size(); ++i) {
            if (symbols_[i].kind == symbol_kind::function) {
                visit_forms(symbols_[i], form, [&](std::string_view text) {
                    index.push_back({std::hash<std::string_view>()(text), i});
                });
            }
        }
        std::sort(index.begin(), index.end(), [](const name_entry& a, const name_entry& b) {
            return a.hash != b.hash ? a.hash < b.hash : a.symbol < b.symbol;
        });
    }
    return *made;
}

std::optional<std::uint64_t> function_table::address_of_byte(std::uint64_t offset) const {
    for (const elf_segment& segment : segments_) {
        if (offset >= segment.offset && offset - segment.offset < segment.size) {
            return segment.address + (offset - segment.offset);
        }
    }
    return std::nullopt;
}

std::vector<const linked_function*> function_table::find(std::string_view name, known_form form) const {
    const std::string wanted = form == known_form::as_it_stands ? std::string(name) : without_additions(name);
    const name_index& index = index_of(form);
    const std::size_t hash = std::hash<std::string_view>()(wanted);
    std::vector<const elf_symbol*> symbols;
    for (auto entry = std::lower_bound(index.begin(), index.end(), hash,
                                       [](const name_entry&e, std::size_t h) { return e.hash < h; });
         entry != index.end() && entry->hash == hash && symbols.size() < most_fits; ++entry) {
        const elf_symbol& symbol = symbols_[entry->symbol];
        visit_forms(symbol, form, [&](std::string_view text) {
            if (text == wanted && (symbols.empty() || symbols.back() != &symbol)) {
                symbols.push_back(&symbol);
            }
        });
    }
    // Once for each address, by the name that fits best; then the best ones first.
    const auto is_behind = [&](const elf_symbol* symbol) { return form == known_form::demangled && is_clone(*symbol); };
    std::stable_sort(symbols.begin(), symbols.end(), [&](const elf_symbol* a, const elf_symbol* b) {
        return a->address != b->address ? a->address < b->address : !is_behind(a) && is_behind(b);
    });
    const auto same = [](const elf_symbol* a, const elf_symbol* b) { return a->address == b->address; };
    symbols.erase(std::unique(symbols.begin(), symbols.end(), same), symbols.end());
    std::stable_partition(symbols.begin(), symbols.end(), [&](const elf_symbol* symbol) { return !is_behind(symbol); });
    std::vector<const linked_function*> found;
    found.reserve(symbols.size());
    for (const elf_symbol* const symbol : symbols) {
        found.push_back(at(symbol->address));
    }
    return found;
}
