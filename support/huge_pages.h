// An allocator for arrays that are large and visited in no order. Each visit needs the address of its page translated,
// and with pages of 4 KiB the translations of a large array do not fit the processor's buffer for them; besides, the
// system is entered for each page when it is first touched. So arrays ask for pages of 2 MiB: large ones for their own,
// those of middle size share some, since most of a page would stay empty else. (At 10,000 functions, where no array is
// large, sharing takes an eighth off the whole run.) Small arrays get the usual pages, as do all on systems that know
// no others. To be used by one thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory_resource>
#include <new>
#include <sys/mman.h>
#include <vector>

inline constexpr std::size_t huge_page_size = std::size_t{2} << 20U; ///< bytes

/// Bytes on pages that others share; null when there is no room, which is no error: any other memory will do.
void* allocate_on_shared_pages(std::size_t bytes, std::size_t alignment) noexcept;
/// Gives such bytes back; false when they are no such bytes.
bool deallocate_on_shared_pages(void* block) noexcept;

template <typename T>
struct huge_page_allocator {
    using value_type = T;

    huge_page_allocator() = default;
    template <typename Other>
    huge_page_allocator(const huge_page_allocator<Other>&) {} // implicit, as containers demand

    T* allocate(std::size_t count) {
        const std::size_t bytes = count * sizeof(T);
        if (bytes < smallest) {
            void* const shared =
                bytes < smallest_shared ? nullptr : allocate_on_shared_pages(bytes, static_cast<std::size_t>(usual));
            return static_cast<T*>(shared != nullptr ? shared : ::operator new(bytes, usual));
        }
        void* const block = ::operator new(bytes, huge);
        madvise(block, bytes, MADV_HUGEPAGE); // advice: nothing depends on its being taken
        return static_cast<T*>(block);
    }
    void deallocate(T* block, std::size_t count) {
        const std::size_t bytes = count * sizeof(T);
        if (bytes >= smallest) {
            ::operator delete(block, huge);
        } else if (bytes < smallest_shared || !deallocate_on_shared_pages(block)) {
            ::operator delete(block, usual);
        }
    }
    bool operator==(const huge_page_allocator&) const { return true; }

private:
    static constexpr std::align_val_t huge{huge_page_size};
    static constexpr std::align_val_t usual{std::max(alignof(T), alignof(std::max_align_t))};
    static constexpr std::size_t smallest = 2 * huge_page_size; // bytes; below, half a page might stay empty
    static constexpr std::size_t smallest_shared = 4 * 1024;    // bytes; below, there is nothing to gain
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
