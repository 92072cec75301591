// Where the binary was loaded, from the mmap lines that perf script prints by --show-mmap-events, and what an address of a
// running process stands for.
//
//     app 7 1.5: PERF_RECORD_MMAP2 7/7: [0x55d0c0001000(0x1000) @ 0x1000 fe:00 12 0]: r-xp /tmp/app
//
//     process 7 at 0x55d0c0001040   ->   byte 0x1040 of the file   ->   link-time address 0x1040, by the file's segments
//
// Of a process the newest mapping counts. A sample that does not name its process, or one whose process was forked and has no
// mappings of its own, may be of any: then all have to agree. Looking up takes time logarithmic in the number of mappings.
#pragma once

#include "binary/function_table.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstdint>
#include <map>
#include <string_view>

class perf_mappings {
public:
    /// What an address is.
    enum class kind { unmapped, elsewhere, in_binary, contradicted };
    struct place {
        kind what = kind::unmapped;
        std::uint64_t address = 0; ///< link-time, where it is in the binary
    };

    explicit perf_mappings(const function_table& binary) : binary_(binary) {}

    bool is_empty() const { return all_.empty(); }
    /// Takes a line of perf script with a mapping of the binary, or of something else; false for another line.
    bool add(std::string_view line, bool is_binary);
    /// The path in such a line; empty for another line.
    static std::string_view path_in(std::string_view line);
    /// What an address in a process is; 0 stands for a process that is not known.
    place find(std::uint64_t process, std::uint64_t address) const;

private:
    /// A stretch of addresses, by its start.
    struct stretch {
        std::uint64_t end;
        kind what;
        std::uint64_t shift; ///< from an address to the place in the file, modulo 2^64
    };
    using stretches = std::map<std::uint64_t, stretch>;

    static void split(stretches& of, std::uint64_t at);
    void add_for_all(std::uint64_t start, const stretch& added);
    place find_in(const stretches& of, std::uint64_t address) const;

    const function_table& binary_;
    boost::unordered_flat_map<std::uint64_t, stretches> by_process_;
    stretches all_; ///< of all processes together
};
