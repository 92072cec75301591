#include "binary/demangle.h"

#include <csetjmp>
#include <libiberty/demangle.h>

namespace {

constexpr std::size_t most_bytes = 65536;
constexpr std::size_t most_mangled_bytes = 16384; // the demangler needs room on the stack in proportion

/// What a demangler has written.
struct readable_text {
    std::string bytes;
    std::jmp_buf too_long; ///< where to go on when it is too long: the demanglers cannot be told to stop
};

void append(const char* text, std::size_t size, void* opaque) {
    auto& readable = *static_cast<readable_text*>(opaque);
    if (size > most_bytes - readable.bytes.size()) {
        std::longjmp(readable.too_long, 1); // over frames of C, which own nothing
    }
    readable.bytes.append(text, size);
}

std::string readable(std::string_view name, int options) {
    if ((!name.starts_with("_Z") && !name.starts_with("_R")) || name.size() > most_mangled_bytes) {
        return std::string(name);
    }
    const std::string mangled(name);
    readable_text text;
    text.bytes.reserve(most_bytes < 4 * name.size() ? most_bytes : 4 * name.size());
    if (setjmp(text.too_long) != 0) {
        return std::string(name);
    }
    if (rust_demangle_callback(mangled.c_str(), options | DMGL_RUST, append, &text) != 0) {
        return text.bytes;
    }
    text.bytes.clear(); // of what looked like Rust at first
    return cplus_demangle_v3_callback(mangled.c_str(), options, append, &text) != 0 ? text.bytes : mangled;
}

} // namespace

std::string demangled(std::string_view name) {
    return readable(name, DMGL_PARAMS | DMGL_ANSI);
}

std::string demangled_without_parameters(std::string_view name) {
    return readable(name, DMGL_NO_OPTS);
}
