#include "support/huge_pages.h"

#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>
#include <cstdint>

namespace {

constexpr std::size_t arena_size = 8 * huge_page_size; // of addresses: a page exists once something stands on it

// The pages that arrays share. It stands at the front of what it manages.
using page_arena = boost::interprocess::rbtree_best_fit<boost::interprocess::null_mutex_family>;

page_arena* make_arena() {
    void* const addresses = mmap(nullptr, arena_size + huge_page_size, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (addresses == MAP_FAILED) {
        return nullptr;
    }
    char* const front =
        static_cast<char*>(addresses) + (huge_page_size - reinterpret_cast<std::uintptr_t>(addresses) % huge_page_size);
    madvise(front, arena_size - huge_page_size, MADV_HUGEPAGE); // at its end the arena keeps a mark, on a usual page
    return new (front) page_arena(arena_size, 0);
}

// It stays until the process ends, as do arrays of static objects.
page_arena* shared_pages() {
    static page_arena* const arena = make_arena();
    return arena;
}

} // namespace

void* allocate_on_shared_pages([[maybe_unused]] std::size_t bytes, [[maybe_unused]] std::size_t alignment) noexcept {
#ifdef ORDWELL_SANITIZED // the sanitizer has to see where each array ends
    return nullptr;
#else
    return shared_pages() == nullptr ? nullptr : shared_pages()->allocate_aligned(bytes, alignment);
#endif
}

bool deallocate_on_shared_pages(void* block) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const auto front = reinterpret_cast<std::uintptr_t>(shared_pages());
    if (front == 0 || address < front || address >= front + arena_size) {
        return false;
    }
    shared_pages()->deallocate(block);
    return true;
}
