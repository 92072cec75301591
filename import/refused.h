// What people hand over that is recognised but cannot be read, and what to do instead.
#pragma once

#include <string_view>

/// What to say of a profile that begins like this: what it is and the way out. Empty: nothing is known against it.
std::string_view why_refused(std::string_view begun);
