// ordwell-export: from the order file of ordwell to the linker that a user has.
//
//     ordwell-export --linker=lld -o app.order app.cmd
//
// Of several order files the names count where they first stand, in turn, so that start-up may come first in an order of its
// own and everything else behind it. A linker is a file that turns names into lines (export/linker_format.h). Those that
// place sections get the sections of the functions (export/sections.h).
#include "ORDWELL/order_file.h"
#include "binary/object_list.h"
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
    std::vector<std::string> order_files;
};

/// What the user hears of the functions of the order, each list in the order's order.
struct findings {
    std::vector<std::string> undefined;  ///< in no object
    std::vector<std::string> unordered;  ///< in sections that hold other functions too, and therefore not written
    std::vector<std::string> unholdable; ///< not written because the linker's format cannot hold the name
    std::vector<std::string> cold;       ///< cold parts, not written because their sections are not known for sure
    std::vector<std::string> crowded;    ///< written, but the linker moves other functions along
    std::vector<std::uint32_t> objects;  ///< in which those are, by their number
};

const linker_format& format_of(const std::string& linker) {
    const auto formats = linker_formats();
    return **std::find_if(formats.begin(), formats.end(), [&](const linker_format* f) { return f->name == linker; });
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return all;
}

// The functions of all order files, each where it first stands. Says how many each file gave, unless there is but one.
std::vector<std::string> functions_of(const CLI::App& command_line, const settings& chosen) {
    std::vector<std::string> functions;
    std::unordered_set<std::string> known;
    std::vector<std::size_t> counts; // by file
    for (const std::string& path : chosen.order_files) {
        std::vector<std::string> names;
        std::size_t bad_line = 0;
        if (!read_order_file(path, names, bad_line)) {
            throw bad_line == 0
                ? failure(path, std::strerror(errno))
                : failure(path, bad_line, "not a line of an order file: give the file that ordwell wrote");
        }
        const std::size_t before = functions.size();
        for (std::string& name : names) {
            if (known.insert(name).second) {
                functions.push_back(std::move(name));
            }
        }
        counts.push_back(functions.size() - before);
    }
    if (functions.empty()) {
        throw failure(joined(chosen.order_files),
                      "no function: give an order file that ordwell made of a profile with calls");
    }
    for (std::size_t file = 0; file < counts.size() && counts.size() > 1 && !chosen.is_quiet; ++file) {
        const std::string count = std::to_string(counts[file]);
        say(command_line, chosen.order_files[file] + (counts[file] == 0   ? " gives no name of its own"
                                                      : counts[file] == 1 ? " gives 1 name"
                                                                          : " gives " + count + " names"));
    }
    return functions;
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

// Appends the lines that tell of functions, with their names if they are wanted.
void report(std::vector<std::string>& lines, const std::vector<std::string>& names, const std::string& why,
            bool lists_names) {
    if (names.empty()) {
        return;
    }
    lines.push_back(std::to_string(names.size()) + (names.size() == 1 ? " function " : " functions ") + why);
    for (const std::string& name : names) {
        if (lists_names) {
            lines.push_back("  " + name);
        }
    }
}

// Tells of functions that do not move alone: "12 functions of 3 objects share a section: compile x.o, ...".
void report_crowded(std::vector<std::string>& lines, findings& found, const section_table& objects, bool is_verbose) {
    constexpr std::size_t most_named = 3;
    std::sort(found.objects.begin(), found.objects.end());
    found.objects.erase(std::unique(found.objects.begin(), found.objects.end()), found.objects.end());
    std::string named;
    for (std::size_t i = 0; i < found.objects.size() && (is_verbose || i < most_named); ++i) {
        named += (i == 0 ? "" : ", ") + objects.object(found.objects[i]);
    }
    named += is_verbose || found.objects.size() <= most_named ? "" : ", ...";
    report(lines, found.crowded,
           "of " + std::to_string(found.objects.size()) + (found.objects.size() == 1 ? " object" : " objects") +
               (found.crowded.size() == 1 ? " shares" : " share") + " a section: compile " + named +
               " with -ffunction-sections",
           is_verbose);
}

// Why an output would be empty, by what befell most of the functions that the objects define.
failure nothing_left(const settings& chosen, const findings& found) {
    using reason = std::pair<std::size_t, std::string>;
    const reason reasons[] = {
        {0, "no object defines any of its functions: give the objects of this program"},
        {found.unordered.size(), "no function lies in a section of its own: compile with -ffunction-sections"},
        {found.unholdable.size(), "the form for " + chosen.linker + " can hold none of the names"},
        {found.cold.size(), "nothing but cold parts of functions: name the objects with --objects"},
    };
    const auto by_number = [](const reason& a, const reason& b) { return a.first < b.first; };
    return failure(joined(chosen.order_files),
                   std::max_element(std::begin(reasons), std::end(reasons), by_number)->second);
}

// The lines for all functions, each line once.
std::vector<std::string> lines_of(const std::vector<std::string>& functions, const linker_format& format,
                                  const section_table* objects, findings& found) {
    std::vector<std::string> lines;
    std::unordered_set<std::string> written;
    for (const std::string& function : functions) {
        const section_table::placement* const placement = objects == nullptr ? nullptr : objects->find(function);
        if (objects != nullptr && placement == nullptr) {
            found.undefined.push_back(function);
            continue;
        }
        std::vector<std::string> places = {function};
        if (format.orders_sections) {
            places = placement == nullptr ? usual_sections(function) : placement->sections;
        }
        if (places.empty()) {
            (placement == nullptr ? found.cold : found.unordered).push_back(function);
            continue;
        }
        bool is_holdable = true;
        for (const std::string& place : places) {
            std::optional<std::string> line = format.line(place);
            is_holdable = is_holdable && line.has_value();
            if (line.has_value() && written.insert(*line).second) {
                lines.push_back(std::move(*line));
            }
        }
        if (!is_holdable) {
            found.unholdable.push_back(function);
        } else if (placement != nullptr && format.moves_sections && !placement->crowded_objects.empty()) {
            found.crowded.push_back(function);
            found.objects.insert(found.objects.end(), placement->crowded_objects.begin(),
                                 placement->crowded_objects.end());
        }
    }
    return lines;
}

int export_order(const CLI::App& command_line, const settings& chosen) {
    const linker_format& format = format_of(chosen.linker);
    std::vector<std::string> inputs = chosen.order_files;
    for (const std::string& object : chosen.objects) {
        const std::vector<std::string> read = object_inputs(object);
        inputs.insert(inputs.end(), read.begin(), read.end());
    }
    check_outputs({chosen.output}, inputs);
    const std::vector<std::string> functions = functions_of(command_line, chosen);
    section_table objects;
    for (const std::string& object : chosen.objects) {
        objects.add(object);
    }
    findings found;
    const std::vector<std::string> lines =
        lines_of(functions, format, chosen.objects.empty() ? nullptr : &objects, found);
    if (lines.empty()) {
        throw nothing_left(chosen, found);
    }

    output_file out(chosen.output);
    out.write(format.start);
    for (const std::string& line : lines) {
        out.write(line);
        out.write("\n");
    }
    out.write(format.end);
    std::vector<std::string> told;
    if (!chosen.is_quiet) {
        report(told, found.undefined, "of the order in no object", chosen.is_verbose);
        report(told, found.unordered, "in sections with others: compile with -ffunction-sections", chosen.is_verbose);
        report(told, found.cold, "left out, cold parts of others: name the objects with --objects", chosen.is_verbose);
        report(told, found.unholdable, "with names that this format cannot hold", true);
        report_crowded(told, found, objects, chosen.is_verbose);
        told.push_back(format.use + option_text(format, chosen.output));
    }
    out.finish(); // from here on no memory is taken: what is in place stays
    for (const std::string& line : told) {
        say(command_line, line);
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
    command_line.add_option("--linker", chosen.linker, "The linker: lld, gold, ld (GNU), macho, coff or bolt")
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
    command_line
        .add_option("ORDER_FILE", chosen.order_files,
                    "What ordwell wrote; of several, a name counts where it first stands")
        ->required()
        ->option_text("");
    return run_companion(command_line, argc, argv, [&] { return export_order(command_line, chosen); });
}
