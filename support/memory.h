// Checked heap allocation: no caller has to test for a null result, since exhausted memory ends the process
// with one message. The standard containers reach the same end: a program that contains this file has
// out_of_memory() as its new-handler from before its first static object on.
#pragma once

#include <cstddef>
#include <string_view>

/// Writes its message, "ERROR: out of memory\n", to standard error and ends the process at once with exit status 1.
[[noreturn]] void out_of_memory();

/// Gives a program another message for out_of_memory(), which has to stay where it is.
void set_out_of_memory_message(std::string_view message);
/// Has out_of_memory() call this first. It gets no memory, and nothing else of it is called afterwards.
void set_out_of_memory_cleanup(void (*clean_up)());

/// A block of `size` bytes, to be released with std::free(). Never null; ends the process as out_of_memory() does.
void* safemalloc(unsigned long size);

/// The block `old` (or a new one when `old` is null) resized to `size` bytes. Never null, as above.
void* saferealloc(void* old, unsigned long size);

/// A zero-filled block of `count` elements of `size` bytes. Never null, as above.
void* safecalloc(unsigned long count, unsigned long size);

/// A heap copy of the NUL-terminated `text`, to be released with std::free(). Never null, as above.
char* safestrdup(const char* text);
