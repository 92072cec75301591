// Internal assertions: a broken invariant of this program stops it at once, in release builds too, because a
// wrong function order is worse for a build than a stopped one. The place is part of the message text, so
// it is given by the caller and stays the same when lines move.
#pragma once

/// Writes "PLACE: FUNCTION: Assertion `CONDITION' failed." to standard error and aborts the process.
[[noreturn]] void assertion_failed(const char* place, const char* function, const char* condition);

/// Stops the process unless `holds`; the texts are those of assertion_failed().
inline void internal_assert(bool holds, const char* place, const char* function, const char* condition) {
    if (!holds) {
        assertion_failed(place, function, condition);
    }
}
