// The tables of the option object, indexed by option identifier.
//
// Tables that are empty or uniform in this tool are writable members, protected in option_obj: a test (or a tool built
// on this object) derives a class from it and puts its rows in place at run time. Nothing else here needs to change.
#include "options/banner.h"
#include "options/optobj.h"
#include "options/rotated_text.h"

#include <boost/assign/list_of.hpp>

namespace {

const char* no_next_argument() {
    return nullptr;
}

constexpr const char* no_text = rotated<"">;

constexpr const char* debug_switch_text = rotated<"--debug:">;
constexpr const char* debug_options_text = rotated<"--debug_options">;
constexpr const char* disable_pass_text = rotated<"--disable:">;
constexpr const char* pass_list_name = rotated<"pass">;

} // namespace

const char* option_obj::executable_name = "<toolname>";
const char* (*option_obj::next_arg)() = no_next_argument;
void (*option_obj::print_banner)(FILE*) = print_tool_banner;

std::array<std::int32_t, option_obj::option_count> option_obj::parm_type = {
    parm_none, parm_string_list, parm_none, parm_oneof, parm_string_list, parm_none, parm_string_list, parm_none,
};

const option_obj::oneof_item option_obj::OO_DIAG_WRAP_ITEMLIST[] = {
    {"+on", 2},
    {"+off", 1},
    {nullptr, 0},
};

std::array<const char*, option_obj::option_count> option_obj::enum_to_enumtxt = {
    rotated<"OPT_BUFFER_DIAGNOSTICS">,   rotated<"OPT_DEBUG_SWITCH">,
    rotated<"OPT_DEBUG_OPTIONS">,        rotated<"OPT_DIAG_WRAP">,
    rotated<"OPT_DISABLE_PASS">,         rotated<"OPT_EMIT_WARNINGS_AS_ERRORS">,
    rotated<"OPT_PREFERRED_ORDER_FILE">, rotated<"OPT_TOOLVERSION">,
};

std::array<const char*, option_obj::option_count> option_obj::enum_to_optiontxt = {
    rotated<"--buffer_diagnostics">,
    debug_switch_text,
    debug_options_text,
    rotated<"--diag_wrap">,
    disable_pass_text,
    rotated<"--emit_warnings_as_errors">,
    rotated<"--preferred_order_file">,
    rotated<"--toolversion">,
};

// Designators name the columns; a field that is left out is null, 0 or false.
std::array<option_obj::option_definition, option_obj::option_count + 1> option_obj::option_definitions = {{
    {
        .main_text = rotated<"--buffer_diagnostics">,
        .alt_texts = {rotated<"-pdb">},
        .param_name = no_text,
        .short_help = rotated<"write diagnostics line by line">,
        .long_help = rotated<"Writes each line of a diagnostic to standard error in one piece, so that the lines of "
                             "tools that run side by side do not mix.  Example: --buffer_diagnostics">,
        .help_class = 1,
        .help_rank = 500,
    },
    {
        .main_text = debug_switch_text,
        .param_name = pass_list_name,
        .short_help = rotated<"turn on debug switches">,
        .long_help = no_text,
        .opt_internal = true,
        .opt_hidden = true,
        .help_class = 1,
        .help_rank = 500,
    },
    {
        .main_text = debug_options_text,
        .param_name = no_text,
        .short_help = rotated<"trace option processing">,
        .long_help = no_text,
        .opt_internal = true,
        .opt_hidden = true,
        .help_class = 0,
        .help_rank = 500,
    },
    {
        .main_text = rotated<"--diag_wrap">,
        .param_name = rotated<"on,off">,
        .param_optional = 1,
        .short_help = rotated<"wrap diagnostics at column 79 (default: on)">,
        .long_help =
            rotated<"Breaks long diagnostics at column 79, or with off writes each as one line, which is easier "
                    "to search.  Example: --diag_wrap=off">,
        .help_class = 1,
        .oneof_items = OO_DIAG_WRAP_ITEMLIST,
        .help_rank = 500,
    },
    {
        .main_text = disable_pass_text,
        .param_name = pass_list_name,
        .short_help = rotated<"disable passes">,
        .long_help = no_text,
        .opt_internal = true,
        .opt_hidden = true,
        .help_class = 1,
        .help_rank = 500,
    },
    {
        .main_text = rotated<"--emit_warnings_as_errors">,
        .alt_texts = {rotated<"-pdew">},
        .param_name = no_text,
        .short_help = rotated<"report free-form warnings as errors">,
        .long_help = rotated<
            "Reports free-form warnings as errors.  The warnings of the fixed list of messages, such as the one "
            "about a missing output file name, stay warnings.  Example: --emit_warnings_as_errors">,
        .help_class = 1,
        .help_rank = 500,
    },
    {
        .main_text = rotated<"--preferred_order_file">,
        .alt_texts = {rotated<"-o">},
        .param_name = rotated<"filename">,
        .short_help = rotated<"order file to write (default: forder.cmd)">,
        .long_help = rotated<"Names the linker command file to write, with one --preferred_order line per function.  "
                             "Without it the file is forder.cmd in the current directory.  Example: "
                             "--preferred_order_file=app.cmd">,
        .help_class = 1,
        .help_rank = 500,
    },
    {
        .main_text = rotated<"--toolversion">,
        .param_name = no_text,
        .short_help = rotated<"print the version and the build number">,
        .long_help = no_text,
        .opt_hidden = true,
        .help_class = 0,
        .help_rank = 500,
    },
    {.help_class = 2},
}};

