// The driver: command line, reading, merging, writing, exit status.
//
//     ordwell -o app.cmd app.csv lib.csv
//
// reads both profiles into one call graph, orders its functions, and writes one linker option per function to app.cmd.
// Options and input files may stand in any order. Problems in the input are reported, and the run goes on with what
// could be read: the status is 0 unless the run had to stop.
#include "DIAG/diag_messages.h"
#include "ORDWELL/pettis_hansen.h"
#include "options/optobj.h"
#include "support/memory.h"

#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

PETTIS_HANSEN_GRAPH phgraph;           ///< the working graph: read, then merged
option_obj* cmdline_options = nullptr; ///< the options of this run, once the command line is consumed

namespace {

constexpr const char* this_file = "ORDWELL/main";
constexpr const char* default_order_file = "forder.cmd";

int saved_argc = 0;
char** saved_argv = nullptr;
int arg_index = 1; // the next argument to hand out

/// The next unconsumed argument, consumed, or null: an option takes its value through it.
const char* next_arg() {
    return arg_index < saved_argc ? saved_argv[arg_index++] : nullptr;
}

/// Takes the descriptor of every standard stream that the caller closed, so that no file of ours gets messages that
/// were meant for the stream. What takes it can be neither read, written nor opened again as /dev/stdin or
/// /dev/stdout, so that naming a closed stream as a file still fails.
void occupy_closed_streams() {
    int file = 0;
    do {
        file = epoll_create1(0);
    } while (file >= 0 && file <= STDERR_FILENO);
    if (file >= 0) {
        close(file);
    }
}

/// Writes the function order to the order file.
void write_graph() {
    const char* filename = default_order_file;
    if (cmdline_options->state_of(option_obj::opt_preferred_order_file) != 0) {
        filename = cmdline_options->getstrarg(option_obj::opt_preferred_order_file, 0);
    } else {
        DIAG::raise<DIAG::owl_warn_missing_outfile_name>(this_file, 89, filename);
    }
    const int file = open(filename, O_WRONLY | O_CREAT | O_TRUNC, 0666); // less the process's mask
    if (file < 0) {
        DIAG::raise<DIAG::owl_fatal_error_opening_outfile>(this_file, 97);
    }
    phgraph.write_order(file);
}

} // namespace

int main(int argc, char** argv) {
    occupy_closed_streams();
    saved_argc = argc;
    saved_argv = argv;

    static option_obj* const options = new option_obj(true); // lives until the process ends
    if (argc > 0 && argv[0] != nullptr) {
        option_obj::executable_name = argv[0];
    }
    option_obj::next_arg = next_arg;

    std::map<int, std::string> input_files; // by their place on the command line
    while (const char* const argument = next_arg()) {
        if (argument[0] == '-') {
            options->process_option(argument + 1, nullptr);
        } else {
            input_files.emplace(static_cast<int>(input_files.size()), argument);
        }
    }
    if (argc <= 1) {
        option_obj::display_option_help(nullptr, 0);
        return 1;
    }
    cmdline_options = options;
    if (input_files.empty()) {
        DIAG::raise<DIAG::owl_fatal_no_input_datafiles>(this_file, 45);
        return 1;
    }

    for (auto& [number, filename] : input_files) {
        phgraph.read(filename);
    }
    PETTIS_HANSEN_GRAPH orig(phgraph);
    phgraph.merge_nodes(std::move(orig));
    write_graph();
    return 0;
}
