// Places in creation order, in fast merging: moving all edges of a group to the back at once.
//
// Among edges of equal weight the first in creation order is merged first. When v is merged into u, v's edges go to the
// back of that order, in their old order, as new edges whose first end is u. Where v has few edges they are moved one
// by one; where it has many, they must not be touched. So a place is a pair,
//
//     (time of the last move to the back, sequence number),
//
// and an edge can *follow* its first end, a group g: then its place is (the later of g's last move and its sequence
// number, sequence number). When g moves to the back, one stamp in g moves all its followers, in their order.
//
// The edges of g that do not follow it, its *strays*, are made followers then, each with a sequence number that puts it
// where it stands among them. A stray that moved later than g did gets the time of that move: followers that came to g
// since have later or earlier ones, and no two edges of g have the same, as there is one edge between two groups. A
// stray older than g's last move stands before all followers, so it gets a number below all of theirs.
//
// Example, edges numbered (a,hub) 0, (b,hub) 1, (c,hub) 2 of equal weight: edge 0 is chosen, a survives, hub is larger.
// The edges 1 and 2 were strays of hub, since b and c are their first ends; they get the sequence numbers 1 and 2 and
// follow hub, whose last move is 3. Their places are now (3, 1) and (3, 2): at the back, in order.
//
// A stray that followed its other end, h, and moved when h did, becomes *joint*: it moves with either end. Its place
// is (the later of g's and h's last moves, the earlier of them), which is what following the later one with the time of
// the earlier one as sequence number comes to; and so it stays, whichever moves next. Without this, two groups that
// move in turn would make each other's followers strays, and many such groups with edges between all of them would
// spend their time on that alone.
//
// An edge becomes a stray of g when it comes with a smaller side that survives, and when its other end takes it along
// and it is not joint. A group that has moved keeps a list of its strays; before that, every edge is looked at.
//
// Cost: a move costs what it lists. Every edge of a group is listed once, at the group's first move; later an edge is
// listed when it is rewritten, and at most once more at either end before it is joint. So all lists together are a
// small multiple of the edges rewritten. Times and sequence numbers are of 31 bits, which is asserted. Last moves are
// asked of the groups at the ends of edges, where nothing else of the group is: they stand apart and are small enough
// for the caches.
#pragma once

#include "ORDWELL/fast_merge_edges.h"
#include "ORDWELL/fast_merge_group.h"
#include "ORDWELL/fast_merge_queue.h"

#include <algorithm>
#include <cstdint>

class edge_places {
public:
    /// The edges stand in creation order, as read.
    edge_places(huge_vector<call_edge>& edges, huge_vector<group>& groups);

    /// The place of an edge.
    place of(std::uint32_t number) const {
        const call_edge& e = edges_[number];
        const std::int32_t sequence = static_cast<std::int32_t>(e.order << 1U) >> 1;
        if ((e.order & follows_no_one) != 0) {
            return {moved_[number], sequence};
        }
        const std::int32_t last = last_moves_[e.first_end()];
        if (e.order == joint) {
            const std::int32_t other = last_moves_[e.end[1]];
            return {std::max(last, other), std::min(last, other)};
        }
        return {std::max(last, sequence), sequence};
    }

    /// Makes the first end of an edge what it is: a joint edge has that end first which moved later.
    void settle_first_end(call_edge& e) const {
        if (e.order == joint && last_moves_[e.end[0]] < last_moves_[e.end[1]]) {
            e.set_first_end(e.end[1]);
        }
    }

    /// Before an end of an edge becomes part of another group: keeps the place if it depends on that end's moves.
    void keep(std::uint32_t number, std::uint32_t ending);
    /// Gives one edge the place of another one that keep() was called for; both have the same first end.
    void copy(std::uint32_t from, std::uint32_t to);
    /// Moves an edge to the back, as a new one whose first end is `survivor`.
    void move_to_back(std::uint32_t number, std::uint32_t survivor);
    /// Lists an edge that has come to one of its ends, if it is a stray there.
    void note(std::uint32_t number, std::uint32_t end);

    /// Whether all edges of a group have moved to the back together before.
    bool has_moved(std::uint32_t group) const { return last_moves_[group] >= 0; }
    /// Moves all edges of a group to the back in their order, as edges whose first end it is. These edges are looked
    /// at as well as the listed strays; the first time they must be all.
    void move_all_to_back(std::uint32_t group, std::span<const std::uint32_t> numbers);
    /// Forgets a group that has become part of another one.
    void forget(std::uint32_t group);

    /// How many edges have been listed or looked at since the start.
    std::uint64_t work() const { return work_; }

private:
    /// The strays of a group that has moved.
    struct stray_list {
        std::vector<std::uint32_t> numbers; ///< of all, and of some that are not strays any more
        std::int32_t front_sequence = 0;    ///< no follower has a smaller sequence number
    };
    /// An edge that is about to follow the group that moves.
    struct stray {
        std::uint32_t number;
        std::uint32_t neighbour; ///< the group at its other end
        place at;
    };

    /// Times and sequence numbers stay between the negative of this and this.
    static constexpr std::int32_t order_limit = 1 << 30;

    // An edge's order: the sequence number, without its highest bit, and in that bit whether it follows no one. At the
    // start it is the edge's number, so each edge follows its first end in the order of their creation.
    static constexpr std::uint32_t follows_no_one = 0x80000000U;
    static constexpr std::uint32_t order_of(std::int32_t sequence, bool follows) {
        return (static_cast<std::uint32_t>(sequence) & ~follows_no_one) | (follows ? 0 : follows_no_one);
    }
    static constexpr std::uint32_t joint = 0x40000000U; ///< with the sequence number -2^30, which no other edge has

    bool is_stray(const call_edge& e, std::uint32_t of) const {
        return e.order != joint && ((e.order & follows_no_one) != 0 || e.first_end() != of);
    }
    void note_stray(std::uint32_t number, std::uint32_t of);
    stray_list& strays_of(std::uint32_t group) { return strays_[groups_[group].strays]; }
    void adopt(const stray& s, std::uint32_t group);
    std::int32_t next_time();

    huge_vector<call_edge>& edges_;
    huge_vector<group>& groups_;
    huge_vector<std::int32_t> last_moves_; ///< by group: when all its edges last moved to the back; -1: never
    huge_vector<std::int32_t> moved_; ///< when each edge that follows no one last moved; for others without meaning
    std::vector<stray_list> strays_;
    std::int32_t clock_;        ///< the next unused time and sequence number
    std::vector<stray> moving_; ///< scratch of one move
    std::uint64_t work_ = 0;
};
