// The help: usage, option list, and the search through option names and descriptions.
#include "options/optobj.h"
#include "options/print_queue.h"
#include "support/strcase.h"

#include <cstdlib>
#include <cstring>

namespace {

// Whose tool it is: the two texts of the vendor line.
constexpr const char* vendor_text[] = {"Function ordering for linkers,", "by the Varnel Ordwell developers"};

constexpr int label_width = 28;
constexpr std::size_t alternative_count = std::tuple_size_v<decltype(option_obj::option_definition::alt_texts)>;

// The program's name without its directories.
void strip_directories(const char*& name) {
    if (const char* const slash = std::strrchr(name, '/')) {
        name = slash + 1;
    }
}

} // namespace

const char* option_obj::get_opt_txt(const char* main_text, const char* const* alt_texts, const char* lead_text,
                                    const char* param_name, int param_optional) {
    constexpr std::size_t main_limit = 114; // the main spelling is left out of a label that it would make longer
    static auto& label = *new std::string;  // never destroyed, for exit handlers
    const auto append = [](const char* spelling, bool after_comma) {
        label += after_comma ? "," : "";
        label += readable(spelling);
    };
    label.clear();
    if (lead_text != nullptr) {
        label += readable(lead_text);
    }
    if (main_text != nullptr && label.size() + std::strlen(main_text) <= main_limit) {
        append(main_text, !label.empty());
    }
    for (std::size_t i = 0; i < alternative_count && alt_texts[i] != nullptr; ++i) {
        if (lead_text == nullptr || std::strcmp(alt_texts[i], lead_text) != 0) {
            append(alt_texts[i], lead_text != nullptr || !label.empty());
        }
    }
    if (*param_name != '\0') {
        label += param_optional != 0 ? "[=" : "=";
        label += readable(param_name);
        label += param_optional != 0 ? "]" : "";
    }
    return label.c_str();
}

namespace {

const char* label_of(const option_obj::option_definition& definition) {
    return option_obj::get_opt_txt(definition.main_text, definition.alt_texts.data(), definition.lead_text,
                                   definition.param_name, definition.param_optional);
}

bool is_listed(const option_obj::option_definition& definition) {
    return !definition.opt_internal && !definition.opt_hidden;
}

void print_section() {
    if (print_queue(one_column, sort_long_labels_alone, 0) != 0) {
        std::printf("\n");
    }
}

} // namespace

void option_obj::dump_basic_class() {
    init_queue("Basic Options:", label_width, sort_by_key);
    for (const option_definition* option = option_definitions.data(); option->help_class != 2; ++option) {
        if (is_listed(*option) && option->basic_rank != 0) {
            queueup(label_of(*option), readable(option->short_help).c_str(), option->basic_rank);
        }
    }
    print_section();
}

void option_obj::dump_class(int help_class) {
    init_queue(readable(class_descriptions[static_cast<std::size_t>(help_class)]).c_str(), label_width, sort_by_key);
    for (const option_definition* option = option_definitions.data(); option->help_class != 2; ++option) {
        if (is_listed(*option) && option->help_class == help_class) {
            queueup(label_of(*option), readable(option->short_help).c_str(), option->help_rank);
        }
    }
    print_section();
}

int option_obj::display_option_help(const char* text, int keep_running) {
    strip_directories(executable_name);
    if (text == nullptr || *text == '\0') {
        print_banner(stdout);
        std::printf("%s %s\n", vendor_text[0], vendor_text[1]);
        std::printf("\n");
        std::printf("Usage: %s [-options] filename\n", executable_name);
        std::printf("\n");
        std::printf("Use '%s -h <option>' for more information on a particular option.  Use\n", executable_name);
        std::printf("'%s -h <text>' to search options for information regarding <text>.\n", executable_name);
        std::printf("\n");
        std::printf("Option arguments surrounded by [] declare they are optional.  Option arguments\n"
                    "separated by commas specify that the option's argument must be chosen from\n"
                    "those arguments listed.\n");
        std::printf("\n");
        std::printf("When shown, option arguments and defaults apply to the usage of both long and\n"
                    "short option forms.\n");
        std::printf("\n");
        dump_basic_class();
        dump_class(0);
        dump_class(1);
        return 0;
    }

    const auto length = static_cast<unsigned int>(std::strlen(text));
    const auto begins = [&](const char* spelling) {
        return spelling != nullptr && strcaseincmp(text, readable(spelling).c_str(), length) == 0;
    };
    bool found = false;
    for (const option_definition* option = option_definitions.data(); option->help_class != 2; ++option) {
        if (!is_listed(*option)) {
            continue;
        }
        bool matches = strcaseistr(readable(option->short_help).c_str(), text) != nullptr ||
                       strcaseistr(readable(option->long_help).c_str(), text) != nullptr || begins(option->main_text);
        for (const char* const alternative : option->alt_texts) {
            matches = matches || begins(alternative);
        }
        if (!matches) {
            continue;
        }
        found = true;
        const char* const label = label_of(*option);
        std::printf("  %-20s ", label);
        if (std::strlen(label) > 20) {
            std::printf("\n  %-20s ", " ");
        }
        std::printf("   ");
        const bool has_long_help = *option->long_help != '\0';
        fill_text(stdout, readable(has_long_help ? option->long_help : option->short_help).c_str(),
                  std::string(26, ' ').c_str());
    }
    if (keep_running == 0) {
        if (!found) {
            std::printf(">> Help: No options match the string '%s'\n", text);
        }
        std::exit(0);
    }
    return found ? 1 : 0;
}
