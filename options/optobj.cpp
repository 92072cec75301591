// The core of the option object: setting, clearing, arguments, history and queries.
#include "options/optobj.h"

#include "DIAG/diag_messages.h"
#include "options/rotated_text.h"
#include "support/assertion.h"

#include <algorithm>
#include <cstring>

namespace {

// The text of an argument for type 5 and the value for type 4 have a place of their own in argument_values.
bool holds_text(std::int32_t type) {
    return type == option_obj::parm_string || type == option_obj::parm_string_list;
}

bool is_list(std::int32_t type) {
    return type >= option_obj::parm_string_list;
}

} // namespace

option_obj::option_obj(bool) {}

option_obj::option_obj(const option_obj& other) {
    *this = other;
}

option_obj& option_obj::operator=(const option_obj& other) {
    if (this == &other) {
        return *this;
    }
    for (const std::int32_t type : parm_type) {
        internal_assert(type >= parm_none && type <= parm_oneof_list, "optobj", "operator=", "argument type is 0 to 7");
    }
    trace = other.trace;
    state = other.state;
    form = other.form;
    seen = other.seen;
    parsed = other.parsed;
    args = other.args;
    current_option = other.current_option;
    current_file = other.current_file;
    merging = other.merging;
    return *this;
}

option_obj::~option_obj() = default;

const char* option_obj::rot13(const char* text) {
    static auto& results = *new std::array<std::string, 5>; // used in turn; never destroyed, for exit handlers
    static std::size_t next = 0;
    std::string& result = results[next];
    next = (next + 1) % results.size();
    result = readable(text);
    return result.c_str();
}

std::string option_obj::readable(const char* text) {
    std::string result = text == nullptr ? "" : text;
    std::transform(result.begin(), result.end(), result.begin(), rotated_character);
    return result;
}

// Setting and clearing.

// What every setting does first: count, trace and look for conflicts.
void option_obj::count_setting(option_id id) {
    const auto i = static_cast<std::size_t>(id);
    ++state[i];
    ++seen[i];
    if (trace) {
        std::printf("%s: Set    option id %s to state %d\n", trace_tag, enumerator_name(id).c_str(), state[i]);
    }
    if (!merging) {
        do_conflicts(id);
    }
}

void option_obj::setopt(option_id id) {
    if (is_option(id)) {
        count_setting(id);
        add_to_history(id);
    }
}

void option_obj::setopt(option_id id, long value) {
    if (is_option(id)) {
        count_setting(id);
        setarg(id, value);
        add_to_history(id);
    }
}

void option_obj::setopt(option_id id, const char* text) {
    if (is_option(id)) {
        count_setting(id);
        setarg(id, text);
        add_to_history(id);
    }
}

void option_obj::setopt(class_id members) {
    setclassmembers(members);
}

void option_obj::setclassmembers(class_id members) {
    for (int id = 0; id < option_count; ++id) {
        if (is_member(static_cast<option_id>(id), members)) {
            setopt(static_cast<option_id>(id));
        }
    }
}

void option_obj::setopt_internal(option_id id) {
    if (is_option(id)) {
        count_setting(id);
    }
}

void option_obj::setarg(option_id id, const char* text) {
    if (!is_option(id) || text == nullptr) {
        return;
    }
    const auto i = static_cast<std::size_t>(id);
    if (seen[i] == 0) {
        setopt(id);
    }
    long number = 0;
    switch (parm_type[i]) {
    case parm_none:
        return;
    case parm_string:
    case parm_string_list:
        break;
    case parm_number:
    case parm_number_list:
        number = strtol_by_radix(text, nullptr);
        break;
    case parm_unsigned:
        number = static_cast<long>(strtoul_by_radix(text, nullptr));
        break;
    case parm_oneof:
    case parm_oneof_list:
        if (*text == '\0') {
            number = strtol_by_radix(text, nullptr);
        } else {
            parse_oneof(id, text, option_definitions[i].param_name, parse_glued_oneof, &number);
        }
        break;
    default:
        DIAG::raise<DIAG::optgen_unhandled_clause_in_setarg>("optobj", 1195, 1195UL);
        return;
    }
    store_argument(id, text, number);
}

void option_obj::setarg(option_id id, long value) {
    if (!is_option(id)) {
        return;
    }
    const auto i = static_cast<std::size_t>(id);
    if (seen[i] == 0) {
        setopt(id);
    }
    if (parm_type[i] < parm_none || parm_type[i] > parm_oneof_list) {
        DIAG::raise<DIAG::optgen_unhandled_clause_in_setarg>("optobj", 1327, 1327UL);
        return;
    }
    if (parm_type[i] != parm_none) {
        store_argument(id, std::to_string(value), value);
    }
}

// Counts a setting whose value becomes the only argument of the option, a list too.
void option_obj::set_single_argument(option_id id, long value) {
    count_setting(id);
    args[static_cast<std::size_t>(id)] = {};
    store_argument(id, std::to_string(value), value);
    add_to_history(id);
}

