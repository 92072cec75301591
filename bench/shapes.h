// Call graphs of regular shapes, with their rows in several orders and several kinds of counts.
//
// What merging does depends on which edge is the heaviest, on the order of the rows among equals, and on which end is
// the caller; a shape that is harmless one way round need not be so the other way. So every shape comes in every
// combination, 624 in all: path backward exchanged equal is a path of the rows (f2,f1,1), (f1,f0,1).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A call of a graph, between functions that are named by numbers.
struct shape_call {
    std::uint32_t caller;
    std::uint32_t callee;
    std::uint32_t count;
};

/// One of the combinations.
struct call_shape {
    std::size_t shape;  ///< below shape_count: path, star, ...
    std::size_t order;  ///< below order_count: of the rows, forward, backward, ...
    std::size_t counts; ///< below counts_count: equal, rising, ...
    bool is_exchanged;  ///< whether callers and callees change places

    static const std::size_t shape_count;
    static const std::size_t order_count;
    static const std::size_t counts_count;

    /// All of them, the forward path with equal counts first.
    static std::vector<call_shape> all();

    /// Its name, of four words.
    std::string name() const;

    /// Its calls, about so many; the same for the same arguments. `seed` changes what is random of it.
    std::vector<shape_call> calls(std::uint32_t rows, std::uint64_t seed = 1) const;
};
