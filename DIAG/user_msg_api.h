// A printf-style front end to the diagnostics, for code that has a message text rather than a catalogue row of its
// own: each call formats its text and reports it through the generic row of its severity, with the usual header,
// wrapping, counting and fatal end.
//
//     USER_MSG::get_umsg_obj()->warning(0, "%s is empty", file);
//
// It also holds the warnings-as-errors switch, which turns the warnings of this interface (not those of catalogue
// rows) into errors. A null format is the empty text.
#pragma once

#include "DIAG/diag.h"

class USER_MSG {
public:
    /// The one object of the process, made on first use and never destroyed.
    static USER_MSG* get_umsg_obj();

    void debug(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void remark(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void advice(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// This and the other forms with a position copy it; it may be null.
    void advice(DIAG_SRCINFO* position, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// The warning level has no effect. An error instead while warnings are errors.
    void warning(unsigned int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void warning(DIAG_SRCINFO* position, unsigned int level, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void error(DIAG_SRCINFO* position, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// An internal error: shows where it was raised and its text in parentheses; the run goes on.
    void apperror(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Ends the process with status 1, except in debug mode.
    void fatal(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void fatal(DIAG_SRCINFO* position, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// An internal fatal error "(NAME: TEXT)": aborts the process, except in debug mode.
    void die(const char* name, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// The formatted text, newly allocated; the caller frees it. Ends the process when memory runs out.
    char* make_msg_str(const char* format, std::va_list arguments);

    /// From now on every warning() reports an error.
    void emit_warnings_as_errors();

    /// Errors and fatal errors counted so far, of all diagnostics.
    int get_error_count() const;

private:
    bool warnings_as_errors = false;
};
