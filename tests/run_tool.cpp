#include "tests/run_tool.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/wait.h>

scratch_folder::scratch_folder() : path_((std::filesystem::temp_directory_path() / "ordwell-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        std::abort();
    }
}

scratch_folder::~scratch_folder() {
    std::filesystem::remove_all(path_);
}

void scratch_folder::write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
}

std::string scratch_folder::read(const std::string& name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool scratch_folder::has(const std::string& name) const {
    return std::filesystem::exists(path(name));
}

outcome scratch_folder::run(const std::string& command) const {
    const char* const elsewhere = std::getenv("ORDWELL_TOOL_COMMAND"); // set by scripts/test-elsewhere
    const std::string tool = elsewhere == nullptr ? ORDWELL_TOOL : elsewhere;
    write(".command", "ordwell() { " + tool + " \"$@\"; }\nPATH=\"" ORDWELL_BUILD ":$PATH\"\n" + command);
    const int status = std::system(("cd " + path_ + " && sh .command >.out 2>.err").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read(".out"), read(".err")};
}

std::string csv(const std::string& rows) {
    return "\"caller\",\"callee\",\"weight\"\n" + rows;
}

std::string order_of(const std::string& names) {
    std::istringstream words(names);
    std::string order;
    for (std::string name; words >> name;) {
        order += "--preferred_order=\"" + name + "\"\n";
    }
    return order;
}
