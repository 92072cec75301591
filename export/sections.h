// From functions to the sections in which compilers put them, for linkers that place sections.
//
// With -ffunction-sections most functions lie in a section named after them, but not all: what the compiler takes for hot,
// cold or part of starting and exiting gets other prefixes, the constructors C1 and C2 of a class share C2's section, and
// a function may be a second name of another. With the objects the true section of every symbol is looked up; without
// them all usual names are listed, of which a linker passes over those that do not exist. Cold code is not among them:
// .text.unlikely.f holds either a cold f or the cold part of a hot one, and that must not come along.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// Whether a symbol is the part of a function that the compiler took for cold, "f.cold" or "f.cold.1".
bool is_cold_part(std::string_view symbol);

/// The usual section names of a function, the most usual first; none for a cold part.
std::vector<std::string> usual_sections(std::string_view function);

/// The sections of the functions in object files.
class section_table {
public:
    /// Where a function lies.
    struct placement {
        /// The sections that define the function, in the order of the objects; those that it shares with all other
        /// functions of its source are left out, because ordering them would move all.
        std::vector<std::string> sections;
        /// The objects in which its section holds a function at another address too, by their number.
        std::vector<std::uint32_t> crowded_objects;
    };

    /// Adds an object, an archive, or with "@FILE" those that FILE lists (binary/object_list.h). Throws `failure`.
    void add(const std::string& argument);

    /// Where a function lies; null when no object defines it.
    const placement* find(const std::string& function) const;
    /// The name of an object by its number.
    const std::string& object(std::uint32_t number) const { return objects_[number]; }

private:
    void add_file(const std::string& path);

    std::vector<std::string> objects_; ///< those that have a section of several functions
    std::unordered_map<std::string, placement> placements_;
};