// Stores an argument as the text or the number that the option's type holds: a list grows, a single value is replaced.
void option_obj::store_argument(option_id id, const std::string& text, long number) {
    const auto i = static_cast<std::size_t>(id);
    argument_values& values = args[i];
    if (!is_list(parm_type[i])) {
        values.texts.clear();
        values.numbers.clear();
    }
    if (holds_text(parm_type[i])) {
        values.texts.push_back(text);
    } else {
        values.numbers.push_back(number);
    }
    if (trace) {
        std::printf("%s: Set    option id %s arg to value '%s' (%zu args)", trace_tag, enumerator_name(id).c_str(),
                    text.c_str(), values.texts.size() + values.numbers.size() - 1);
        trace_argument(id);
    }
}

// The rest of the trace line of a stored argument: the choices of the stored value.
void option_obj::trace_argument(option_id id) const {
    const auto i = static_cast<std::size_t>(id);
    const oneof_item* item = option_definitions[i].oneof_items;
    if (parm_type[i] == parm_oneof && item != nullptr) {
        for (; item->text != nullptr; ++item) {
            if (item->value == args[i].numbers.back()) {
                std::printf(" (%s)", item->text + 1);
            }
        }
    }
    std::printf("\n");
}

void option_obj::clearopt(option_id id) {
    const auto i = static_cast<std::size_t>(id);
    if (!is_option(id) || option_definitions[i].persistent) {
        return;
    }
    if (trace) {
        std::printf("%s: Clear  option id %s to state 0\n", trace_tag, enumerator_name(id).c_str());
    }
    ++seen[i];
    state[i] = 0;
    args[i] = {};
    clear_history(id);
}

void option_obj::clearopt(class_id members) {
    clearclassmembers(members);
}

void option_obj::clearclassmembers(class_id members) {
    for (int id = 0; id < option_count; ++id) {
        if (is_member(static_cast<option_id>(id), members)) {
            clearopt(static_cast<option_id>(id));
        }
    }
}

void option_obj::parsed_option(option_id id) {
    if (is_option(id)) {
        ++parsed[static_cast<std::size_t>(id)];
        if (trace) {
            std::printf("%s: Parsed option id %s/%d\n", trace_tag, enumerator_name(id).c_str(), id);
        }
    }
}

void option_obj::register_option_form(option_id id, unsigned char spelling_form) {
    if (is_option(id)) {
        form[static_cast<std::size_t>(id)] = spelling_form;
    }
}

void option_obj::add_to_history(option_id id) {
    if (!is_option(id)) {
        return;
    }
    const std::int32_t type = parm_type[static_cast<std::size_t>(id)];
    if (type < parm_none || type > parm_oneof_list) {
        DIAG::raise<DIAG::optgen_unhandled_clause_in_add_hist>("optobj", 1045, 1045UL);
        return;
    }
    if (!is_list(type)) {
        clear_history(id);
    }
    hist_argument argument = {0, {}};
    if (type != parm_none) {
        const unsigned int last = getargcount(id) - 1; // wraps for an option without argument: then there is none
        number_buffer number;
        const char* const text = argument_text(id, last, number);
        argument = {getnumarg(id, last), text == nullptr ? "" : text};
    }
    if (trace) {
        std::printf("%s: Add option id %s to history with arg %s\n", trace_tag, enumerator_name(id).c_str(),
                    argument.text.c_str());
    }
    history.emplace_back(id, std::move(argument));
}

void option_obj::clear_history(option_id id) {
    if (is_option(id)) { // what addfileopt() noted stays
        history.remove_if([id](const auto& entry) { return entry.first == id; });
    }
}

void option_obj::do_conflicts(option_id id) {
    enum conflict_kind : unsigned char { quiet_clear = 1, override_earlier = 2, conflict = 3 };
    if (!is_option(id)) {
        return;
    }
    for (int other = 0; other < option_count; ++other) {
        const auto earlier = static_cast<option_id>(other);
        const unsigned char kind = conflicts[static_cast<std::size_t>(id)][static_cast<std::size_t>(earlier)];
        if (!is_set(earlier) || kind == 0) {
            continue;
        }
        const std::string typed = typed_spelling(id);
        const std::string typed_earlier = typed_spelling(earlier);
        if (kind == quiet_clear && trace) {
            DIAG::raise<DIAG::optgen_conflict_quiet_option>("optobj", 332, typed.c_str(), typed_earlier.c_str());
        } else if (kind == override_earlier) {
            DIAG::raise<DIAG::optgen_conflict_override_option>("optobj", 321, typed.c_str(), typed_earlier.c_str());
        } else if (kind == conflict) {
            DIAG::raise<DIAG::optgen_conflict_option>("optobj", 310, typed.c_str(), typed_earlier.c_str());
        }
        clearopt(earlier);
        if (kind == conflict) {
            std::exit(1);
        }
    }
}

// Queries.

