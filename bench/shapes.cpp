#include "bench/shapes.h"

#include "bench/random_source.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

using pairs = std::vector<shape_call>;

std::uint32_t root_of(std::uint32_t rows) {
    return std::max(static_cast<std::uint32_t>(std::sqrt(rows)), 1U);
}

void add(pairs& all, std::uint64_t caller, std::uint64_t callee) {
    all.push_back({static_cast<std::uint32_t>(caller), static_cast<std::uint32_t>(callee), 0});
}

// Hubs, each with some leaves; `parent(i)` is what calls hub i, from the second on. Leaves are numbered from 2^31 on.
template <typename Parent, typename Leaves>
void add_hubs(pairs& all, std::uint32_t rows, Parent parent, Leaves leaves) {
    std::uint32_t leaf = 1U << 31U;
    for (std::uint32_t hub = 0; all.size() < rows; ++hub) {
        if (hub > 0) {
            add(all, parent(hub), hub);
        }
        for (std::uint32_t left = leaves(hub); left > 0 && all.size() < rows; --left) {
            add(all, hub, leaf++);
        }
    }
}

// A tree of so many edges; `parent(i)` is what calls function i.
template <typename Parent>
void add_tree(pairs& all, std::uint32_t rows, Parent parent) {
    for (std::uint32_t function = 1; function <= rows; ++function) {
        add(all, parent(function), function);
    }
}

struct named_shape {
    const char* name;
    void (*add_pairs)(pairs& all, std::uint32_t rows, random_source& random);
};
constexpr std::array<named_shape, 13> shapes = {{
    {"path", [](pairs& all, std::uint32_t rows,
                random_source&) { add_tree(all, rows, [](std::uint32_t i) { return i - 1; }); }},
    {"double-path", // each function calls the next two
     [](pairs& all, std::uint32_t rows, random_source&) {
         for (std::uint32_t i = 0; i < rows; ++i) {
             add(all, i / 2, i / 2 + 1 + i % 2);
         }
     }},
    {"caterpillar", // a path with a leaf at each function
     [](pairs& all, std::uint32_t rows, random_source&) {
         add_hubs(
             all, rows, [](std::uint32_t hub) { return hub - 1; }, [](std::uint32_t) { return 1U; });
     }},
    {"ladder",
     [](pairs& all, std::uint32_t rows, random_source&) {
         for (std::uint32_t i = 0; all.size() < rows; i += 2) {
             add(all, i, i + 1);
             add(all, i, i + 2);
             add(all, i + 1, i + 3);
         }
     }},
    {"star",
     [](pairs& all, std::uint32_t rows, random_source&) { add_tree(all, rows, [](std::uint32_t) { return 0U; }); }},
    {"two-stars", // that share their points
     [](pairs& all, std::uint32_t rows, random_source&) {
         for (std::uint32_t i = 0; i < rows; ++i) {
             add(all, i % 2, 2 + i / 2);
         }
     }},
    {"stars-of-stars",
     [](pairs& all, std::uint32_t rows, random_source&) {
         const std::uint32_t points = root_of(rows);
         add_hubs(
             all, rows, [](std::uint32_t) { return 0U; }, [=](std::uint32_t hub) { return hub == 0 ? 0 : points; });
     }},
    {"row-of-hubs",
     [](pairs& all, std::uint32_t rows, random_source&) {
         const std::uint32_t points = root_of(rows);
         add_hubs(
             all, rows, [](std::uint32_t hub) { return hub - 1; }, [=](std::uint32_t) { return points; });
     }},
    {"comb", // of stars, each one leaf larger than the one before
     [](pairs& all, std::uint32_t rows, random_source&) {
         add_hubs(
             all, rows, [](std::uint32_t hub) { return hub - 1; }, [](std::uint32_t hub) { return hub; });
     }},
    {"binary-tree", [](pairs& all, std::uint32_t rows,
                       random_source&) { add_tree(all, rows, [](std::uint32_t i) { return (i - 1) / 2; }); }},
    {"random-tree",
     [](pairs& all, std::uint32_t rows, random_source& random) {
         add_tree(all, rows, [&](std::uint32_t i) { return static_cast<std::uint32_t>(random.below(i)); });
     }},
    {"preferential-tree", // a function is called in proportion to its edges
     [](pairs& all, std::uint32_t rows, random_source& random) {
         add_tree(all, rows, [&](std::uint32_t i) {
             const std::uint64_t end = random.below(std::max(2 * i - 2, 1U));
             return i == 1 ? 0 : end % 2 == 0 ? all[end / 2].caller : all[end / 2].callee;
         });
     }},
    {"bipartite", // complete blocks of 30 callers and 30 callees, two neighbours sharing one function
     [](pairs& all, std::uint32_t rows, random_source&) {
         for (std::uint32_t i = 0; i < rows; ++i) {
             add(all, i / 900 * 59 + i % 900 / 30, i / 900 * 59 + 30 + i % 30);
         }
     }},
}};

