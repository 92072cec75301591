#include "report/cold_start.h"

#include <algorithm>

namespace {

constexpr std::uint64_t page = 4096;

/// Pages by their numbers, both included.
struct page_range {
    std::uint64_t first;
    std::uint64_t last;
};

// The pages of the segment around a page; the page alone when no segment holds it.
page_range segment_around(std::uint64_t number, std::span<const elf_segment> segments) {
    for (const elf_segment& segment : segments) {
        if (segment.size == 0 || segment.address > UINT64_MAX - segment.size) {
            continue;
        }
        const page_range pages = {segment.address / page, (segment.address + segment.size - 1) / page};
        if (number >= pages.first && number <= pages.last) {
            return pages;
        }
    }
    return {number, number};
}

} // namespace

cold_start::cold_start(std::span<const extent> first_run, std::span<const elf_segment> segments,
                       std::uint64_t read_ahead)
    : first_run_(first_run), segments_(segments), window_pages_(std::max<std::uint64_t>(read_ahead / page, 1)) {
    for (const extent& place : first_run) {
        for (std::uint64_t number = place.address / page; number <= (place.end() - 1) / page; ++number) {
            pages_.push_back(number);
        }
    }
    std::sort(pages_.begin(), pages_.end());
    pages_.erase(std::unique(pages_.begin(), pages_.end()), pages_.end());
}

std::vector<cold_fault> cold_start::faults(read_window window) const {
    const std::uint64_t before = window == read_window::around ? window_pages_ / 2 : 0;
    const std::uint64_t behind = // the page itself included
        window == read_window::around ? std::max<std::uint64_t>(window_pages_ / 2, 1) : window_pages_;
    std::vector<cold_fault> result;
    std::vector<char> is_read(pages_.size());         // of pages_
    const auto index_of = [&](std::uint64_t number) { // of the first page from that number on
        return static_cast<std::size_t>(std::lower_bound(pages_.begin(), pages_.end(), number) - pages_.begin());
    };
    for (std::uint32_t function = 0; function < first_run_.size(); ++function) {
        const extent& place = first_run_[function];
        const std::uint64_t last = (place.end() - 1) / page;
        for (std::size_t i = index_of(place.address / page); i < pages_.size() && pages_[i] <= last; ++i) {
            if (is_read[i] != 0) {
                continue;
            }
            const std::uint64_t number = pages_[i];
            result.push_back({number * page, function});
            const page_range segment = segment_around(number, segments_);
            const std::uint64_t start = number - std::min(before, number - segment.first);
            const std::uint64_t end = number + std::min(behind - 1, segment.last - number);
            for (std::size_t j = index_of(start); j < pages_.size() && pages_[j] <= end; ++j) {
                is_read[j] = 1;
            }
        }
    }
    return result;
}
