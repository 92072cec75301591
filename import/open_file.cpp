#include "import/open_file.h"

#include "support/failure.h"
#include "support/write_all.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>
#include <vector>

open_file::~open_file() {
    if (file_ >= 0) {
        ::close(file_);
    }
}

pipe_ends::pipe_ends() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw failure(std::string("no pipe: ") + std::strerror(errno));
    }
    reading = open_file(ends[0]);
    writing = open_file(ends[1]);
    fcntl(ends[1], F_SETPIPE_SZ, 1 << 20); // fewer changes between the two sides; a smaller one works, too
}

open_file temporary_file() {
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "ordwell-XXXXXX").string();
    open_file file(mkostemp(name.data(), O_CLOEXEC));
    if (file.get() < 0) {
        throw failure(name, std::string("no temporary file: ") + std::strerror(errno));
    }
    unlink(name.c_str());
    return file;
}

void append_all(const open_file& to, std::string_view begun, const open_file& from, const std::string& name) {
    std::vector<char> buffer(1 << 18);
    std::string_view bytes = begun;
    for (;;) {
        if (!write_all(to.get(), bytes)) {
            throw failure(name, std::string("cannot be copied to a temporary file: ") + std::strerror(errno));
        }
        const ssize_t count = read(from.get(), buffer.data(), buffer.size());
        if (count == 0) {
            break;
        }
        if (count < 0 && errno != EINTR) {
            throw failure(name, std::string("cannot be read: ") + std::strerror(errno));
        }
        bytes = {buffer.data(), count < 0 ? 0 : static_cast<std::size_t>(count)};
    }
    lseek(to.get(), 0, SEEK_SET);
}
