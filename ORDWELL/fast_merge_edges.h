// Visiting edges in fast merging, and which edge lies between two groups.
//
// The latter is asked of nearly every edge that is rewritten, and an index of all pairs does not fit the caches. But in
// most merges of a call graph one and the same group takes in a small one: the *giant*, a group with about the most
// edges. (Of 100,000 functions three quarters go that way, of a real program's 2,600 nine tenths.) So the giant's
// edges stand in an array by the group at their other end, 4 bytes a group, which the caches hold; only other pairs
// are looked up by hash. When another group has twice the giant's edges, or takes it in, it becomes the giant.
//
// What a change of the giant costs. Entries of the former giant's edges are removed, and those of the new one made,
// edge by edge: the array is never cleared as a whole, for on a path every merge may change the giant, which has two
// edges then. A giant that is taken in has at least a fourth of the other's edges, all of which are about to be
// rewritten anyway; otherwise the number of the giant's edges doubles. So all changes together cost a small multiple
// of what is rewritten.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

/// Visits those of some edges that are not gone.
template <typename Visit>
void visit_live(const huge_vector<call_edge>& edges, std::span<const std::uint32_t> numbers, Visit visit) {
    constexpr std::size_t distance = 24; // edges between prefetch and use
    for (const std::uint32_t number : numbers.first(std::min(distance, numbers.size()))) {
        prefetch_line(&edges[number]);
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i + distance < numbers.size()) {
            prefetch_line(&edges[numbers[i + distance]]);
        }
        if (const call_edge& e = edges[numbers[i]]; e.weight != 0) {
            visit(numbers[i], e);
        }
    }
}

/// From pairs of groups to edges.
class edges_by_pair {
public:
    /// `pairs` leads from pairs of functions, under hash_of_pair(), to their edges.
    edges_by_pair(const huge_vector<call_edge>& edges, hash_index pairs, std::size_t functions)
        : edges_(edges), hashed_(std::move(pairs)), of_giant_(functions, no_index) {}

    /// The giant; no_index before the first is set.
    std::uint32_t giant() const { return giant_; }

    /// The hash of a pair, which other functions take; 0 where `kept` is the giant, as none is needed.
    std::uint32_t hash(std::uint32_t kept, std::uint32_t neighbour) const {
        return kept == giant_ ? 0 : hash_of_pair(kept, neighbour);
    }

    /// Brings into the cache what tells the edge between two groups, and gives their hash.
    std::uint32_t prefetch(std::uint32_t kept, std::uint32_t neighbour) const {
        const std::uint32_t pair_hash = hash(kept, neighbour);
        if (kept == giant_) {
            prefetch_line(&of_giant_[neighbour]);
        } else {
            hashed_.prefetch(pair_hash);
        }
        return pair_hash;
    }

    /// Brings what is most probably the edge between two groups into the cache.
    void prefetch_edge(std::uint32_t kept, std::uint32_t neighbour, std::uint32_t pair_hash) const {
        const std::uint32_t number =
            kept == giant_ ? of_giant_[neighbour] : hashed_.find(pair_hash, [](std::uint32_t) { return true; });
        if (number != no_index) {
            prefetch_line(&edges_[number]);
        }
    }

    /// The edge between two groups, or no_index.
    std::uint32_t find(std::uint32_t kept, std::uint32_t neighbour, std::uint32_t pair_hash) const {
        if (kept == giant_ || neighbour == giant_) {
            return of_giant_[kept == giant_ ? neighbour : kept];
        }
        // An edge that is gone has an end that is no group any more.
        return hashed_.find(pair_hash, [&](std::uint32_t number) { return edges_[number].joins(kept, neighbour); });
    }

    /// Adds an edge between two groups that had none.
    void insert(std::uint32_t number, std::uint32_t kept, std::uint32_t neighbour, std::uint32_t pair_hash) {
        ++work_;
        if (kept == giant_ || neighbour == giant_) {
            of_giant_[kept == giant_ ? neighbour : kept] = number;
        } else {
            insert_hashed(number, pair_hash);
        }
    }

    /// Makes the giant, whose edges these are, a group like others. With `ends` it is about to be part of another
    /// one, and its edges are not looked up before they are rewritten.
    void unset_giant(std::span<const std::uint32_t> numbers, bool ends);
    /// Makes a group, whose edges these are, the giant, where there is none.
    void set_giant(std::uint32_t group, std::span<const std::uint32_t> numbers);

    /// How many entries have been written since the start.
    std::uint64_t work() const { return work_; }

private:
    void insert_hashed(std::uint32_t number, std::uint32_t pair_hash);

    const huge_vector<call_edge>& edges_;
    hash_index hashed_; ///< without the giant's edges; what it has of former groups is useless
    std::uint32_t giant_ = no_index;
    /// By group: its edge to the giant, or no_index; for former groups meaningless.
    huge_vector<std::uint32_t> of_giant_;
    std::uint64_t work_ = 0;
};
