// From functions to the sections in which compilers put them, for linkers that place sections.
//
// With -ffunction-sections most functions lie in a section named after them, but not all: what the compiler takes for hot,
// cold or part of starting and exiting gets other prefixes, the constructors C1 and C2 of a class share C2's section, and
// a function may be a second name of another. With the objects the true section of every symbol is looked up; without
// them all usual names are listed, of which a linker passes over those that do not exist.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The usual section names of a function, the most usual first.
std::vector<std::string> usual_sections(std::string_view function);

/// The sections of the functions in object files.
class section_table {
public:
    /// Adds an object, an archive, or with "@FILE" those that FILE names, separated by blanks or line feeds. Throws
    /// `failure`.
    void add(const std::string& path);

    /// Whether any object defines the function.
    bool defines(const std::string& function) const { return sections_.contains(function); }
    /// The sections that define the function, in the order of the objects; those that it shares with all other functions
    /// of its source are left out, because ordering them would move all.
    const std::vector<std::string>& sections(const std::string& function) const;

private:
    std::unordered_map<std::string, std::vector<std::string>> sections_;
};
