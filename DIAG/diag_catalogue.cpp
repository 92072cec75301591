// The catalogue array, made from the list in DIAG/diag_messages.h, and what changes its severities.
#include "DIAG/diag_messages.h"

#include <cstdlib>
#include <map>

namespace {

// The flags of a row as the list spells them.
struct row_flags {
    bool internal;
    bool nondiscretionary;
};
constexpr row_flags O = {false, false};
constexpr row_flags I = {true, false};
constexpr row_flags N = {false, true};
constexpr row_flags IN = {true, true};

} // namespace

#define DIAG_ROW(code, name, severity, flags, text, ...)                                                               \
    {code, text, nullptr, severity, flags.internal, flags.nondiscretionary},
#define DIAG_BARE(code, severity, flags, text) {code, text, nullptr, severity, flags.internal, flags.nondiscretionary},
DIAG_INFO DIAG_INFO_ENTRY[] = {
    DIAG_CATALOGUE_LIST(DIAG_ROW, DIAG_BARE){0, nullptr, nullptr, dc_SUPPRESSED, false, false}};

bool DIAG_INFO::is_discretionary() const {
    return !internal && !nondiscretionary && severity < dc_FATAL && severity != dc_ADVICE;
}

DIAG_INFO* DIAGNOSTIC::get_info(int code) {
    static const std::map<int, DIAG_INFO*>& rows = *[] { // never destroyed, for exit handlers
        auto* const by_code = new std::map<int, DIAG_INFO*>;
        for (DIAG_INFO* row = DIAG_INFO_ENTRY; row->code != 0; ++row) {
            (*by_code)[row->code] = row;
        }
        return by_code;
    }();
    const auto found = rows.find(code);
    return found == rows.end() ? nullptr : found->second;
}

void DIAGNOSTIC::override_severity(int code, dc_SEVERITY severity) {
    DIAG_INFO* const row = get_info(code);
    const bool offered = severity != dc_NO_ERROR && severity != dc_ADVICE && severity != dc_DEBUG;
    if (row != nullptr && offered && row->severity != dc_ADVICE && row->severity != dc_FATAL && !row->internal &&
        !row->nondiscretionary) {
        row->severity = severity;
    }
}

void DIAGNOSTIC::override_severity(const char* codes, dc_SEVERITY severity) {
    std::string digits;
    for (const char* p = codes;; ++p) {
        if (*p >= '0' && *p <= '9') {
            digits += *p;
        } else if (*p == ',' || *p == '\0') {
            const long code = std::strtol(digits.c_str(), nullptr, 10);
            override_severity(code <= INT32_MAX ? static_cast<int>(code) : 0, severity);
            digits.clear();
        }
        if (*p == '\0') {
            return;
        }
    }
}

void DIAGNOSTIC::override_severity(dc_SEVERITY old_severity, dc_SEVERITY severity) {
    for (const DIAG_INFO* row = DIAG_INFO_ENTRY; row->code != 0; ++row) {
        if (row->severity == old_severity) {
            override_severity(row->code, severity);
        }
    }
}
