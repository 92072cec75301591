#include "ORDWELL/fast_merge_lookahead.h"

// Does something with the edge that is so far ahead, if it is known.
template <typename Action>
void merge_lookahead::with_upcoming(std::size_t distance, Action action) const {
    if (const std::uint32_t number = queue_.upcoming(distance); number != no_index) {
        action(edges_[number]);
    }
}

// The first edges of a group.
std::span<const std::uint32_t> merge_lookahead::first_edges(std::uint32_t group) const {
    constexpr std::uint32_t most_edges = 12; // few lists are longer
    return incidence_.first_edges(groups_[group].edges, most_edges);
}

// Does something with the pairs of groups into whose edges those of the smaller side will be folded.
template <typename Action>
void merge_lookahead::with_pairs(const call_edge& e, Action action) const {
    const std::uint32_t from = smaller_side(groups_, e);
    const std::uint32_t kept = e.other_end(from);
    for (const std::uint32_t number : first_edges(from)) {
        if (edges_[number].weight != 0) {
            action(kept, edges_[number].other_end(from));
        }
    }
}

void merge_lookahead::prefetch_groups(const call_edge& e) const {
    prefetch_line(&groups_[e.end[0]]);
    prefetch_line(&groups_[e.end[1]]);
}

void merge_lookahead::prefetch_lists_and_chains(const call_edge& e) const {
    incidence_.prefetch(groups_[smaller_side(groups_, e)].edges);
    links_.prefetch(groups_[e.end[0]].names);
    links_.prefetch(groups_[e.end[1]].names);
}

void merge_lookahead::prefetch_upcoming() const {
    if (queue_.has_advanced()) {
        prefetch_of_bucket();
    }
    prefetch_of_heap();
}

void merge_lookahead::prefetch_of_bucket() const {
    with_upcoming(9, [](const call_edge& e) { prefetch_line(&e); });
    with_upcoming(7, [this](const call_edge& e) { prefetch_groups(e); });
    with_upcoming(5, [this](const call_edge& e) { prefetch_lists_and_chains(e); });
    with_upcoming(4, [this](const call_edge& e) {
        for (const std::uint32_t number : first_edges(smaller_side(groups_, e))) {
            prefetch_line(&edges_[number]);
        }
    });
    with_upcoming(2, [this](const call_edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) { pairs_.prefetch(kept, neighbour); });
    });
    with_upcoming(1, [this](const call_edge& e) {
        with_pairs(e, [this](std::uint32_t kept, std::uint32_t neighbour) {
            pairs_.prefetch_edge(kept, neighbour, pairs_.hash(kept, neighbour));
        });
    });
}

void merge_lookahead::prefetch_of_heap() const {
    const std::span<const queue_entry> entries = queue_.heap(7);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const call_edge& e = edges_[entries[i].number];
        if (i >= 3) {
            prefetch_line(&e);
        } else if (i >= 1) {
            prefetch_groups(e);
        } else {
            prefetch_lists_and_chains(e);
        }
    }
}
