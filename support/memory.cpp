#include "support/memory.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

namespace {

constinit std::string_view message = "ERROR: out of memory\n";
void (*clean_up_first)() = nullptr;

// Runs before every static object of the program is made, since those need memory too.
[[gnu::constructor(101)]] void install_new_handler() {
    std::set_new_handler(out_of_memory);
}

void* checked(void* block) {
    if (block == nullptr) {
        out_of_memory();
    }
    return block;
}

} // namespace

void out_of_memory() {
    static std::atomic_flag is_told;
    while (is_told.test_and_set()) {
        pause(); // another thread says it and ends the process
    }
    if (clean_up_first != nullptr) {
        clean_up_first();
    }
    // write() and not stdio: a stream may need memory for its buffer, and there is none.
    if (write(STDERR_FILENO, message.data(), message.size()) < 0) {
        // Nobody is left to be told.
    }
    _exit(1); // no exit handler runs, and no stream that still holds text writes it behind the message
}

void set_out_of_memory_message(std::string_view text) {
    message = text;
}

void set_out_of_memory_cleanup(void (*clean_up)()) {
    clean_up_first = clean_up;
}

void* safemalloc(unsigned long size) {
    return checked(std::malloc(size));
}

void* saferealloc(void* old, unsigned long size) {
    return checked(std::realloc(old, size));
}

void* safecalloc(unsigned long count, unsigned long size) {
    return checked(std::calloc(count, size));
}

char* safestrdup(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(safemalloc(size), text, size));
}
