// The bytes of function names, where a look-up finds a name and its number at once.
//
// A look-up by hash should wait for memory once more for the name that it compares. So the bytes stand behind the
// number and the length, and the index leads to them directly, by a *handle* of 32 bits: names begin at multiples of 8
// bytes, counted through all blocks. A block has whole granules of 64 KiB, and a table tells where each granule is,
// since blocks, which grow as the names do, lie anywhere. The same names in the same order have the same handles.
#pragma once

#include "support/assertion.h"
#include "support/huge_pages.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory_resource>
#include <new>
#include <string_view>
#include <vector>

class name_store {
public:
    /// A name with its number.
    class entry {
    public:
        std::uint32_t number() const { return number_; }
        std::string_view name() const { return {bytes(), length()}; }
        const char* bytes() const { return behind() + length_size(length()); }

    private:
        friend name_store;
        static constexpr std::uint32_t long_name = 4294967295U;

        // Bytes of a length that stands before the name.
        static std::size_t length_size(std::size_t length) { return length < long_name ? 0 : sizeof(std::uint64_t); }

        entry(std::uint32_t number, std::string_view name)
            : number_(number), length_(static_cast<std::uint32_t>(std::min<std::uint64_t>(name.size(), long_name))) {
            const std::uint64_t length = name.size();
            char* const behind = reinterpret_cast<char*>(this + 1);
            std::memcpy(behind, &length, length_size(length));
            std::copy(name.begin(), name.end(), behind + length_size(length));
        }
        const char* behind() const { return reinterpret_cast<const char*>(this + 1); }
        std::size_t length() const {
            std::uint64_t length = length_;
            if (length_ == long_name) {
                std::memcpy(&length, behind(), sizeof(length));
            }
            return static_cast<std::size_t>(length);
        }

        std::uint32_t number_;
        std::uint32_t length_; ///< bytes; of a long name, the length stands before its bytes
    };

    name_store() = default;
    name_store(const name_store&) = delete;
    name_store& operator=(const name_store&) = delete;

    /// Adds a name and gives its handle. It stays where it is as long as the store.
    std::uint32_t add(std::string_view name, std::uint32_t number) {
        const std::size_t size =
            (sizeof(entry) + entry::length_size(name.size()) + name.size() + unit - 1) / unit * unit;
        if (size > room_) {
            grow(size);
        }
        new (next_) entry(number, name);
        const std::size_t handle = granules_.size() * granule_units - room_ / unit;
        next_ += size;
        room_ -= size;
        return static_cast<std::uint32_t>(handle);
    }

    const entry& at(std::uint32_t handle) const {
        return *reinterpret_cast<const entry*>(granules_[handle / granule_units] + handle % granule_units * unit);
    }

private:
    static constexpr std::size_t unit = 8; // bytes
    static constexpr std::uint32_t granule_units = 1U << 13U;
    static constexpr std::size_t granule = granule_units * unit;
    static constexpr std::size_t most_granules = (std::uint64_t{1} << 32U) / granule_units - 1;

    // Begins a new block, as large as all before it, or larger when a name of so many bytes needs that.
    void grow(std::size_t size) {
        const std::size_t count = std::max({(size + granule - 1) / granule, granules_.size(), std::size_t{1}});
        internal_assert(granules_.size() + count <= most_granules, "ORDWELL/name_store", "grow", "names < 2^35 bytes");
        next_ = static_cast<char*>((granules_.empty() ? first_block_ : blocks_).allocate(count * granule, unit));
        room_ = count * granule;
        for (std::size_t i = 0; i < count; ++i) {
            granules_.push_back(next_ + i * granule);
        }
    }

    std::pmr::monotonic_buffer_resource first_block_; ///< on usual pages, as a few names touch few of them
    huge_page_resource pages_;
    std::pmr::monotonic_buffer_resource blocks_{&pages_};
    std::vector<char*> granules_;
    char* next_ = nullptr; ///< where the next name goes
    std::size_t room_ = 0; ///< bytes from there to the end of the block, which is the last granule's
};
