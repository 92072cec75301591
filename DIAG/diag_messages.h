// The message catalogue as source: one line a row, from which both the catalogue array (DIAG/diag_catalogue.cpp) and
// the message classes of namespace DIAG are made. To add a message, add its line here, in order of code.
#pragma once

#include "DIAG/diag.h"

#include <string_view>
#include <tuple>

// ROW(code, class, severity, flags, template, argument types ...)   a row with its message class
// BARE(code, severity, flags, template)                             a row that nothing in this tool raises
//
// Flags: I internal, N nondiscretionary, IN both, O neither.
#define DIAG_CATALOGUE_LIST(ROW, BARE)                                                                                 \
    BARE(6000, dc_FATAL, I, "pointer \"%s\" should not be NULL at this point")                                         \
    BARE(6001, dc_FATAL, O, "cannot open file \"%s\":  %s")                                                            \
    BARE(6002, dc_ERROR, O, "%s option conflicts with previous option %s")                                             \
    BARE(6003, dc_ERROR, O, "invalid parameter %s to option %s")                                                       \
    BARE(6004, dc_FATAL, O, "cannot open file \"%s\"")                                                                 \
    BARE(6005, dc_FATAL, O, "\"%s\" is not a valid archive file")                                                      \
    BARE(6006, dc_FATAL, O, "invalid option:  %s")                                                                     \
    BARE(6007, dc_FATAL, I, "pointer \"%s\" should be NULL at this point")                                             \
    ROW(22000, owl_fatal_no_input_datafiles, dc_FATAL, N, "No input weighted call graph CSV data file(s) specified")   \
    ROW(22001, owl_fatal_error_opening_outfile, dc_FATAL, N, "Error opening output file")                              \
    ROW(22002, owl_fatal_node_without_content, dc_FATAL, I, "Found node in call graph with no function name")          \
    ROW(22003, owl_fatal_add_edge_fail, dc_FATAL, I, "Failed to add an edge to the weighted call graph")               \
    ROW(22004, owl_fatal_distance_calc_failure, dc_FATAL, I,                                                           \
        "Failed to calculate positional distance between %s and %s", const char*, const char*)                         \
    ROW(22005, owl_fatal_node_not_found, dc_FATAL, I, "Could not find %s node in the graph; aborting", const char*)    \
    ROW(22006, owl_fatal_add_edge_fail_in_create, dc_FATAL, I, "Could not add edge from %s to %s with weight of %lu",  \
        const char*, const char*, unsigned long)                                                                       \
    ROW(22007, owl_fatal_no_valid_max_weight_edge, dc_FATAL, I, "Could not find a valid maximum weight edge")          \
    ROW(22008, owl_fatal_no_valid_function_order, dc_FATAL, I,                                                         \
        "Could not generate a valid preferred function ordering")                                                      \
    ROW(22100, owl_nonfatal_error_opening_inputfile, dc_ERROR, O, "Error opening input file %s", const char*)          \
    ROW(22101, owl_bad_csv_file_header, dc_ERROR, O,                                                                   \
        "Invalid CSV input file header line encountered in %s; file ignored", const char*)                             \
    ROW(22103, owl_caller_read_failure, dc_ERROR, O,                                                                   \
        "Error reading caller function specification from %s, line %d; remainder of file ignored", const char*, int)   \
    ROW(22104, owl_callee_read_failure, dc_ERROR, O,                                                                   \
        "Error reading callee function specification from %s, line %d; remainder of file ignored", const char*, int)   \
    ROW(22105, owl_weight_read_failure, dc_ERROR, O,                                                                   \
        "Error reading call frequency information from %s, line %d; remainder of file ignored", const char*, int)      \
    ROW(22200, owl_warn_missing_outfile_name, dc_WARNING, N, "Missing outfile name in command-line. Defaulting to %s", \
        const char*)                                                                                                   \
    BARE(24000, dc_ERROR, O, "option is invalid")                                                                      \
    BARE(24001, dc_FATAL, O, "out of memory")                                                                          \
    ROW(24002, optgen_conflict_option, dc_ERROR, O, "option %s conflicts with previous option %s", const char*,        \
        const char*)                                                                                                   \
    ROW(24003, optgen_conflict_override_option, dc_WARNING, O, "option %s overrides preceding option %s", const char*, \
        const char*)                                                                                                   \
    ROW(24004, optgen_conflict_quiet_option, dc_REMARK, O, "option %s clears preceding option %s", const char*,        \
        const char*)                                                                                                   \
    BARE(24005, dc_ERROR, O, "option object: bad parm_type [A1]")                                                      \
    BARE(24006, dc_WARNING, O, "Attempt to clear PERSISTENT option %s ignored")                                        \
    ROW(24007, optgen_unhandled_clause_in_setarg, dc_FATAL, O, "unhandled clause in setarg() [%lu]", unsigned long)    \
    ROW(24008, optgen_unhandled_option_handler, dc_FATAL, O, "unhandled option handler [%lu]", unsigned long)          \
    ROW(24009, optgen_invalid_list_handler, dc_FATAL, O, "list handler for non-list option [%lu]", unsigned long)      \
    ROW(24010, optgen_missing_parameter, dc_ERROR, O, "option %s is missing its parameter '%s'", const char*,          \
        const char*)                                                                                                   \
    ROW(24011, optgen_arg_out_of_range, dc_ERROR, O, "argument to option %s (%s) is out of range", const char*,        \
        const char*)                                                                                                   \
    ROW(24012, optgen_arg_out_of_range_non_neg, dc_ERROR, O,                                                           \
        "argument to option %s (%s) is out of range (must be a non-negative_number)", const char*, const char*)        \
    ROW(24013, optgen_arg_out_of_range2, dc_ERROR, O,                                                                  \
        "argument to option %s (%s) is out of range (must be a number from %lu to %lu", const char*, const char*,      \
        unsigned long, unsigned long)                                                                                  \
    ROW(24014, optgen_option_handler_corruption, dc_FATAL, O, "corruption in option handler")                          \
    ROW(24015, optgen_bad_argument, dc_ERROR, O, "bad argument to option %s: should be one of {%s}", const char*,      \
        const char*)                                                                                                   \
    ROW(24016, optgen_case_insensitivity_deprecated, dc_WARNING, O,                                                    \
        "Case insensitivity of options has been deprecated; %s must be written as %s in future releases", const char*, \
        const char*)                                                                                                   \
    BARE(24017, dc_WARNING, O, "Option %s is not valid %s %s (ignored)")                                               \
    BARE(24018, dc_ERROR, O, "Option %s is not valid %s %s")                                                           \
    BARE(24019, dc_WARNING, O, "garbage following option -%s ignored")                                                 \
    ROW(24020, optgen_exact_set_in_previous_files, dc_ERROR, O,                                                        \
        "option %s was set in previous files, but not in \"%s\"", const char*, const char*)                            \
    ROW(24021, optgen_exact_not_set_in_previous_files, dc_ERROR, O,                                                    \
        "option %s is set in \"%s\", but not in previous files", const char*, const char*)                             \
    ROW(24022, optgen_exact_args_incompatible, dc_ERROR, O,                                                            \
        "option %s is set in \"%s\", and is incompatible with the previously seen option %s", const char*,             \
        const char*, const char*)                                                                                      \
    ROW(24023, optgen_merge_conflict_option, dc_ERROR, O,                                                              \
        "option %s in file \"%s\" conflicts with previous option %s", const char*, const char*, const char*)           \
    BARE(24024, dc_WARNING, O, "option %s is not available for processor variant %s")                                  \
    BARE(24025, dc_ERROR, O, "unknown processor variant %s")                                                           \
    BARE(24026, dc_WARNING, O, "processor variant %s is deprecated")                                                   \
    BARE(24027, dc_WARNING, O, "compiler option %s has no effect when linking")                                        \
    BARE(24028, dc_WARNING, O, "linker option %s has no effect when compiling")                                        \
    BARE(24029, dc_REMARK, O, nullptr)                                                                                 \
    BARE(24030, dc_ERROR, O, "compiler option %s needs option %s")                                                     \
    ROW(24031, optgen_unhandled_clause_in_add_hist, dc_FATAL, O, "unhandled clause in add_to_history() [%lu]",         \
        unsigned long)                                                                                                 \
    ROW(24032, optgen_missing_fileopt, dc_WARNING, O, "No known tool \"%s\" when adding file to option list.",         \
        const char*)                                                                                                   \
    BARE(24033, dc_ERROR, O, "tool %s is not defined")                                                                 \
    BARE(24034, dc_ERROR, O, "tool %s is defined twice")                                                               \
    BARE(24035, dc_ERROR, O, "tool definition %s has no command")                                                      \
    BARE(24036, dc_WARNING, O, "tool definition %s is not used")                                                       \
    BARE(24037, dc_ERROR, O, "tool definition %s is not valid")                                                        \
    ROW(99900, max_errors, dc_FATAL, O, "error limit reached; %lu errors detected", unsigned long)                     \
    ROW(99920, gdebug, dc_DEBUG, I, "%s", const char*)                                                                 \
    ROW(99921, gremark, dc_REMARK, N, "%s", const char*)                                                               \
    ROW(99922, gwarning, dc_WARNING, N, "%s", const char*)                                                             \
    ROW(99923, gerror, dc_ERROR, N, "%s", const char*)                                                                 \
    ROW(99924, gapperror, dc_ERROR, IN, "%s", const char*)                                                             \
    ROW(99925, gfatal, dc_FATAL, N, "%s", const char*)                                                                 \
    ROW(99926, gdie, dc_FATAL, IN, "%s", const char*)                                                                  \
    ROW(99927, gadvice_row, dc_ADVICE, N, "%s", const char*)

