// Merging option sets: the options recorded for one source into those of the sources before it, each option under the
// policy that a tool's table gives it. This tool's tables are empty; see options/optobj_tables.cpp for how to fill
// them.
//
//     sources so far   --diag_wrap=off        new source   --diag_wrap=on
//     under merge_policy_exact: error: option --diag_wrap=on is set in "b.o", and is incompatible with the previously
//     seen option --diag_wrap=off
//
// What is taken over from another object goes through the matcher as command-line text, so it has the same effect as if
// the user had typed it.
#include "DIAG/diag_messages.h"
#include "options/optobj.h"
#include "support/assertion.h"

#include <cstdlib>

unsigned int option_obj::merge_policy_main_calls = 0;

namespace {

// An exported option as a string; empty when there is nothing to export.
std::string exported(const option_obj& options, option_obj::option_id id, int index = 0) {
    char* const text = options.export_option(id, index);
    std::string result = text == nullptr ? "" : text;
    std::free(text);
    return result;
}

} // namespace

void option_obj::merge_init(option_obj& other) {
    merging = true;
    for (int number = 0; number < option_count; ++number) {
        const auto id = static_cast<option_id>(number);
        const merge_policy policy = merge_policy_functions[static_cast<std::size_t>(id)];
        if (policy != nullptr && policy != &option_obj::merge_policy_none && other.is_set(id)) {
            take_setting(id, other, 0);
        }
    }
    merging = false;
}

void option_obj::merge_options(option_obj& other) {
    merging = true;
    for (int number = 0; number < option_count; ++number) {
        const auto id = static_cast<option_id>(number);
        const auto i = static_cast<std::size_t>(id);
        if (is_set(id)) {
            do_merge_conflicts(id, other);
        }
        const merge_override override_policy = mutex_merge_override_functions[i];
        if (override_policy != nullptr && (this->*override_policy)(id, other)) {
            continue;
        }
        if (const merge_policy policy = merge_policy_functions[i]) {
            (this->*policy)(id, other);
        }
    }
    merging = false;
}

// Applies the other object's option with argument `index` to this object.
void option_obj::take_setting(option_id id, const option_obj& other, int index) {
    const std::string text = exported(other, id, index);
    if (!text.empty()) {
        process_option(text.c_str() + 1, nullptr);
    }
}

void option_obj::merge_policy_none(option_id, option_obj&) {}

void option_obj::merge_policy_exact(option_id id, option_obj& other) {
    if (!is_option(id)) {
        return;
    }
    if (is_set(id) && !other.is_set(id)) {
        DIAG::raise<DIAG::optgen_exact_set_in_previous_files>("optobj", 3560, exported(*this, id).c_str(),
                                                              other.current_file);
    } else if (!is_set(id) && other.is_set(id)) {
        DIAG::raise<DIAG::optgen_exact_not_set_in_previous_files>("optobj", 3568, exported(other, id).c_str(),
                                                                  other.current_file);
    } else {
        check_same_arguments(id, other, 3585);
    }
}

void option_obj::merge_policy_exact_notset(option_id id, option_obj& other) {
    check_same_arguments(id, other, 3617);
}

// Reports an option that is set in both objects with different arguments.
void option_obj::check_same_arguments(option_id id, const option_obj& other, unsigned int source_line) const {
    if (!is_option(id) || !is_set(id) || !other.is_set(id)) {
        return;
    }
    an_argument_t here;
    an_argument_t there;
    get_argument(id, &here);
    other.get_argument(id, &there);
    if (!(here == there)) {
        DIAG::raise<DIAG::optgen_exact_args_incompatible>("optobj", source_line, exported(other, id).c_str(),
                                                          other.current_file, exported(*this, id).c_str());
    }
}

void option_obj::merge_policy_or(option_id id, option_obj& other) {
    if (!is_option(id) || !other.is_set(id)) {
        return;
    }
    take_setting(id, other, 0);
    for (unsigned int index = 1; index < other.getargcount(id); ++index) {
        take_setting(id, other, static_cast<int>(index));
    }
}

void option_obj::merge_policy_and(option_id id, option_obj& other) {
    if (is_option(id) && is_set(id) && !other.is_set(id)) {
        clearopt(id);
    }
}

void option_obj::merge_policy_main(option_id id, option_obj&) {
    merge_policy_main_calls += is_option(id) ? 1 : 0;
}

void option_obj::merge_policy_min(option_id id, option_obj& other) {
    merge_extreme(id, other, false);
}

void option_obj::merge_policy_max(option_id id, option_obj& other) {
    merge_extreme(id, other, true);
}

// Takes the other object's setting where it is the wanted extreme of the two, or the only one.
void option_obj::merge_extreme(option_id id, option_obj& other, bool want_greater) {
    if (!is_option(id) || !other.is_set(id)) {
        return;
    }
    bool take_other = !is_set(id);
    const std::int32_t type = parm_type[static_cast<std::size_t>(id)];
    if (!take_other && (type == parm_oneof || type == parm_oneof_list)) {
        // The order of choices is that of the list; what is not in it comes last.
        const auto rank = [&](const option_obj& object) {
            std::size_t place = 0;
            const oneof_item* item = option_definitions[static_cast<std::size_t>(id)].oneof_items;
            while (item != nullptr && item[place].text != nullptr && item[place].value != object.getnumarg(id, 0)) {
                ++place;
            }
            return place;
        };
        take_other = want_greater ? rank(other) > rank(*this) : rank(other) < rank(*this);
    } else if (!take_other) {
        an_argument_t here;
        an_argument_t there;
        get_argument(id, &here);
        other.get_argument(id, &there);
        take_other = want_greater ? there > here : here > there;
    }
    if (take_other) {
        take_setting(id, other, 0);
    }
}

void option_obj::do_merge_conflicts(option_id id, option_obj& other) {
    for (int number = 0; is_option(id) && number < option_count; ++number) {
        const auto other_id = static_cast<option_id>(number);
        if (!other.is_set(other_id)) {
            continue;
        }
        const unsigned char kind = merge_conflicts[static_cast<std::size_t>(id)][static_cast<std::size_t>(other_id)];
        internal_assert(kind == 0 || kind == 3, "optobj", "do_merge_conflicts", "conflict kind is 0 or 3");
        if (kind == 3) {
            DIAG::raise<DIAG::optgen_merge_conflict_option>("optobj", 268, other.typed_spelling(other_id).c_str(),
                                                            other.current_file, typed_spelling(id).c_str());
        }
    }
}
