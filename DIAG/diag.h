// Diagnostics: every message that the tool addresses to its user about a problem.
//
// A diagnostic is a record (class DIAGNOSTIC) made from one row of a fixed, numbered catalogue and the values that
// fill the row's template. Its raise site builds it, reports it at once and keeps nothing:
//
//     DIAG::raise<DIAG::owl_bad_csv_file_header>("ORDWELL/pettis_hansen", 189, "calls.csv");
//
// prints, on standard error, wrapped at 79 columns with continuation lines indented by 3 blanks,
//
//     error: Invalid CSV input file header line encountered in calls.csv; file
//        ignored
//
// counts the error, and lets the run go on. A fatal row ends the process with status 1 once its line is
// written, an internal fatal row (a broken invariant of this program) aborts it, and the 101st error ends it
// with the error-limit message. An internal row shows where it was raised, its code and its arguments instead
// of its sentence. The raising file and line are part of the catalogue's fixed data, not of the compiler's.
//
// The message classes and the rows stand in DIAG/diag_messages.h.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stack>
#include <string>

/// The severity scale. Where diagnostics of a severity go and whether they are shown: see DIAGNOSTIC.
enum dc_SEVERITY : std::int32_t {
    dc_SUPPRESSED = 0, ///< never shown
    dc_NO_ERROR = 1,
    dc_ADVICE = 2,
    dc_DEBUG = 3,
    dc_REMARK = 4,
    dc_WARNING = 5,
    dc_ERROR = 6, ///< counted toward the error limit
    dc_FATAL = 7, ///< counted; ends the process
};

/// A catalogue row: what all diagnostics of one code share. Rows live as long as the process.
struct DIAG_INFO {
    std::int32_t code;     ///< the number, unique in the catalogue; 0 ends the catalogue
    const char* std_msg;   ///< printf-style template
    const char* vrb_msg;   ///< verbose template; null in every row
    dc_SEVERITY severity;  ///< the only field that changes at run time (DIAGNOSTIC::override_severity())
    bool internal;         ///< an internal error: see the head of this file
    bool nondiscretionary; ///< the severity is fixed

    /// Whether the severity may be changed at run time.
    bool is_discretionary() const;
};

/// The catalogue: rows in ascending order of code, ended by a row of code 0.
extern DIAG_INFO DIAG_INFO_ENTRY[];

/// A position in a user's file, for a diagnostic that is about one.
class DIAG_SRCINFO {
public:
    virtual std::string file() = 0;
    virtual int line() = 0;    ///< counted from 1; 0 when unknown
    virtual int column() = 0;  ///< counted from 1; 0 when unknown
    virtual bool approx() = 0; ///< whether the position is approximate
    virtual ~DIAG_SRCINFO() = default;
    virtual bool is_equal(DIAG_SRCINFO* other) = 0;
};

/// A position as a plain value.
class DIAG_SRCINFO_DATA : public DIAG_SRCINFO {
public:
    DIAG_SRCINFO_DATA(std::string file, int line, int column, bool approx);
    /// Copies the four values out of any position.
    explicit DIAG_SRCINFO_DATA(DIAG_SRCINFO& other);

    std::string file() override { return file_; }
    int line() override { return line_; }
    int column() override { return column_; }
    bool approx() override { return approx_; }
    /// True when line, column and file text are equal; a null `other` equals nothing.
    bool is_equal(DIAG_SRCINFO* other) override;

private:
    std::string file_;
    int line_;
    int column_;
    bool approx_;
};

/// A printf-style format, for which null stands for the empty text.
inline const char* format_or_empty(const char* format) {
    return format == nullptr ? "" : format;
}

/// The base of every diagnostic record. A record is written by print_header(), one or more print() and flush().
class DIAGNOSTIC {
public:
    /// `row` must not be null and is not owned, nor is `source_file`, the static name of the raising source file.
    DIAGNOSTIC(DIAG_INFO* row, const char* source_file, std::uint32_t source_line);
    /// Copies row, raising place and user position; the copy starts on a fresh line.
    DIAGNOSTIC(const DIAGNOSTIC& other);
    DIAGNOSTIC& operator=(const DIAGNOSTIC&) = delete;

    virtual ~DIAGNOSTIC();
    /// A heap copy of the whole record, owned by the caller.
    virtual DIAGNOSTIC* alloc() = 0;
    /// Writes the diagnostic and completes it; returns the characters of header and message. Does not return for
    /// a fatal row outside debug mode.
    virtual int report();
    /// The message wrapped into a new text that the caller frees; null where a class has none.
    virtual char* get_sp_buffer();
    /// Same code, and the same user position (or neither record has one).
    virtual bool is_equal(DIAGNOSTIC* other);
    /// Releases what the record's arguments point to; nothing in the base.
    virtual void free_mem();
    /// Prints row and position on standard output, for debugging.
    virtual void dump();

