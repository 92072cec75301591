// The values of options: where they stand on the command line, and numbers and choices in them.
//
// A value may be glued to its option (-ofile), stand after "=" (-o=file) or be the next argument (-o file); for some
// options only the first two. A missing or bad value is reported and ends the process with status 1.
#include "DIAG/diag_messages.h"
#include "options/optobj.h"
#include "support/memory.h"
#include "support/strcase.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// Where the values of a parse type may stand.
bool is_glued_only(int type) {
    return type >= 9 && type <= 17;
}

// How they are checked.
bool is_oneof(int type) {
    return type == 6 || type == 7 || type == 15 || type == 16;
}
bool is_text(int type) {
    return type == 3 || type == 4 || type == 12 || type == 13;
}
bool is_unsigned(int type) {
    return type == option_obj::parse_unsigned || type == option_obj::parse_glued_unsigned;
}

bool is_empty(const char* text) {
    return text == nullptr || *text == '\0';
}

} // namespace

void option_obj::report_missing_parameter(option_id id, const char* param_name, unsigned int source_line) const {
    DIAG::raise<DIAG::optgen_missing_parameter>("optobj", source_line, typed_spelling(id).c_str(),
                                                readable(param_name).c_str());
    std::exit(1);
}

const char* option_obj::parse_arg(option_id id, const char* rest, const char* param_name, parse_option_type type,
                                  const arg_range* range) {
    if (!is_option(id)) {
        return nullptr;
    }
    if (is_oneof(type)) {
        DIAG::raise<DIAG::optgen_option_handler_corruption>("optobj", 2147);
        return nullptr;
    }
    if (is_glued_only(type)) {
        if (is_empty(rest)) {
            return nullptr;
        }
        if (*rest == '=' && *++rest == '\0') {
            report_missing_parameter(id, param_name, 2172);
        }
        if (!is_text(type)) {
            check_numerical_arg(type, id, param_name, rest, range);
        }
        return rest;
    }
    const char* const value = is_empty(rest) ? next_arg() : *rest == '=' ? rest + 1 : rest;
    if (!is_text(type)) {
        check_numerical_arg(type, id, param_name, value, range);
    } else if (is_empty(value)) {
        report_missing_parameter(id, param_name, 2206);
    }
    return value;
}

void option_obj::check_numerical_arg(parse_option_type type, option_id id, const char* param_name, const char* value,
                                     const arg_range* range) {
    if (!is_option(id)) {
        return;
    }
    if (is_empty(value)) {
        report_missing_parameter(id, param_name, 2033);
    }
    const bool has_minus = std::strchr(value, '-') != nullptr;
    int error = 0;
    errno = 0;
    bool acceptable = false;
    if (is_unsigned(type)) {
        const unsigned long number = strtoul_by_radix(value, &error);
        acceptable = errno != ERANGE && error == 0 && !has_minus && number >= static_cast<unsigned long>(range->low) &&
                     number <= static_cast<unsigned long>(range->high);
        if (trace) {
            std::printf("%s: check 0x%lX <= 0x%lX <= 0x%lX\n", option_obj::trace_tag,
                        static_cast<unsigned long>(range->low), number, static_cast<unsigned long>(range->high));
        }
    } else {
        const long number = strtol_by_radix(value, &error);
        acceptable = errno != ERANGE && error == 0 && number >= range->low && number <= range->high;
        if (trace) {
            std::printf("%s: check %ld <= %ld <= %ld\n", option_obj::trace_tag, range->low, number, range->high);
        }
    }
    if (acceptable) {
        return;
    }
    const std::uint32_t line = is_unsigned(type) ? 2069 : 2105; // of the first of three messages
    const std::string typed_text = typed_spelling(id);
    const std::string parameter_text = readable(param_name);
    const char* const typed = typed_text.c_str();
    const char* const parameter = parameter_text.c_str();
    if (range->low != 0 || range->high != INT_MAX) {
        DIAG::raise<DIAG::optgen_arg_out_of_range2>("optobj", line + 11, typed, parameter,
                                                    static_cast<unsigned long>(range->low),
                                                    static_cast<unsigned long>(range->high));
    } else if (has_minus) {
        DIAG::raise<DIAG::optgen_arg_out_of_range_non_neg>("optobj", line, typed, parameter);
    } else {
        DIAG::raise<DIAG::optgen_arg_out_of_range>("optobj", line + 5, typed, parameter);
    }
    std::exit(1);
}

