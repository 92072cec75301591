#include "options/print_queue.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct queue_entry {
    std::string label;
    std::string description;
    int key;
};

std::string& queue_heading = *new std::string;
int queue_width = 0;
int longest_label = 0; // of all labels queued since the program started
sort_method queue_sort = sort_by_label;
std::list<queue_entry>& queue = *new std::list<queue_entry>; // never destroyed, as the heading: exit handlers may print

std::string_view without_dashes(const std::string& label) {
    return std::string_view(label).substr(std::min(label.find_first_not_of('-'), label.size()));
}

bool sorts_before(const queue_entry& a, const queue_entry& b) {
    if (queue_sort == sort_by_insertion) {
        return false;
    }
    if (queue_sort == sort_by_key && a.key != b.key) {
        return a.key > b.key;
    }
    return without_dashes(a.label) < without_dashes(b.label);
}

void print_one_column(int width, bool long_labels_alone, int indent) {
    const std::string prefix(static_cast<std::size_t>(std::max(width + indent + 3, 0)), ' ');
    for (const queue_entry& entry : queue) {
        if (long_labels_alone && static_cast<int>(entry.label.size()) > width) {
            std::printf("  %s\n%*s", entry.label.c_str(), width + 3, "");
        } else {
            std::printf("  %-*.*s ", width, width, entry.label.c_str());
        }
        fill_text(stdout, entry.description.c_str(), prefix.c_str());
    }
}

// Entries that fit half a line go in pairs, down the left column first; the others follow on lines of their own.
void print_two_columns(int width) {
    std::vector<const queue_entry*> fitting;
    std::vector<const queue_entry*> others;
    for (const queue_entry& entry : queue) {
        const bool fits = static_cast<int>(entry.description.size()) + width + 2 < 38;
        (fits ? fitting : others).push_back(&entry);
    }
    const std::size_t rows = (fitting.size() + 1) / 2;
    for (std::size_t row = 0; row < rows; ++row) {
        const queue_entry& left = *fitting[row];
        std::printf("  %-*.*s %-*.*s", width, width, left.label.c_str(), 35 - width, 35 - width,
                    left.description.c_str());
        if (rows + row < fitting.size()) {
            const queue_entry& right = *fitting[rows + row];
            std::printf("  %-*.*s %s", width, width, right.label.c_str(), right.description.c_str());
        }
        std::printf("\n");
    }
    for (const queue_entry* const entry : others) {
        std::printf("  %-*s %-*.*s\n", width, entry->label.c_str(), 76 - width, 76 - width, entry->description.c_str());
    }
}

} // namespace

void init_queue(const char* heading, int width, sort_method sort) {
    queue.clear();
    queue_heading = heading;
    queue_width = width;
    queue_sort = sort;
}

void queueup(const char* label, const char* description, int key) {
    queue_entry entry = {label, description, key};
    if (!entry.description.empty()) {
        char& first = entry.description.front();
        first = static_cast<char>(std::toupper(static_cast<unsigned char>(first)));
    }
    longest_label = std::max(longest_label, static_cast<int>(entry.label.size()));
    const auto place = std::find_if(queue.begin(), queue.end(),
                                    [&](const queue_entry& queued) { return sorts_before(entry, queued); });
    queue.insert(place, std::move(entry));
}

int print_queue(columnation columns, sort_method sort, int indent) {
    if (queue.empty()) {
        return 0;
    }
    const int width = queue_width == 0 ? longest_label : std::abs(queue_width);
    std::printf("%s\n", queue_heading.c_str());
    if (columns >= two_columns && queue.size() >= 2) {
        print_two_columns(width);
    } else {
        print_one_column(width, (sort & sort_long_labels_alone) != 0, indent);
    }
    queue_heading.clear();
    queue.clear();
    return 1;
}

void fill_text(FILE* stream, const char* text, const char* indent) {
    const std::string_view all(text);
    const std::size_t margin = std::strlen(indent) + 1;
    const std::size_t room = margin < 80 ? 80 - margin : 0; // columns right of the margin
    const auto is_break = [&](std::size_t i) { return all[i] == ' ' || all[i] == '\n'; };

    std::size_t start = 0;
    std::size_t span_end = room;
    while (start < all.size()) {
        std::size_t end = std::max(std::min(span_end, all.size()), start);
        if (end < all.size() && !is_break(end)) {
            std::size_t back = end;
            while (back > start && !is_break(back)) {
                --back;
            }
            end = back > start ? back : all.find(' ', end); // a word longer than the span goes on to the next blank
        }
        if (end == std::string_view::npos) {
            std::fwrite(all.data() + start, 1, all.size() - start, stream);
            break;
        }
        if (all[start] == '\n') {
            end = start;
            std::fputc('\n', stream);
        } else {
            end = std::min(end, all.find('\n', start));
        }
        std::fwrite(all.data() + start, 1, end - start, stream);
        if (end < all.size() && all[end] == '\n') {
            std::fputc('\n', stream);
        }
        start = end + 1;
        span_end = end + room;
        if (start < all.size()) {
            std::fprintf(stream, "\n%*s", static_cast<int>(margin), "");
        }
    }
    std::fputc('\n', stream);
}
