#include "support/strcase.h"

#include "support/memory.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

// The character as a signed byte, in lower case. The C library's tables reach down to -128.
int lower(char c) {
    return std::tolower(static_cast<signed char>(c));
}

char* upper_case_copy(const char* text) {
    char* const copy = safestrdup(text);
    for (char* p = copy; *p != '\0'; ++p) {
        *p = static_cast<char>(std::toupper(static_cast<signed char>(*p)));
    }
    return copy;
}

} // namespace

int strcaseicmp(const char* a, const char* b) {
    while (*a != '\0' && *b != '\0' && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

int strcaseincmp(const char* a, const char* b, unsigned int count) {
    for (; count > 0; --count, ++a, ++b) {
        if (*b == '\0' || lower(*a) != lower(*b)) {
            return lower(*a) - lower(*b);
        }
    }
    return 0;
}

const char* strcaseistr(const char* text, const char* wanted) {
    char* const upper_text = upper_case_copy(text);
    char* const upper_wanted = upper_case_copy(wanted);
    const char* const found = std::strstr(upper_text, upper_wanted);
    const char* const result = found == nullptr ? nullptr : text + (found - upper_text);
    std::free(upper_text);
    std::free(upper_wanted);
    return result;
}
