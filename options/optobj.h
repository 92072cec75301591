// The option object: everything that the tool knows about its command-line options.
//
// Static tables describe each option (spellings, argument type, help texts, choices); an object records which options
// were given, how often, in which spelling and with which arguments, and in which order. Matching the command line
// (optobj_match), printing the help (optobj_help) and exporting or merging option sets (optobj_history, optobj_merge)
// all run on the same tables, which stand in optobj_tables and are indexed by option identifier.
//
// The words: *setting* an option counts it up and records its argument; *clearing* it takes it back. An option is *set*
// while its `state` is not 0 and *touched* once its `seen` is not 0. The spelling *form* is 0 for the main spelling and
// k for the alternative k. Stored texts are letter-rotated (options/rotated_text.h). Options may belong to *classes*.
//
// Identifiers outside 0 to 7 are ignored by every operation; queries return 0, false or null for them. Texts that a
// query returns are borrowed: from the object until the option changes, or from buffers that later calls overwrite, as
// stated.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

class option_obj {
public:
    // What the tables say: options, their classes, arguments, choices and texts.

    /// Options in the alphabetical order of their main spellings; 8 ends lists of identifiers.
    enum option_id : int {
        opt_buffer_diagnostics = 0,
        opt_debug_switch = 1,
        opt_debug_options = 2,
        opt_diag_wrap = 3,
        opt_disable_pass = 4,
        opt_emit_warnings_as_errors = 5,
        opt_preferred_order_file = 6,
        opt_toolversion = 7,
        opt_end = 8,
    };
    static constexpr int option_count = 8;

    /// Classes of options, 0 to 7. Class 0 stands for all options where isclass() is asked.
    enum class_id : int { class_all = 0 };
    static constexpr int class_count = 8;

    /// Argument types: what an option takes and how it is stored.
    enum parm_type_value : std::int32_t {
        parm_none = 0,
        parm_string = 1,      ///< the last one given counts, as for all single values
        parm_number = 2,      ///< signed
        parm_unsigned = 3,    ///< shown as 0x...
        parm_oneof = 4,       ///< one of a list of choices, by its value
        parm_string_list = 5, ///< lists grow with every setting
        parm_number_list = 6,
        parm_oneof_list = 7,
    };

    /// Where a value may stand and how it is checked, 0 to 17; only those that are used here have names.
    ///     glued, after "=" or the next argument    0 1 5 8 number     2 unsigned    3 4 text      6 7 choice
    ///     glued only, perhaps after "="            9 10 14 17 number  11 unsigned   12 13 text    15 16 choice
    enum parse_option_type : int {
        parse_unsigned = 2,
        parse_text = 3,
        parse_glued_unsigned = 11,
        parse_glued_oneof = 15,
    };

    /// A choice of a one-of option. The first character of the text is a marker: "+" a normal choice, "*" a deprecated
    /// one (accepted with a warning), any other an unlisted one. A null text ends a list.
    struct oneof_item {
        const char* text;
        long value;
    };

    /// What help and parsing need to know of an option. Texts are stored rotated, except those of the choices.
    struct option_definition {
        const char* main_text = nullptr;           ///< main spelling
        std::array<const char*, 6> alt_texts = {}; ///< alternatives, null behind the last
        const char* lead_text = nullptr;           ///< spelling that help shows first, or null
        std::int32_t basic_rank = 0;               ///< sort key in the section "Basic Options:"; 0: not there
        const char* param_name = nullptr;          ///< empty when the option takes no parameter
        std::int32_t param_optional = 0;           ///< whether the parameter may be omitted
        const char* short_help = nullptr;          ///< one line
        const char* long_help = nullptr;           ///< may be empty
        bool opt_internal = false;                 ///< not listed by help
        bool opt_hidden = false;                   ///< not listed by help
        bool persistent = false;                   ///< clearopt() leaves the option alone
        std::int32_t help_class = 0;               ///< help category 0 or 1; 2 ends the table
        const oneof_item* oneof_items = nullptr;   ///< the choices of a one-of option, else null
        std::int32_t help_rank = 0;                ///< sort key within the category, high first
    };

    // What goes in and comes out: arguments, exported options, tools, policies of merging.

    /// A recorded argument, both ways.
    struct hist_argument {
        long number;
        std::string text; ///< empty when the option has no argument
    };

    /// Bounds of a number, both inclusive; read as unsigned for unsigned values.
    struct arg_range {
        long low;
        long high;
    };

    /// Which options an export lists.
    enum export_option_list_type : int { export_all = 0, export_touched_or_set = 1, export_set = 2 };

