#include "import/perf_line.h"

#include "import/profile_format.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view hex_digits = "0123456789abcdef";

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    text.remove_suffix(text.size() - (text.find_last_not_of(" \r") + 1)); // npos + 1 is 0
    return text;
}

/// An offset in a text, "+0x1c".
struct offset_place {
    std::size_t start;
    std::size_t end;
};

// The first offset that an object or the end of the text follows.
bool find_offset(std::string_view text, offset_place& offset) {
    for (std::size_t start = text.find("+0x"); start != std::string_view::npos; start = text.find("+0x", start + 1)) {
        const std::size_t end = std::min(text.find_first_not_of(hex_digits, start + 3), text.size());
        const std::string_view rest = text.substr(end);
        if (end > start + 3 && (rest.empty() || rest.front() == '(' || rest.starts_with(" ("))) {
            offset = {start, end};
            return true;
        }
    }
    return false;
}

// Where the bracket is that opens the object of a branch's end: right behind an offset or "[unknown]".
std::size_t find_branch_object(std::string_view text) {
    std::size_t found = std::string_view::npos;
    for (std::size_t start = text.find("+0x"); start != std::string_view::npos; start = text.find("+0x", start + 1)) {
        const std::size_t end = text.find_first_not_of(hex_digits, start + 3);
        if (end != std::string_view::npos && end > start + 3 && text[end] == '(') {
            found = end;
            break;
        }
    }
    const std::size_t unknown = text.find("[unknown](");
    return unknown == std::string_view::npos ? found : std::min(found, unknown + 9);
}

bool has_balanced_brackets(std::string_view text) {
    std::size_t open = 0;
    for (const char c : text) {
        if (c == ')' && open == 0) {
            return false;
        }
        open += c == '(' ? 1 : 0;
        open -= c == ')' ? 1 : 0;
    }
    return open == 0;
}

// The process in what stands before a sample's address or event: the first number, "7" or "7/8".
std::uint64_t process_in(std::string_view before) {
    while (!before.empty()) {
        const std::string_view word = take_word(before);
        const std::string_view number = word.substr(0, word.find('/'));
        std::uint64_t process = 0;
        if (parse_count(number, process)) {
            return process;
        }
    }
    return 0;
}

// Whether a word is a time: "1570.842829:".
bool is_time(std::string_view word) {
    return word.size() > 2 && word.ends_with(':') && word.find('.') != std::string_view::npos &&
           word.find_first_not_of("0123456789.") == word.size() - 1;
}

// Where an address stands that perf printed behind the head of a sample: right-aligned to 16 places, a blank on both sides.
// Other numbers may stand before it in the same way.
std::size_t find_aligned_address(std::string_view line) {
    constexpr std::size_t width = 16;
    std::size_t found = std::string_view::npos;
    for (std::size_t start = 1; start + width <= line.size(); ++start) {
        if (found != std::string_view::npos && start > found + width + 1) {
            break;
        }
        const std::string_view field = line.substr(start, width);
        const std::size_t digits = field.find_first_not_of(' ');
        if (line[start - 1] == ' ' && (start + width == line.size() || line[start + width] == ' ') &&
            digits != std::string_view::npos && field.find_first_not_of(hex_digits, digits) == std::string_view::npos) {
            found = start + digits;
        }
    }
    return found;
}

// The event in the head of a sample without its address, "app 10606  1570.842829:     250000 cpu-clock:". Behind the time it
// is the next text but for the period; where there is no time, the last word.
std::string_view event_of(std::string_view head) {
    std::string_view rest = head;
    while (!rest.empty()) {
        if (!is_time(take_word(rest))) {
            continue;
        }
        std::string_view behind_period = rest;
        std::uint64_t period = 0;
        if (parse_count(take_word(behind_period), period) && !behind_period.empty()) {
            rest = behind_period;
        }
        std::size_t end = rest.find(": ");
        end = end == std::string_view::npos && rest.ends_with(':') ? rest.size() - 1 : end;
        return end == std::string_view::npos ? std::string_view() : trimmed(rest.substr(0, end));
    }
    if (!head.ends_with(':')) {
        return {};
    }
    head.remove_suffix(1);
    return head.substr(head.rfind(' ') + 1);
}

} // namespace

perf_place parse_perf_place(std::string_view text) {
    perf_place place;
    text = trimmed(text);
    offset_place offset{};
    std::size_t object = std::string_view::npos; // of its bracket
    if (find_offset(text, offset)) {
        place.symbol = text.substr(0, offset.start);
        place.is_first_byte = text.substr(offset.start + 3, offset.end - offset.start - 3).find_first_not_of('0') ==
                              std::string_view::npos;
        object = text.find('(', offset.end);
    } else {
        for (const std::string_view start : {" (/", " ([", "](", " (inlined)"}) {
            object = std::min(object, text.find(start));
        }
        if (text.starts_with("(")) { // without a symbol
            object = 0;
        } else if (object == std::string_view::npos) {
            object = text.rfind(" (");
        }
        object += object == std::string_view::npos || text[object] == '(' ? 0 : 1;
        object = text.ends_with(')') ? object : std::string_view::npos;
        place.symbol = trimmed(text.substr(0, object));
    }
    if (object != std::string_view::npos && text.ends_with(')')) {
        place.object = text.substr(object + 1, text.size() - object - 2);
    }
    return place;
}