struct named_order {
    const char* name;
    void (*arrange)(pairs& all, random_source& random);
};
constexpr std::array<named_order, 4> orders = {{
    {"forward", [](pairs&, random_source&) {}},
    {"backward", [](pairs& all, random_source&) { std::reverse(all.begin(), all.end()); }},
    {"random", [](pairs& all, random_source& random) { shuffle(all, random); }},
    {"alternating", // from both ends
     [](pairs& all, random_source&) {
         const pairs forward = all;
         for (std::size_t i = 0; i < all.size(); ++i) {
             all[i] = i % 2 == 0 ? forward[i / 2] : forward[all.size() - 1 - i / 2];
         }
     }},
}};

struct named_counts {
    const char* name;
    std::uint32_t (*of_row)(std::uint32_t row, std::uint32_t rows, random_source& random);
};
constexpr std::array<named_counts, 6> counts_of = {{
    {"equal", [](std::uint32_t, std::uint32_t, random_source&) { return 1U; }},
    {"rising", [](std::uint32_t row, std::uint32_t, random_source&) { return row + 1; }},
    {"falling", [](std::uint32_t row, std::uint32_t rows, random_source&) { return rows - row; }},
    {"random", [](std::uint32_t, std::uint32_t rows,
                  random_source& random) { return static_cast<std::uint32_t>(1 + random.below(rows)); }},
    {"powers-of-two", [](std::uint32_t, std::uint32_t,
                         random_source& random) { return 1U << static_cast<unsigned int>(random.below(32)); }},
    {"largest", [](std::uint32_t, std::uint32_t, random_source&) { return 4294967295U; }},
}};

} // namespace

const std::size_t call_shape::shape_count = shapes.size();
const std::size_t call_shape::order_count = orders.size();
const std::size_t call_shape::counts_count = counts_of.size();

std::vector<call_shape> call_shape::all() {
    std::vector<call_shape> combinations;
    for (std::size_t shape = 0; shape < shape_count; ++shape) {
        for (std::size_t order = 0; order < order_count; ++order) {
            for (std::size_t counts = 0; counts < counts_count; ++counts) {
                combinations.push_back({shape, order, counts, false});
                combinations.push_back({shape, order, counts, true});
            }
        }
    }
    return combinations;
}

std::string call_shape::name() const {
    return std::string(shapes[shape].name) + " " + orders[order].name + (is_exchanged ? " exchanged " : " as-is ") +
           counts_of[counts].name;
}

std::vector<shape_call> call_shape::calls(std::uint32_t rows, std::uint64_t seed) const {
    random_source random(seed);
    pairs all;
    all.reserve(rows);
    shapes[shape].add_pairs(all, rows, random);
    orders[order].arrange(all, random);
    for (std::uint32_t row = 0; row < all.size(); ++row) {
        shape_call& call = all[row];
        call.count = counts_of[counts].of_row(row, static_cast<std::uint32_t>(all.size()), random);
        if (is_exchanged) {
            std::swap(call.caller, call.callee);
        }
    }
    return all;
}