    /// An option and its command-line text.
    using optlist = std::pair<option_id, std::string>;

    /// An option's arguments as one value.
    struct an_argument_t {
        enum argument_type { signed_number = 0, unsigned_number = 1, text = 2, list = 3, none = 4 };

        argument_type type = none;
        /// As the type says; list elements are signed numbers or texts.
        std::variant<std::monostate, long, unsigned long, std::string, std::vector<an_argument_t>> value;
        unsigned int count = 0; ///< elements of a list

        /// Same type and value. Lists must not be compared: an internal fault.
        bool operator==(const an_argument_t& other) const;
        /// Greater value of the same type; anything is greater than none. Others must not be compared: an internal
        /// fault.
        bool operator>(const an_argument_t& other) const;
    };

    /// Other tools that work on the same files, for addfileopt().
    enum class tool_name { compiler, assembler, archiver, linker };

    static constexpr const char* trace_tag = "owl option debug"; ///< begins every trace line

    using merge_policy = void (option_obj::*)(option_id, option_obj&);
    using merge_override = bool (option_obj::*)(option_id, option_obj&);

    /// The boolean has no influence.
    explicit option_obj(bool);
    /// Copies all settings but the history, which stays as it is (empty in a new object).
    option_obj(const option_obj& other);
    option_obj& operator=(const option_obj& other);
    ~option_obj();

    // Setting and clearing.

    void setopt(option_id id);
    void setopt(option_id id, long value);
    void setopt(option_id id, const char* text);
    /// Sets every option of a class, without argument.
    void setopt(class_id members);
    void setclassmembers(class_id members);
    /// Sets an option without recording it in the history.
    void setopt_internal(option_id id);
    /// Stores an argument, setting the option first when it was never touched. A null text is ignored.
    void setarg(option_id id, const char* text);
    void setarg(option_id id, long value);
    /// Takes settings, arguments and history entries of an option back, unless it is persistent.
    void clearopt(option_id id);
    void clearopt(class_id members);
    void clearclassmembers(class_id members);
    /// Counts a recognition by the matcher.
    void parsed_option(option_id id);
    void register_option_form(option_id id, unsigned char spelling_form);
    /// Appends an entry with the last stored argument; for an option of a single value, instead of earlier entries.
    void add_to_history(option_id id);
    void clear_history(option_id id);

    // Queries.

    /// Settings since the last clear.
    int state_of(option_id id) const { return is_option(id) ? state[static_cast<std::size_t>(id)] : 0; }
    unsigned int getargcount(option_id id) const;
    /// Argument `index`, counted from 0, as text or as number; null or 0 when there is none. A text made from a number
    /// stays valid for 14 further such calls.
    const char* getstrarg(option_id id, unsigned int index) const;
    long getnumarg(option_id id, unsigned int index) const;
    bool isclass(option_id id, class_id members) const;
    /// How many members of a class are set.
    int testclass(class_id members) const;
    /// How often members of a class were set or cleared.
    int seenclass(class_id members) const;
    /// Whether any argument of the option, as text, is in the null-terminated list.
    bool args_match_list(option_id id, const char* const* list) const;
    /// The spelling that the user typed last, readable; valid for four further rot13() calls.
    const char* format_of_option(option_id id) const;
    /// The main spelling, readable; as above.
    const char* internal_option_string(option_id id) const;
    /// Whether settings are traced on standard output.
    bool debug_level(int) const { return trace; }
    void post_process_option_depends() {}

    /// The readable form of a stored text, or the stored form of a readable one; a null text is empty. The result stays
    /// valid for four further calls.
    static const char* rot13(const char* text);
    /// The same as a text of the caller's own. What this class needs itself it takes from here, so that only callers
    /// use up the buffers of borrowed texts.
    static std::string readable(const char* text);

    // Matching (options/optobj_match.cpp).

    /// Matches and applies one option; `opt` is the argument without its leading "-". Returns 1 when it was recognised,
    /// or is null or empty; 0, without any message, when not: then `*rest`, unless `rest` is null, points to the start
    /// of the text, or to the character before it when its first character begins no option.
    int process_option(const char* opt, const char** rest);

    // Values (options/optobj_values.cpp). `param_name` is stored rotated. Bad values end the process with status 1.

