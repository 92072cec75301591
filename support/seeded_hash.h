// Hashes that no one can foresee.
//
// Function names, and which functions call each other, come from other people's programs. With a hash that is the same
// in every run, names can be chosen that all have the same one: 16,000 of them took a second to read, and the time grew
// with their square. So a run draws two secret numbers, which go into every hash; nothing that is written depends on
// them. The step is the multiplication of the *wyhash* family (Wang Yi, 2019): a word is combined with what came
// before, multiplied by a secret number, and the two halves of the 128-bit product are combined,
//
//     hash = fold((hash ^ word) x secret),
//
// so whether two words that differ can be made up for by the next ones depends on the secret. Eight bytes a step: on
// names of 30 bytes four multiplications.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// What a run's hashes depend on; drawn at its first use.
struct hash_secret {
    std::uint64_t start;
    std::uint64_t factor; ///< odd
    static hash_secret draw();
    static const hash_secret& of_this_run() {
        static const hash_secret drawn = draw();
        return drawn;
    }
};

/// The high and the low half of a product, combined.
inline std::uint64_t folded_product(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
    __extension__ using wide = unsigned __int128;
    const wide product = wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
#else
    const std::uint64_t low = (a & 0xffffffffU) * (b & 0xffffffffU);
    const std::uint64_t middle = (a >> 32U) * (b & 0xffffffffU) + (low >> 32U); // 2^64 - 2^32 at most
    const std::uint64_t other_middle = (a & 0xffffffffU) * (b >> 32U) + (middle & 0xffffffffU);
    return (a * b) ^ ((a >> 32U) * (b >> 32U) + (middle >> 32U) + (other_middle >> 32U));
#endif
}

/// The hash of some bytes: the same in a run, another in the next one.
inline std::uint32_t hash_of_bytes(std::string_view bytes) {
    const hash_secret& secret = hash_secret::of_this_run();
    std::uint64_t hash = secret.start ^ bytes.size();
    const auto add = [&](const char* from, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, from, count);
        hash = folded_product(hash ^ word, secret.factor);
    };
    const char* p = bytes.data();
    for (std::size_t left = bytes.size(); left > 8; left -= 8, p += 8) {
        add(p, 8);
    }
    if (bytes.size() >= 8) {
        add(bytes.data() + bytes.size() - 8, 8); // overlaps what was added
    } else {
        add(p, bytes.size());
    }
    return static_cast<std::uint32_t>(hash ^ hash >> 32U);
}

/// The hash of an unordered pair of numbers.
inline std::uint32_t hash_of_pair(std::uint32_t a, std::uint32_t b) {
    const hash_secret& secret = hash_secret::of_this_run();
    const std::uint64_t key = a < b ? std::uint64_t{a} << 32U | b : std::uint64_t{b} << 32U | a;
    const std::uint64_t hash = folded_product(key ^ secret.start, secret.factor);
    return static_cast<std::uint32_t>(hash ^ hash >> 32U);
}

/// The hash of a number, for tables whose keys come from a file.
struct number_hash {
    using is_avalanching = void; // to Boost: all bits of the hash depend on all bits of the number
    std::size_t operator()(std::uint64_t number) const {
        const hash_secret& secret = hash_secret::of_this_run();
        return static_cast<std::size_t>(folded_product(number ^ secret.start, secret.factor));
    }
};
