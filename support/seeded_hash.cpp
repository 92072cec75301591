#include "support/seeded_hash.h"

#include <chrono>
#include <sys/random.h>

hash_secret hash_secret::draw() {
    hash_secret drawn{};
    if (getrandom(&drawn, sizeof drawn, GRND_NONBLOCK) != sizeof drawn) { // an old or locked-up system: something else
        const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
        drawn.start = static_cast<std::uint64_t>(now) * 0x9e3779b97f4a7c15U; // 2^64 / the golden ratio
        drawn.factor = reinterpret_cast<std::uintptr_t>(&drawn) * 0xbf58476d1ce4e5b9U ^ drawn.start;
    }
    drawn.factor |= 1U;
    return drawn;
}
