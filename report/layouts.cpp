#include "report/layouts.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <random>

namespace {

constexpr std::uint64_t random_orders = 20;
constexpr std::uint64_t most_alignment = 16;

/// Functions that overlap, by their numbers: [first, end).
struct piece {
    std::uint32_t first;
    std::uint32_t end;
    std::uint64_t address; ///< of the first byte
    std::uint64_t size;
};

// Takes functions, which ascend by address, apart into pieces.
std::vector<piece> pieces_of(const std::vector<extent>& functions) {
    std::vector<piece> pieces;
    for (std::uint32_t i = 0; i < functions.size(); ++i) {
        const extent& function = functions[i];
        if (pieces.empty() || pieces.back().address + pieces.back().size <= function.address) {
            pieces.push_back({i, i, function.address, 0});
        }
        piece& last = pieces.back();
        last.end = i + 1;
        last.size = std::max(last.size, function.end() - last.address);
    }
    return pieces;
}

std::uint64_t aligned(std::uint64_t address, std::uint64_t alignment) {
    return (address + alignment - 1) / alignment * alignment;
}

// The alignment that an address shows.
std::uint64_t shown_alignment(std::uint64_t address) {
    return address == 0 ? most_alignment : std::min(std::uint64_t{1} << std::countr_zero(address), most_alignment);
}

// Functions ascending by address, those of one address once with the larger size.
void sort_and_unite(std::vector<extent>& functions) {
    std::sort(functions.begin(), functions.end(), [](const extent& a, const extent& b) {
        return a.address != b.address ? a.address < b.address : a.size > b.size;
    });
    functions.erase(std::unique(functions.begin(), functions.end(),
                                [](const extent& a, const extent& b) { return a.address == b.address; }),
                    functions.end());
}

// The number of the function that begins at an address; the count of the functions when none does.
std::size_t function_at(const std::vector<extent>& functions, std::uint64_t address) {
    const auto at = std::lower_bound(functions.begin(), functions.end(), address,
                                     [](const extent& function, std::uint64_t a) { return function.address < a; });
    return at == functions.end() || at->address != address ? functions.size()
                                                           : static_cast<std::size_t>(at - functions.begin());
}

} // namespace

random_control measure_random(const called_code& code, layout_meter& meter, const std::vector<std::uint32_t>& first_run,
                              std::uint64_t seed) {
    const std::vector<piece> pieces = pieces_of(code.functions);
    std::vector<std::uint32_t> order(pieces.size());
    placed_code layout;
    layout.by_address.resize(code.functions.size());
    layout.numbers.resize(code.functions.size());
    std::vector<std::uint64_t> addresses(first_run.empty() ? 0 : code.functions.size()); // by number
    std::array<figures, random_orders> all;
    for (std::uint32_t i = 0; i < random_orders; ++i) {
        std::seed_seq numbers = {static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32U), i};
        std::mt19937_64 random(numbers);
        // Fisher-Yates, by hand: the library's shuffle differs between libraries, and the figures must not.
        std::iota(order.begin(), order.end(), 0U);
        for (std::size_t left = order.size(); left > 1; --left) {
            std::swap(order[left - 1], order[random() % left]);
        }
        std::uint64_t address = 0;
        std::size_t placed = 0;
        for (const std::uint32_t number : order) {
            const piece& moved = pieces[number];
            for (std::uint32_t f = moved.first; f < moved.end; ++f, ++placed) {
                const extent& function = code.functions[f];
                layout.by_address[placed] = {address + (function.address - moved.address), function.size};
                layout.numbers[placed] = f;
            }
            address = aligned(address + moved.size, most_alignment);
        }
        layout.first_run.clear();
        if (!first_run.empty()) {
            for (std::size_t at = 0; at < placed; ++at) {
                addresses[layout.numbers[at]] = layout.by_address[at].address;
            }
            for (const std::uint32_t f : first_run) {
                layout.first_run.push_back({addresses[f], code.functions[f].size});
            }
        }
        layout.segments = {{0, address}};
        all[i] = meter.measure(layout);
    }
    random_control result;
    for (std::size_t f = 0; f < figure_count; ++f) {
        if (!all[0].values[f].has_value()) {
            continue;
        }
        double sum = 0;
        for (const figures& one : all) {
            sum += *one.values[f];
        }
        const double mean = sum / random_orders; // divided only at the end, so that whole numbers stay whole
        double squares = 0;
        for (const figures& one : all) {
            squares += (*one.values[f] - mean) * (*one.values[f] - mean);
        }
        result.mean.values[f] = mean;
        result.deviation.values[f] = std::sqrt(squares / (random_orders - 1));
    }
    return result;
}

figures bound_of(const figures& layout) {
    figures result;
    const double bytes = *layout[figure::bytes];
    result[figure::pages_4k] = std::ceil(bytes / 4096);
    result[figure::blocks_64k] = std::ceil(bytes / 65536);
    result[figure::pages_2m] = std::ceil(bytes / 2097152);
    return result;
}

placed_code predict(const called_code& code, const name_list& order, const name_list* first_run) {
    std::vector<extent> functions = order.places;
    functions.insert(functions.end(), code.functions.begin(), code.functions.end());
    sort_and_unite(functions);
    const std::vector<piece> pieces = pieces_of(functions);
    std::vector<std::uint32_t> piece_of(functions.size());
    for (std::uint32_t i = 0; i < pieces.size(); ++i) {
        std::fill(piece_of.begin() + pieces[i].first, piece_of.begin() + pieces[i].end, i);
    }
    constexpr std::uint64_t not_placed = UINT64_MAX;
    std::vector<std::uint64_t> new_address(pieces.size(), not_placed);
    std::vector<std::uint32_t> sequence; // of the pieces
    std::uint64_t end = 0;
    const auto place = [&](std::uint32_t number) {
        if (new_address[number] == not_placed) {
            new_address[number] = aligned(end, shown_alignment(pieces[number].address));
            end = new_address[number] + pieces[number].size;
            sequence.push_back(number);
        }
    };
    for (const listed_name& name : order.names) {
        for (const extent& definition : order.places_of(name)) {
            place(piece_of[function_at(functions, definition.address)]);
        }
    }
    for (std::uint32_t number = 0; number < pieces.size(); ++number) {
        place(number);
    }

    placed_code result;
    const auto moved = [&](std::size_t function, std::uint64_t size) {
        const std::uint32_t number = piece_of[function];
        return extent{new_address[number] + (functions[function].address - pieces[number].address), size};
    };
    std::vector<std::uint32_t> called(functions.size(), no_index); // number in called_code
    for (std::uint32_t i = 0; i < code.functions.size(); ++i) {
        called[function_at(functions, code.functions[i].address)] = i;
    }
    for (const std::uint32_t number : sequence) {
        for (std::uint32_t f = pieces[number].first; f < pieces[number].end; ++f) {
            if (called[f] != no_index) {
                result.by_address.push_back(moved(f, code.functions[called[f]].size));
                result.numbers.push_back(called[f]);
            }
        }
    }
    if (first_run != nullptr) {
        for (const listed_name& name : first_run->names) {
            const std::size_t f =
                name.count == 0 ? functions.size() : function_at(functions, first_run->places[name.first].address);
            if (f != functions.size()) {
                result.first_run.push_back(moved(f, first_run->places[name.first].size));
            }
        }
    }
    result.segments = {{0, end}};
    return result;
}