    /// The text of a value that stands in `rest` or, where its type allows, in the next argument; null for no value.
    const char* parse_arg(option_id id, const char* rest, const char* param_name, parse_option_type type,
                          const arg_range* range);
    /// Returns only when `value` is a number within `range`.
    void check_numerical_arg(parse_option_type type, option_id id, const char* param_name, const char* value,
                             const arg_range* range);
    /// Stores the chosen item's value and returns 1; 0 when there is no value.
    int parse_oneof(option_id id, const char* rest, const char* param_name, parse_option_type type, long* value);
    /// The radix of a number with prefix 0x or 0, or suffix h or q, which is cut off `text`.
    static int get_radix(char* text);
    /// The number, in the radix of its form. `*error`, unless null, becomes 1 for anything but a whole number, else 0;
    /// errno tells of an overflow.
    long strtol_by_radix(const char* text, int* error) const;
    unsigned long strtoul_by_radix(const char* text, int* error) const;
    /// Applies the conflict table to an option that was just set.
    void do_conflicts(option_id id);
    /// Warns when the option text up to `end` is not spelt in the letter case of `canonical`.
    void deprecated_case(const char* end, const char* canonical);

    // Help (options/optobj_help.cpp).

    /// The label of an option in the help list, from stored texts; valid until the next call.
    static const char* get_opt_txt(const char* main_text, const char* const* alt_texts, const char* lead_text,
                                   const char* param_name, int param_optional);
    static void dump_basic_class();
    static void dump_class(int help_class);
    /// Without text, prints the usage and all options; 0. With text, prints the options whose name or help it matches,
    /// and then ends the process with status 0 or, if `keep_running`, returns whether there were any.
    static int display_option_help(const char* text, int keep_running);

    // History and export (options/optobj_history.cpp). Texts and lists are new; the caller releases them with
    // std::free().

    /// Prints the history on standard output, oldest first, one setting a line.
    void dump_history() const;
    /// Appends a file name to the history, as an entry of the file option of the tool whose command is `tool`. An empty
    /// text changes nothing; an unknown tool is warned about.
    void addfileopt(std::string file, std::string tool);
    /// The option with argument `index` as command-line text; null when there is nothing to export.
    char* export_option(option_id id, int index) const;
    /// All set options with all their arguments as command-line text, separated by blanks.
    char* print() const;
    /// Lists the set options, or all of them with their state, on standard output.
    void dump(int all) const;
    /// The selected options in increasing order, ended by opt_end.
    option_id* export_option_list(export_option_list_type kind) const;
    /// The same among the members of a class; class 0 has every option.
    option_id* export_option_class(export_option_list_type kind, class_id members) const;
    /// The same with each argument of each option as command-line text.
    std::vector<optlist> export_option_pairs(export_option_list_type kind, class_id members) const;
    /// Class 0 and every class that the option belongs to.
    std::vector<class_id> class_list_for_option(option_id id) const;
    /// The option's arguments as a value that can be compared.
    void get_argument(option_id id, an_argument_t* out) const;

    // Merging option sets (options/optobj_merge.cpp). This object holds the options of the sources so far, `other`
    // those of a new source, which its current_file names. Problems are reported as error diagnostics.

    /// Takes over the settings of `other` that have a merge policy.
    void merge_init(option_obj& other);
    /// Merges `other` into this object, option by option under the option's policy.
    void merge_options(option_obj& other);
    void merge_policy_none(option_id id, option_obj& other);         ///< ignores the option
    void merge_policy_exact(option_id id, option_obj& other);        ///< demands the same setting in both
    void merge_policy_exact_notset(option_id id, option_obj& other); ///< demands the same arguments where both are set
    void merge_policy_or(option_id id, option_obj& other);           ///< set when set in either
    void merge_policy_and(option_id id, option_obj& other);          ///< set when set in both
    void merge_policy_main(option_id id, option_obj& other);         ///< this object's setting stands
    void merge_policy_min(option_id id, option_obj& other);          ///< the smaller argument or earlier choice
    void merge_policy_max(option_id id, option_obj& other);          ///< the larger argument or later choice
    /// Reports every option of `other` that may not be merged with this object's option `id`.
    void do_merge_conflicts(option_id id, option_obj& other);
    static unsigned int merge_policy_main_calls; ///< calls of merge_policy_main() in this process

    // What the program around it provides.

    static const char* executable_name; ///< the program's name as invoked, for the usage
    static const char* (*next_arg)();   ///< the next command-line argument, consumed, or null
    static void (*print_banner)(FILE*); ///< writes the tool's banner line

protected:
    using option_table = std::array<std::array<unsigned char, option_count>, option_count>;

    // The tables (options/optobj_tables.cpp).

