// Fuzz target: profiles through ordwell-import. The first byte chooses the format, or to find it by content, and whether
// there is a binary: this program.
//
// Whatever the profile, the result is a clear failure or a CSV that ordwell reads without a complaint, with no pair of
// functions twice.
#include "DIAG/diag.h"
#include "ORDWELL/pettis_hansen.h"
#include "import/profile_format.h"
#include "support/failure.h"
#include "tests/fuzz/fuzz.h"

#include <cstdlib>
#include <set>

namespace {

constexpr const char* text_formats[] = {"callgrind", "perf", "pairs", "stacks"};
constexpr unsigned char first_of_any = 10; ///< first bytes below choose a text format

// ORDWELL_FUZZ_FORMAT=NAME looks at one format alone.
const profile_format* format_of(unsigned char choice, std::string_view head) {
    static const char* const only = std::getenv("ORDWELL_FUZZ_FORMAT");
    const std::span<const profile_format> formats = profile_formats();
    for (std::size_t i = 0; i < formats.size(); ++i) {
        const bool is_wanted = only != nullptr          ? std::string_view(only) == formats[i].name
                               : choice >= first_of_any ? choice % formats.size() == i
                               : choice % 5 == 4        ? formats[i].recognises(head)
                                                        : std::string_view(text_formats[choice % 5]) == formats[i].name;
        if (is_wanted) {
            return &formats[i];
        }
    }
    return nullptr;
}

void check(unsigned char choice, std::string_view bytes) {
    const memory_file input(bytes);
    const memory_file output("");
    try {
        std::vector<std::string> objects;
        if (choice / 5 % 2 == 1) {
            objects = {"app"};
        }
        static const function_table binary("/proc/self/exe");
        call_table calls(choice >= first_of_any && choice % 2 == 1 ? &binary : nullptr, objects);
        calls.begin_profile();
        profile_input profile(input.path(), false);
        const profile_format* const format = format_of(choice, profile.head());
        if (format == nullptr) {
            return;
        }
        format->read(profile, calls);
        calls.end_profile(profile.name());
        output_file out(output.path());
        calls.write(out);
        out.finish();
    } catch (const failure& error) {
        require(*error.what() != '\0', "a failure says why");
        return;
    }
    DIAGNOSTIC::error_count_m = 0;
    std::string path = output.path();
    PETTIS_HANSEN_GRAPH graph;
    graph.read(path);
    require(DIAGNOSTIC::error_count_m == 0, "ordwell reads the rows");
    const std::string text = output.bytes();
    std::string_view rows = text;
    std::set<std::string_view> pairs;
    take_line(rows);
    while (!rows.empty()) {
        const std::string_view row = take_line(rows);
        require(!row.starts_with('"'), "no row is skipped");
        require(pairs.insert(row.substr(0, row.rfind(','))).second, "every pair has one row");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    silence(DIAGNOSTIC::fp_m);
    if (size > 0) {
        check(data[0], {reinterpret_cast<const char*>(data + 1), size - 1});
    }
    return 0;
}
