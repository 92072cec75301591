// ordwell-report: whether an order is in a binary, and what it is worth there.
//
//     ordwell-report --calls=app.csv --order=app.cmd --html=report.html --min-placed=95 app app.old
//
// Nothing is run: the call graph and the symbol tables are all it needs, so it works in a build, for another processor and
// for yesterday's binary. report/result.cpp is the outline of what is computed; this file is the command line, and where
// the report goes: files first, all of them or none, and standard output last.
#include "report/result.h"
#include "support/companion.h"
#include "support/failure.h"
#include "support/output_file.h"

#include <algorithm>
#include <charconv>
#include <memory>

namespace {

/// Where the report goes; an empty name is nowhere, "-" standard output.
struct outputs {
    std::string html;
    std::string json;
    std::string markdown;
};

constexpr int gate_missed = 3; // exit status

int report(const CLI::App& command_line, const report_request& request, const outputs& wanted,
           const std::string& command) {
    const std::string paths[] = {wanted.json, wanted.markdown, wanted.html};
    std::vector<std::string> inputs = request.calls;
    inputs.insert(inputs.end(), request.candidates.begin(), request.candidates.end());
    inputs.insert(inputs.end(), {request.order, request.first_run, request.binary, request.baseline});
    check_outputs({std::begin(paths), std::end(paths)}, inputs);
    const report_result result = make_report(request);

    std::vector<std::unique_ptr<output_file>> files;
    std::string text = to_text(result); // for standard output, unless a file goes there
    for (const std::string& path : paths) {
        if (path.empty()) {
            continue;
        }
        std::string bytes = &path == &paths[0]   ? to_json(result)
                            : &path == &paths[1] ? to_markdown(result)
                                                 : to_page(result, command);
        if (is_standard_output(path)) {
            text = std::move(bytes);
        } else {
            files.push_back(std::make_unique<output_file>(path));
            files.back()->write(bytes);
        }
    }
    std::vector<output_file*> together;
    together.reserve(files.size());
    for (const std::unique_ptr<output_file>& file : files) {
        together.push_back(file.get());
    }
    finish_together(together);
    output_file standard_output("-");
    standard_output.write(text);
    standard_output.finish();

    if (result.first_run.has_value() && result.first_run->is_doubtful()) {
        say(command_line, request.first_run + ": " + request.binary + " has only " +
                              std::to_string(result.first_run->found) + " of its " +
                              std::to_string(result.first_run->names) +
                              " functions: give the first run of this program, imported with --binary");
    }
    int status = 0;
    for (const gate& gate : result.gates) {
        if (!gate.met) {
            say(command_line, describe(gate));
            status = gate_missed;
        }
    }
    return status;
}

// The command as a shell would take it again.
std::string command_of(int argc, char** argv) {
    std::string command = "ordwell-report";
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_=./,:+@%";
        command += ' ';
        if (!word.empty() && word.find_first_not_of(plain) == std::string_view::npos) {
            command += word;
            continue;
        }
        command += '\'';
        for (const char character : word) {
            command += character == '\'' ? "'\\''" : std::string(1, character);
        }
        command += '\'';
    }
    return command;
}

// What keeps a command line from making sense, beyond what single options tell; empty for nothing.
std::string contradiction(const report_request& request, const outputs& wanted) {
    const std::string paths[] = {wanted.html, wanted.json, wanted.markdown};
    if (std::count_if(std::begin(paths), std::end(paths), is_standard_output) > 1) {
        return "only one of --html, --json and --markdown can go to standard output";
    }
    for (const gate_row& row : gate_rows()) {
        if (row.needs_order && (request.gates.*row.wanted).has_value() && request.order.empty()) {
            return "--" + std::string(row.key) + " requires --order";
        }
    }
    if (request.gates.no_worse && request.baseline.empty() && request.candidates.empty()) {
        return "--no-worse requires BASELINE or --candidate";
    }
    return {};
}

} // namespace

int main(int argc, char** argv) {
    report_request request;
    outputs wanted;
    CLI::App command_line("Tells whether an order is in a binary, and what it is worth there.");
    prepare_command_line(command_line, "ordwell-report");
    // A list takes one value each time, not all that follow.
    const auto add_list = [&](const std::string& name, std::vector<std::string>& list, const std::string& doc) {
        return command_line.add_option(name, list, doc)->allow_extra_args(false);
    };
    add_list("--calls", request.calls, "The call graph, as ordwell reads it; several add up")
        ->required()
        ->option_text("CSV");
    command_line.add_option("--order", request.order, "The order file that ordwell wrote")->option_text("ORDER_FILE");
    add_list("--candidate", request.candidates, "Another order, whose worth is to be foretold; may be repeated")
        ->option_text("ORDER_FILE");
    CLI::Option* const first_run =
        command_line
            .add_option("--first-run", request.first_run, "The functions in the order of their first execution")
            ->option_text("ORDER_FILE");
    command_line.add_option("--read-ahead", request.read_ahead_kib, "What a fault of a cold start reads (128)")
        ->needs(first_run)
        ->check(CLI::Range(std::uint64_t{0}, std::uint64_t{1} << 40U))
        ->option_text("KIB");
    command_line.add_option("--html", wanted.html, "Write the report as a page; - is standard output")
        ->option_text("FILE");
    command_line.add_option("--json", wanted.json, "Write the report as JSON")->option_text("FILE");
    command_line.add_option("--markdown", wanted.markdown, "Write the report for a merge request")->option_text("FILE");
    const CLI::Validator is_percent(
        [](std::string& text) {
            double percent = 0;
            return CLI::detail::lexical_cast(text, percent) && percent >= 0 && percent <= 100
                       ? std::string()
                       : text + " is no number from 0 to 100";
        },
        "");
    for (const gate_row& row : gate_rows()) {
        command_line.add_option("--" + std::string(row.key), request.gates.*row.wanted, row.doc)
            ->check(is_percent)
            ->option_text("PERCENT");
    }
    command_line.add_flag("--no-worse", request.gates.no_worse,
                          "End with status 3 when the binary is worse than BASELINE, or than the first candidate");
    const CLI::Validator is_seed(
        [](std::string& text) {
            std::uint64_t seed = 0;
            const auto read = std::from_chars(text.data(), text.data() + text.size(), seed);
            return read.ec == std::errc() && read.ptr == text.data() + text.size()
                       ? std::string()
                       : text + " is no whole number from 0 to 18446744073709551615";
        },
        "");
    command_line.add_option("--seed", request.seed, "Of the random orders to compare with (1)")
        ->check(is_seed)
        ->option_text("N");
    command_line.add_option("BINARY", request.binary, "The program")->required()->option_text("");
    command_line.add_option("BASELINE", request.baseline, "The program without the order")->option_text("");
    command_line.final_callback([&] {
        const std::string text = contradiction(request, wanted);
        if (!text.empty()) {
            throw CLI::ValidationError(text);
        }
    });
    return run_companion(command_line, argc, argv,
                         [&] { return report(command_line, request, wanted, command_of(argc, argv)); });
}
