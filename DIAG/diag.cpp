// Diagnostic records: construction, suppression, completion, and the settings that all of them share.
#include "DIAG/diag_messages.h"

#include <cstdlib>
#include <cstring>
#include <utility>

bool DIAGNOSTIC::display_code_m = false;
bool DIAGNOSTIC::display_ipos_m = false;
bool DIAGNOSTIC::wrap_headers_m = false;
bool DIAGNOSTIC::wrap_enabled_m = true;
bool DIAGNOSTIC::verbose_m = false;
bool DIAGNOSTIC::advice_m = false;
bool DIAGNOSTIC::debug_m = false;
bool DIAGNOSTIC::remarks_m = false;
bool DIAGNOSTIC::warnings_m = true;
bool DIAGNOSTIC::debug_mode_m = false;
std::int32_t DIAGNOSTIC::max_errors_m = 100;
int DIAGNOSTIC::indent_m = 0;
int DIAGNOSTIC::wrap_indent_m = 3;
int DIAGNOSTIC::diag_cols_m = 79;
std::stack<bool>& DIAGNOSTIC::debug_mode_stack_m = *new std::stack<bool>;
std::stack<int>& DIAGNOSTIC::indent_stack_m = *new std::stack<int>;
FILE* DIAGNOSTIC::fp_m = nullptr;
std::int32_t DIAGNOSTIC::error_count_m = 0;

DIAG_SRCINFO_DATA::DIAG_SRCINFO_DATA(std::string file, int line, int column, bool approx)
    : file_(std::move(file)), line_(line), column_(column), approx_(approx) {}

DIAG_SRCINFO_DATA::DIAG_SRCINFO_DATA(DIAG_SRCINFO& other)
    : DIAG_SRCINFO_DATA(other.file(), other.line(), other.column(), other.approx()) {}

bool DIAG_SRCINFO_DATA::is_equal(DIAG_SRCINFO* other) {
    return other != nullptr && line_ == other->line() && column_ == other->column() && file_ == other->file();
}

DIAGNOSTIC::DIAGNOSTIC(DIAG_INFO* row, const char* source_file, std::uint32_t source_line)
    : info(row), cols_left(diag_cols_m), srcfile(source_file), line(source_line), header_printed(false) {}

DIAGNOSTIC::DIAGNOSTIC(const DIAGNOSTIC& other) : DIAGNOSTIC(other.info, other.srcfile, other.line) {
    set_src(other.src.get());
}

DIAGNOSTIC::~DIAGNOSTIC() = default;

int DIAGNOSTIC::report() {
    return print_header();
}

char* DIAGNOSTIC::get_sp_buffer() {
    return nullptr;
}

bool DIAGNOSTIC::is_equal(DIAGNOSTIC* other) {
    if (info->code != other->info->code) {
        return false;
    }
    return src == nullptr ? other->src == nullptr : src->is_equal(other->src.get());
}

void DIAGNOSTIC::free_mem() {}

void DIAGNOSTIC::dump() {
    std::printf("Code : %d\n", info->code);
    std::printf("std_msg : %s\n", info->std_msg == nullptr ? "(null)" : info->std_msg);
    std::printf("vrb_msg : %s\n", info->vrb_msg == nullptr ? "(null)" : info->vrb_msg);
    if (src != nullptr) {
        std::printf("File : %s\n", src->file().c_str());
        std::printf("Line : %d\n", src->line());
        std::printf("Column: %d\n", src->column());
    }
}

void DIAGNOSTIC::set_src(DIAG_SRCINFO* position) {
    if (position != nullptr) {
        src = std::make_unique<DIAG_SRCINFO_DATA>(*position);
    }
}

bool DIAGNOSTIC::is_discretionary() const {
    return info->is_discretionary();
}

bool DIAGNOSTIC::suppress() const {
    switch (info->severity) {
    case dc_SUPPRESSED:
        return true;
    case dc_ADVICE:
        return !advice_m;
    case dc_DEBUG:
        return !debug_m;
    case dc_REMARK:
        return !remarks_m;
    case dc_WARNING:
        return !warnings_m;
    default:
        return false;
    }
}

const char* DIAGNOSTIC::sev_str() const {
    switch (info->severity) {
    case dc_NO_ERROR:
        return "(no error)";
    case dc_ADVICE:
        return "advice";
    case dc_DEBUG:
        return "debug";
    case dc_REMARK:
        return "remark";
    case dc_WARNING:
        return "warning";
    case dc_ERROR:
        return "error";
    case dc_FATAL:
        return "fatal error";
    default:
        return "(suppressed)";
    }
}

void DIAGNOSTIC::push_debug_mode(bool on) {
    debug_mode_stack_m.push(debug_mode_m);
    debug_mode_m = on;
}

void DIAGNOSTIC::pop_debug_mode() {
    debug_mode_m = false;
    if (!debug_mode_stack_m.empty()) {
        debug_mode_m = debug_mode_stack_m.top();
        debug_mode_stack_m.pop();
    }
}

int DIAGNOSTIC::flush() {
    if (cols_left >= diag_cols_m) {
        return 0;
    }
    cols_left = diag_cols_m;
    const int count = std::fprintf(fp(), "\n");
    if (verbose_m) {
        show_annotated_source();
    }
    if (debug_mode_m) {
        return count;
    }
    if (info->severity == dc_ERROR || info->severity == dc_FATAL) {
        ++error_count_m;
    }
    if (info->severity == dc_FATAL) {
        if (info->internal) {
            std::abort();
        }
        std::exit(1);
    }
    if (error_count_m > max_errors_m) {
        DIAG::raise<DIAG::max_errors>("DIAG/diag", 148, static_cast<unsigned long>(max_errors_m));
    }
    return count;
}

char* DIAG::gadvice::get_sp_buffer() {
    return sp_print(info->std_msg, text());
}

bool DIAG::gadvice::is_equal(DIAGNOSTIC* other) {
    if (!DIAGNOSTIC::is_equal(other)) {
        return false;
    }
    const char* const other_text = static_cast<gadvice*>(other)->text(); // the same code, so the same class
    return text() == nullptr || other_text == nullptr || std::strcmp(text(), other_text) == 0;
}

void DIAG::gadvice::free_mem() {
    std::free(const_cast<char*>(text()));
    text() = nullptr;
}

void DIAG::gadvice::dump() {
    DIAGNOSTIC::dump();
    std::printf("(%s)\n", text() == nullptr ? "" : text());
}
