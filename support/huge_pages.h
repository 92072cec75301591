// An allocator for arrays that are large and visited in no order. Each visit needs the address of its page translated,
// and with pages of 4 KiB the translations of a large array do not fit the processor's buffer for them; so blocks of
// some size ask the system for pages of 2 MiB. Smaller blocks, and systems that know no such pages, get the usual ones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <new>
#include <sys/mman.h>
#include <vector>

template <typename T>
struct huge_page_allocator {
    using value_type = T;

    huge_page_allocator() = default;
    template <typename Other>
    huge_page_allocator(const huge_page_allocator<Other>&) {} // implicit, as containers demand

    T* allocate(std::size_t count) {
        const std::size_t bytes = count * sizeof(T);
        if (bytes < smallest) {
            return static_cast<T*>(::operator new(bytes, usual));
        }
        void* const block = ::operator new(bytes, huge);
        madvise(block, bytes, MADV_HUGEPAGE); // advice: nothing depends on its being taken
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t count) {
        if (count * sizeof(T) < smallest) {
            ::operator delete(block, usual);
        } else {
            ::operator delete(block, huge);
        }
    }
    bool operator==(const huge_page_allocator&) const { return true; }

private:
    static constexpr std::size_t page_size = std::size_t{2} << 20U;
    static constexpr std::align_val_t huge{page_size};
    static constexpr std::align_val_t usual{std::max(alignof(T), alignof(std::max_align_t))};
    static constexpr std::size_t smallest = 2 * page_size; // bytes; below, half a page might stay empty
};

/// A vector on huge pages.
template <typename T>
using huge_vector = std::vector<T, huge_page_allocator<T>>;

/// Huge pages for what grows in pieces, as a std::pmr::monotonic_buffer_resource does.
class huge_page_resource : public std::pmr::memory_resource {
    void* do_allocate(std::size_t bytes, std::size_t) override { return pages_.allocate(blocks_for(bytes)); }
    void do_deallocate(void* block, std::size_t bytes, std::size_t) override {
        pages_.deallocate(static_cast<std::max_align_t*>(block), blocks_for(bytes));
    }
    bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }

    static std::size_t blocks_for(std::size_t bytes) {
        return (bytes + sizeof(std::max_align_t) - 1) / sizeof(std::max_align_t);
    }
    huge_page_allocator<std::max_align_t> pages_;
};
