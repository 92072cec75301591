#include "ORDWELL/fast_merge_lookahead.h"

// Does something with the edge that is so far ahead, if it is known.
template <typename Action>
void merge_lookahead::with_upcoming(std::size_t distance, Action action) const {
    if (const std::uint32_t number = queue_.upcoming(distance); number != no_index) {
        action(edges_[number]);
    }
}

// The first edges that will be rewritten when an edge's ends are merged.
std::span<const std::uint32_t> merge_lookahead::smaller_sides_edges(const edge& e) const {
    constexpr std::uint32_t most_edges = 12; // few lists are longer
    return incidence_.first_edges(groups_[smaller_side(groups_, e)].edges, most_edges);
}

// Does something with the pairs of groups into whose edges those of the smaller side will be folded.
template <typename Action>
void merge_lookahead::with_pairs(const edge& e, Action action) const {
    const std::uint32_t from = smaller_side(groups_, e);
    const std::uint32_t kept = e.other_end(from);
    for (const std::uint32_t number : smaller_sides_edges(e)) {
        if (edges_[number].weight != 0) {
            action(kept, edges_[number].other_end(from));
        }
    }
}

void merge_lookahead::prefetch_upcoming() const {
    with_upcoming(9, [](const edge& e) { prefetch_line(&e); });
    with_upcoming(7, [this](const edge& e) {
        prefetch_line(&groups_[e.end[0]]);
        prefetch_line(&groups_[e.end[1]]);
    });
    with_upcoming(5, [this](const edge& e) {
        incidence_.prefetch(groups_[smaller_side(groups_, e)].edges);
        links_.prefetch(groups_[e.end[0]].names);
        links_.prefetch(groups_[e.end[1]].names);
    });
    with_upcoming(4, [this](const edge& e) {
        for (const std::uint32_t number : smaller_sides_edges(e)) {
            prefetch_line(&edges_[number]);
        }
    });
    with_upcoming(2, [this](const edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) { pairs_.prefetch(kept, neighbour); });
    });
    with_upcoming(1, [this](const edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) {
            pairs_.prefetch_edge(kept, neighbour, pairs_.hash(kept, neighbour));
        });
    });
}
