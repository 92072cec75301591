// The matcher: a tree of small functions, one per prefix of the option spellings, each testing the next character.
//
// A node is named after the text consumed so far, "-" written as __dash__ and ":" as two underscores; it gets the rest
// of the text, and where the spelling no longer branches it compares the remaining tail in one go:
//
//     process_option("-diag_wrap=off")   after the driver has taken the leading "-" of --diag_wrap=off
//       process___dash___option("diag_wrap=off")
//         process___dash__d_option("iag_wrap=off")   -> process___dash__di_option("ag_wrap=off")
//           process___dash__dia_option("g_wrap=off")   tail "g_wrap" fits: set_diag_wrap("=off")
//
// The leaves apply the option at once. A node that finds no match rejects the text: it jumps straight back to
// process_option(), which returns 0, and nobody says a word. The records of that jump form a chain, because a leaf may
// start another match. Nodes and leaves own nothing that such a jump could leak.
#include "DIAG/user_msg_api.h"
#include "options/banner.h"
#include "options/optobj.h"
#include "options/rotated_text.h"
#include "support/assertion.h"
#include "support/memory.h"

#include <csetjmp>
#include <cstdlib>
#include <cstring>

namespace {

// Where a rejected text jumps back to.
struct jump_record {
    std::jmp_buf context;
    jump_record* previous;
};

jump_record* innermost_record = nullptr;
const char* matcher_position = nullptr; // what process_option() reports on rejection

void pop_jump_record() {
    jump_record* const record = innermost_record;
    innermost_record = record->previous;
    std::free(record);
}

[[noreturn]] void reject() {
    std::longjmp(innermost_record->context, 1);
}

// Compares the fixed tail of a spelling: what follows it in `rest`, or a rejection.
const char* after_tail(const char* rest, const char* tail) {
    const std::size_t length = std::strlen(tail);
    if (std::strncmp(rest, tail, length) != 0) {
        reject();
    }
    return rest + length;
}

// The same for a tail with which the text must end.
void require_end(const char* rest, const char* tail) {
    if (*after_tail(rest, tail) != '\0') {
        reject();
    }
}

void require_rest(const char* rest) {
    internal_assert(rest != nullptr, "optobj", "matcher node", "rest != NULL");
}

} // namespace

int option_obj::process_option(const char* opt, const char** rest) {
    auto* const record = static_cast<jump_record*>(safemalloc(sizeof(jump_record)));
    record->previous = innermost_record;
    innermost_record = record;
    if (opt == nullptr || *opt == '\0') {
        pop_jump_record();
        return 1;
    }
    const char* const outer_option = current_option;
    if (setjmp(record->context) != 0) {
        pop_jump_record();
        current_option = outer_option;
        if (rest != nullptr) {
            *rest = matcher_position;
        }
        return 0;
    }
    const char* text = opt;
    do {
        current_option = text;
        text = process_first_character(text);
        current_option = outer_option;
    } while (text != nullptr && *text != '\0');
    pop_jump_record();
    return 1;
}

const char* option_obj::process_first_character(const char* text) {
    matcher_position = text;
    switch (*text) {
    case 'o':
        return process_o_option(text + 1);
    case 'p':
        return process_p_option(text + 1);
    case '-':
        return process___dash___option(text + 1);
    default:
        matcher_position = text - 1;
        reject();
    }
}

const char* option_obj::process_o_option(const char* rest) {
    require_rest(rest);
    return set_preferred_order_file(rest, 1);
}

const char* option_obj::process_p_option(const char* rest) {
    require_rest(rest);
    return process_pd_option(after_tail(rest, "d"));
}

const char* option_obj::process_pd_option(const char* rest) {
    require_rest(rest);
    switch (*rest) {
    case 'b':
        return process_pdb_option(rest + 1);
    case 'e':
        return process_pde_option(rest + 1);
    default:
        reject();
    }
}

const char* option_obj::process_pdb_option(const char* rest) {
    require_rest(rest);
    require_end(rest, "");
    return set_plain_option(opt_buffer_diagnostics, 1);
}

const char* option_obj::process_pde_option(const char* rest) {
    require_rest(rest);
    require_end(rest, "w");
    return set_plain_option(opt_emit_warnings_as_errors, 1);
}

const char* option_obj::process___dash___option(const char* rest) {
    require_rest(rest);
    switch (*rest) {
    case 'b':
        return process___dash__b_option(rest + 1);
    case 'd':
        return process___dash__d_option(rest + 1);
    case 'e':
        return process___dash__e_option(rest + 1);
    case 'p':
        return process___dash__p_option(rest + 1);
    case 't':
        return process___dash__t_option(rest + 1);
    default:
        reject();
    }
}

