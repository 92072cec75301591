#include "ORDWELL/fast_merge_incidence.h"

#include "support/assertion.h"

#include <utility>

incidence_lists::incidence_lists(std::span<const call_edge> edges, huge_vector<group>& groups) {
    std::vector<std::uint32_t> ends(groups.size()); // of the groups' stretches; counted, then added up
    for (const call_edge& e : edges) {
        ++ends[e.end[0]];
        ++ends[e.end[1]];
    }
    std::uint32_t begin = 0;
    for (std::uint32_t vertex = 0; vertex < groups.size(); ++vertex) {
        edge_list& list = groups[vertex].edges;
        list.entries = std::exchange(ends[vertex], begin);
        list.first = {begin, begin + list.entries, no_index};
        begin += list.entries;
    }
    incident_.reserve(std::size_t{begin} + begin / 16); // attach() adds few
    incident_.resize(begin);
    for (std::uint32_t number = 0; number < edges.size(); ++number) {
        incident_[ends[edges[number].end[0]]++] = number;
        incident_[ends[edges[number].end[1]]++] = number;
    }
}

std::span<const std::uint32_t> incidence_lists::edges_of(const edge_list& list) {
    work_ += list.entries;
    if (list.first.next == no_index) {
        return std::span(incident_).subspan(list.first.begin, list.entries);
    }
    listed_.clear();
    const auto copy = [this](const segment& s) {
        listed_.insert(listed_.end(), incident_.begin() + s.begin, incident_.begin() + s.end);
    };
    copy(list.first);
    for (std::uint32_t s = list.first.next; s != no_index; s = segments_[s].next) {
        copy(segments_[s]);
    }
    return listed_;
}

// Room for so many edges of a list that ends.
segment incidence_lists::room_for(std::size_t count, const edge_list& from) {
    std::uint32_t begin = from.first.begin;
    if (count > from.first.end - begin) {
        internal_assert(incident_.size() + count < no_index, "ORDWELL/fast_merge_incidence", "room_for",
                        "incidences < 2^32 - 1");
        begin = static_cast<std::uint32_t>(incident_.size());
        incident_.resize(begin + count);
    }
    return {begin, begin + static_cast<std::uint32_t>(count), no_index};
}

// Makes a segment the last one of a list.
void incidence_lists::append(edge_list& kept, const segment& added) {
    const auto number = static_cast<std::uint32_t>(segments_.size());
    segments_.push_back(added);
    (kept.last_segment == no_index ? kept.first : segments_[kept.last_segment]).next = number;
    kept.last_segment = number;
    kept.entries += added.end - added.begin;
    work_ += added.end - added.begin;
}
