#include "import/perf_mappings.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace {

constexpr std::string_view record = "PERF_RECORD_MMAP";

// Takes a number, after `before`, off the front of a text.
bool take_number(std::string_view& text, std::string_view before, int base, std::uint64_t& number) {
    if (!text.starts_with(before)) {
        return false;
    }
    text.remove_prefix(before.size());
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

} // namespace

std::string_view perf_mappings::path_in(std::string_view line) {
    const std::size_t start = line.find(record);
    const std::size_t bracket = start == std::string_view::npos ? start : line.find("]: ", start);
    const std::size_t blank = bracket == std::string_view::npos ? bracket : line.find(' ', bracket + 3);
    return blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
}

bool perf_mappings::add(std::string_view line, bool is_binary) {
    const std::size_t start_of_record = line.find(record);
    if (start_of_record == std::string_view::npos) {
        return false;
    }
    std::string_view rest = line.substr(start_of_record + record.size());
    rest.remove_prefix(rest.starts_with('2') ? 1 : 0);
    std::uint64_t process = 0;
    std::uint64_t thread = 0;
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    std::uint64_t offset = 0;
    if (!take_number(rest, " ", 10, process) || !take_number(rest, "/", 10, thread) ||
        !take_number(rest, ": [0x", 16, start) || !take_number(rest, "(0x", 16, size) ||
        !take_number(rest, ") @ ", 16, offset)) {
        return false;
    }
    if (offset == 0 && rest.starts_with('x') && !take_number(rest, "x", 16, offset)) {
        return false;
    }
    if (size == 0 || start + size < start) {
        return true;
    }
    const stretch added = {start + size, is_binary ? kind::in_binary : kind::elsewhere, offset - start};
    stretches& own = by_process_[process];
    split(own, start);
    split(own, added.end);
    own.erase(own.lower_bound(start), own.lower_bound(added.end));
    own.emplace(start, added);
    add_for_all(start, added);
    return true;
}

// Cuts the stretch around an address in two.
void perf_mappings::split(stretches& of, std::uint64_t at) {
    const auto next = of.lower_bound(at);
    if (next == of.begin()) {
        return;
    }
    stretch& before = std::prev(next)->second;
    if (before.end > at) {
        const stretch behind = before;
        before.end = at;
        of.emplace_hint(next, at, behind);
    }
}

// Fills what was free. Where it was not and the mappings differ, they contradict each other; neighbours that do become one
// stretch, so that a long mapping over many does not have to be walked along again and again.
void perf_mappings::add_for_all(std::uint64_t start, const stretch& added) {
    split(all_, start);
    split(all_, added.end);
    std::uint64_t free = start;
    for (auto at = all_.lower_bound(start); at != all_.end() && at->first < added.end; ++at) {
        if (at->first > free) {
            all_.emplace_hint(at, free, stretch{at->first, added.what, added.shift});
        }
        stretch& known = at->second;
        free = known.end;
        const bool is_same = known.what == added.what && (known.shift == added.shift || known.what == kind::elsewhere);
        if (!is_same) {
            known.what = kind::contradicted;
        }
        if (known.what == kind::contradicted && at != all_.begin()) {
            stretch& before = std::prev(at)->second;
            if (before.what == kind::contradicted && before.end == at->first) {
                before.end = known.end;
                at = std::prev(all_.erase(at));
            }
        }
    }
    if (free < added.end) {
        all_.emplace(free, added);
    }
}

perf_mappings::place perf_mappings::find_in(const stretches& of, std::uint64_t address) const {
    const auto next = of.upper_bound(address);
    if (next == of.begin() || std::prev(next)->second.end <= address) {
        return {};
    }
    const stretch& around = std::prev(next)->second;
    if (around.what != kind::in_binary) {
        return {around.what};
    }
    const std::optional<std::uint64_t> linked = binary_.address_of_byte(address + around.shift);
    return linked.has_value() ? place{kind::in_binary, *linked} : place{kind::elsewhere};
}

perf_mappings::place perf_mappings::find(std::uint64_t process, std::uint64_t address) const {
    if (const auto own = by_process_.find(process); process != 0 && own != by_process_.end()) {
        const place found = find_in(own->second, address);
        if (found.what != kind::unmapped) {
            return found;
        }
    }
    return find_in(all_, address);
}