unsigned int option_obj::getargcount(option_id id) const {
    if (!is_option(id) || parm_type[static_cast<std::size_t>(id)] == parm_none) {
        return 0;
    }
    const argument_values& values = args[static_cast<std::size_t>(id)];
    return static_cast<unsigned int>(values.texts.size() + values.numbers.size()); // one of them is empty
}

const option_obj::oneof_item* option_obj::item_of_value(option_id id, long value) {
    const oneof_item* item = option_definitions[static_cast<std::size_t>(id)].oneof_items;
    for (; item != nullptr && item->text != nullptr; ++item) {
        if (item->value == value) {
            return item;
        }
    }
    return nullptr;
}

const char* option_obj::getstrarg(option_id id, unsigned int index) const {
    static std::array<number_buffer, 15> buffers; // used in turn
    static std::size_t next = 0;
    number_buffer& number = buffers[next];
    const char* const text = argument_text(id, index, number);
    if (text == number.data()) {
        next = (next + 1) % buffers.size();
    }
    return text;
}

const char* option_obj::argument_text(option_id id, unsigned int index, number_buffer& number) const {
    const auto i = static_cast<std::size_t>(id);
    if (!is_option(id) || seen[i] == 0) {
        return nullptr;
    }
    if (parm_type[i] == parm_none) {
        DIAG::raise<DIAG::optgen_invalid_list_handler>("optobj", 1488, 1488UL);
        return nullptr;
    }
    if (index >= getargcount(id)) {
        return nullptr;
    }
    if (holds_text(parm_type[i])) {
        return args[i].texts[index].c_str();
    }
    const long value = args[i].numbers[index];
    if (parm_type[i] == parm_oneof || parm_type[i] == parm_oneof_list) {
        if (const oneof_item* const item = item_of_value(id, value)) {
            return item->text + 1;
        }
    }
    if (parm_type[i] == parm_unsigned) {
        std::snprintf(number.data(), number.size(), "0x%lX", static_cast<unsigned long>(value));
    } else {
        std::snprintf(number.data(), number.size(), "%ld", value);
    }
    return number.data();
}

long option_obj::getnumarg(option_id id, unsigned int index) const {
    const auto i = static_cast<std::size_t>(id);
    if (!is_option(id) || seen[i] == 0) {
        return 0;
    }
    if (parm_type[i] == parm_none) {
        DIAG::raise<DIAG::optgen_unhandled_option_handler>("optobj", 1402, 1402UL);
        return 0;
    }
    if (index >= getargcount(id)) {
        return 0;
    }
    return holds_text(parm_type[i]) ? strtol_by_radix(args[i].texts[index].c_str(), nullptr) : args[i].numbers[index];
}

// Whether the class table has the option in the class; class 0 has none there.
bool option_obj::is_member(option_id id, class_id members) {
    return static_cast<unsigned int>(members) < class_count &&
           classes[static_cast<std::size_t>(id)][static_cast<std::size_t>(members)] != 0;
}

bool option_obj::isclass(option_id id, class_id members) const {
    return is_option(id) && (members == class_all || is_member(id, members));
}

int option_obj::testclass(class_id members) const {
    int count = 0;
    for (int id = 0; id < option_count; ++id) {
        count += is_member(static_cast<option_id>(id), members) && is_set(static_cast<option_id>(id)) ? 1 : 0;
    }
    return count;
}

int option_obj::seenclass(class_id members) const {
    int sum = 0;
    for (int id = 0; id < option_count; ++id) {
        sum += is_member(static_cast<option_id>(id), members) ? seen[static_cast<std::size_t>(id)] : 0;
    }
    return sum;
}

bool option_obj::args_match_list(option_id id, const char* const* list) const {
    if (!is_option(id) || parm_type[static_cast<std::size_t>(id)] == parm_none) {
        return false;
    }
    for (unsigned int index = 0; index < getargcount(id); ++index) {
        number_buffer number;
        const char* const argument = argument_text(id, index, number);
        for (const char* const* wanted = list; *wanted != nullptr; ++wanted) {
            if (std::strcmp(argument, *wanted) == 0) {
                return true;
            }
        }
    }
    return false;
}

// The spelling that the user typed last, as the tables store it; null for no option.
const char* option_obj::stored_spelling(option_id id) const {
    if (!is_option(id)) {
        return nullptr;
    }
    const option_definition& definition = option_definitions[static_cast<std::size_t>(id)];
    const std::size_t wanted = form[static_cast<std::size_t>(id)];
    std::size_t known = 0; // alternatives up to the first gap
    while (known < definition.alt_texts.size() && definition.alt_texts[known] != nullptr) {
        ++known;
    }
    return wanted >= 1 && wanted <= known ? definition.alt_texts[wanted - 1] : definition.main_text;
}

const char* option_obj::format_of_option(option_id id) const {
    return is_option(id) ? rot13(stored_spelling(id)) : nullptr;
}

const char* option_obj::internal_option_string(option_id id) const {
    return is_option(id) ? rot13(enum_to_optiontxt[static_cast<std::size_t>(id)]) : nullptr;
}
