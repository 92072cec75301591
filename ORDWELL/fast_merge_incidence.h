// The edges of each group of fast merging, in lists that grow by whole lists.
//
// At the start, one array holds the edges of vertex after vertex. A merge hangs what is left of the smaller side's
// edges on to the larger side's list, as one more segment of it. With edges 0 (a,hub), 1 (b,hub), 2 (a,b), where a is
// merged into hub and edge 2 is folded into edge 1,
//
//     a  0 2     b  1 2     hub  0 1          becomes     b  1 2     hub  0 1
//
// and nothing has moved. If edge 2 were left, as an edge between hub and b, it would be written where a's edges began,
// as the second segment of hub's list: "0 1, then 2". Edges that are gone, into another or inside a chain, stay listed
// until their list is the smaller one: whoever looks at a list passes over them.
//
// Cost. A list is looked at as a whole when it is the smaller of two, and then ends. Take, over all lists, the sum of
// entries x log2(entries), at most 2 x edges x log2(2 x edges). A list of s entries, m of which are left, hung on to one
// of at least s, makes the sum grow by at least m, less what the s - m dropped ones had, which are dropped once. So
// at most some 4 x edges x log2(2 x edges) entries are ever looked at; on call graphs of real shape it is less than
// twice the edges. Room: where the edges of the smaller list began there is most often room for those left; else they
// go to the end of the array, which may grow as that sum does, and on real call graphs grows by a few per cent.
#pragma once

#include "ORDWELL/call_profile.h"
#include "ORDWELL/fast_merge_group.h"
#include "support/huge_pages.h"
#include "support/prefetch.h"

#include <algorithm>
#include <span>
#include <vector>

class incidence_lists {
public:
    /// Lists the edges, by their numbers, at both of their ends, and enters the lists into the groups.
    incidence_lists(std::span<const call_edge> edges, huge_vector<group>& groups);

    /// The edges of a list, those gone included; valid until the next call and until edges are attached.
    std::span<const std::uint32_t> edges_of(const edge_list& list);

    /// Hangs edges that were listed in `from`, `numbers_of(i)` for i from 0 to `count` - 1, on to `kept`.
    template <typename NumberOf>
    void attach(edge_list& kept, const edge_list& from, std::size_t count, NumberOf number_of) {
        if (count == 0) {
            return;
        }
        const segment added = room_for(count, from);
        for (std::size_t i = 0; i < count; ++i) {
            incident_[added.begin + i] = number_of(i);
        }
        append(kept, added);
    }

    /// The first edges of a list, at most so many: what is cheap to know of them before they are asked for.
    std::span<const std::uint32_t> first_edges(const edge_list& list, std::uint32_t most) const {
        return std::span(incident_).subspan(list.first.begin, std::min(list.first.end - list.first.begin, most));
    }
    /// Brings where the first edges of a list stand into the cache.
    void prefetch(const edge_list& list) const { prefetch_line(incident_.data() + list.first.begin); }

    /// How many entries have been looked at or written since the start.
    std::uint64_t work() const { return work_; }

private:
    segment room_for(std::size_t count, const edge_list& from);
    void append(edge_list& kept, const segment& added);

    huge_vector<std::uint32_t> incident_; ///< edge numbers, segment after segment
    std::vector<segment> segments_;       ///< those that are not a list's first
    std::vector<std::uint32_t> listed_;   ///< what edges_of() gave of a list of several segments
    std::uint64_t work_ = 0;
};