    /// Gives the record a copy of a user's file position; null changes nothing.
    void set_src(DIAG_SRCINFO* position);

    /// The catalogue row of a code, or null.
    static DIAG_INFO* get_info(int code);

    bool is_discretionary() const;
    /// Whether the record's present severity is not shown: such a record prints nothing and is not counted.
    bool suppress() const;
    /// The name of the record's present severity.
    const char* sev_str() const;

    /// Makes one discretionary row suppressed (0), a remark, warning, error or fatal error; other rows and other
    /// severities change nothing. Holds for the rest of the run.
    static void override_severity(int code, dc_SEVERITY severity);
    /// The same for every code in a comma-separated list, in which all but digits and commas is skipped.
    static void override_severity(const char* codes, dc_SEVERITY severity);
    /// The same for every row whose present severity is `old_severity`.
    static void override_severity(dc_SEVERITY old_severity, dc_SEVERITY severity);

    /// Saves debug_mode_m and sets it; pop_debug_mode() restores it (to false when nothing was saved).
    static void push_debug_mode(bool on);
    static void pop_debug_mode();

    /// Completes the diagnostic: ends the line, counts, and ends the process for a fatal row or past the error
    /// limit. Returns the characters written; 0, doing nothing, when no line is open.
    int flush();

    // Layout of the text (DIAG/diag_layout.cpp).

    /// The stream of this record: fp_m, else standard error from dc_WARNING on, else standard output.
    FILE* fp() const;
    /// Writes indentation, place, severity and code as the settings ask; returns the characters, 0 when suppressed.
    int print_header();
    /// Formats and writes message text, wrapped; returns its length before wrapping, 0 when suppressed. A null
    /// format is the empty text.
    int print(const char* format, ...);
    /// Formats text and wraps it (66 columns, then 10 blanks and 69) into a new text that the caller frees.
    char* sp_print(const char* format, ...);
    /// Wraps `text` to lines of `line_width` columns, continuation lines starting with `indent` +
    /// `continuation_indent` blanks, onto the stream (result null) or into a new text that the caller frees.
    /// `budget` is the number of columns left on the first line, and on return on the last.
    char* print_formatted(const char* text, bool to_buffer, int* budget, int line_width, int indent,
                          int continuation_indent);
    /// The last character of the non-empty `text` that goes on a line with `budget` columns left.
    static const char* last_printable_char(const char* text, int budget);
    /// Ends the line and starts a continuation line.
    void start_new_line();
    /// The position as a header shows it: "FILE", line N (approximate); empty for null or a nameless file.
    static std::string srcinfo_str(DIAG_SRCINFO* position);
    /// Writes the user's source line with a caret under the column, as far as the position is known.
    void show_annotated_source();
    /// Saves indent_m and sets it; pop_indent() restores it (to 0 when nothing was saved).
    static void push_indent(int columns);
    static void pop_indent();

    // Settings of all diagnostics.

    static bool display_code_m;       ///< show the code in every header
    static bool display_ipos_m;       ///< show the raising source position in every header
    static bool wrap_headers_m;       ///< let headers wrap as message text does
    static bool wrap_enabled_m;       ///< wrap message text
    static bool verbose_m;            ///< echo the user's source line after each diagnostic
    static bool advice_m;             ///< show advice
    static bool debug_m;              ///< show debug diagnostics
    static bool remarks_m;            ///< show remarks
    static bool warnings_m;           ///< show warnings
    static bool debug_mode_m;         ///< count no errors, end no process
    static std::int32_t max_errors_m; ///< the error limit
    static int indent_m;              ///< blanks before every header and continuation line
    static int wrap_indent_m;         ///< further blanks before continuation lines
    static int diag_cols_m;           ///< columns of a line; above indent_m + wrap_indent_m
    static std::stack<bool>&
        debug_mode_stack_m;                 ///< saved values of debug_mode_m; never destroyed, for late diagnostics
    static std::stack<int>& indent_stack_m; ///< saved values of indent_m; never destroyed
    static FILE* fp_m;                      ///< stream for all diagnostics; null: by severity
    static std::int32_t error_count_m;      ///< errors and fatal errors so far

protected:
    DIAG_INFO* info; ///< never null, not owned

private:
    int vprint(const char* format, std::va_list arguments);

    int cols_left;                     ///< columns free on the line being written; diag_cols_m: none is open
    std::unique_ptr<DIAG_SRCINFO> src; ///< the user's position, null when there is none
    const char* srcfile;               ///< where in this program it was raised; not owned
    std::uint32_t line;
    bool header_printed; ///< set by print_header()
};
