#include "ORDWELL/fast_merge_places.h"

#include "support/assertion.h"

#include <utility>

edge_places::edge_places(huge_vector<call_edge>& edges, huge_vector<group>& groups)
    : edges_(edges), groups_(groups), last_moves_(groups.size(), -1), moved_(edges.size()),
      clock_(static_cast<std::int32_t>(edges.size())) {
    internal_assert(edges.size() < order_limit, "ORDWELL/fast_merge_places", "edge_places", "edge count < 2^30");
}

// The next time or sequence number.
std::int32_t edge_places::next_time() {
    internal_assert(clock_ < order_limit - 1, "ORDWELL/fast_merge_places", "next_time", "time < 2^30");
    return clock_++;
}

void edge_places::keep(std::uint32_t number, std::uint32_t ending) {
    call_edge& e = edges_[number];
    const bool was_joint = e.order == joint;
    settle_first_end(e);
    if (!was_joint && e.first_end() != ending) {
        return;
    }
    const place at = of(number);
    if (e.first_end() == ending) {
        moved_[number] = at.moved;
        e.order = order_of(at.sequence, false);
        if (was_joint) {
            note_stray(number, e.end[1]);
        }
    } else {
        e.order = order_of(at.sequence, true);
    }
}

void edge_places::copy(std::uint32_t from, std::uint32_t to) {
    edges_[to].order = edges_[from].order;
    if ((edges_[from].order & follows_no_one) != 0) {
        moved_[to] = moved_[from];
    }
}

void edge_places::move_to_back(std::uint32_t number, std::uint32_t survivor) {
    call_edge& e = edges_[number];
    const std::uint32_t neighbour = e.other_end(survivor);
    if (!is_stray(e, neighbour)) {
        note_stray(number, neighbour);
    }
    e.set_first_end(survivor);
    e.order = order_of(next_time(), true);
}

void edge_places::note(std::uint32_t number, std::uint32_t end) {
    if (is_stray(edges_[number], end)) {
        note_stray(number, end);
    }
}

// Lists an edge among a group's strays, if the group keeps such a list.
void edge_places::note_stray(std::uint32_t number, std::uint32_t of) {
    if (has_moved(of)) {
        strays_of(of).numbers.push_back(number);
        ++work_;
    }
}

void edge_places::move_all_to_back(std::uint32_t group, std::span<const std::uint32_t> numbers) {
    if (!has_moved(group)) {
        groups_[group].strays = static_cast<std::uint32_t>(strays_.size());
        strays_.emplace_back();
    }
    const std::vector<std::uint32_t> listed = std::exchange(strays_of(group).numbers, {});
    moving_.clear();
    for (const std::span<const std::uint32_t> looked_at : {numbers, std::span<const std::uint32_t>(listed)}) {
        visit_live(edges_, looked_at, [&](std::uint32_t number, const call_edge& e) {
            if (is_stray(e, group)) {
                moving_.push_back({number, e.other_end(group), of(number)});
            }
        });
        work_ += looked_at.size();
    }
    // The youngest first, so that sequence numbers before all others can be handed out downwards.
    std::sort(moving_.begin(), moving_.end(), [](const stray& a, const stray& b) { return a.at > b.at; });
    for (const stray& s : moving_) {
        if (is_stray(edges_[s.number], group)) { // else it was listed twice
            adopt(s, group);
        }
    }
    internal_assert(strays_of(group).front_sequence > -order_limit, "ORDWELL/fast_merge_places", "move_all_to_back",
                    "sequence > -2^30");
    last_moves_[group] = next_time();
}

// Makes a stray follow a group that is about to move.
void edge_places::adopt(const stray& s, std::uint32_t group) {
    call_edge& e = edges_[s.number];
    const bool is_older = s.at.moved < last_moves_[group];
    if (!is_stray(e, s.neighbour)) {
        if (!is_older && s.at.moved == last_moves_[s.neighbour]) {
            e.order = joint;
            return;
        }
        note_stray(s.number, s.neighbour);
    }
    e.set_first_end(group);
    e.order = order_of(is_older ? --strays_of(group).front_sequence : s.at.moved, true);
}

void edge_places::forget(std::uint32_t group) {
    if (groups_[group].strays != no_index) { // has moved, as is seen where the group is looked at anyway
        strays_of(group) = {};
    }
}
