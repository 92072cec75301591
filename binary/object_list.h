// The files that an --objects option names: one, or, with "@" before it, those that a list names, one path a line. A path
// may hold blanks; empty lines say nothing, and a carriage return at the end of a line is none of the path.
#pragma once

#include <string>
#include <vector>

/// The paths that the option's argument stands for, in their order. Throws `failure` for a list that cannot be read or
/// names no file.
std::vector<std::string> listed_objects(const std::string& argument);

/// Every file that the option's argument has read: these paths, the list, and the files of thin archives.
std::vector<std::string> object_inputs(const std::string& argument);
