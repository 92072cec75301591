// The calls as read: function names and weighted edges in their order of appearance, held compactly and indexed.
//
// A real profile has a million functions and several million rows, and a run spends most of its reading here, on
// look-ups that miss the processor's caches. So names are numbered from 0 in the order of their appearance, edges are
// records in an array in the order of their creation, and two hash indexes lead from a name to its number
// (ORDWELL/name_store.h) and from a pair of functions to their edge (support/hash_index.h). Rows are added in batches:
// first every name of the batch is hashed and its place in the index prefetched, then the name found there, then the
// names are resolved and the places of the pairs prefetched, then the edges are added, so that the waits for memory
// overlap.
// Rows (main,f,10), (f,g,3), (g,f,2) give
//
//     names   0 main   1 f   2 g
//     edges   0 (main, f, 10)   1 (f, g, 5)
//
// How many edges there will be is guessed from the file: a reader that has seen a tenth of it tells
// expect_growth(10). A guess may be wrong, and a hostile file may provoke it, so it is believed only once a 32nd of
// the file has been read, and an array grows only when it is full: one pair in a million rows never makes it grow.
// Names recur too much for a guess.
//
// The array of edges is the largest one of a run, and fast merging needs more of an edge than reading. So its records
// have room for that from the start, and merging takes the array over.
#pragma once

#include "ORDWELL/name_store.h"
#include "support/hash_index.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"
#include "support/seeded_hash.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// A row of an input file that counts: its weight is not 0.
struct call_row {
    std::string_view caller; ///< borrowed
    std::string_view callee; ///< borrowed
    std::uint32_t weight;    ///< calls from caller to callee
};

/// An undirected edge between two functions; in fast merging, between two groups of them.
struct call_edge {
    std::array<std::uint32_t, 2> end; ///< the first end, as read the caller of the row that created the edge; the other
    std::uint32_t weight;             ///< calls in both directions, saturating at 4294967295; 0: gone, by merging
    std::uint32_t order; ///< as read its number; in merging says where its place is (ORDWELL/fast_merge_places.h)
    std::array<std::uint64_t, 2> sums = {}; ///< in merging: at each end, the sum of weight x coordinate, modulo 2^64

    unsigned int side_of(std::uint32_t group) const { return end[1] == group ? 1 : 0; }
    std::uint32_t other_end(std::uint32_t group) const { return end[1 - side_of(group)]; }
    std::uint32_t first_end() const { return end[0]; }
    bool joins(std::uint32_t a, std::uint32_t b) const {
        return (end[0] == a && end[1] == b) || (end[0] == b && end[1] == a);
    }
    void set_first_end(std::uint32_t group) {
        if (end[0] != group) {
            std::swap(end[0], end[1]);
            std::swap(sums[0], sums[1]);
        }
    }
};
static_assert(sizeof(call_edge) == 32); // so that none stands in two cache lines

/// The largest weight, at which every sum of weights stays.
inline constexpr std::uint32_t max_weight = 4294967295U;

/// The sum of two weights, 4294967295 when it would exceed that.
inline std::uint32_t saturating_sum(std::uint32_t a, std::uint32_t b) {
    return b > max_weight - a ? max_weight : a + b;
}

/// Function names and weighted edges as read.
class call_profile {
public:
    call_profile() = default;
    call_profile(const call_profile& other);
    call_profile& operator=(const call_profile&) = delete;

    std::uint32_t function_count() const { return static_cast<std::uint32_t>(handles_.size()); }

    /// The name of a function; valid as long as the profile.
    std::string_view name(std::uint32_t function) const { return names_.at(handles_[function]).name(); }

    /// Brings what name() will give of a function into the cache, in two steps: first where it is, then the name.
    void prefetch_name(std::uint32_t function) const { prefetch_line(&handles_[function]); }
    void prefetch_name_bytes(std::uint32_t function) const { prefetch_line(&names_.at(handles_[function])); }

    /// The function of a name, or no_index.
    std::uint32_t find(std::string_view name) const;

    /// The function of a name, added when it is new.
    std::uint32_t find_or_add(std::string_view name);

    /// How much a look-up of a name that is not there looks at: hash_index::probes().
    std::size_t probes(std::string_view name) const { return name_index_.probes(hash_of_bytes(name)); }

    /// The edges in the order of their creation.
    std::span<const call_edge> edges() const { return edges_; }

    /// Gives away the edges, after the index. The profile, without edges then, must get no more of them.
    huge_vector<call_edge> take_edges() { return std::move(edges_); }

    /// Gives away the index from pairs of functions, under hash_of_pair(), to edges. The profile stays as it is;
    /// adding an edge to it will cost another index.
    hash_index take_pair_index();

    /// Adds `weight` to the edge between two different functions, creating it at the back when there is none.
    void add_edge(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight);

    /// Adds the functions and edges of rows in their order, a caller before its callee. A row whose two names are
    /// equal adds the function alone.
    void add_rows(std::span<const call_row> rows);

    /// Tells that an input begins, of which nothing is known.
    void begin_input();
    /// Tells that one part in `factor` of the input has been added; the guess is that the others bring as many edges.
    void expect_growth(double factor);

    /// How many rows were added, those of two equal names included.
    std::uint64_t row_count() const { return row_count_; }

    /// The weights of all edges together, saturating at 4294967295.
    std::uint32_t all_calls() const { return all_calls_; }

    /// Whether an edge of weight 0 was ever added.
    bool has_weightless_edge() const { return has_weightless_edge_; }

private:
    void append_name(std::string_view name);
    std::uint32_t find_hashed(std::string_view name, std::uint32_t hash) const;
    std::uint32_t find_or_add_hashed(std::string_view name, std::uint32_t hash);
    void add_edge_hashed(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight, std::uint32_t hash);

    /// The number of edges for which full arrays make room.
    std::size_t grown_edge_count() const;
    /// Indexes the pairs of the edges anew, with room for so many.
    void index_pairs(std::size_t room);

    name_store names_;
    huge_vector<std::uint32_t> handles_; ///< of the functions' names
    hash_index name_index_;              ///< leads to handles
    huge_vector<call_edge> edges_;
    hash_index pair_index_;
    bool has_pair_index_ = true;     ///< false once it was given away
    std::size_t earlier_edges_ = 0;  ///< from before the present input
    std::size_t expected_edges_ = 0; ///< at the end of the present input; 0: no guess
    std::uint64_t row_count_ = 0;
    std::uint32_t all_calls_ = 0; ///< saturating
    bool has_weightless_edge_ = false;
};