const std::array<std::array<unsigned char, option_obj::class_count>, option_obj::option_count> option_obj::classes = {{
    {0, 0, 0, 0, 0, 0, 0, 0}, // --buffer_diagnostics
    {0, 0, 0, 0, 1, 1, 1, 1}, // --debug:
    {0, 0, 0, 0, 0, 0, 1, 1}, // --debug_options
    {0, 1, 1, 1, 0, 0, 0, 0}, // --diag_wrap
    {0, 0, 0, 0, 1, 1, 1, 1}, // --disable:
    {0, 0, 0, 0, 0, 0, 0, 0}, // --emit_warnings_as_errors
    {0, 0, 0, 0, 1, 1, 0, 0}, // --preferred_order_file
    {0, 0, 0, 0, 0, 0, 1, 0}, // --toolversion
}};

// Row: the option being set; column: an option set earlier. 0 nothing, 1 quiet clear, 2 override, 3 conflict.
option_obj::option_table option_obj::conflicts = {};

const std::array<const char*, 2> option_obj::class_descriptions = {
    rotated<"Information Options:">,
    rotated<"Ordering and Diagnostics Options:">,
};

// Row: an option of this object; column: an option of the object merged into it. 0 nothing, 3 conflict.
option_obj::option_table option_obj::merge_conflicts = {};
std::array<option_obj::merge_policy, option_obj::option_count> option_obj::merge_policy_functions = {};
std::array<option_obj::merge_override, option_obj::option_count> option_obj::mutex_merge_override_functions = {};

// Tables that own memory are never destroyed, so that exit handlers may use them.
const std::map<std::string, option_obj::tool_name>& option_obj::tool_cmd_map =
    *new std::map<std::string, tool_name>(boost::assign::map_list_of("cc", tool_name::compiler)(
        "c++", tool_name::compiler)("as", tool_name::assembler)("ar", tool_name::archiver)("ld", tool_name::linker));

// File options have identifiers from 10 on and no definition of their own.
const std::map<option_obj::tool_name, option_obj::option_id>& option_obj::tn_fileopt_map =
    *new std::map<tool_name, option_id>(boost::assign::map_list_of(tool_name::compiler, static_cast<option_id>(10))(
        tool_name::assembler, static_cast<option_id>(11))(tool_name::archiver, static_cast<option_id>(12))(
        tool_name::linker, static_cast<option_id>(13)));

const char* const option_obj::file_option_label = rotated<"--file">;
