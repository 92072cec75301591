#include "ORDWELL/fast_merge_edges.h"

void edges_by_pair::unset_giant(std::span<const std::uint32_t> numbers, bool ends) {
    const std::uint32_t former = std::exchange(giant_, no_index);
    visit_live(edges_, numbers, [&](std::uint32_t number, const call_edge& e) {
        const std::uint32_t neighbour = e.other_end(former);
        of_giant_[neighbour] = no_index;
        if (!ends) {
            insert_hashed(number, hash_of_pair(former, neighbour));
        }
    });
    work_ += numbers.size();
}

void edges_by_pair::set_giant(std::uint32_t group, std::span<const std::uint32_t> numbers) {
    giant_ = group;
    of_giant_[group] = no_index; // it may be joined to the former giant by an edge that is gone
    visit_live(edges_, numbers,
               [&](std::uint32_t number, const call_edge& e) { of_giant_[e.other_end(group)] = number; });
    work_ += numbers.size();
}

void edges_by_pair::insert_hashed(std::uint32_t number, std::uint32_t pair_hash) {
    if (hashed_.is_full()) { // of former groups, mostly
        hashed_.reset(std::max(hashed_.room(), edges_.size() + edges_.size() / 2));
        for (std::uint32_t i = 0; i < edges_.size(); ++i) {
            const call_edge& e = edges_[i];
            if (e.weight != 0 && i != number && e.end[0] != giant_ && e.end[1] != giant_) {
                hashed_.insert(hash_of_pair(e.end[0], e.end[1]), i);
            }
        }
        work_ += edges_.size();
    }
    hashed_.insert(pair_hash, number);
}
