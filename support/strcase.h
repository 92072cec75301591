// Character classes, and case-insensitive comparison and search of NUL-terminated texts, one byte at a time in the
// current locale.
// Null texts are not accepted.
#pragma once

/// Less than, equal to or greater than 0: the difference of the lower-case forms at the first position where
/// they differ or either text ends; a text that is a prefix of the other differs at the terminator.
int strcaseicmp(const char* a, const char* b);

/// As strcaseicmp(), over at most `count` positions; 0 when that many compare equal.
int strcaseincmp(const char* a, const char* b, unsigned int count);

/// The first place in `text` where `wanted` stands, letter case ignored; null when there is none. An empty
/// `wanted` stands at the start. Ends the process when memory runs out (safemalloc()).
const char* strcaseistr(const char* text, const char* wanted);

/// Whether a character is white space in the C locale, whatever the current locale is.
inline bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