    static std::array<std::int32_t, option_count> parm_type;
    static std::array<option_definition, option_count + 1> option_definitions;
    static std::array<const char*, option_count> enum_to_enumtxt;
    static std::array<const char*, option_count> enum_to_optiontxt;
    static const std::array<std::array<unsigned char, class_count>, option_count> classes;
    static option_table conflicts;
    static const std::array<const char*, 2> class_descriptions;
    static const oneof_item OO_DIAG_WRAP_ITEMLIST[];
    static option_table merge_conflicts;
    static std::array<merge_policy, option_count> merge_policy_functions;
    static std::array<merge_override, option_count> mutex_merge_override_functions;
    static const std::map<std::string, tool_name>& tool_cmd_map;
    static const std::map<tool_name, option_id>& tn_fileopt_map;
    static const char* const file_option_label;

    // Settings and arguments (options/optobj.cpp, options/optobj_values.cpp).

    /// Stored arguments: strings for the types that hold text, numbers for the others. Elements never move, so that
    /// borrowed texts stay valid while others are added.
    struct argument_values {
        std::deque<std::string> texts;
        std::vector<long> numbers;
    };

    /// Room for any number as text.
    using number_buffer = std::array<char, 24>;

    static bool is_option(option_id id) { return static_cast<unsigned int>(id) < option_count; }
    static const oneof_item* item_of_value(option_id id, long value);
    static bool is_member(option_id id, class_id members);

    void count_setting(option_id id);
    void set_single_argument(option_id id, long value);
    void store_argument(option_id id, const std::string& text, long number);
    void trace_argument(option_id id) const;
    static std::string enumerator_name(option_id id) { return readable(enum_to_enumtxt[static_cast<std::size_t>(id)]); }
    static std::string main_spelling(option_id id) { return readable(enum_to_optiontxt[static_cast<std::size_t>(id)]); }
    std::string typed_spelling(option_id id) const { return readable(stored_spelling(id)); }
    const char* stored_spelling(option_id id) const;
    /// As getstrarg(), with a text made from a number in `number`.
    const char* argument_text(option_id id, unsigned int index, number_buffer& number) const;
    [[noreturn]] void report_missing_parameter(option_id id, const char* param_name, unsigned int source_line) const;

    // Matcher nodes, named after what they have matched (options/optobj_match.cpp).

    const char* process_o_option(const char* rest);
    const char* process_p_option(const char* rest);
    const char* process_pd_option(const char* rest);
    const char* process_pdb_option(const char* rest);
    const char* process_pde_option(const char* rest);
    const char* process___dash___option(const char* rest);
    const char* process___dash__b_option(const char* rest);
    const char* process___dash__d_option(const char* rest);
    const char* process___dash__de_option(const char* rest);
    const char* process___dash__deb_option(const char* rest);
    const char* process___dash__debu_option(const char* rest);
    const char* process___dash__debug_option(const char* rest);
    const char* process___dash__debug___option(const char* rest);
    const char* process___dash__debug__option(const char* rest);
    const char* process___dash__di_option(const char* rest);
    const char* process___dash__dia_option(const char* rest);
    const char* process___dash__dis_option(const char* rest);
    const char* process___dash__e_option(const char* rest);
    const char* process___dash__p_option(const char* rest);
    const char* process___dash__t_option(const char* rest);
    const char* process_first_character(const char* text);
    const char* set_plain_option(option_id id, unsigned char spelling_form);
    const char* set_diag_wrap(const char* value);
    const char* set_preferred_order_file(const char* value, unsigned char spelling_form);

    // Export and merging (options/optobj_history.cpp, options/optobj_merge.cpp).

    bool is_selected(option_id id, export_option_list_type kind, class_id members) const;
    bool is_set(option_id id) const { return state[static_cast<std::size_t>(id)] != 0; }
    void take_setting(option_id id, const option_obj& other, int index);
    void check_same_arguments(option_id id, const option_obj& other, unsigned int source_line) const;
    void merge_extreme(option_id id, option_obj& other, bool want_greater);

    // The settings. The arrays are by option.

    bool trace = false;                                     ///< trace settings on standard output
    std::array<std::int32_t, option_count> state{};         ///< settings since the last clear
    std::array<unsigned char, option_count> form{};         ///< spelling used last
    std::array<std::int32_t, option_count> seen{};          ///< settings and clears
    std::array<std::int32_t, option_count> parsed{};        ///< recognitions by the matcher
    std::array<argument_values, option_count> args{};       ///< stored arguments
    const char* current_option = nullptr;                   ///< the text being matched, while it is
    const char* current_file = "<internal>";                ///< where this option set comes from; not owned
    std::list<std::pair<option_id, hist_argument>> history; ///< settings, oldest first
    bool merging = false;                                   ///< while option sets are merged: no conflict checks
};