namespace DIAG {

/// A message class: a record of the catalogue row `Code` with one field per placeholder of the row's template, of
/// the placeholder's type. Texts are borrowed and must stay valid until the record is reported.
template <int Code, typename... Arguments>
class message : public DIAGNOSTIC {
public:
    message(DIAG_INFO* row, const char* source_file, std::uint32_t source_line, Arguments... values)
        : DIAGNOSTIC(row, source_file, source_line), arguments(values...) {}

    /// The catalogue row of this class.
    static DIAG_INFO* row() { return get_info(Code); }

    DIAGNOSTIC* alloc() override { return new message(*this); }

    int report() override {
        int count = print_header();
        count += std::apply([this](auto... values) { return this->print(format(), values...); }, arguments);
        flush();
        return count;
    }

protected:
    std::tuple<Arguments...> arguments;

private:
    // The row's template; an internal row shows its bare arguments instead: "()", "(%s)", "(%s, %s)".
    const char* format() const {
        if (!info->internal) {
            return info->std_msg;
        }
        static const std::string& bare = *[] { // never destroyed, for exit handlers
            std::string list;
            ((list += (list.empty() ? "" : ", "), list += conversion(Arguments())), ...);
            return new std::string("(" + list + ")");
        }();
        return bare.c_str();
    }

