// Random numbers that are the same on every machine, unlike those of the library's distributions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// SplitMix64 (G. Steele, D. Lea, C. Flood, "Fast splittable pseudorandom number generators", 2014).
class random_source {
public:
    explicit random_source(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15U);
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
        return z ^ (z >> 31U);
    }

    std::uint64_t below(std::uint64_t bound) { return next() % bound; }

    /// A real number in (0, 1].
    double unit() { return static_cast<double>((next() >> 11U) + 1) / 9007199254740992.0; }

private:
    std::uint64_t state_;
};

/// Brings elements into random order.
template <typename T>
void shuffle(std::vector<T>& elements, random_source& random) {
    for (std::size_t left = elements.size(); left > 1; --left) {
        std::swap(elements[left - 1], elements[random.below(left)]);
    }
}
