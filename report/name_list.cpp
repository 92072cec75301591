#include "report/name_list.h"

#include "ORDWELL/order_file.h"
#include "support/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

std::vector<std::string> read_order(const std::string& path) {
    std::vector<std::string> names;
    std::size_t bad_line = 0;
    if (!read_order_file(path, names, bad_line)) {
        throw bad_line == 0 ? failure(path, std::strerror(errno))
                            : failure(path, bad_line, "not a line of an order file: give the file that ordwell wrote");
    }
    if (names.empty()) {
        throw failure(path, "no name in it: give the file that ordwell wrote");
    }
    return names;
}

name_list look_up(const std::vector<std::string>& list, const function_table& binary) {
    struct definition {
        std::uint32_t name;
        extent place;
    };
    name_list result;
    call_profile numbers; // of the names, by their first appearance
    for (const std::string& name : list) {
        if (numbers.find_or_add(name) == result.names.size()) {
            result.names.emplace_back().name = name;
        }
    }
    std::vector<definition> definitions;
    for (const elf_symbol& symbol : binary.symbols()) {
        const std::uint32_t number = numbers.find(symbol.name);
        if (number == no_index) {
            continue;
        }
        if (is_placed_function(symbol)) {
            definitions.push_back({number, {symbol.address, symbol.size}});
        } else {
            listed_name& name = result.names[number];
            (symbol.kind == symbol_kind::undefined ? name.is_undefined : name.is_other) = true;
        }
    }
    std::sort(definitions.begin(), definitions.end(), [](const definition& a, const definition& b) {
        return std::pair(a.name, a.place.address) < std::pair(b.name, b.place.address);
    });
    for (const definition& d : definitions) {
        listed_name& name = result.names[d.name];
        if (name.count != 0 && result.places.back().address == d.place.address) {
            result.places.back().size = std::max(result.places.back().size, d.place.size);
            continue;
        }
        if (name.count++ == 0) {
            name.first = static_cast<std::uint32_t>(result.places.size());
        }
        result.places.push_back(d.place);
    }
    return result;
}
