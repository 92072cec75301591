#include "binary/object_list.h"

#include "binary/thin_archive.h"
#include "support/failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unordered_set>

namespace {

// The files of a thin archive; none of anything else.
std::vector<std::string> files_in(const std::string& path) {
    std::error_code ignored;
    std::ifstream file;
    if (std::filesystem::is_regular_file(path, ignored)) { // a pipe can be read but once
        file.open(path, std::ios::binary);
    }
    std::string bytes(8, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file || !is_thin_archive(bytes)) {
        return {};
    }
    bytes.append(std::istreambuf_iterator<char>(file), {});
    return thin_archive_files(bytes, path);
}

} // namespace

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
    std::unordered_set<std::string> known(inputs.begin(), inputs.end());
    for (std::size_t i = 0; i < inputs.size(); ++i) { // thin archives may hold thin archives
        for (std::string& file : files_in(inputs[i])) {
            if (known.insert(file).second) {
                inputs.push_back(std::move(file));
            }
        }
    }
    return inputs;
}
