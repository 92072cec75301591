// The option object with its tables and state open to tests. Tables are process-wide: a test that changes one restores
// it.
#pragma once

#include "options/optobj.h"

using id = option_obj::option_id;
inline constexpr auto order_file = option_obj::opt_preferred_order_file;
inline constexpr auto wrap = option_obj::opt_diag_wrap;
inline constexpr auto buffer = option_obj::opt_buffer_diagnostics;

class open_options : public option_obj {
public:
    open_options() : option_obj(true) {}

    using option_obj::class_descriptions;
    using option_obj::conflicts;
    using option_obj::current_file;
    using option_obj::current_option;
    using option_obj::form;
    using option_obj::history;
    using option_obj::merge_conflicts;
    using option_obj::merge_policy_functions;
    using option_obj::mutex_merge_override_functions;
    using option_obj::option_definitions;
    using option_obj::parm_type;
    using option_obj::parsed;
    using option_obj::seen;
    using option_obj::state;
    using option_obj::trace;

    /// An override of merge policies that takes one option over and leaves the others to their policies.
    bool take_over_buffer(option_id option, option_obj&) { return option == opt_buffer_diagnostics; }

    /// Applies an option as the driver would, with its leading "-".
    int apply(const char* argument) { return process_option(argument + 1, nullptr); }

    /// The history as "id=text" entries.
    std::string history_text() const {
        std::string text;
        for (const auto& [option, argument] : history) {
            text += std::to_string(option) + "=" + argument.text + " ";
        }
        return text;
    }
};
