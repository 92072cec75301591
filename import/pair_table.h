// Counts of ordered pairs of functions, in the order of their first appearance.
//
// Where nearly every pair is new, adding one waits for memory. So pairs are added in batches: the place of each in the index
// is on its way into the cache before the first of them is looked up.
#pragma once

#include "support/hash_index.h"
#include "support/huge_pages.h"

#include <array>
#include <cstdint>
#include <limits>

/// The sum of two counts, the largest there is when it would exceed that.
inline std::uint64_t saturating_count(std::uint64_t a, std::uint64_t b) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return b > most - a ? most : a + b;
}

/// How often one function called another; of a function with itself, how often it was executed, as far as is known.
struct counted_pair {
    std::uint32_t caller;
    std::uint32_t callee;
    std::uint64_t count;
};

class pair_table {
public:
    /// Adds to the count of a pair, which may be by 0.
    void add(std::uint32_t caller, std::uint32_t callee, std::uint64_t count);
    /// Enters what add() has put off. Throws `failure` for more pairs than there are numbers.
    void complete();
    /// The pairs, once complete() was called.
    const huge_vector<counted_pair>& pairs() const { return pairs_; }

private:
    huge_vector<counted_pair> pairs_;
    hash_index index_;                     ///< from caller and callee to pairs_
    std::array<counted_pair, 16> pending_; ///< put off
    std::size_t pending_count_ = 0;
};
