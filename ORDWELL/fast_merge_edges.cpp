#include "ORDWELL/fast_merge_edges.h"

#include <algorithm>

std::uint32_t edges_by_pair::set_giant(std::uint32_t group) {
    std::fill(of_giant_.begin(), of_giant_.end(), no_index);
    return std::exchange(giant_, group);
}

void edges_by_pair::insert_hashed(std::uint32_t number, std::uint32_t pair_hash) {
    if (hashed_.is_full()) { // of former groups, mostly
        hashed_.reset(std::max(hashed_.room(), edges_.size() + edges_.size() / 2));
        for (std::uint32_t i = 0; i < edges_.size(); ++i) {
            const edge& e = edges_[i];
            if (e.weight != 0 && i != number && e.end[0] != giant_ && e.end[1] != giant_) {
                hashed_.insert(hash_of_pair(e.end[0], e.end[1]), i);
            }
        }
    }
    hashed_.insert(pair_hash, number);
}
