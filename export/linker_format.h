// The linkers: each is a file that tells what the linker reads, and a row in the table of linker_format.cpp.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

/// What a linker, or a program that rewrites what one linked, wants to know of an order.
struct linker_format {
    const char* name;     ///< as --linker names it
    bool orders_sections; ///< takes names of sections instead of symbols
    bool moves_sections;  ///< moves the whole section of a function, so that others in it come along
    const char* start;    ///< what stands before the first line
    const char* end;      ///< what stands behind the last one
    /// The line for a symbol or section, without its line feed; none when the format cannot hold the name.
    std::optional<std::string> (*line)(std::string_view name);
    const char* use; ///< how the user is told of the option that hands over the file, up to the option
    /// That option, up to the file's name; of a compiler driver's, what stands behind "," of -Wl.
    const char* option;
    bool is_driver_option; ///< whether `option` is passed through a compiler driver, with -Wl
    const char* driver;    ///< the compiler driver's option that chooses this linker; may be empty
};

extern const linker_format lld_format;
extern const linker_format gold_format;
extern const linker_format ld_format;
extern const linker_format macho_format;
extern const linker_format coff_format;
extern const linker_format bolt_format;

/// All linkers.
std::span<const linker_format* const> linker_formats();

/// Whether a line-based format that trims its lines would change a name: blanks at an end, or nothing at all.
bool is_trimmed(std::string_view name);
