// What a program executed, told so that it can be replayed where another link put its sections.
//
// valgrind's lackey writes a line for each instruction, with address and length:
//
//     I  003c1000,4
//     I  003c1004,2
//
// Instructions that follow each other in memory make a run: 6 bytes, 2 instructions, from byte 0 of app.o:(.text.main). A program
// takes the same few runs over and over, so a trace is a table of them and a sequence of numbers in that table: 60 million
// instructions are some 10 million numbers of 1 to 3 bytes. Code of libraries is in no section and keeps its addresses.
#pragma once

#include "bench/layouts/link_map.h"

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

/// Instructions that were executed one after the other and lie so.
struct run {
    std::uint32_t section;      ///< in `trace::sections`, or `foreign`
    std::uint32_t instructions; ///< at least 1
    std::uint64_t offset;       ///< from the start of the section in bytes; the address if it is foreign
    std::uint64_t bytes;

    static constexpr std::uint32_t foreign = UINT32_MAX;
};

/// An execution.
struct trace {
    std::vector<std::string> sections; ///< by name, as in `section`
    std::vector<run> runs;             ///< all different
    std::vector<std::uint32_t> steps;  ///< numbers of runs, as they were executed
};

/// Reads lackey's output on a program with these sections. Throws std::runtime_error when it has no instruction or no end.
trace record(std::istream& in, const std::vector<section>& sections);

/// Writes a trace to a file, or reads it. Throws std::runtime_error when that fails.
void save(const trace& t, const std::string& file);
trace load(const std::string& file);
