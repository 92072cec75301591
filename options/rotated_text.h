// Letter-rotated texts. The option tables store their texts rotated by 13 letters, "%" and "-" exchanged, so that
// option names do not turn up in a search through the program file; option_obj::rot13() makes them readable where
// they are used. The source shows what a text says: the compiler rotates it.
//
//     rotated<"--diag_wrap">   is stored as   %%qvnt_jenc
#pragma once

#include <algorithm>
#include <cstddef>

/// The rotation of one character; its own inverse.
constexpr char rotated_character(char c) {
    if (c == '%') {
        return '-';
    }
    if (c == '-') {
        return '%';
    }
    if ((c >= 'A' && c <= 'M') || (c >= 'a' && c <= 'm')) {
        return static_cast<char>(c + 13);
    }
    if ((c >= 'N' && c <= 'Z') || (c >= 'n' && c <= 'z')) {
        return static_cast<char>(c - 13);
    }
    return c;
}

/// A text rotated at compile time, usable as a template argument.
template <std::size_t Size>
struct rotated_text {
    char text[Size];

    consteval rotated_text(const char (&plain)[Size]) : text() { // implicit, for rotated<"...">
        std::transform(plain, plain + Size - 1, text, rotated_character);
    }
};

/// The stored form of a plain text, NUL-terminated, of static lifetime.
template <rotated_text Text>
inline constexpr const char* rotated = Text.text;
