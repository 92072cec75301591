// Where a link put its input sections, by lld's map, and how the layout can be shaken.
//
// A section is known by its file, its name and, where a file has several of that name, by which of them it is; so
// it is found again in another link of the same objects, whatever the order there:
//
//          3c1000           3c1000       5d    16         app.o:(.text.main)
//
// Luck: where the text starts in its page and which functions happen to share a set of the cache moves the misses by some per
// cent. So a layout is measured in several variants, each shifted by less than a page and with one gap in ten widened by 16 to
// 64 bytes. The order of the functions stays, and so does nearly all of what they are close to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A part of the program that a linker moves as a whole.
struct section {
    std::string name; ///< "app.o:(.text.main)", with "#2" behind it if it is the second of that name
    std::uint64_t address;
    std::uint64_t size; ///< in bytes, not 0
    bool is_text;       ///< of the output section .text, where the functions are
};

/// The sections that a map of lld (`-Map`) lists, by address. Throws std::runtime_error when it has none.
std::vector<section> read_link_map(const std::string& file);

/// Moves the sections of a layout by the luck of this number; the same ones for the same number. 0 leaves all in place.
void shake(std::vector<section>& sections, unsigned int luck);
