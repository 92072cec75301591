#include "support/companion.h"

#include "support/failure.h"
#include "support/memory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <unistd.h>
#include <utility>

namespace {

// Runs before the static objects of the program are made, which need memory too. That this file names out_of_memory()'s
// also brings its new-handler into every companion.
[[gnu::constructor(102)]] void name_exhausted_program() {
    static std::array<char, 64> text;
    const int size = std::snprintf(text.data(), text.size(), "%.40s: out of memory\n", program_invocation_short_name);
    set_out_of_memory_message({text.data(), static_cast<std::size_t>(size)});
}

} // namespace

void prepare_command_line(CLI::App& command_line, const std::string& program) {
    command_line.name(program);
    command_line.set_help_flag("-h,--help", "Print this help and exit");
    command_line.set_version_flag("--version", program + " " ORDWELL_VERSION, "Print the version and exit");
    command_line.get_formatter()->column_width(34);
}

namespace {

// Takes the place of standard streams that are closed: else a file that is written would get the number of one of them, and
// what is said would go into it. What takes it can be neither read nor written, as before.
void keep_standard_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) { // the lowest number that is free is given
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

// The command line's words without the program's name. "-o=FILE" becomes "-oFILE", as ordwell takes it; the parser would
// take "=FILE" for the name.
std::vector<std::string> words_of(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    for (std::string& word : words) {
        if (word == "--") {
            break;
        }
        if (word.size() > 3 && word[0] == '-' && word[1] != '-' && word[2] == '=') {
            word.erase(2, 1);
        }
    }
    return words;
}

// The flag that was given a value, such as "--no-worse=0" from a build script; empty when there is none. The parser would take
// that for the flag's absence.
std::string flag_with_value(const CLI::App& command_line, std::span<const std::string> words) {
    for (const std::string& word : words) {
        if (word == "--") {
            break;
        }
        std::string name = word.substr(0, word.find('='));
        const CLI::Option* const option = word.starts_with("--") ? command_line.get_option_no_throw(name) : nullptr;
        if (name.size() < word.size() && option != nullptr && option->get_items_expected_max() == 0) {
            return name;
        }
    }
    return {};
}

// The option that ends in an equals sign, as a build script leaves it whose variable is empty; empty when there is none. The
// parser would take the next word for its value.
std::string option_without_value(std::span<const std::string> words) {
    for (const std::string& word : words) {
        if (word == "--") {
            break;
        }
        if (word.starts_with('-') && word.size() > 2 && word.find('=') == word.size() - 1) {
            return word.substr(0, word.size() - 1);
        }
    }
    return {};
}

// The option or argument that has an empty value among its values; empty when there is none.
std::string option_with_empty_value(const CLI::App& command_line) {
    for (const CLI::Option* const option : command_line.get_options()) {
        const std::vector<std::string>& values = option->results();
        if (std::find(values.begin(), values.end(), "") != values.end()) {
            return option->get_name();
        }
    }
    return {};
}

} // namespace

int run_companion(CLI::App& command_line, int argc, char** argv, const std::function<int()>& work) {
    const auto refuse = [&](const std::string& text) {
        say(command_line, text);
        say(command_line, "try " + command_line.get_name() + " --help");
        return 2;
    };
    keep_standard_streams();
    std::vector<std::string> words = words_of(argc, argv);
    const std::string flag = flag_with_value(command_line, words);
    if (!flag.empty()) {
        return refuse(flag + " takes no value: leave it out, or give it alone");
    }
    std::string empty = option_without_value(words);
    try {
        if (empty.empty()) {
            std::reverse(words.begin(), words.end()); // as the parser wants them
            command_line.parse(std::move(words));
            empty = option_with_empty_value(command_line);
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) { // --help or --version
            return command_line.exit(error);
        }
        return refuse(error.what());
    }
    if (!empty.empty()) {
        return refuse(empty + " is empty");
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
