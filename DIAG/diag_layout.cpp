// The layout of a diagnostic as text: the header, and the message wrapped at blanks to the width of a line.
//
// With 79 columns and a continuation indent of 3, the header "error: " and its message become
//
//     error: Error reading caller function specification from profile_data.csv, line
//        12; remainder of file ignored
//
// The blank at a break is dropped. A word that is too long for a line of its own is cut at the end of the line
// that it stands on. Columns are bytes, so a name in UTF-8 counts each of its bytes.
//
// print_formatted() writes piece by piece and needs no copy of the text; each piece looks at no more of the text
// than one line can hold, so the work is proportional to the length of the message.
#include "DIAG/diag.h"
#include "support/assertion.h"
#include "support/memory.h"
#include "support/strcase.h"

#include <cstdlib>
#include <cstring>
#include <vector>

FILE* DIAGNOSTIC::fp() const {
    if (fp_m != nullptr) {
        return fp_m;
    }
    return info->severity >= dc_WARNING && info->severity <= dc_FATAL ? stderr : stdout;
}

int DIAGNOSTIC::print_header() {
    header_printed = true;
    const bool wrap_enabled = wrap_enabled_m;
    if (suppress()) {
        return 0;
    }
    flush();
    if (!wrap_headers_m) {
        wrap_enabled_m = false;
    }
    int count = 0;
    for (int i = 0; i < indent_m; ++i) {
        count += print(" ");
    }
    if (display_ipos_m || info->internal) {
        count += print("%s:%u:", srcfile, line);
    }
    const std::string position = srcinfo_str(src.get());
    if (!position.empty()) {
        count += print("%s: ", position.c_str());
    }
    if (display_code_m || info->internal) {
        count += print("%s%s #%u%s: ", info->internal ? "internal " : "", sev_str(),
                       static_cast<unsigned int>(info->code), is_discretionary() ? "-D" : "");
    } else {
        count += print("%s: ", sev_str());
    }
    if (!wrap_headers_m) {
        wrap_enabled_m = wrap_enabled;
    }
    return count;
}

int DIAGNOSTIC::print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int count = vprint(format, arguments);
    va_end(arguments);
    return count;
}

int DIAGNOSTIC::vprint(const char* format, std::va_list arguments) {
    static auto& buffer = *new std::vector<char>; // shared by all records; only grows; never destroyed

    if (suppress()) {
        return 0;
    }
    const char* const text_format = format_or_empty(format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(buffer.data(), buffer.size(), text_format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) >= buffer.size()) {
        buffer.resize(static_cast<std::size_t>(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), text_format, again);
    }
    va_end(again);
    if (length < 0) {
        return 0; // text of more than INT_MAX bytes
    }
    if (wrap_enabled_m && cols_left <= 0) {
        start_new_line();
    }
    print_formatted(buffer.data(), false, &cols_left, diag_cols_m, indent_m, wrap_indent_m);
    return length;
}

const char* DIAGNOSTIC::last_printable_char(const char* text, int budget) {
    if (!wrap_enabled_m || budget < 0) {
        return text + std::strlen(text) - 1;
    }
    const std::size_t columns = static_cast<std::size_t>(budget);
    const std::size_t length = strnlen(text, columns + 1);
    if (length < columns) {
        return text + length - 1;
    }
    if (columns == 0) {
        return text;
    }
    const char* p = text + columns - 1;
    if (p[1] != '\0' && is_space(p[1])) {
        return p;
    }
    while (p > text && !is_space(*p)) {
        --p;
    }
    while (p > text && is_space(*p)) {
        --p;
    }
    return p;
}

char* DIAGNOSTIC::print_formatted(const char* text, bool to_buffer, int* budget, int line_width, int indent,
                                  int continuation_indent) {
    internal_assert(line_width > indent + continuation_indent, "DIAG/diag:672", "print_formatted",
                    "diag_cols > (indent + wrap_indent)");
    const int width = line_width - indent - continuation_indent;
    FILE* const stream = fp();
    std::string buffer;

    const auto write_piece = [&](const char* piece, std::size_t size) {
        if (to_buffer) {
            buffer.append(piece, size);
        } else {
            std::fprintf(stream, "%.*s", static_cast<int>(size), piece);
        }
        *budget -= static_cast<int>(size);
    };
    const auto continue_on_new_line = [&] {
        if (to_buffer) {
            buffer += '\n';
            buffer.append(static_cast<std::size_t>(line_width - width), ' ');
        } else {
            std::fprintf(stream, "\n%*s", line_width - width, "");
        }
        *budget = width;
    };

    for (const char* p = text; *p != '\0';) {
        const char* last = last_printable_char(p, *budget);
        if (last == p) { // not even the first word fits, or one character is left
            last = last_printable_char(p, width);
            if (last != p) {
                continue_on_new_line();
            } else { // a word that fits no line
                const std::size_t columns = *budget > 1 ? static_cast<std::size_t>(*budget) : 1;
                last = p + strnlen(p, columns) - 1;
            }
        }
        const void* const newline = std::memchr(p, '\n', static_cast<std::size_t>(last - p));
        const char* const end = newline == nullptr ? last + 1 : static_cast<const char*>(newline);
        write_piece(p, static_cast<std::size_t>(end - p));
        p = newline == nullptr ? end : end + 1;
        while (is_space(*p)) {
            ++p;
        }
        if (*p != '\0') {
            continue_on_new_line();
        }
    }
    return to_buffer ? safestrdup(buffer.c_str()) : nullptr;
}

char* DIAGNOSTIC::sp_print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format_or_empty(format), arguments);
    va_end(arguments);
    if (length < 0) {
        std::fputs("OUT OF MEMORY - APPLICATION ABORTED\n", stderr);
        std::exit(1);
    }
    int budget = 66;
    char* const wrapped = print_formatted(text, true, &budget, 79, 0, 10);
    std::free(text);
    return wrapped;
}

void DIAGNOSTIC::start_new_line() {
    std::fprintf(fp(), "\n%*s", indent_m + wrap_indent_m, "");
    cols_left = diag_cols_m - indent_m - wrap_indent_m;
}

std::string DIAGNOSTIC::srcinfo_str(DIAG_SRCINFO* position) {
    if (position == nullptr || position->file().empty()) {
        return {};
    }
    std::string text = "\"";
    text += position->file();
    text += "\"";
    if (position->line() != 0) {
        text += ", line " + std::to_string(position->line());
    }
    if (position->approx()) {
        text += " (approximate)";
    }
    return text;
}

void DIAGNOSTIC::show_annotated_source() {
    if (src == nullptr || src->file().empty() || src->line() == 0 || src->approx()) {
        return;
    }
    FILE* const source = std::fopen(src->file().c_str(), "r");
    if (source == nullptr) {
        return;
    }
    std::string wanted;
    int current = 1;
    for (int c = std::getc(source); c != EOF && current <= src->line(); c = std::getc(source)) {
        if (current == src->line()) {
            wanted += static_cast<char>(c);
        }
        if (c == '\n') {
            ++current;
        }
    }
    std::fclose(source);
    if (wanted.empty()) {
        return;
    }
    std::fwrite(wanted.data(), 1, wanted.size(), fp());
    if (src->column() != 0) {
        std::fprintf(fp(), "%-*s^\n", src->column() - 1, "");
    }
}

void DIAGNOSTIC::push_indent(int columns) {
    indent_stack_m.push(indent_m);
    indent_m = columns;
}

void DIAGNOSTIC::pop_indent() {
    indent_m = 0;
    if (!indent_stack_m.empty()) {
        indent_m = indent_stack_m.top();
        indent_stack_m.pop();
    }
}