const char* option_obj::process___dash__b_option(const char* rest) {
    require_rest(rest);
    require_end(rest, "uffer_diagnostics");
    return set_plain_option(opt_buffer_diagnostics, 0);
}

const char* option_obj::process___dash__d_option(const char* rest) {
    require_rest(rest);
    switch (*rest) {
    case 'e':
        return process___dash__de_option(rest + 1);
    case 'i':
        return process___dash__di_option(rest + 1);
    default:
        reject();
    }
}

const char* option_obj::process___dash__de_option(const char* rest) {
    require_rest(rest);
    return process___dash__deb_option(after_tail(rest, "b"));
}

const char* option_obj::process___dash__deb_option(const char* rest) {
    require_rest(rest);
    return process___dash__debu_option(after_tail(rest, "u"));
}

const char* option_obj::process___dash__debu_option(const char* rest) {
    require_rest(rest);
    return process___dash__debug_option(after_tail(rest, "g"));
}

const char* option_obj::process___dash__debug_option(const char* rest) {
    require_rest(rest);
    switch (*rest) {
    case ':':
        return process___dash__debug___option(rest + 1);
    case '_':
        return process___dash__debug__option(rest + 1);
    default:
        reject();
    }
}

const char* option_obj::process___dash__debug___option(const char* rest) {
    require_rest(rest);
    reject(); // this tool has no debug switches on the command line
}

const char* option_obj::process___dash__debug__option(const char* rest) {
    require_rest(rest);
    reject();
}

const char* option_obj::process___dash__di_option(const char* rest) {
    require_rest(rest);
    switch (*rest) {
    case 'a':
        return process___dash__dia_option(rest + 1);
    case 's':
        return process___dash__dis_option(rest + 1);
    default:
        reject();
    }
}

const char* option_obj::process___dash__dia_option(const char* rest) {
    require_rest(rest);
    return set_diag_wrap(after_tail(rest, "g_wrap"));
}

const char* option_obj::process___dash__dis_option(const char* rest) {
    require_rest(rest);
    reject(); // nor passes to disable
}

const char* option_obj::process___dash__e_option(const char* rest) {
    require_rest(rest);
    require_end(rest, "mit_warnings_as_errors");
    return set_plain_option(opt_emit_warnings_as_errors, 0);
}

const char* option_obj::process___dash__p_option(const char* rest) {
    require_rest(rest);
    return set_preferred_order_file(after_tail(rest, "referred_order_file"), 0);
}

const char* option_obj::process___dash__t_option(const char* rest) {
    require_rest(rest);
    require_end(rest, "oolversion");
    return set_plain_option(opt_toolversion, 0);
}

// The leaves. Each returns further option text to match in the same argument, or null: there never is any here.

const char* option_obj::set_plain_option(option_id id, unsigned char spelling_form) {
    register_option_form(id, spelling_form);
    parsed_option(id);
    setopt(id);
    switch (id) {
    case opt_buffer_diagnostics:
        std::setvbuf(stderr, nullptr, _IOLBF, 256);
        break;
    case opt_emit_warnings_as_errors:
        USER_MSG::get_umsg_obj()->emit_warnings_as_errors();
        break;
    case opt_toolversion:
        print_banner(stdout);
        buildid(stdout, "Build Number ");
        std::exit(0);
    default:
        break;
    }
    return nullptr;
}

const char* option_obj::set_diag_wrap(const char* value) {
    const char* const param_name = option_definitions[opt_diag_wrap].param_name;
    register_option_form(opt_diag_wrap, 0);
    parsed_option(opt_diag_wrap);
    long choice = 0;
    if (parse_oneof(opt_diag_wrap, value, param_name, parse_glued_oneof, &choice) == 0) {
        parse_oneof(opt_diag_wrap, "on", param_name, parse_glued_oneof, &choice);
    }
    set_single_argument(opt_diag_wrap, choice);
    if (getnumarg(opt_diag_wrap, 0) == 1) {
        DIAGNOSTIC::wrap_enabled_m = false;
    }
    return nullptr;
}

const char* option_obj::set_preferred_order_file(const char* value, unsigned char spelling_form) {
    static constexpr arg_range range = {0, 2147483647};
    register_option_form(opt_preferred_order_file, spelling_form);
    const char* const name = parse_arg(opt_preferred_order_file, value, rotated<"filename">, parse_text, &range);
    parsed_option(opt_preferred_order_file);
    setopt(opt_preferred_order_file, name);
    return nullptr;
}
