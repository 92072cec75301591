#include "binary/object_list.h"

#include "support/failure.h"

#include <cerrno>
#include <cstring>
#include <fstream>

std::vector<std::string> listed_objects(const std::string& argument) {
    if (!argument.starts_with('@')) {
        return {argument};
    }
    const std::string list = argument.substr(1);
    std::ifstream lines(list);
    if (!lines.is_open()) {
        throw failure(list, std::strerror(errno));
    }
    std::vector<std::string> paths;
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        if (!line.empty()) {
            paths.push_back(line);
        }
    }
    if (lines.bad()) {
        throw failure(list, std::string("cannot be read: ") + std::strerror(errno));
    }
    if (paths.empty()) {
        throw failure(list, "a list of objects that names none");
    }
    return paths;
}

std::vector<std::string> object_inputs(const std::string& argument) {
    std::vector<std::string> inputs = listed_objects(argument);
    if (argument.starts_with('@')) {
        inputs.push_back(argument.substr(1));
    }
    return inputs;
}
