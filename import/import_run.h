// A run of ordwell-import: from what the command line says to files in place.
//
//     check that no output is an input       before anything is read
//     for each binary, or without one:       open each profile, find its format, enter its calls in a table
//     put all files in place                 or none
//     say what was done
//
// Several binaries, as a program and its libraries, have a table each, so the profiles are read once for each of them.
#pragma once

#include "support/companion.h"

#include <string>
#include <vector>

/// What the command line says.
struct import_settings {
    std::string format;
    std::vector<std::string> binaries;
    std::string object;
    std::string event;
    std::string output;
    std::string weighed;
    std::string first_run;            ///< an order file
    std::vector<std::string> objects; ///< what tells the sizes of functions besides the binary
    std::string compare;              ///< an earlier CSV
    bool prints_build_id = false;
    bool is_quiet = false;
    std::vector<std::string> profiles;
};

/// What is wrong with the command line beyond its single options; empty: nothing.
std::string contradiction(const import_settings& chosen);

/// Does the work. Throws `failure`.
int run_import(const CLI::App& command_line, const import_settings& chosen);
