#include "support/assertion.h"

#include <cstdio>
#include <cstdlib>

void assertion_failed(const char* place, const char* function, const char* condition) {
    std::fprintf(stderr, "%s: %s: Assertion `%s' failed.\n", place, function, condition);
    std::abort();
}
