// What the programs beside the tool have in common: their command lines, their messages and their exit statuses.
//
//     ordwell-export: app.cmd:17: not a line of an order file
//
// A companion says PROGRAM: FILE:LINE: text on standard error and ends with 0 when the work is done, 1 when it failed
// and 2 when its command line is wrong. Whatever keeps the work from being done is thrown as a `failure`
// (support/failure.h), up to run_companion(), which says it.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

/// Gives a command line what all companions have: the program's name, --help and --version.
void prepare_command_line(CLI::App& command_line, const std::string& program);

/// Parses the command line and does the work, whose result is the exit status unless something goes wrong.
int run_companion(CLI::App& command_line, int argc, char** argv, const std::function<int()>& work);

/// Writes "PROGRAM: text" and a line feed to standard error.
void say(const CLI::App& command_line, const std::string& text);
