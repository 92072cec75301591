// The history of settings, and settings rendered back into command-line text.
#include "DIAG/diag_messages.h"
#include "options/optobj.h"
#include "support/assertion.h"
#include "support/memory.h"

#include <cstring>

void option_obj::dump_history() const {
    for (const auto& [id, argument] : history) {
        std::printf("%s", (is_option(id) ? main_spelling(id) : readable(file_option_label)).c_str());
        if (!argument.text.empty()) {
            std::printf("=%s", argument.text.c_str());
        }
        std::printf("\n");
    }
}

void option_obj::addfileopt(std::string file, std::string tool) {
    if (file.empty() || tool.empty()) {
        return;
    }
    option_id file_option = opt_end; // of an unknown tool
    const auto known_tool = tool_cmd_map.find(tool);
    if (known_tool == tool_cmd_map.end()) {
        DIAG::raise<DIAG::optgen_missing_fileopt>("optobj", 891, tool.c_str());
    } else if (const auto known_option = tn_fileopt_map.find(known_tool->second);
               known_option == tn_fileopt_map.end()) {
        DIAG::raise<DIAG::optgen_missing_fileopt>("optobj", 896, tool.c_str());
    } else {
        file_option = known_option->second;
    }
    if (trace) {
        std::printf("%s: Add file '%s' to %s's history\n", trace_tag, file.c_str(), tool.c_str());
    }
    history.emplace_back(file_option, hist_argument{-1, std::move(file)});
}

char* option_obj::export_option(option_id id, int index) const {
    const auto i = static_cast<std::size_t>(id);
    if (!is_option(id) || (seen[i] != 0 && state[i] == 0)) {
        return nullptr;
    }
    std::string exported = main_spelling(id);
    if (parm_type[i] == parm_none) {
        return safestrdup(exported.c_str());
    }
    if (index == 0 ? !is_set(id) : static_cast<unsigned int>(index) >= getargcount(id)) {
        return nullptr;
    }
    const auto argument = static_cast<unsigned int>(index);
    number_buffer number;
    const char* text = argument_text(id, argument, number);
    if (parm_type[i] == parm_oneof) {
        const long value = getnumarg(id, argument);
        if (value == 0) {
            return safestrdup(exported.c_str());
        }
        if (item_of_value(id, value) == nullptr) {
            text = "error";
        }
    }
    if (text != nullptr) { // a set option may still lack its argument
        exported += "=";
        exported += text;
    }
    return safestrdup(exported.c_str());
}

char* option_obj::print() const {
    std::string all;
    for (const auto& [id, text] : export_option_pairs(export_set, class_all)) {
        all += all.empty() ? "" : " ";
        all += text;
    }
    return safestrdup(all.c_str());
}

void option_obj::dump(int all) const {
    static constexpr const char* type_labels[] = {
        "NO ARGS",         "STRING ARG:",      "NUMBER ARG:",      "HEXNUM ARG:",
        "ENUMERATED ARG:", "STRING LIST ARG:", "NUMBER LIST ARG:", "ONEOF LIST ARG:",
    };
    for (int number = 0; number < option_count; ++number) {
        const auto id = static_cast<option_id>(number);
        const auto i = static_cast<std::size_t>(id);
        if (all == 0 && !is_set(id)) {
            continue;
        }
        std::printf("%-25s  ", main_spelling(id).c_str());
        if (all != 0) {
            std::printf("%s%s", seen[i] != 0 ? "SEEN      " : "not seen  ", is_set(id) ? "ENABLED   " : "disabled  ");
        }
        const bool known_type = parm_type[i] >= parm_none && parm_type[i] <= parm_oneof_list;
        std::printf("%s", known_type ? type_labels[parm_type[i]] : "<UNKNOWN TYPE!?!?>");
        if (known_type && parm_type[i] != parm_none) {
            for (unsigned int index = 0; index < getargcount(id); ++index) {
                number_buffer value;
                std::printf(" %s", argument_text(id, index, value));
            }
            if (getargcount(id) == 0) {
                std::printf(" <arg not provided>");
            }
        }
        std::printf("\n");
    }
}

