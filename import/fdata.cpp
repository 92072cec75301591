// "fdata": what perf2bolt and programs instrumented by llvm-bolt write. Format: bolt/include/bolt/Profile/DataReader.h of LLVM.
//
//     1 main 3fb 1 f 0 0 12              a branch from main+0x3fb to f+0x0, mispredicted 0 times, taken 12 times: a call
//     1 f/file.c/1 a 1 main 400 2 12     local functions are numbered, some with their file
//     0 [unknown] 0 1 main 0 0 1         from no symbol
//     4 f 10 4 table 8 3                 a memory event
//
//     no_lbr cycles:u                    another form, of samples without branches
//     1 f a 17                           17 samples in f
//
// A blank in a name stands behind a backslash, and so does a backslash.
#include "import/profile_format.h"
#include "support/failure.h"

#include <algorithm>

namespace {

constexpr std::string_view bolted = "boltedcollection";
constexpr std::string_view samples = "no_lbr";

/// One end of a branch, or the place of a sample.
struct place {
    char kind = 0;    ///< '0' no symbol, '1' a symbol, others memory
    std::string name; ///< without escapes
    std::uint64_t offset = 0;
};

// Takes a name up to a blank that is not escaped.
std::string take_name(std::string_view& line) {
    std::string name;
    std::size_t end = 0;
    for (; end < line.size() && line[end] != ' '; ++end) {
        end += line[end] == '\\' && end + 1 < line.size() ? 1 : 0;
        name += line[end];
    }
    line.remove_prefix(std::min(end + 1, line.size()));
    return name;
}

bool take_place(std::string_view& line, place& taken) {
    const std::string_view kind = take_word(line);
    taken.kind = kind.size() == 1 ? kind.front() : '?';
    if (taken.kind < '0' || taken.kind > '5' || line.empty()) {
        return false;
    }
    taken.name = take_name(line);
    return parse_hexadecimal(take_word(line), taken.offset);
}

bool is_memory(const place& p) {
    return p.kind > '1';
}

bool is_number(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Whether what stands between a local function's name and its number is a file's name.
bool is_source(std::string_view text) {
    constexpr std::string_view endings[] = {"c", "cc", "cpp", "cxx", "c++", "C",   "m", "mm",
                                            "s", "S",  "asm", "rs",  "o",   "f90", "f", "d"};
    const std::size_t point = text.rfind('.');
    return text.starts_with('<') ||
           (point != std::string_view::npos &&
            std::find(std::begin(endings), std::end(endings), text.substr(point + 1)) != std::end(endings));
}

// The symbol of "f/1" or "f/file.c/1", or the one that a stub "f@PLT" leads to. Symbols may have strokes of their own: what the binary defines is one.
std::string_view symbol_of(std::string_view name, const function_table* binary) {
    const auto is_defined = [&](std::string_view symbol) {
        return binary != nullptr && !binary->find(symbol, known_form::as_it_stands).empty();
    };
    if (name.ends_with("@PLT")) {
        return name.substr(0, name.size() - 4);
    }
    const std::size_t number = name.rfind('/');
    if (number == std::string_view::npos || number == 0 || !is_number(name.substr(number + 1)) || is_defined(name)) {
        return name;
    }
    const std::string_view local = name.substr(0, number);
    const std::size_t file = local.rfind('/');
    if (file == std::string_view::npos || file == 0 || is_defined(local) || !is_source(local.substr(file + 1))) {
        return local;
    }
    return local.substr(0, file);
}

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls) {}

    void run() {
        bool has_samples = false;
        for (std::string_view line; profile_.next_line(line);) {
            line.remove_suffix(line.ends_with('\r') ? 1 : 0);
            if (line == bolted) {
                profile_.fail(
                    "recorded with a program that llvm-bolt had laid out: profile the one that the linker wrote");
            }
            if (line.empty() || line.starts_with(samples)) {
                has_samples |= !line.empty();
                continue;
            }
            place from;
            if (!take_place(line, from)) {
                fail_line();
            }
            if (is_memory(from)) {
                continue;
            }
            if (has_samples) {
                read_sample(from, line);
            } else {
                read_branch(from, line);
            }
        }
    }

private:
    [[noreturn]] void fail_line() const { profile_.fail("not a line of fdata"); }

    void read_sample(const place& in, std::string_view rest) {
        std::uint64_t count = 0;
        if (!parse_count(take_word(rest), count) || !rest.empty()) {
            fail_line();
        }
        calls_.add_run(number_of(in), count);
    }

    void read_branch(const place& from, std::string_view rest) {
        place to;
        std::uint64_t mispredicted = 0;
        std::uint64_t count = 0;
        if (!take_place(rest, to) || is_memory(to) || !parse_count(take_word(rest), mispredicted) ||
            !parse_count(take_word(rest), count) || !rest.empty()) {
            fail_line();
        }
        const call_table::function source = number_of(from);
        const call_table::function target = number_of(to);
        const bool are_kept = profile_names::is_kept(source) && profile_names::is_kept(target);
        if (to.offset == 0 && (are_kept ? source != target : from.name != to.name)) {
            calls_.add_call(source, target, count);
        } else {
            calls_.add_run(source, count);
            calls_.add_run(target, source == target ? 0 : count);
        }
    }

    call_table::function number_of(const place& p) {
        return p.kind == '1' ? calls_.named(symbol_of(p.name, calls_.binary()), name_form::linker)
                             : call_table::outside;
    }

    profile_input& profile_;
    call_table& calls_;
};

} // namespace

bool is_fdata(std::string_view head) {
    std::string_view line = first_line(head);
    if (line.starts_with(bolted) || line.starts_with(samples)) {
        return true;
    }
    place from;
    place to;
    std::uint64_t count = 0;
    return take_place(line, from) && take_place(line, to) && parse_count(take_word(line), count);
}

void read_fdata(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
