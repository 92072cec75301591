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
//
// Nine of ten edges leave their bucket before its turn comes, most of them because they are gone. A bit for each edge
// tells which still are as they were at the start, so that only these are looked at, as their records miss the caches.
#pragma once

#include "ORDWELL/call_profile.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <cstdint>
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
    /// Starts with these edges, whose weights come to `all_calls` together, saturating at 4294967295.
    edge_queue(const huge_vector<call_edge>& edges, std::uint32_t all_calls)
        : edges_(edges), first_ends_(bucket_of(all_calls) + 1), first_(edges.size()),
          as_at_start_(edges.size() / 64 + 1, ~std::uint64_t{0}), added_(first_ends_.size()),
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
    /// `place_of(number)`, where an edge is now, is asked only if need be, here and below.
    template <typename PlaceOf>
    bool add(std::uint32_t number, PlaceOf place_of) {
        ++work_;
        forget(number);
        const std::uint32_t weight = edges_[number].weight;
        const std::size_t bucket = bucket_of(weight);
        if (bucket < open_bucket_) {
            added_[bucket].push_back(number);
            return false;
        }
        push({weight, number, place_of(number)});
        return heap_.front().number == number;
    }

    /// Tells that an edge is gone without having been taken.
    void forget(std::uint32_t number) { as_at_start_[number / 64] &= ~(std::uint64_t{1} << number % 64); }

    /// Takes the next edge off; false when none is left.
    template <typename PlaceOf>
    bool take(std::uint32_t& number, PlaceOf place_of) {
        has_advanced_ = false;
        while (!run_.empty() || !heap_.empty() || open_next_bucket(place_of)) {
            const bool from_heap = run_.empty() || (!heap_.empty() && run_.back() < heap_.front());
            const queue_entry next = from_heap ? heap_.front() : run_.back();
            if (from_heap) {
                std::pop_heap(heap_.begin(), heap_.end());
                heap_.pop_back();
            } else {
                run_.pop_back();
                has_advanced_ = true;
            }
            if (edges_[next.number].weight != next.weight) {
                continue;
            }
            const queue_entry now = {next.weight, next.number, place_of(next.number)};
            if (now == next) {
                number = next.number;
                return true;
            }
            ++work_;
            push(now); // it moved back
        }
        return false;
    }

    /// How many entries have been written since the start.
    std::uint64_t work() const { return work_; }

    /// Whether taking the last edge changed what upcoming() says.
    bool has_advanced() const { return has_advanced_; }

    /// The edge of the open bucket that will be `distance` further on, if nothing changes; no_index where that is not
    /// known.
    std::uint32_t upcoming(std::size_t distance) const {
        return distance <= run_.size() ? run_[run_.size() - distance].number : no_index;
    }

    /// The edges of the heap, at most so many: the next first, then the two of which one will follow it, then the four
    /// of which one will follow these, and so on.
    std::span<const queue_entry> heap(std::size_t most) const {
        return std::span(heap_).first(std::min(most, heap_.size()));
    }

private:
    // Weights below 512 have a bucket each, others share one with those of the same first nine binary digits. Heavier
    // weights have higher buckets.
    static std::size_t bucket_of(std::uint32_t weight) {
        const auto shift = static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(weight)) - 9, 0));
        return std::size_t{shift} * 256 + (weight >> shift);
    }

    bool is_as_at_start(std::uint32_t number) const { return (as_at_start_[number / 64] >> number % 64 & 1U) != 0; }

    void push(const queue_entry& e) {
        heap_.push_back(e);
        std::push_heap(heap_.begin(), heap_.end());
    }

    // Takes the next bucket that is not empty to be worked off; false when there is none.
    template <typename PlaceOf>
    bool open_next_bucket(PlaceOf place_of) {
        constexpr std::size_t distance = 16; // edges between prefetch and use
        while (run_.empty() && open_bucket_ > 0) {
            --open_bucket_;
            const auto begin = first_.begin() + (open_bucket_ == 0 ? 0 : first_ends_[open_bucket_ - 1]);
            const auto end = std::remove_if(begin, first_.begin() + first_ends_[open_bucket_],
                                            [this](std::uint32_t number) { return !is_as_at_start(number); });
            const std::vector<std::uint32_t> added = std::move(added_[open_bucket_]);
            for (const std::span<const std::uint32_t> numbers :
                 {std::span<const std::uint32_t>(begin, end), std::span<const std::uint32_t>(added)}) {
                for (std::size_t i = 0; i < numbers.size(); ++i) {
                    if (i + distance < numbers.size()) {
                        prefetch_line(&edges_[numbers[i + distance]]);
                    }
                    const std::uint32_t weight = edges_[numbers[i]].weight;
                    if (weight != 0 && bucket_of(weight) == open_bucket_) { // else gone, or queued elsewhere
                        run_.push_back({weight, numbers[i], place_of(numbers[i])});
                    }
                }
            }
            std::sort(run_.begin(), run_.end());
            work_ += run_.size();
        }
        return !run_.empty();
    }

    const huge_vector<call_edge>& edges_;
    std::vector<std::uint32_t> first_ends_;         ///< where the buckets of the edges at the start end in first_
    huge_vector<std::uint32_t> first_;              ///< numbers of these, those gone or heavier now included
    huge_vector<std::uint64_t> as_at_start_;        ///< by number, a bit each: 0 for those
    std::vector<std::vector<std::uint32_t>> added_; ///< numbers of edges that came into a bucket since
    std::size_t open_bucket_;                       ///< the bucket being worked off; lower ones wait
    huge_vector<queue_entry> run_;                  ///< what is left of it, the next edge at the back
    std::vector<queue_entry> heap_;                 ///< added since, and not of a lower bucket
    bool has_advanced_ = false;
    std::uint64_t work_ = 0;
};
