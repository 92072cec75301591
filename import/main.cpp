// ordwell-import: from the output of profilers to the CSV that ordwell reads.
//
//     ordwell-import --binary=app -o app.csv app.prof
//
// Here is its command line. The formats are found by content (import/profile_format.h); what is kept of them, and under which
// names, is decided in import/call_table.h; the run is in import/import_run.h.
#include "import/import_run.h"
#include "import/profile_format.h"

#include <string>
#include <vector>

int main(int argc, char** argv) {
    import_settings chosen;
    std::vector<std::string> format_names;
    std::string formats;
    for (const profile_format& format : profile_formats()) {
        format_names.emplace_back(format.name);
        formats += (formats.empty() ? "" : ", ") + format_names.back();
    }
    CLI::App command_line("Makes the call graph that ordwell reads from the output of profilers.");
    prepare_command_line(command_line, "ordwell-import");
    command_line.add_option("--format", chosen.format, "Format of all profiles; found by content without it")
        ->check(CLI::IsMember(format_names))
        ->option_text("NAME: " + formats);
    command_line
        .add_option(
            "--binary", chosen.binaries,
            "Keep only functions that this program or library defines; given repeatedly, each gets a file in -o DIR/")
        ->allow_extra_args(false)
        ->option_text("FILE");
    command_line.add_option("--object", chosen.object, "Keep only functions of the object of this base name")
        ->option_text("NAME");
    command_line.add_option("--event", chosen.event, "Take the samples of this event or type of value")
        ->option_text("NAME");
    command_line
        .add_option("-o,--output", chosen.output,
                    "Write to this file, or to DIR/ under the binary's name, instead of standard output")
        ->option_text("FILE");
    const auto is_file = [](const std::string& file) { return file == "-" ? "must name a file" : ""; };
    CLI::Option* const weighed =
        command_line
            .add_option(
                "--weighed", chosen.weighed,
                "Write to this file the rows with the weights that serve the layout best; without -o nothing else")
            ->check(is_file)
            ->option_text("FILE");
    command_line
        .add_option("--objects", chosen.objects,
                    "Take the sizes of functions for --weighed from this object, archive or list (@FILE); may be given "
                    "repeatedly")
        ->allow_extra_args(false)
        ->needs(weighed)
        ->option_text("FILE");
    command_line
        .add_option("--first-run", chosen.first_run,
                    "Write to this file the functions in the order of their first execution; without -o nothing else")
        ->check(is_file)
        ->option_text("FILE");
    command_line.add_option("--compare", chosen.compare, "Tell how far the calls have moved since this earlier CSV")
        ->option_text("FILE");
    command_line.add_flag("--build-id", chosen.prints_build_id, "Print the build ID of --binary, and nothing else");
    command_line.add_flag("--quiet", chosen.is_quiet, "Say nothing but errors");
    command_line.add_option("PROFILE", chosen.profiles, "Profiles; - is standard input")->option_text("");
    command_line.final_callback([&] {
        if (const std::string wrong = contradiction(chosen); !wrong.empty()) {
            throw CLI::ValidationError(wrong);
        }
    });
    return run_companion(command_line, argc, argv, [&] { return run_import(command_line, chosen); });
}