    static const char* conversion(const char*) { return "%s"; }
    static const char* conversion(int) { return "%d"; }
    static const char* conversion(unsigned long) { return "%lu"; }
};

#define DIAG_MESSAGE_CLASS(code, name, severity, flags, text, ...)                                                     \
    using name = message<code __VA_OPT__(, ) __VA_ARGS__>;
#define DIAG_NO_CLASS(code, severity, flags, text)
DIAG_CATALOGUE_LIST(DIAG_MESSAGE_CLASS, DIAG_NO_CLASS)
#undef DIAG_MESSAGE_CLASS
#undef DIAG_NO_CLASS

/// Advice has holders that keep records: they can compare, wrap, release and dump its text.
class gadvice : public gadvice_row {
public:
    using gadvice_row::gadvice_row;

    DIAGNOSTIC* alloc() override { return new gadvice(*this); }
    /// The text wrapped by sp_print(); the caller frees it.
    char* get_sp_buffer() override;
    /// The base comparison, and equal texts (or either record has none).
    bool is_equal(DIAGNOSTIC* other) override;
    /// Releases the text with std::free().
    void free_mem() override;
    void dump() override;

private:
    const char*& text() { return std::get<0>(arguments); }
};

/// Builds a record of the class `Message`, reports it and destroys it. Does not return for a fatal row, except
/// in debug mode.
template <typename Message, typename... Arguments>
void raise(const char* source_file, std::uint32_t source_line, Arguments... arguments) {
    Message(Message::row(), source_file, source_line, arguments...).report();
}

} // namespace DIAG
