// Asking for memory before it is needed, so that the waits for it overlap.
#pragma once

/// Brings the cache line of an address into the cache. The address need not be a valid one.
///
/// The empty statement keeps what only prefetches from being left out: GCC takes a function without other effects for
/// one whose calls can go.
inline void prefetch_line(const void* address) {
    __builtin_prefetch(address);
    asm volatile("");
}
