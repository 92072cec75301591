// perf.data, as perf record writes it: perf itself prints it, with the fields that the reader of its text (import/perf.cpp)
// wants.
//
//     perf evlist -v                          what was recorded: branch records, call chains, or places alone
//     perf buildid-list                       of which builds
//     perf script -f -F pid,event,ip,sym,...  the samples, and by --show-mmap-events what was loaded where
//
// perf tells no one of a file that was cut off, so its sizes are compared with the file's first. Format: the kernel's
// tools/perf/Documentation/perf.data-file-format.txt.
#pragma once

#include "import/open_file.h"

#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

/// Whether a file that begins like this is perf.data.
bool is_perf_data(std::string_view begun);

class perf_data {
public:
    /// perf.data in a file, which messages call `name`.
    perf_data(std::string name, std::string path) : name_(std::move(name)), path_(std::move(path)) {}
    /// The same in a file that is open.
    perf_data(std::string name, open_file copy);
    ~perf_data();
    perf_data(const perf_data&) = delete;
    perf_data& operator=(const perf_data&) = delete;

    /// Starts perf and returns the file from which its text comes, with the time of each sample if so wanted. Throws `failure`.
    open_file print(bool with_time);
    /// Waits for perf's end. Throws `failure` when it was none with status 0.
    void finish();

    /// The build IDs, in lower-case hexadecimal digits, and the paths of what has samples.
    const std::vector<std::pair<std::string, std::string>>& build_ids() const { return build_ids_; }

private:
    void check_size() const;
    open_file start(const std::vector<std::string>& arguments);
    std::string output_of(const std::vector<std::string>& arguments);

    std::string name_;
    std::string path_;
    open_file copy_;
    pid_t process_ = -1;
    std::vector<std::pair<std::string, std::string>> build_ids_;
};
