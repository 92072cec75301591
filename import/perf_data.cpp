#include "import/perf_data.h"

#include "support/failure.h"
#include "support/memory.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::string_view magic = "PERFILE2";
constexpr std::string_view other_order_magic = "2ELIFREP"; // of a machine of the other byte order
constexpr std::size_t piped_header_size = 16;
constexpr std::size_t data_section = 40;     ///< where its offset and size stand in the header
constexpr std::size_t feature_bits = 72;     ///< where the set of optional sections stands,
constexpr std::size_t feature_bytes = 32;    ///< and its size
constexpr std::size_t section_size = 16;     ///< an offset and a size
constexpr std::size_t folder_feature = 24;   ///< the bit of a file that has others beside it
constexpr std::uint32_t tracing_record = 66; ///< records with bytes behind them, whose number they hold
constexpr std::uint32_t auxtrace_record = 71;

/// The numbers of the file, wherever they stand.
class number_file {
public:
    number_file(const std::string& name, const std::string& path)
        : name_(name), file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat properties {};
        if (file_.get() < 0 || fstat(file_.get(), &properties) != 0) {
            throw failure(name_, std::strerror(errno));
        }
        size_ = static_cast<std::uint64_t>(properties.st_size);
        is_little_endian_ = bytes(0, magic.size()) == magic;
    }

    std::uint64_t size() const { return size_; }

    std::string bytes(std::uint64_t offset, std::size_t size) const {
        std::string read(size, '\0');
        expect(offset, size);
        if (pread(file_.get(), read.data(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size)) {
            throw failure(name_, "cannot be read");
        }
        return read;
    }

    std::uint64_t number(std::uint64_t offset, std::size_t size) const {
        const std::string read = bytes(offset, size);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value << 8U | static_cast<unsigned char>(read[is_little_endian_ ? size - 1 - i : i]);
        }
        return value;
    }

    // Whether so many bytes are there.
    void expect(std::uint64_t offset, std::uint64_t size) const {
        if (offset > size_ || size > size_ - offset) {
            throw failure(name_, "cut off: perf.data is shorter than its header says");
        }
    }

private:
    const std::string& name_;
    open_file file_;
    std::uint64_t size_ = 0;
    bool is_little_endian_ = true;
};

// The data and the optional sections, whose places stand behind the data.
void check_sections(const std::string& name, const number_file& file) {
    const std::uint64_t data = file.number(data_section, 8);
    const std::uint64_t data_size = file.number(data_section + 8, 8);
    if (data_size == 0) {
        throw failure(name, "cut off: perf record did not come to its end");
    }
    file.expect(data, data_size);
    std::size_t count = 0;
    for (std::size_t word = 0; word < feature_bytes; word += 8) {
        const std::uint64_t bits = file.number(feature_bits + word, 8);
        count += static_cast<std::size_t>(std::popcount(bits));
        if (word == 0 && (bits >> folder_feature & 1U) != 0) {
            throw failure(name, "one of the files of perf record --threads: import what perf script prints of their "
                                "folder");
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t place = data + data_size + i * section_size;
        file.expect(file.number(place, 8), file.number(place + 8, 8));
    }
}

// What was written to a pipe has no sizes but those of its records.
void check_records(const std::string& name, const number_file& file) {
    for (std::uint64_t place = piped_header_size; place < file.size();) {
        const std::uint64_t size = file.number(place + 6, 2);
        if (size < 8) {
            throw failure(name, "damaged: a record of perf.data has no size");
        }
        file.expect(place, size);
        const std::uint64_t type = file.number(place, 4);
        const std::uint64_t behind = type == tracing_record && size >= 12    ? file.number(place + 8, 4)
                                     : type == auxtrace_record && size >= 16 ? file.number(place + 8, 8)
                                                                             : 0;
        file.expect(place + size, behind);
        place += size + behind;
    }
}

constexpr const char* chain_fields = "pid,event,ip,sym,symoff,dso";
constexpr const char* branch_fields = "pid,event,ip,sym,symoff,dso,brstacksym";

} // namespace

bool is_perf_data(std::string_view begun) {
    return begun.starts_with(magic) || begun.starts_with(other_order_magic);
}

perf_data::perf_data(std::string name, open_file copy)
    : name_(std::move(name)), path_("/proc/self/fd/" + std::to_string(copy.get())), copy_(std::move(copy)) {}

perf_data::~perf_data() {
    if (process_ > 0) {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
}

void perf_data::check_size() const {
    const number_file file(name_, path_);
    if (file.number(magic.size(), 8) == piped_header_size) {
        check_records(name_, file);
    } else {
        check_sections(name_, file);
    }
}

open_file perf_data::start(const std::vector<std::string>& arguments) {
    std::vector<char*> words;
    words.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str())); // posix_spawn changes none
    }
    words.push_back(nullptr);
    pipe_ends pipe;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const bool has_room = // without one of them, perf would print to where our output goes
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
        posix_spawn_file_actions_adddup2(&actions, pipe.writing.get(), STDOUT_FILENO) == 0 &&
        (copy_.get() < 0 ||
         posix_spawn_file_actions_adddup2(&actions, copy_.get(), copy_.get()) == 0); // is inherited so
    const int error = has_room ? posix_spawnp(&process_, "perf", &actions, nullptr, words.data(), environ) : ENOMEM;
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOMEM) {
        out_of_memory();
    }
    if (error != 0) {
        process_ = -1;
        throw failure(name_,
                      std::string("perf, which has to print it, cannot be run here (") + std::strerror(error) +
                          "): print it on the machine that has perf, by perf script -f --no-demangle --no-inline "
                          "-F " +
                          chain_fields + " >FILE, and import FILE");
    }
    return std::move(pipe.reading);
}

std::string perf_data::output_of(const std::vector<std::string>& arguments) {
    const open_file output = start(arguments);
    std::string text;
    char buffer[4096];
    for (ssize_t count = 1; count != 0;) {
        count = read(output.get(), buffer, sizeof buffer);
        if (count < 0 && errno != EINTR) {
            throw failure(name_, std::string("perf's output cannot be read: ") + std::strerror(errno));
        }
        text.append(buffer, count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    finish();
    return text;
}

void perf_data::finish() {
    if (process_ <= 0) {
        return;
    }
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = -1;
    if (status != 0) {
        throw failure(name_, "perf cannot read it");
    }
}

open_file perf_data::print(bool with_time) {
    check_size();
    const std::string recorded = output_of({"perf", "evlist", "-f", "-v", "-i", path_});
    // --call-graph lbr takes the chains from branch records, which then are no branches.
    const bool has_branches =
        recorded.find("BRANCH_STACK") != std::string::npos && recorded.find("|CALL_STACK") == std::string::npos;
    const std::string listed = output_of({"perf", "buildid-list", "-f", "-i", path_});
    for (std::size_t start = 0; start < listed.size();) { // lines of build ID, blank, path
        const std::size_t end = std::min(listed.find('\n', start), listed.size());
        const std::size_t blank = std::min(listed.find(' ', start), end);
        if (blank != start && blank != end) {
            build_ids_.emplace_back(listed.substr(start, blank - start), listed.substr(blank + 1, end - blank - 1));
        }
        start = end + 1;
    }
    std::vector<std::string> script = {
        "perf",        "script",
        "-f",          "-i",
        path_,         "--no-demangle",
        "--no-inline", "--show-mmap-events",
        "-F",          (with_time ? "time," : "") + std::string(has_branches ? branch_fields : chain_fields)};
    if (has_branches) {
        script.emplace_back("--hide-call-graph");
    }
    return start(script);
}
