#include "report/code_map.h"

#include <algorithm>

namespace {

constexpr std::uint64_t page = 4096;
constexpr std::uint64_t most_cells = 3000; // what an eye can follow and a small file can hold

std::uint64_t page_count(const called_code& code) {
    return (code.high - 1) / page - code.low / page + 1;
}

} // namespace

std::uint64_t pages_per_cell(const called_code& code) {
    return (page_count(code) + most_cells - 1) / most_cells;
}

code_map map_code(const called_code& code, const std::vector<std::uint64_t>& heat, std::uint64_t pages_per_cell) {
    code_map map;
    const std::uint64_t first_page = code.low / page;
    map.address = first_page * page;
    map.pages_per_cell = pages_per_cell;
    map.cells = (page_count(code) + pages_per_cell - 1) / pages_per_cell;
    const auto cell_of = [&](std::uint64_t address) { return (address / page - first_page) / pages_per_cell; };
    constexpr std::uint32_t not_called = UINT32_MAX;
    std::vector<map_cell> cells(map.cells, {0, 0, 0, ""});
    std::vector<std::uint32_t> hottest(map.cells, not_called); // by cell, numbers of functions
    for (std::uint32_t i = 0; i < code.functions.size(); ++i) {
        const extent& function = code.functions[i];
        const std::uint64_t first = cell_of(function.address);
        cells[first].calls += heat[i];
        for (std::uint64_t c = first; c <= cell_of(function.end() - 1); ++c) {
            ++cells[c].functions;
            if (hottest[c] == not_called || heat[i] > heat[hottest[c]]) {
                hottest[c] = i;
            }
        }
    }
    for (std::uint64_t c = 0; c < map.cells; ++c) {
        if (hottest[c] != not_called) {
            cells[c].index = c;
            cells[c].hottest = code.names[hottest[c]];
            map.called.push_back(std::move(cells[c]));
        }
    }
    return map;
}
