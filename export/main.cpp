// ordwell-export: from the order file of ordwell to the linker that a user has.
//
//     ordwell-export --linker=lld -o app.order app.cmd
//
// A linker is a file that turns names into lines (export/linker_format.h). Those that place sections get the sections of
// the functions (export/sections.h).
#include "ORDWELL/order_file.h"
#include "export/linker_format.h"
#include "export/sections.h"
#include "support/companion.h"
#include "support/failure.h"
#include "support/output_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unordered_set>

namespace {

/// The command line.
struct settings {
    std::string linker;
    std::vector<std::string> objects;
    std::string output;
    bool is_quiet = false;
    bool is_verbose = false;
    std::string order_file;
};

/// Functions that the output does not name, each in the order file's order.
struct left_out {
    std::vector<std::string> undefined;  ///< in no object
    std::vector<std::string> unordered;  ///< in sections that hold other functions too
    std::vector<std::string> unholdable; ///< the linker's format cannot hold the name
};

const linker_format& format_of(const std::string& linker) {
    const auto formats = linker_formats();
    return **std::find_if(formats.begin(), formats.end(), [&](const linker_format* f) { return f->name == linker; });
}

std::vector<std::string> names_of_order(const std::string& path) {
    std::vector<std::string> names;
    std::size_t bad_line = 0;
    if (!read_order_file(path, names, bad_line)) {
        throw bad_line == 0 ? failure(path, std::strerror(errno))
                            : failure(path, bad_line, "not a line of an order file");
    }
    return names;
}

// A text as the shell takes it for one word.
std::string shell_word(const std::string& text) {
    constexpr const char* plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.,:=/@%+-";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

// The option that hands the output to the linker, ready to copy.
std::string option_text(const linker_format& format, const std::string& output) {
    const std::string file = output.empty() || output == "-" ? "FILE" : output;
    if (!format.is_driver_option) {
        return shell_word(format.option + file);
    }
    if (file.find(',') == std::string::npos) {
        return format.driver + shell_word(std::string("-Wl,") + format.option + file);
    }
    // -Wl splits at commas: each argument of the linker is passed by itself.
    std::string option = format.option;
    std::string text = format.driver;
    if (option.ends_with(',')) {
        option.pop_back();
        return text + "-Xlinker " + option + " -Xlinker " + shell_word(file);
    }
    return text + "-Xlinker " + shell_word(option + file);
}

void report(const CLI::App& command_line, const std::vector<std::string>& names, const std::string& why,
            bool lists_names) {
    if (names.empty()) {
        return;
    }
    say(command_line, std::to_string(names.size()) + (names.size() == 1 ? " function " : " functions ") + why);
    for (const std::string& name : names) {
        if (lists_names) {
            say(command_line, "  " + name);
        }
    }
}

int export_order(const CLI::App& command_line, const settings& chosen) {
    const linker_format& format = format_of(chosen.linker);
    const std::vector<std::string> functions = names_of_order(chosen.order_file);
    section_table objects;
    for (const std::string& object : chosen.objects) {
        objects.add(object);
    }

    output_file out(chosen.output);
    left_out missing;
    std::unordered_set<std::string> written;
    out.write(format.start);
    for (const std::string& function : functions) {
        if (!chosen.objects.empty() && !objects.defines(function)) {
            missing.undefined.push_back(function);
            continue;
        }
        std::vector<std::string> places = {function};
        if (format.orders_sections) {
            places = chosen.objects.empty() ? usual_sections(function) : objects.sections(function);
        }
        if (places.empty()) {
            missing.unordered.push_back(function);
        }
        bool is_holdable = true;
        for (const std::string& place : places) {
            const std::optional<std::string> line = format.line(place);
            is_holdable = is_holdable && line.has_value();
            if (line.has_value() && written.insert(*line).second) {
                out.write(*line + "\n");
            }
        }
        if (!is_holdable) {
            missing.unholdable.push_back(function);
        }
    }
    out.write(format.end);
    out.finish();
    if (!chosen.is_quiet) {
        report(command_line, missing.undefined, "of the order in no object", chosen.is_verbose);
        report(command_line, missing.unordered, "in sections with others: compile with -ffunction-sections",
               chosen.is_verbose);
        report(command_line, missing.unholdable, "with names that this format cannot hold", true);
        say(command_line, "link with " + option_text(format, chosen.output));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    settings chosen;
    std::vector<std::string> linkers;
    for (const linker_format* const format : linker_formats()) {
        linkers.emplace_back(format->name);
    }
    CLI::App command_line("Brings the order that ordwell wrote into the form that a linker reads.");
    prepare_command_line(command_line, "ordwell-export");
    command_line.add_option("--linker", chosen.linker, "The linker: lld, gold, ld (GNU), macho or coff")
        ->required()
        ->check(CLI::IsMember(linkers))
        ->option_text("NAME");
    command_line
        .add_option("--objects", chosen.objects,
                    "Look up the functions' sections in this object, archive or list (@FILE); may be given repeatedly")
        ->allow_extra_args(false)
        ->option_text("FILE");
    command_line.add_option("-o,--output", chosen.output, "Write to this file instead of standard output")
        ->option_text("FILE");
    command_line.add_flag("--quiet", chosen.is_quiet, "Say nothing but errors");
    command_line.add_flag("--verbose", chosen.is_verbose, "List the functions that are counted otherwise");
    command_line.add_option("ORDER_FILE", chosen.order_file, "What ordwell wrote")->required()->option_text("");
    return run_companion(command_line, argc, argv, [&] { return export_order(command_line, chosen); });
}
