#include "support/companion.h"

#include "support/failure.h"

#include <cstdio>
#include <cstdlib>

void prepare_command_line(CLI::App& command_line, const std::string& program) {
    command_line.name(program);
    command_line.set_help_flag("-h,--help", "Print this help and exit");
    command_line.set_version_flag("--version", program + " " ORDWELL_VERSION, "Print the version and exit");
    command_line.get_formatter()->column_width(34);
}

int run_companion(CLI::App& command_line, int argc, char** argv, const std::function<int()>& work) {
    try {
        command_line.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) { // --help or --version
            return command_line.exit(error);
        }
        say(command_line, error.what());
        say(command_line, "try " + command_line.get_name() + " --help");
        return 2;
    }
    try {
        return work();
    } catch (const failure& error) {
        say(command_line, error.what());
    }
    return 1;
}

void say(const CLI::App& command_line, const std::string& text) {
    std::fprintf(stderr, "%s: %s\n", command_line.get_name().c_str(), text.c_str());
}
