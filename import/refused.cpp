#include "import/refused.h"

#include <algorithm>

namespace {

using namespace std::string_view_literals;

/// Something by the bytes at a place in it. Formats: LLVM's InstrProfData.inc, GCC's gcov-io.h, <elf.h>, POSIX pax.
struct recognised {
    std::size_t place;
    std::string_view bytes;
    std::string_view what;
};

constexpr auto of_counters = "counters of clang -fprofile-instr-generate, which are no calls yet: merge them with "
                             "llvm-profdata, compile with -fprofile-instr-use, and import the objects"sv;
constexpr auto of_merged =
    "merged counters of clang, which are no calls yet: compile with -fprofile-instr-use, and import "
    "the objects"sv;
constexpr auto of_gcc =
    "counters of gcc --coverage or -fprofile-generate, which know no calls: profile with callgrind, perf "
    "or gcc -pg"sv;
constexpr auto of_program = "a program, not a profile: name it with --binary, and a profile of it"sv;
constexpr auto of_core = "a core, not a profile: record one while the program runs"sv;
constexpr auto of_page = "a web page or picture, not a profile: give what the profiler recorded"sv;
constexpr auto of_archive = "an archive: unpack it, and give the profiles in it"sv;
constexpr auto of_text = "text in UTF-16: convert it, by iconv -f UTF-16 -t UTF-8"sv;

constexpr auto of_dump =
    "a heap profile or another dump as text, which is not read: give a CPU profile, or of Go the form without ?debug=1"sv;

constexpr recognised known[] = {
    {0, "\xfflprofr\x81"sv, of_counters}, // the other byte order
    {0, "\x81rforpl\xff"sv, of_counters},
    {0, "\xfflprofR\x81"sv, of_counters}, // 32 bits
    {0, "\x81Rforpl\xff"sv, of_counters},
    {0, "\xfflprofi\x81"sv, of_merged},
    {0, "adcg"sv, of_gcc},
    {0, "gcda"sv, of_gcc},
    {16, "\x02\x00"sv, of_program}, // the type of an ELF file, in both byte orders
    {16, "\x00\x02"sv, of_program},
    {16, "\x03\x00"sv, of_program},
    {16, "\x00\x03"sv, of_program},
    {16, "\x04\x00"sv, of_core},
    {16, "\x00\x04"sv, of_core},
    {257, "ustar"sv, of_archive},
    {0, "PK\x03\x04"sv, of_archive},
    {0, "PK\x05\x06"sv, of_archive},
    {0, "7z\xbc\xaf"sv, of_archive},
    {0, "heap profile: "sv, of_dump},
    {0, "goroutine profile: "sv, of_dump},
    {0, "threadcreate profile: "sv, of_dump},
    {0, "--- mutex:"sv, of_dump},
    {0, "--- contention"sv, of_dump},
    {0, "--- symbol\n"sv, "output of pprof --raw: give the profile that it was made of"sv},
    {0, "---\nheader:"sv, "YAML of perf2bolt: let it write fdata, without -w and -profile-format=yaml"sv},
    {0, "--preferred_order="sv,
     "an order that ordwell made of a profile: give the profile, or this to ordwell-export"sv},
    {0, "desc: I1 cache:"sv, "what cachegrind wrote, which knows no calls: record with valgrind --tool=callgrind"sv},
    {0, "\xff\xfe"sv, of_text},
    {0, "\xfe\xff"sv, of_text},
    {0, "\xef\xbb\xbf"sv, "text with a byte order mark, which is no part of a profile: save it without"sv},
};

constexpr std::string_view beginnings_of_pages[] = {"<!doctype", "<html", "<svg", "<?xml"};

std::string_view without_blanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
}

} // namespace

std::string_view why_refused(std::string_view begun) {
    const bool is_elf = begun.starts_with("\x7f"
                                          "ELF");
    for (const recognised& r : known) {
        if ((r.place != 16 || is_elf) && begun.size() >= r.place && begun.substr(r.place).starts_with(r.bytes)) {
            return r.what;
        }
    }
    const std::string_view text = without_blanks(begun);
    for (const std::string_view page : beginnings_of_pages) {
        if (std::equal(page.begin(), page.end(), text.begin(), text.begin() + std::min(page.size(), text.size()),
                       [](char wanted, char c) { return wanted == (c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); })) {
            return of_page;
        }
    }
    const std::string_view inside =
        text.starts_with('{') || text.starts_with('[') ? without_blanks(text.substr(1)) : "";
    if (!inside.empty() && (inside.front() == '"' || inside.front() == '{' || inside.front() == '[')) {
        return "JSON, not a profile that is known here: give what the profiler recorded, or its collapsed stacks";
    }
    return {};
}