bool option_obj::is_selected(option_id id, export_option_list_type kind, class_id members) const {
    const bool touched = seen[static_cast<std::size_t>(id)] != 0;
    return isclass(id, members) && (kind == export_all || is_set(id) || (kind == export_touched_or_set && touched));
}

option_obj::option_id* option_obj::export_option_list(export_option_list_type kind) const {
    return export_option_class(kind, class_all);
}

option_obj::option_id* option_obj::export_option_class(export_option_list_type kind, class_id members) const {
    auto* const list = static_cast<option_id*>(safemalloc((option_count + 1) * sizeof(option_id)));
    std::size_t count = 0;
    for (int id = 0; id < option_count; ++id) {
        if (is_selected(static_cast<option_id>(id), kind, members)) {
            list[count++] = static_cast<option_id>(id);
        }
    }
    list[count] = opt_end;
    return list;
}

std::vector<option_obj::optlist> option_obj::export_option_pairs(export_option_list_type kind, class_id members) const {
    std::vector<optlist> pairs;
    for (int number = 0; number < option_count; ++number) {
        const auto id = static_cast<option_id>(number);
        if (!is_selected(id, kind, members)) {
            continue;
        }
        const bool takes_none = parm_type[static_cast<std::size_t>(id)] == parm_none;
        const int count = takes_none ? 1 : static_cast<int>(getargcount(id));
        for (int index = 0; index < count; ++index) {
            char* const text = export_option(id, index);
            pairs.emplace_back(id, text == nullptr ? "" : text);
            std::free(text);
        }
    }
    return pairs;
}

std::vector<option_obj::class_id> option_obj::class_list_for_option(option_id id) const {
    constexpr int first_file_option = 9; // of another tool
    constexpr int last_file_option = 46;
    std::vector<class_id> list;
    if (is_option(id) || (id >= first_file_option && id <= last_file_option)) {
        list.push_back(class_all);
    }
    for (int members = 1; is_option(id) && members < class_count; ++members) {
        if (is_member(id, static_cast<class_id>(members))) {
            list.push_back(static_cast<class_id>(members));
        }
    }
    return list;
}

void option_obj::get_argument(option_id id, an_argument_t* out) const {
    const auto number = [&](unsigned int index) {
        return an_argument_t{an_argument_t::signed_number, getnumarg(id, index), 0};
    };
    const auto text = [&](unsigned int index) {
        number_buffer value;
        const char* const argument = argument_text(id, index, value);
        return an_argument_t{an_argument_t::text, std::string(argument == nullptr ? "" : argument), 0};
    };
    const auto list = [&](auto element) {
        std::vector<an_argument_t> elements;
        for (unsigned int index = 0; index < getargcount(id); ++index) {
            elements.push_back(element(index));
        }
        return an_argument_t{an_argument_t::list, std::move(elements), getargcount(id)};
    };
    if (!is_option(id)) {
        return;
    }
    switch (parm_type[static_cast<std::size_t>(id)]) {
    case parm_none:
        *out = an_argument_t();
        break;
    case parm_string:
        *out = text(0);
        break;
    case parm_number:
    case parm_oneof:
        *out = number(0);
        break;
    case parm_unsigned:
        *out = {an_argument_t::unsigned_number, static_cast<unsigned long>(getnumarg(id, 0)), 0};
        break;
    case parm_string_list:
        *out = list(text);
        break;
    case parm_number_list:
    case parm_oneof_list:
        *out = list(number);
        break;
    default:
        assertion_failed("optobj", "get_argument", "argument type is 0 to 7");
    }
}

bool option_obj::an_argument_t::operator==(const an_argument_t& other) const {
    if (type != other.type) {
        return false;
    }
    internal_assert(type != list, "optobj", "an_argument_t::operator==", "type != list");
    return type == none || value == other.value;
}

bool option_obj::an_argument_t::operator>(const an_argument_t& other) const {
    if (type == none || other.type == none) {
        return type != none;
    }
    internal_assert(type == other.type && type != list, "optobj", "an_argument_t::operator>", "types can be compared");
    switch (type) {
    case signed_number:
        return std::get<long>(value) > std::get<long>(other.value);
    case unsigned_number:
        return std::get<unsigned long>(value) > std::get<unsigned long>(other.value);
    default:
        return std::get<std::string>(value) > std::get<std::string>(other.value);
    }
}