bool take_perf_address(std::string_view& text) {
    std::uint64_t address = 0;
    return take_perf_address(text, address);
}

bool take_perf_address(std::string_view& text, std::uint64_t& address) {
    std::string_view rest = text;
    const std::string_view word = take_word(rest);
    if (word.empty() || word.find_first_not_of(hex_digits) != std::string_view::npos) {
        return false;
    }
    address = 0;
    std::from_chars(word.data(), word.data() + word.size(), address, 16); // what exceeds 64 bits is none of the binary
    text = rest;
    return true;
}

bool parse_perf_addresses(std::string_view ends, std::uint64_t& from, std::uint64_t& to) {
    ends.remove_prefix(std::min(ends.find_first_not_of(' '), ends.size()));
    const std::size_t slash = ends.find('/');
    if (slash == std::string_view::npos || !ends.starts_with("0x") || !ends.substr(slash + 1).starts_with("0x")) {
        return false;
    }
    std::string_view first = ends.substr(2, slash - 2);
    std::string_view second = ends.substr(slash + 3);
    return take_perf_address(first, from) && first.empty() && take_perf_address(second, to) && second.empty();
}

bool has_perf_time(std::string_view line) {
    while (!line.empty()) {
        if (is_time(take_word(line))) {
            return true;
        }
    }
    return false;
}

perf_head parse_perf_head(std::string_view line) {
    perf_head head;
    line.remove_suffix(line.size() - (line.find_last_not_of(" \r") + 1));
    std::size_t address = line.ends_with(':') ? line.size() : find_aligned_address(line);
    for (std::size_t colon = line.find(": "); address == std::string_view::npos && colon != std::string_view::npos;
         colon = line.find(": ", colon + 1)) { // not aligned
        std::string_view rest = line.substr(colon + 1);
        if (take_perf_address(rest) && !take_word(rest).ends_with(':')) {
            address = line.find_first_not_of(' ', colon + 1);
        }
    }
    head.rest = address == std::string_view::npos ? std::string_view() : line.substr(address);
    const std::string_view before = line.substr(0, address);
    head.event = event_of(before.substr(0, before.find_last_not_of(' ') + 1));
    head.ends_with_event = line.ends_with(':');
    head.process = process_in(before);
    return head;
}

bool take_perf_branch(std::string_view& line, std::string_view& ends, std::size_t& flag_count) {
    for (std::size_t slash = line.find('/'); slash != std::string_view::npos; slash = line.find('/', slash + 1)) {
        const std::string_view flags =
            line.substr(slash); // whether predicted, in a transaction, at the end of one; cycles
        const auto is_one_of = [&](std::size_t place, std::string_view letters) {
            return letters.find(flags[place]) != std::string_view::npos;
        };
        if (flags.size() < 8 || !is_one_of(1, "PM-") || flags[2] != '/' || !is_one_of(3, "X-") || flags[4] != '/' ||
            !is_one_of(5, "A-") || flags[6] != '/') {
            continue;
        }
        ends = line.substr(0, slash);
        const std::size_t end = std::min(line.find(' ', slash), line.size());
        flag_count = static_cast<std::size_t>(std::count(line.begin() + static_cast<std::ptrdiff_t>(slash),
                                                         line.begin() + static_cast<std::ptrdiff_t>(end), '/'));
        line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
        return true;
    }
    return false;
}

bool split_perf_branch(std::string_view ends, std::string_view& from, std::string_view& to) {
    std::size_t slash = std::string_view::npos;
    if (find_branch_object(ends) == std::string_view::npos) {
        slash = ends.find('/');
    } else {
        for (std::size_t end = ends.find(")/"); end != std::string_view::npos; end = ends.find(")/", end + 1)) {
            const std::string_view rest = ends.substr(end + 2);
            if (rest.find('/') > find_branch_object(rest)) { // no part of the path of an object
                slash = end + 1;
                break;
            }
        }
    }
    if (slash == std::string_view::npos) {
        return false;
    }
    from = ends.substr(0, slash);
    to = ends.substr(slash + 1);
    return true;
}

bool split_perf_frame(std::string_view text, std::string_view& frame, std::string_view& branch) {
    const std::size_t object = find_branch_object(text);
    if (object == std::string_view::npos) {
        return false;
    }
    for (std::size_t end = text.rfind(')', object); end != std::string_view::npos && end > 0;
         end = text.rfind(')', end - 1)) {
        const std::string_view symbol = trimmed(text.substr(end + 1, object - end - 1));
        if (!symbol.empty() && symbol.front() != '+' && has_balanced_brackets(symbol)) {
            frame = text.substr(0, end + 1);
            branch = text.substr(end + 1);
            return true;
        }
    }
    return false;
}
