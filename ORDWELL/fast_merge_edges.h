// The edges of fast merging, and which of them lies between two groups.
//
// That is asked of nearly every edge that is rewritten, and an index of all pairs does not fit the caches. But in
// most merges of a call graph one and the same group takes in a small one: the *giant*, a group with about the most
// edges. (Of 100,000 functions three quarters go that way, of a real program's 2,600 nine tenths.) So the giant's
// edges stand in an array by the group at their other end, 4 bytes a group, which the caches hold; only other pairs
// are looked up by hash. When another group has twice the giant's edges, it becomes the giant.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <array>
#include <cstdint>
#include <utility>

/// An edge between two groups.
struct edge {
    std::array<std::uint32_t, 2> end;  ///< groups, the first end first
    std::uint32_t weight;              ///< 0: the edge is gone, into another edge or inside a chain
    std::uint32_t order;               ///< 31 bits of the sequence number, one that says whether it follows
    std::array<std::uint64_t, 2> sums; ///< at each end, the sum of weight x coordinate, modulo 2^64

    unsigned int side_of(std::uint32_t group) const { return end[1] == group ? 1 : 0; }
    std::uint32_t other_end(std::uint32_t group) const { return end[1 - side_of(group)]; }
    std::uint32_t first_end() const { return end[0]; }
    void set_first_end(std::uint32_t group) {
        if (end[0] != group) {
            std::swap(end[0], end[1]);
            std::swap(sums[0], sums[1]);
        }
    }
    /// The sequence number of its place.
    std::int32_t sequence() const { return static_cast<std::int32_t>(order) >> 1; }
    /// Whether the edge follows its first end.
    bool follows() const { return (order & 1U) != 0; }
    static std::uint32_t order_of(std::int32_t sequence, bool follows) {
        return static_cast<std::uint32_t>(sequence) << 1U | (follows ? 1U : 0U);
    }
    bool is_stray_of(std::uint32_t group) const { return !follows() || first_end() != group; }
};
static_assert(sizeof(edge) == 32);

/// Times and sequence numbers stay between the negative of this and this.
constexpr std::int32_t order_limit = 1 << 30;

/// From pairs of groups to edges.
class edges_by_pair {
public:
    /// Takes over the profile's index of pairs. `edges` are those of the profile, by their numbers, when this is
    /// first used.
    edges_by_pair(call_profile& profile, const huge_vector<edge>& edges)
        : edges_(edges), hashed_(profile.take_pair_index()), of_giant_(profile.function_count(), no_index) {}

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
        return hashed_.find(pair_hash, [&](std::uint32_t number) {
            const edge& e = edges_[number]; // one that is gone has an end that is no group any more
            return (e.end[0] == kept && e.end[1] == neighbour) || (e.end[0] == neighbour && e.end[1] == kept);
        });
    }

    /// Adds an edge between two groups that had none.
    void insert(std::uint32_t number, std::uint32_t kept, std::uint32_t neighbour, std::uint32_t pair_hash) {
        if (kept == giant_ || neighbour == giant_) {
            of_giant_[kept == giant_ ? neighbour : kept] = number;
        } else {
            insert_hashed(number, pair_hash);
        }
    }

    /// Makes a group the giant and gives the former one, or no_index. The edges of both are then to be inserted.
    std::uint32_t set_giant(std::uint32_t group);

private:
    void insert_hashed(std::uint32_t number, std::uint32_t pair_hash);

    const huge_vector<edge>& edges_;
    hash_index hashed_; ///< without the giant's edges; what it has of former groups is useless
    std::uint32_t giant_ = no_index;
    huge_vector<std::uint32_t>
        of_giant_; ///< by group: its edge to the giant, or no_index; for former groups meaningless
};
