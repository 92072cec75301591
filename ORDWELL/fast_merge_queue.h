// The queue of fast merging: the heaviest edge next, the first in creation order among equals.
//
// Edges lie in buckets by weight, unsorted; a bucket is sorted when its turn comes. The edges at the start are counted
// first, so that their buckets are stretches of one array; edges that folding makes heavier are listed apart. What
// changes while its bucket is being worked off, or becomes heavier than that, goes to a heap, which stays small. (One
// heap for all changed edges took half of the merging time at a million functions: every pop walked some twenty levels
// that missed the caches.)
//
// The queue is lazy about changes. A place can only move back, so an edge whose place moved since it was queued is
// too optimistic: it is queued again with its present place when it surfaces. An edge that became heavier must be
// added again; its old entry is passed over because the weight does not fit.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <cstdint>
#include <queue>
#include <span>
#include <utility>
#include <vector>

/// A place in creation order; smaller is older. See ORDWELL/fast_merge_places.h.
struct place {
    std::int32_t moved;    ///< when the edge was created or last moved to the back
    std::int32_t sequence; ///< its order among edges that moved at the same time
    auto operator<=>(const place&) const = default;
};

/// An edge with its weight and place at some time.
struct queue_entry {
    std::uint32_t weight; ///< 0: the edge is gone
    std::uint32_t number; ///< of the edge
    place at;
    /// The next edge is the greatest: the heaviest, then the oldest.
    bool operator<(const queue_entry& other) const {
        return weight != other.weight ? weight < other.weight : at > other.at;
    }
    bool operator==(const queue_entry&) const = default;
};

class edge_queue {
public:
    /// Starts with these edges, numbered by their order.
    explicit edge_queue(std::span<const call_edge> edges)
        : first_ends_(bucket_of(weight_of_all(edges)) + 1), first_(edges.size()), added_(first_ends_.size()),
          open_bucket_(first_ends_.size()) {
        for (const call_edge& e : edges) {
            ++first_ends_[bucket_of(e.weight)];
        }
        std::uint32_t end = 0;
        for (std::uint32_t& bucket : first_ends_) { // for now, where each begins
            end += std::exchange(bucket, end);
        }
        for (std::uint32_t number = 0; number < edges.size(); ++number) {
            first_[first_ends_[bucket_of(edges[number].weight)]++] = number;
        }
    }

    /// Adds an edge that became heavier and tells whether, as things are, it is likely to be the next.
    /// `present_place()`, where it is now, is asked only if need be.
    template <typename PresentPlace>
    bool add(std::uint32_t number, std::uint32_t weight, PresentPlace present_place) {
        ++work_;
        const std::size_t bucket = bucket_of(weight);
        if (bucket < open_bucket_) {
            added_[bucket].push_back(number);
            return false;
        }
        heap_.push({weight, number, present_place()});
        return heap_.top().number == number;
    }

    /// Takes the next edge off; false when none is left. `present(number)` gives an edge as it is now, and
    /// `prefetch(number)` announces that this will be asked soon.
    template <typename Present, typename Prefetch>
    bool take(std::uint32_t& number, Present present, Prefetch prefetch) {
        has_advanced_ = false;
        while (!run_.empty() || !heap_.empty() || open_next_bucket(present, prefetch)) {
            const bool from_heap = run_.empty() || (!heap_.empty() && run_.back() < heap_.top());
            const queue_entry next = from_heap ? heap_.top() : run_.back();
            if (from_heap) {
                heap_.pop();
            } else {
                run_.pop_back();
                has_advanced_ = true;
            }
            const queue_entry now = present(next.number);
            if (now == next) {
                number = next.number;
                return true;
            }
            if (now.weight == next.weight) {
                ++work_;
                heap_.push(now); // it moved back
            }
        }
        return false;
    }

    /// How many entries have been written since the start.
    std::uint64_t work() const { return work_; }

    /// Whether taking the last edge changed what upcoming() says.
    bool has_advanced() const { return has_advanced_; }

    /// The edge that will be `distance` further on, if nothing changes; no_index where that is not known.
    std::uint32_t upcoming(std::size_t distance) const {
        return distance <= run_.size() ? run_[run_.size() - distance].number : no_index;
    }

private:
    // Weights below 512 have a bucket each, others share one with those of the same first nine binary digits. Heavier
    // weights have higher buckets.
    static std::size_t bucket_of(std::uint32_t weight) {
        const auto shift = static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(weight)) - 9, 0));
        return std::size_t{shift} * 256 + (weight >> shift);
    }

    // What no edge, however much is folded into it, can exceed.
    static std::uint32_t weight_of_all(std::span<const call_edge> edges) {
        std::uint32_t sum = 0;
        for (const call_edge& e : edges) {
            sum = saturating_sum(sum, e.weight);
        }
        return sum;
    }

    // Takes the next bucket that is not empty to be worked off; false when there is none.
    template <typename Present, typename Prefetch>
    bool open_next_bucket(Present present, Prefetch prefetch) {
        constexpr std::size_t distance = 16; // edges between prefetch and use
        while (run_.empty() && open_bucket_ > 0) {
            --open_bucket_;
            const std::size_t begin = open_bucket_ == 0 ? 0 : first_ends_[open_bucket_ - 1];
            const std::vector<std::uint32_t> added = std::move(added_[open_bucket_]);
            for (const std::span<const std::uint32_t> numbers :
                 {std::span<const std::uint32_t>(first_).subspan(begin, first_ends_[open_bucket_] - begin),
                  std::span<const std::uint32_t>(added)}) {
                for (std::size_t i = 0; i < numbers.size(); ++i) {
                    if (i + distance < numbers.size()) {
                        prefetch(numbers[i + distance]);
                    }
                    const queue_entry now = present(numbers[i]);
                    if (now.weight != 0 && bucket_of(now.weight) == open_bucket_) { // else gone, or queued elsewhere
                        run_.push_back(now);
                    }
                }
            }
            std::sort(run_.begin(), run_.end());
            work_ += run_.size();
        }
        return !run_.empty();
    }

    std::vector<std::uint32_t> first_ends_;         ///< where the buckets of the edges at the start end in first_
    huge_vector<std::uint32_t> first_;              ///< numbers of these, those gone or heavier now included
    std::vector<std::vector<std::uint32_t>> added_; ///< numbers of edges that came into a bucket since
    std::size_t open_bucket_;                       ///< the bucket being worked off; lower ones wait
    huge_vector<queue_entry> run_;                  ///< what is left of it, the next edge at the back
    std::priority_queue<queue_entry> heap_;         ///< added since, and not of a lower bucket
    bool has_advanced_ = false;
    std::uint64_t work_ = 0;
};
