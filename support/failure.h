// What a companion throws when its work cannot be done; run_companion() (support/companion.h) says it and ends with status 1.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

/// Why the work cannot be done: a text for the user, without the program's name.
class failure : public std::runtime_error {
public:
    explicit failure(const std::string& text) : std::runtime_error(text) {}
    failure(const std::string& file, const std::string& text) : failure(file + ": " + text) {}
    /// `line` counts from 1.
    failure(const std::string& file, std::size_t line, const std::string& text)
        : failure(file + ":" + std::to_string(line) + ": " + text) {}
};
