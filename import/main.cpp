// ordwell-import: from the output of profilers to the CSV that ordwell reads.
//
//     ordwell-import --binary=app -o app.csv app.prof
//
// The formats are found by content (import/profile_format.h); what is kept of them, and under which names, is decided in
// import/call_table.h.
#include "binary/object_list.h"
#include "import/profile_format.h"
#include "import/weighed.h"
#include "support/companion.h"
#include "support/failure.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

/// The command line.
struct settings {
    std::string format;
    std::string binary;
    std::string object;
    std::string event;
    std::string output;
    std::string weighed;
    std::vector<std::string> objects; ///< what tells the sizes of functions besides the binary
    bool is_quiet = false;
    std::vector<std::string> profiles;
};

// The names under which profilers may know a binary: by its name, and by what a symbolic link stands for.
std::vector<std::string> object_names(const settings& chosen) {
    if (!chosen.object.empty()) {
        return {std::string(base_name(chosen.object))};
    }
    if (chosen.binary.empty()) {
        return {};
    }
    std::vector<std::string> names = {std::string(base_name(chosen.binary))};
    if (char* const real = realpath(chosen.binary.c_str(), nullptr)) {
        names.emplace_back(base_name(real));
        std::free(real);
    }
    return names;
}

const profile_format& format_of(const profile_input& profile, const std::string& wanted) {
    for (const profile_format& format : profile_formats()) {
        if (wanted.empty() ? format.recognises(profile.head()) : format.name == wanted) {
            return format;
        }
    }
    throw failure(profile.name(), profile.head().empty() ? "empty" : "of no known format: name it with --format");
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return all;
}

// Why nothing is left, as far as can be told.
failure nothing_kept(const settings& chosen, const call_table& calls, const call_table::summary& done) {
    if (!calls.why_empty().empty() && done.left_out_calls == call_table::summary().left_out_calls) {
        return failure(joined(chosen.profiles), calls.why_empty());
    }
    std::string text = "no function was kept";
    if (!calls.other_objects().empty()) {
        text += "; wanted are those of " + joined(object_names(chosen)) + ", the profile has those of " +
                joined(calls.other_objects()) + ": name the object with --object";
    } else if (done.left_out_calls[0] != 0) {
        text += "; none of the profile's is defined in " + chosen.binary;
    } else if (done.left_out_calls[1] != 0) {
        text += "; the profiler had no symbols";
    } else {
        text += "; there are no calls in the profile";
    }
    return failure(joined(chosen.profiles), text);
}

void report(const CLI::App& command_line, const call_table::summary& done) {
    const auto number = [](std::uint64_t n) { return std::to_string(n); };
    say(command_line, "kept " + number(done.functions) + " functions and " + number(done.calls) + " calls");
    const char* const reasons[] = {"with a function outside the binary", "with an unknown symbol",
                                   "with a demangled name", "with a name that no row can hold"};
    for (std::size_t reason = 0; reason < done.left_out_calls.size(); ++reason) {
        if (done.left_out_calls[reason] != 0) {
            say(command_line, "left out " + number(done.left_out_calls[reason]) + " calls " + reasons[reason]);
        }
    }
    if (done.unholdable_names != 0) {
        say(command_line, "left out " + number(done.unholdable_names) +
                              " names that are empty, hold a comma or a line feed, or start with a quote");
    }
    if (done.divisor_bits != 0) {
        say(command_line, "divided all counts by " + number(std::uint64_t{1} << done.divisor_bits) +
                              ", so that the largest fits 32 bits");
    }
}

// Every file that is read.
std::vector<std::string> inputs_of(const settings& chosen) {
    std::vector<std::string> inputs = chosen.profiles;
    inputs.push_back(chosen.binary);
    for (const std::string& objects : chosen.objects) {
        const std::vector<std::string> listed = listed_objects(objects);
        inputs.insert(inputs.end(), listed.begin(), listed.end());
        inputs.push_back(objects.substr(objects.starts_with('@') ? 1 : 0));
    }
    return inputs;
}

