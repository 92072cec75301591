// "gperftools": what its CPU profiler writes. Format: docs/cpuprofile-fileformat.html of gperftools.
//
//     0 3 0 10000 0                     header: words of the machine that wrote it; the sampling period in microseconds
//     12 3 0x55..40 0x55..81 0x55..c2   12 samples of a chain of 3 addresses, the innermost first; the others are behind a call
//     0 1 0                             the end, and behind it /proc/self/maps:
//     55d0c0001000-55d0c0002000 r-xp 00001000 fe:00 12 /tmp/app
//
// Addresses are all that it knows: the map tells which byte of which file each is.
#include "import/profile_format.h"
#include "support/failure.h"
#include "support/seeded_hash.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <map>
#include <optional>
#include <vector>

namespace {

/// How words stand in the file.
struct word_form {
    std::size_t size; ///< in bytes
    bool is_little_endian;

    std::uint64_t read(std::string_view bytes, std::size_t place) const {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            const std::size_t byte = place * size + (is_little_endian ? size - 1 - i : i);
            value = value << 8U | static_cast<unsigned char>(bytes[byte]);
        }
        return value;
    }
};

// By the header, whose words are known but for the period.
std::optional<word_form> form_of(std::string_view bytes) {
    for (const word_form form : {word_form{8, true}, {8, false}, {4, true}, {4, false}}) {
        if (bytes.size() >= 5 * form.size && form.read(bytes, 0) == 0 && form.read(bytes, 1) == 3 &&
            form.read(bytes, 2) == 0 && form.read(bytes, 4) == 0) {
            return form;
        }
    }
    return std::nullopt;
}

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls) {}

    void run() {
        if (calls_.binary() == nullptr) {
            throw failure(profile_.name(), "addresses alone: name the program with --binary");
        }
        const std::string bytes = profile_.whole();
        const std::optional<word_form> form = form_of(bytes);
        if (!form.has_value()) {
            throw failure(profile_.name(), "not a CPU profile of gperftools");
        }
        const std::size_t end = end_of_samples(bytes, *form);
        read_map(std::string_view(bytes).substr(end * form->size));
        read_samples(bytes, *form);
    }

private:
    /// A mapping, by its start.
    struct mapping {
        std::uint64_t end;
        std::uint64_t offset;
        std::string_view object; ///< of the profile's bytes
    };

    // Behind the words of the end.
    std::size_t end_of_samples(std::string_view bytes, word_form form) const {
        const std::size_t words = bytes.size() / form.size;
        for (std::size_t place = 5; place + 3 <= words;) {
            const std::uint64_t count = form.read(bytes, place);
            const std::uint64_t length = form.read(bytes, place + 1);
            if (count == 0 && length == 1 && form.read(bytes, place + 2) == 0) {
                return place + 3;
            }
            if (length == 0 || length > words - place - 2) {
                break;
            }
            place += 2 + static_cast<std::size_t>(length);
        }
        throw failure(profile_.name(), "cut off: the end of the samples is missing");
    }

    void read_map(std::string_view text) {
        if (!text.empty() && !text.ends_with('\n')) {
            throw failure(profile_.name(), "cut off: the map of what was loaded where ends inside a line");
        }
        while (!text.empty()) {
            std::string_view line = take_line(text);
            const std::string_view range = take_word(line);
            const std::string_view rights = take_word(line);
            const std::string_view offset = take_word(line);
            take_word(line); // device
            take_word(line); // inode
            mapping read = {0, 0, line};
            std::uint64_t start = 0;
            const std::size_t hyphen = range.find('-');
            if (hyphen != std::string_view::npos && rights.size() >= 4 &&
                parse_hexadecimal(range.substr(0, hyphen), start) &&
                parse_hexadecimal(range.substr(hyphen + 1), read.end) && parse_hexadecimal(offset, read.offset)) {
                mappings_.emplace(start, read);
            }
        }
        if (mappings_.empty()) {
            throw failure(profile_.name(), "cut off: the map of what was loaded where is missing");
        }
    }

    void read_samples(std::string_view bytes, word_form form) {
        for (std::size_t place = 5;;) {
            const std::uint64_t count = form.read(bytes, place);
            const auto length = static_cast<std::size_t>(form.read(bytes, place + 1));
            if (count == 0 && length == 1 && form.read(bytes, place + 2) == 0) {
                return;
            }
            std::size_t next = 0;
            calls_.add_chain(count, [&](call_table::function& f) {
                if (next == length) {
                    return false;
                }
                f = number_of(form.read(bytes, place + 2 + next) - (next == 0 ? 0 : 1));
                ++next;
                return true;
            });
            place += 2 + length;
        }
    }

    call_table::function number_of(std::uint64_t address) {
        const auto [known, is_new] = numbers_.emplace(address, call_table::unknown);
        if (is_new) {
            const auto next = mappings_.upper_bound(address);
            const mapping* const around = next == mappings_.begin() ? nullptr : &std::prev(next)->second;
            if (around == nullptr || address >= around->end) {
                return known->second;
            }
            const std::optional<std::uint64_t> linked =
                calls_.is_wanted_object(around->object)
                    ? calls_.binary()->address_of_byte(address - std::prev(next)->first + around->offset)
                    : std::nullopt;
            known->second = linked.has_value() ? calls_.at(*linked, {}) : call_table::outside;
        }
        return known->second;
    }

    profile_input& profile_;
    call_table& calls_;
    std::map<std::uint64_t, mapping> mappings_;
    boost::unordered_flat_map<std::uint64_t, call_table::function, number_hash> numbers_; ///< by address
};

} // namespace

bool is_gperftools(std::string_view head) {
    return form_of(head).has_value();
}

void read_gperftools(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
