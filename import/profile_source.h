// What yields the bytes of a profile, found by content:
//
//     a file or standard input                 as it is
//     compressed (gzip, xz, zstd, bzip2)       unpacked on the way (import/unpacker.h); also twice, as a pprof put into gzip
//     perf.data                                the text that perf script prints of it (import/perf_data.h)
//
// These may be stacked: a perf.data that was compressed, or comes from standard input, goes to a temporary file for perf to
// read. Formats see bytes and know none of this.
#pragma once

#include "import/perf_data.h"
#include "import/unpacker.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class profile_source {
public:
    /// Opens a profile; "-" is standard input. Where it is perf.data, `wants_time` has perf print when samples were taken.
    /// Throws `failure`.
    profile_source(const std::string& name, bool wants_time);

    /// What messages call it.
    const std::string& name() const { return name_; }
    /// The first bytes: most_begun, or all there are.
    const std::string& begun() const { return begun_; }
    /// The file with the bytes behind those; to be called once, and the caller closes it.
    int take_file() { return file_.release(); }
    /// How many bytes there are in all; 0: not known.
    std::uint64_t size() const { return size_; }
    /// What is known of perf.data besides the text; null for everything else.
    const perf_data* perf() const { return perf_.get(); }
    /// To be called when the last bytes were read, before they are looked at: they may be cut off. Throws `failure`.
    void finish();

    static constexpr std::size_t most_begun = 512; ///< tells all that is told by content

private:
    void begin();

    std::string name_;
    std::vector<std::unique_ptr<unpacker>>
        unpackers_; // the outermost first; outlive file_, which the last may write to
    std::unique_ptr<perf_data> perf_;
    open_file file_;
    std::string begun_;
    std::uint64_t size_ = 0;
};