// Writes the calls and the weighed rows; the calls not where only the weighed rows are wanted.
void write_rows(const settings& chosen, const call_table& calls, const function_table* binary) {
    std::optional<output_file> weighed;
    if (!chosen.weighed.empty()) {
        function_sizes sizes;
        if (binary != nullptr) {
            sizes.add(binary->symbols());
        }
        for (const std::string& objects : chosen.objects) {
            sizes.add_objects(objects);
        }
        weighed.emplace(chosen.weighed);
        write_weighed(calls, sizes, *weighed);
    }
    std::optional<output_file> out;
    if (!chosen.output.empty() || !weighed.has_value()) {
        out.emplace(chosen.output);
        calls.write(*out);
    }
    std::vector<output_file*> files;
    for (std::optional<output_file>* const file : {&out, &weighed}) {
        if (file->has_value()) {
            files.push_back(&**file);
        }
    }
    finish_together(files);
}

int import_profiles(const CLI::App& command_line, const settings& chosen) {
    check_outputs({chosen.output, chosen.weighed}, inputs_of(chosen));
    std::unique_ptr<function_table> binary;
    if (!chosen.binary.empty()) {
        binary = std::make_unique<function_table>(chosen.binary);
    }
    call_table calls(binary.get(), object_names(chosen));
    for (const std::string& name : chosen.profiles) {
        profile_input profile(name, !chosen.is_quiet && isatty(STDERR_FILENO) != 0);
        const profile_format& format = format_of(profile, chosen.format);
        if (!chosen.event.empty() && !format.has_events) {
            throw failure(profile.name(),
                          std::string("the format ") + format.name + " has no events: leave --event out");
        }
        profile.set_event(chosen.event);
        calls.begin_profile();
        format.read(profile, calls);
        calls.end_profile(profile.name());
    }
    if (calls.is_empty()) {
        throw nothing_kept(chosen, calls, calls.summarise());
    }
    write_rows(chosen, calls, binary.get());
    if (!chosen.is_quiet) {
        for (const std::string& line : calls.told()) {
            say(command_line, line);
        }
        report(command_line, calls.summarise());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    settings chosen;
    std::vector<std::string> format_names;
    for (const profile_format& format : profile_formats()) {
        format_names.emplace_back(format.name);
    }
    CLI::App command_line("Makes the call graph that ordwell reads from the output of profilers.");
    prepare_command_line(command_line, "ordwell-import");
    command_line.add_option("--format", chosen.format, "Format of all profiles; found by content without it")
        ->check(CLI::IsMember(format_names))
        ->option_text("NAME: " + joined(format_names));
    command_line.add_option("--binary", chosen.binary, "Keep only functions that this program defines")
        ->option_text("FILE");
    command_line.add_option("--object", chosen.object, "Keep only functions of the object of this base name")
        ->option_text("NAME");
    command_line.add_option("--event", chosen.event, "Take the samples of this event or type of value")
        ->option_text("NAME");
    command_line.add_option("-o,--output", chosen.output, "Write to this file instead of standard output")
        ->option_text("FILE");
    CLI::Option* const weighed =
        command_line
            .add_option(
                "--weighed", chosen.weighed,
                "Write to this file the rows with the weights that serve the layout best; without -o nothing else")
            ->check([](const std::string& file) { return file == "-" ? "must name a file" : ""; })
            ->option_text("FILE");
    command_line
        .add_option("--objects", chosen.objects,
                    "Take the sizes of functions for --weighed from this object, archive or list (@FILE); may be given "
                    "repeatedly")
        ->allow_extra_args(false)
        ->needs(weighed)
        ->option_text("FILE");
    command_line.add_flag("--quiet", chosen.is_quiet, "Say nothing but errors");
    command_line.add_option("PROFILE", chosen.profiles, "Profiles; - is standard input")->required()->option_text("");
    return run_companion(command_line, argc, argv, [&] { return import_profiles(command_line, chosen); });
}