int option_obj::parse_oneof(option_id id, const char* rest, const char* param_name, parse_option_type type,
                            long* value) {
    if (!is_option(id) || !is_oneof(type)) {
        return 0;
    }
    const bool glued_only = is_glued_only(type);
    if (glued_only && is_empty(rest)) {
        return 0;
    }
    if (!is_empty(rest) && *rest == '=') {
        if (*++rest == '\0') {
            report_missing_parameter(id, param_name, glued_only ? 2256 : 2290);
        }
    } else if (is_empty(rest)) {
        rest = next_arg();
        if (is_empty(rest)) {
            report_missing_parameter(id, param_name, 2290);
        }
    }

    std::string choices;
    bool is_first_choice = true;
    const oneof_item* item = option_definitions[static_cast<std::size_t>(id)].oneof_items;
    for (; item != nullptr && item->text != nullptr; ++item) {
        const char marker = item->text[0];
        const char* const choice = item->text + 1;
        if (strcaseicmp(rest, choice) == 0) {
            if (marker == '*') {
                std::fprintf(stderr,
                             "WARNING: argument '%s' to option '%s' is deprecated and will be removed in a future "
                             "release\n",
                             choice, main_spelling(id).c_str());
            }
            *value = item->value;
            return 1;
        }
        if (marker == '+') {
            choices += is_first_choice ? "" : ",";
            choices += choice;
            is_first_choice = false;
        }
    }
    DIAG::raise<DIAG::optgen_bad_argument>("optobj", 2335, typed_spelling(id).c_str(), choices.c_str());
    std::exit(1);
}

int option_obj::get_radix(char* text) {
    int radix = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        radix = 16;
    } else if (text[0] == '0' && text[1] >= '0' && text[1] <= '7') {
        radix = 8;
    }
    const std::size_t digits = std::strspn(text, "0123456789abcdefABCDEF");
    const std::size_t octal_digits = std::strspn(text, "01234567");
    char& suffix = text[digits];
    if (suffix == 'h' || suffix == 'H') {
        suffix = '\0';
        radix = 16;
    } else if ((suffix == 'q' || suffix == 'Q') && octal_digits == digits) {
        suffix = '\0';
        radix = 8;
    }
    return radix;
}

namespace {

// Converts `text` in the radix of its form with `convert`, std::strtol or std::strtoul.
template <typename Number>
Number parse_by_radix(const char* text, int* error, bool trace, const char* signedness,
                      Number (*convert)(const char*, char**, int)) {
    char* const copy = safestrdup(text);
    const int radix = option_obj::get_radix(copy);
    if (trace) {
        std::printf("%s: about to parse '%s' as %s, radix %d\n", option_obj::trace_tag, copy, signedness, radix);
    }
    char* end = nullptr;
    const Number number = convert(copy, &end, radix);
    if (error != nullptr) {
        *error = end == copy || *end != '\0' ? 1 : 0;
    }
    std::free(copy);
    return number;
}

} // namespace

long option_obj::strtol_by_radix(const char* text, int* error) const {
    return parse_by_radix<long>(text, error, trace, "signed", std::strtol);
}

unsigned long option_obj::strtoul_by_radix(const char* text, int* error) const {
    return parse_by_radix<unsigned long>(text, error, trace, "unsigned", std::strtoul);
}

void option_obj::deprecated_case(const char* end, const char* canonical) {
    const std::string typed(current_option, end);
    if (typed.compare(0, typed.size(), canonical, std::min(typed.size(), std::strlen(canonical))) != 0) {
        DIAG::raise<DIAG::optgen_case_insensitivity_deprecated>("optobj", 2355, typed.c_str(), canonical);
    }
}
