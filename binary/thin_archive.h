// Thin archives, which hold the names of their members instead of the members. libelf does not read them.
//
//     !<thin>\n
//     header of 60 bytes: "/" or "/SYM64/", then the archive's symbols
//     header of 60 bytes: "//", then file names, "main.o/\nlib/f.o/\n"
//     header of 60 bytes: "/7", a member: its name begins at byte 7 of the names; none of its bytes follow
//     header of 60 bytes: "/0:120", a member of the archive whose name begins at byte 0
//
// Format: ar(5), and "thin archives" in GNU binutils' documentation of ar. Names are relative to the folder of the archive.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Whether a file that begins like this is a thin archive.
bool is_thin_archive(std::string_view bytes);

/// The paths of the files in a thin archive, each once, in its order; `path` is its own. Throws `failure` for a damaged one.
std::vector<std::string> thin_archive_files(std::string_view bytes, const std::string& path);
