// The chains of fast merging: joins in constant time, scored from three sums.
//
// A chain of names is a doubly linked list whose direction is decided by the walker, so that joining and reversing cost
// nothing; the names are written out once, at the end. Positions are never stored: a name keeps the coordinate that it
// got in its group, and the chain knows how these lie in it,
//
//     position in the chain, from 0 at its front = direction x coordinate + offset.
//
// Scores, as the oracle defines them (ORDWELL/pettis_hansen_oracle.cpp), with chains of p and q names, positions i in
// chain 1 and j in chain 2, and L = p + q:
//
//     0  chain 2, chain 1            distance q + i - j
//     1  chain 2 reversed, chain 1   distance i + j + 1
//     2  chain 1, chain 2            distance p + j - i
//     3  chain 1, chain 2 reversed   distance p + q - 1 - i - j
//
// Each distance is linear in i and j, so the sums over the calls between the two chains of w, w x i and w x j give all
// four scores, 2 x the sum of w x (L - distance). From a weight of 2^31 on all of them saturate and join 0 wins; below,
// no sum is saturated and 64 bits hold everything.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <array>
#include <cstdint>
#include <vector>

/// A chain of at least one name.
struct chain {
    std::int64_t offset = 0;
    std::int32_t direction = 1; ///< 1 or -1
    std::uint32_t length = 1;   ///< names
    std::uint32_t head = 0;     ///< the name at its front
    std::uint32_t tail = 0;     ///< the name at its back
};

/// How coordinates in one group are expressed in those of another with which it shares its chain.
class coordinate_shift {
public:
    coordinate_shift() = default;
    coordinate_shift(const chain& from, const chain& to)
        : turn_(static_cast<std::uint64_t>(from.direction * to.direction)),
          shift_(static_cast<std::uint64_t>(to.direction * (from.offset - to.offset))) {}

    /// What a sum of weight x coordinate over calls of this weight in all becomes.
    std::uint64_t apply(std::uint64_t sum, std::uint64_t weight) const { return turn_ * sum + shift_ * weight; }

private:
    std::uint64_t turn_ = 1; ///< 1 or -1, as all here modulo 2^64
    std::uint64_t shift_ = 0;
};

/// The calls between two chains.
struct calls_between {
    std::uint32_t weight; ///< their number, saturating
    std::uint64_t sum1;   ///< sum of weight x coordinate in chain 1, modulo 2^64
    std::uint64_t sum2;   ///< the same in chain 2
};

/// How the names of all chains are linked.
class chain_links {
public:
    /// Every name is a chain of its own.
    explicit chain_links(std::size_t names) : links_(names, {no_index, no_index}) {}

    /// Joins two chains in the arrangement that scores best, the first among equals. Both structures then describe the
    /// joined chain, each in its own coordinates.
    void join(chain& chain1, chain& chain2, const calls_between& calls);

    /// Brings what join() will touch of a chain into the cache.
    void prefetch(const chain& c) const {
        prefetch_line(&links_[c.head]);
        prefetch_line(&links_[c.tail]);
    }

    /// The same of a chain that is probably this name alone.
    void prefetch_name(std::uint32_t name) const { prefetch_line(&links_[name]); }

    /// Appends the names of a chain, front first.
    void append_names(const chain& whole, std::vector<std::uint32_t>& names) const;

private:
    void connect(std::uint32_t name1, std::uint32_t name2);

    huge_vector<std::array<std::uint32_t, 2>> links_; ///< by name: its neighbours, in no order
};
