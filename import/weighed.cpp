#include "import/weighed.h"

#include "binary/object_list.h"

#include <algorithm>
#include <bit>

namespace {

// Sums of up to 2^32 counts of 64 bits, times 1024, stay below 2^106.
__extension__ using wide = unsigned __int128;

constexpr std::uint64_t heaviest_factor = 1024;
constexpr std::uint64_t line_size = 64; ///< bytes of a cache line, what the smallest function costs
constexpr int weight_digits = 31;       ///< binary digits of the largest weight

/// Who calls a function.
struct callers {
    wide calls = 0;             ///< from all of them
    std::uint64_t heaviest = 0; ///< calls from the one that calls most; of several such, the first
    std::uint32_t row = 0;      ///< of that one, counted from 0
};

/// What a weight is before it is scaled.
struct fraction {
    wide numerator;
    wide denominator; ///< at least `line_size`
};

int digits_of(wide number) {
    const auto high = static_cast<std::uint64_t>(number >> 64U);
    return high != 0 ? 64 + static_cast<int>(std::bit_width(high))
                     : static_cast<int>(std::bit_width(static_cast<std::uint64_t>(number)));
}

bool is_call(const call_table::row& r) {
    return r.caller != r.callee;
}

// By callee. Rows are numbered in their order.
std::vector<callers> callers_of(const call_table& calls) {
    std::vector<callers> result;
    std::uint32_t row = 0;
    calls.visit_rows([&](const call_table::row& r) {
        if (r.callee >= result.size()) {
            result.resize(std::size_t{r.callee} + 1);
        }
        if (is_call(r)) {
            callers& of_callee = result[r.callee];
            of_callee.calls += r.count;
            if (r.count > of_callee.heaviest) {
                of_callee.heaviest = r.count;
                of_callee.row = row;
            }
        }
        ++row;
    });
    return result;
}

// Visits each row with its fraction.
template <typename Visit>
void visit_fractions(const call_table& calls, const std::vector<callers>& called,
                     const std::vector<std::uint64_t>& sizes, Visit visit) {
    std::uint32_t row = 0;
    calls.visit_rows([&](const call_table::row& r) {
        const callers& of_callee = called[r.callee];
        const bool is_heaviest = of_callee.row == row++;
        visit(r,
              fraction{is_heaviest ? heaviest_factor * of_callee.calls : r.count, wide{sizes[r.callee]} + line_size});
    });
}

// The fraction times 2 to the power of `scale`, rounded down, at least 1. With a scale that brings no fraction above
// `weight_digits` digits, nothing here exceeds 128.
std::uint64_t weight_of(const fraction& f, int scale) {
    const wide weight = scale >= 0 ? (f.numerator << scale) / f.denominator
                                   : (f.numerator / f.denominator) >> static_cast<unsigned>(-scale);
    return std::max<std::uint64_t>(static_cast<std::uint64_t>(weight), 1);
}

} // namespace

void function_sizes::add(const std::vector<elf_symbol>& symbols) {
    for (const elf_symbol& symbol : symbols) {
        if (symbol.kind == symbol_kind::function) {
            std::uint64_t& size = sizes_[std::string(symbol.name)];
            size = std::max(size, symbol.size);
        }
    }
}

void function_sizes::add_objects(const std::string& argument) {
    for (const std::string& file : listed_objects(argument)) {
        visit_elf_objects(file, [this](const elf_object& object) { add(object.symbols()); });
    }
}

std::uint64_t function_sizes::of(std::string_view function) const {
    const auto found = sizes_.find(function);
    return found == sizes_.end() ? 0 : found->second;
}

void write_weighed(const call_table& calls, const function_sizes& sizes, output_file& out) {
    const std::vector<callers> called = callers_of(calls);
    std::vector<std::uint64_t> callee_sizes(called.size());
    for (std::uint32_t f = 0; f < called.size(); ++f) {
        callee_sizes[f] = called[f].calls == 0 ? 0 : sizes.of(calls.name_of(f));
    }
    wide largest = 0;
    visit_fractions(calls, called, callee_sizes, [&](const call_table::row& r, const fraction& f) {
        largest = is_call(r) ? std::max(largest, f.numerator / f.denominator) : largest;
    });
    const int scale = weight_digits - digits_of(largest);
    const unsigned int divisor_bits = calls.summarise().divisor_bits;

    out.write(weighed_header);
    out.write("\n");
    std::string line;
    visit_fractions(calls, called, callee_sizes, [&](const call_table::row& r, const fraction& f) {
        const std::uint64_t execution = std::max<std::uint64_t>(r.count >> divisor_bits, 1);
        line = calls.name_of(r.caller);
        line += ',';
        line += calls.name_of(r.callee);
        line += ',';
        line += std::to_string(is_call(r) ? weight_of(f, scale) : execution);
        line += '\n';
        out.write(line);
    });
}
