#include "DIAG/user_msg_api.h"

#include "DIAG/diag_messages.h"
#include "support/memory.h"

#include <cstdlib>

namespace {

constexpr const char* this_file = "DIAG/user_msg_api";

// Reports `text` as a record of the class `Message` raised at `line`, and frees it.
template <typename Message>
void emit(std::uint32_t line, DIAG_SRCINFO* position, char* text) {
    Message record(Message::row(), this_file, line, text);
    record.set_src(position);
    record.report();
    std::free(text);
}

} // namespace

// Formats the variable arguments of an operation into the new text `text`.
#define FORMAT_ARGUMENTS(text)                                                                                         \
    std::va_list arguments;                                                                                            \
    va_start(arguments, format);                                                                                       \
    char* const text = make_msg_str(format, arguments);                                                                \
    va_end(arguments)

USER_MSG* USER_MSG::get_umsg_obj() {
    static USER_MSG* const object = new USER_MSG;
    return object;
}

void USER_MSG::debug(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gdebug>(50, nullptr, text);
}

void USER_MSG::remark(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gremark>(63, nullptr, text);
}

void USER_MSG::advice(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gadvice>(75, nullptr, text);
}

void USER_MSG::advice(DIAG_SRCINFO* position, const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gadvice>(88, position, text);
}

void USER_MSG::warning(unsigned int, const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    if (warnings_as_errors) {
        emit<DIAG::gerror>(152, nullptr, text);
    } else {
        emit<DIAG::gwarning>(118, nullptr, text);
    }
}

void USER_MSG::warning(DIAG_SRCINFO* position, unsigned int, const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    if (warnings_as_errors) {
        emit<DIAG::gerror>(164, position, text);
    } else {
        emit<DIAG::gwarning>(140, position, text);
    }
}

void USER_MSG::error(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gerror>(152, nullptr, text);
}

void USER_MSG::error(DIAG_SRCINFO* position, const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gerror>(164, position, text);
}

void USER_MSG::apperror(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gapperror>(179, nullptr, text);
}

void USER_MSG::fatal(const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gfatal>(191, nullptr, text);
}

void USER_MSG::fatal(DIAG_SRCINFO* position, const char* format, ...) {
    FORMAT_ARGUMENTS(text);
    emit<DIAG::gfatal>(203, position, text);
}

void USER_MSG::die(const char* name, const char* format, ...) {
    FORMAT_ARGUMENTS(message);
    const std::string text = std::string(name) + ": " + message; // the name is no format: it may hold a "%"
    std::free(message);
    emit<DIAG::gdie>(217, nullptr, safestrdup(text.c_str()));
}

char* USER_MSG::make_msg_str(const char* format, std::va_list arguments) {
    char* text = nullptr;
    if (vasprintf(&text, format_or_empty(format), arguments) < 0) {
        out_of_memory();
    }
    return text;
}

void USER_MSG::emit_warnings_as_errors() {
    warnings_as_errors = true;
}

int USER_MSG::get_error_count() const {
    return DIAGNOSTIC::error_count_m;
}
