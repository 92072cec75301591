// Fuzz target: an argument list, separated by NUL bytes, through the option object.
//
// exit() is replaced (by the linker) with a jump back here, so that the many ways in which an option ends the process
// can be tried in one. What an accepted list leaves behind must survive its own export: applying the exported options
// to a fresh object gives the same export. The last argument is also searched for in the help.
#include "DIAG/diag.h"
#include "options/optobj.h"
#include "tests/fuzz/fuzz.h"

#include <csetjmp>
#include <optional>

namespace {

std::jmp_buf process_end;
bool is_checking = false; // whether exit() comes from the code under test
int exit_status = 0;

// What a jump out of check() must not leak.
std::optional<option_obj> options;
std::optional<option_obj> again;
std::vector<option_obj::optlist> exported;

std::vector<std::string> arguments;
std::size_t next_index = 0;

const char* next_argument() {
    return next_index < arguments.size() ? arguments[next_index++].c_str() : nullptr;
}

void apply_all() {
    next_index = 0;
    while (const char* const argument = next_argument()) {
        if (argument[0] == '-') {
            const char* rest = nullptr;
            const int recognised = options->process_option(argument + 1, &rest);
            require(recognised == 1 || rest == argument || rest == argument + 1, "a rejected text is pointed to");
        }
    }
}

void check() {
    options.emplace(true);
    apply_all();
    const auto set_options = [](const option_obj& object) {
        return object.export_option_pairs(option_obj::export_set, option_obj::class_all);
    };
    exported = set_options(*options);
    require(set_options(option_obj(*options)) == exported, "a copy is equal");
    again.emplace(true);
    for (const auto& [id, text] : exported) {
        require(again->process_option(text.c_str() + 1, nullptr) == 1, "an exported option is accepted");
    }
    require(set_options(*again) == exported, "an exported option has the same effect");
    if (!arguments.back().empty()) {
        option_obj::display_option_help(arguments.back().c_str(), 1);
    }
}

} // namespace

extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (!is_checking) {
        __real_exit(status);
    }
    exit_status = status;
    std::longjmp(process_end, 1);
}

#ifdef ORDWELL_SANITIZED
// The list of choices in the message about a bad argument: its function ends with exit() and is jumped out of here.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:option_obj::parse_oneof\n";
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    silence(DIAGNOSTIC::fp_m);
    silence(stdout);
    option_obj::next_arg = next_argument;
    reset_process();
    arguments.assign(1, {});
    for (const char c : std::string_view(reinterpret_cast<const char*>(data), size)) {
        if (c == '\0') {
            arguments.emplace_back();
        } else {
            arguments.back() += c;
        }
    }
    is_checking = true;
    if (setjmp(process_end) == 0) {
        check();
        is_checking = false;
    } else {
        is_checking = false;
        require(exit_status == 0 || exit_status == 1, "the process ends with status 0 or 1");
    }
    return 0;
}
