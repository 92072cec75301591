#include "import/pair_table.h"

#include "ORDWELL/call_profile.h"
#include "support/failure.h"

#include <span>

namespace {

// The hash of a pair whose two ends are told apart.
std::uint32_t hash_of(std::uint32_t caller, std::uint32_t callee) {
    return hash_of_pair(caller, ~callee);
}

} // namespace

void pair_table::add(std::uint32_t caller, std::uint32_t callee, std::uint64_t count) {
    index_.prefetch(hash_of(caller, callee));
    pending_[pending_count_++] = {caller, callee, count};
    if (pending_count_ == pending_.size()) {
        complete();
    }
}

void pair_table::complete() {
    for (const counted_pair& added : std::span(pending_).first(pending_count_)) {
        const std::uint32_t hash = hash_of(added.caller, added.callee);
        const std::uint32_t found = index_.find(hash, [&](std::uint32_t number) {
            return pairs_[number].caller == added.caller && pairs_[number].callee == added.callee;
        });
        if (found != no_index) {
            pairs_[found].count = saturating_count(pairs_[found].count, added.count);
            continue;
        }
        if (pairs_.size() >= no_index) {
            throw failure("more than 4294967294 pairs of functions");
        }
        if (index_.is_full()) {
            index_.refill(pairs_.size() * 2, static_cast<std::uint32_t>(pairs_.size()), [this](std::uint32_t number) {
                return hash_index::entry{hash_of(pairs_[number].caller, pairs_[number].callee), number};
            });
        }
        index_.insert(hash, static_cast<std::uint32_t>(pairs_.size()));
        pairs_.push_back(added);
    }
    pending_count_ = 0;
}
