// A hash index for data that does not fit the processor's caches: from 32-bit hashes to numbers.
//
// What a number stands for, say an edge in an array, and so whether it is the wanted one, is known to the user of the
// index alone. A look-up should wait for memory twice, for the index and for the thing itself. So a bucket is one
// cache line: up to 12 numbers, each with a tag, 8 bits of its hash. Only where the tag fits is the thing looked at.
// What finds its bucket full goes into the next one, and the bucket is marked.
//
// There is room for 9 numbers a bucket on average, which is 7 bytes a number. Measured on 9,000,000 random hashes, in a
// full index and in one that is filled to a half:
//
//                                                 full           half full
//     things looked at in vain, by a look-up
//       of what is there                          1 of 51        1 of 114
//       of what is not                            1 of 21        1 of 55
//     buckets that are marked                     1 of 6         1 of 1200
//     buckets visited for what is not there       1.29           1.00
//
// The number of buckets is any, so the index is found in the caches more often than a table of hashes and numbers.
#pragma once

#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

/// 4294967295: the number that nothing has.
inline constexpr std::uint32_t no_index = 4294967295U;

class hash_index {
public:
    /// Brings the bucket of `hash` into the cache.
    void prefetch(std::uint32_t hash) const { prefetch_line(&buckets_[home_of(hash)]); }

    /// A number under `hash` for which `is_wanted(number)` holds, or no_index. It may be asked of numbers under
    /// others, too.
    template <typename Predicate>
    std::uint32_t find(std::uint32_t hash, Predicate is_wanted) const {
        for (std::size_t i = home_of(hash);; i = next(i)) {
            const bucket& b = buckets_[i];
            for (std::uint64_t fitting = b.places_of(tag_of(hash)); fitting != 0; fitting &= fitting - 1) {
                const std::uint32_t number = b.numbers[bucket::first_of(fitting)];
                if (is_wanted(number)) {
                    return number;
                }
            }
            if (!b.has_overflowed()) {
                return no_index;
            }
        }
    }

    /// How many buckets and numbers a look-up in vain under `hash` looks at; by names chosen to collide, all of them.
    std::size_t probes(std::uint32_t hash) const {
        std::size_t asked = 0;
        std::size_t buckets = 0;
        for (std::size_t i = home_of(hash);; i = next(i)) {
            asked += static_cast<std::size_t>(std::popcount(buckets_[i].places_of(tag_of(hash))));
            if (++buckets; !buckets_[i].has_overflowed()) {
                return buckets + asked;
            }
        }
    }

    /// Whether the next insert() needs room to be made before.
    bool is_full() const { return size_ == room(); }

    /// Adds a number under `hash`, without looking whether it is there.
    void insert(std::uint32_t hash, std::uint32_t number) {
        ++size_;
        std::size_t i = home_of(hash);
        for (; buckets_[i].places_of(0) == 0; i = next(i)) {
            buckets_[i].tags[1] |= bucket::overflowed;
        }
        bucket& b = buckets_[i];
        const std::size_t place = bucket::first_of(b.places_of(0));
        b.numbers[place] = number;
        b.tags[place / 8] |= tag_of(hash) << place % 8 * 8;
    }

    /// For how many numbers there is room.
    std::size_t room() const { return buckets_.size() * 9; }

    /// Forgets all numbers and makes room for so many.
    void reset(std::size_t numbers) {
        buckets_ = huge_vector<bucket>(); // first, so that there are not two of them
        buckets_ = huge_vector<bucket>(numbers / 9 + 1);
        size_ = 0;
    }

    /// A number, and the hash under which it is found.
    struct entry {
        std::uint32_t hash;
        std::uint32_t number;
    };

    /// Makes room for so many numbers and enters `count` of them anew, `entry_of(i)` for i from 0 to `count` - 1.
    template <typename EntryOf>
    void refill(std::size_t room, std::uint32_t count, EntryOf entry_of) {
        constexpr std::uint32_t distance = 16; // entries between prefetch and use
        std::array<entry, distance> upcoming;  // the next ones, in turn
        const auto announce = [&](std::uint32_t i) {
            if (i < count) {
                upcoming[i % distance] = entry_of(i);
                prefetch(upcoming[i % distance].hash);
            }
        };
        reset(room);
        for (std::uint32_t i = 0; i < distance; ++i) {
            announce(i);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            const auto [hash, number] = upcoming[i % distance];
            insert(hash, number);
            announce(i + distance);
        }
    }

private:
    struct alignas(64) bucket {
        std::array<std::uint64_t, 2> tags = {}; ///< eight and four, the first in the lowest byte; 0: the place is free
        std::array<std::uint32_t, 12> numbers;

        static constexpr std::uint64_t overflowed = std::uint64_t{1} << 63U; ///< a bit of the second tags

        /// Where a tag stands, as a set of bits for first_of(). Rarely a wrong one is among them behind the first.
        std::uint64_t places_of(std::uint64_t tag) const {
            return zero_bytes(tags[0] ^ tag * every_byte) |
                   (zero_bytes(tags[1] ^ tag * every_byte) & 0x80808080U) >> 4U;
        }
        static std::size_t first_of(std::uint64_t places) {
            const auto bit = static_cast<unsigned int>(std::countr_zero(places));
            return bit / 8 + (bit % 8 == 7 ? 0 : 8);
        }
        bool has_overflowed() const { return (tags[1] & overflowed) != 0; }

    private:
        static constexpr std::uint64_t every_byte = 0x0101010101010101U;

        // The high bit of each byte that is 0; also of a byte of 1 behind one of 0.
        static std::uint64_t zero_bytes(std::uint64_t bytes) {
            return (bytes - every_byte) & ~bytes & every_byte << 7U;
        }
    };
    static_assert(sizeof(bucket) == 64);

    std::size_t home_of(std::uint32_t hash) const {
        return static_cast<std::size_t>(std::uint64_t{hash} * buckets_.size() >> 32U); // its high bits count
    }
    std::size_t next(std::size_t i) const { return i + 1 == buckets_.size() ? 0 : i + 1; }
    static std::uint64_t tag_of(std::uint32_t hash) { return std::max(hash & 255U, 1U); }

    huge_vector<bucket> buckets_ = huge_vector<bucket>(1);
    std::size_t size_ = 0; ///< how many numbers are in them
};
