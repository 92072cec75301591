#include "ORDWELL/call_profile.h"

#include "support/assertion.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>

namespace {

constexpr std::size_t batch_rows = 48; // rows whose memory accesses overlap; more would not fit the first-level cache

// Eight bytes at a time, the last eight overlapping: twice as fast as the standard library's hash on names of usual length.
// It differs from machine to machine, as nothing depends on it but the place in the index.
std::uint32_t hash_of_name(std::string_view name) {
    std::uint64_t hash = name.size();
    const auto add = [&hash](const char* bytes, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, count);
        hash = (hash ^ word) * 0x9e3779b97f4a7c15U; // 2^64 / the golden ratio
        hash ^= hash >> 32U;
    };
    const char* p = name.data();
    for (std::size_t left = name.size(); left > 8; left -= 8, p += 8) {
        add(p, 8);
    }
    if (name.size() >= 8) {
        add(name.data() + name.size() - 8, 8);
    } else {
        add(p, name.size());
    }
    return static_cast<std::uint32_t>(hash);
}

} // namespace

call_profile::call_profile(const call_profile& other)
    : name_index_(other.name_index_), edges_(other.edges_), pair_index_(other.pair_index_),
      has_pair_index_(other.has_pair_index_), has_weightless_edge_(other.has_weightless_edge_) {
    names_.reserve(other.names_.size());
    for (const std::string_view name : other.names_) {
        append_name(name);
    }
}

void call_profile::append_name(std::string_view name) {
    char* const bytes = static_cast<char*>(name_bytes_.allocate(name.size(), 1));
    std::copy(name.begin(), name.end(), bytes);
    names_.emplace_back(bytes, name.size());
}

std::uint32_t call_profile::find(std::string_view name) const {
    return find_hashed(name, hash_of_name(name));
}

std::uint32_t call_profile::find_or_add(std::string_view name) {
    return find_or_add_hashed(name, hash_of_name(name));
}

std::uint32_t call_profile::find_hashed(std::string_view name, std::uint32_t hash) const {
    return name_index_.find(hash, [&](std::uint32_t function) { return names_[function] == name; });
}

std::uint32_t call_profile::find_or_add_hashed(std::string_view name, std::uint32_t hash) {
    const std::uint32_t found = find_hashed(name, hash);
    if (found != no_index) {
        return found;
    }
    internal_assert(names_.size() < no_index, "ORDWELL/call_profile", "find_or_add", "function count < 4294967295");
    const std::uint32_t added = function_count();
    append_name(name);
    if (name_index_.is_full()) {
        name_index_.refill(names_.size() * 3, added,
                           [this](std::uint32_t function) { return hash_of_name(names_[function]); });
    }
    name_index_.insert(hash, added);
    return added;
}

void call_profile::begin_input() {
    earlier_edges_ = edges_.size();
    expected_edges_ = 0;
}

void call_profile::expect_growth(double factor) {
    constexpr double farthest_guess = 32;
    constexpr double margin = 1.02;
    if (factor <= farthest_guess) {
        const auto added = static_cast<double>(edges_.size() - earlier_edges_);
        expected_edges_ = earlier_edges_ + static_cast<std::size_t>(added * factor * margin);
    }
}

std::size_t call_profile::grown_edge_count() const {
    const std::size_t now = edges_.size();
    return (expected_edges_ == 0 ? now * 2 : std::max(expected_edges_, now / 4 * 5)) + 16;
}

hash_index call_profile::take_pair_index() {
    if (!has_pair_index_) {
        index_pairs(edges_.size());
    }
    has_pair_index_ = false;
    return std::exchange(pair_index_, hash_index());
}

void call_profile::index_pairs(std::size_t room) {
    pair_index_.refill(room, static_cast<std::uint32_t>(edges_.size()), [this](std::uint32_t number) {
        return hash_of_pair(edges_[number].first, edges_[number].second);
    });
    has_pair_index_ = true;
}

void call_profile::add_edge(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight) {
    add_edge_hashed(caller, callee, weight, hash_of_pair(caller, callee));
}

void call_profile::add_edge_hashed(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight,
                                   std::uint32_t hash) {
    has_weightless_edge_ |= weight == 0;
    if (!has_pair_index_) {
        index_pairs(grown_edge_count());
    }
    const std::uint32_t found = pair_index_.find(hash, [&](std::uint32_t number) {
        const call_edge& edge = edges_[number];
        return (edge.first == caller && edge.second == callee) || (edge.first == callee && edge.second == caller);
    });
    if (found != no_index) {
        edges_[found].weight = saturating_sum(edges_[found].weight, weight);
        return;
    }
    internal_assert(edges_.size() < no_index, "ORDWELL/call_profile", "add_edge", "edge count < 4294967295");
    if (edges_.size() == edges_.capacity()) {
        edges_.reserve(grown_edge_count());
    }
    if (pair_index_.is_full()) { // half as many again will come in merging
        index_pairs(grown_edge_count() / 2 * 3);
    }
    pair_index_.insert(hash, static_cast<std::uint32_t>(edges_.size()));
    edges_.push_back({caller, callee, weight});
}

void call_profile::add_rows(std::span<const call_row> rows) {
    struct resolved_row {
        std::uint32_t caller_hash, callee_hash; // of the names
        std::uint32_t caller, callee;           // the functions
        std::uint32_t pair_hash;
        bool same_caller; // as the row before in the batch: profiles are often grouped by caller
    };
    std::array<resolved_row, batch_rows> resolved;

    while (!rows.empty()) {
        const std::span<const call_row> batch = rows.first(std::min(rows.size(), batch_rows));
        rows = rows.subspan(batch.size());

        for (std::size_t i = 0; i < batch.size(); ++i) {
            resolved[i].same_caller = i > 0 && batch[i].caller == batch[i - 1].caller;
            resolved[i].caller_hash =
                resolved[i].same_caller ? resolved[i - 1].caller_hash : hash_of_name(batch[i].caller);
            resolved[i].callee_hash = hash_of_name(batch[i].callee);
            name_index_.prefetch(resolved[i].caller_hash);
            name_index_.prefetch(resolved[i].callee_hash);
        }
        // The function that a name most probably is: the first with the same hash.
        const auto candidate = [&](std::uint32_t hash) {
            const std::uint32_t function = name_index_.find(hash, [](std::uint32_t) { return true; });
            if (function != no_index) {
                prefetch_name(function);
            }
            return function;
        };
        for (std::size_t i = 0; i < batch.size(); ++i) {
            resolved[i].caller = candidate(resolved[i].caller_hash);
            resolved[i].callee = candidate(resolved[i].callee_hash);
        }
        for (std::size_t i = 0; i < batch.size(); ++i) {
            for (const std::uint32_t function : {resolved[i].caller, resolved[i].callee}) {
                if (function != no_index) {
                    prefetch_name_bytes(function);
                }
            }
        }
        const auto function_of = [&](std::uint32_t probable, std::string_view name, std::uint32_t hash) {
            return probable != no_index && names_[probable] == name ? probable : find_or_add_hashed(name, hash);
        };
        for (std::size_t i = 0; i < batch.size(); ++i) {
            resolved[i].caller = resolved[i].same_caller
                                     ? resolved[i - 1].caller
                                     : function_of(resolved[i].caller, batch[i].caller, resolved[i].caller_hash);
            resolved[i].callee = function_of(resolved[i].callee, batch[i].callee, resolved[i].callee_hash);
            resolved[i].pair_hash = hash_of_pair(resolved[i].caller, resolved[i].callee);
            pair_index_.prefetch(resolved[i].pair_hash);
        }
        for (std::size_t i = 0; i < batch.size(); ++i) {
            if (resolved[i].caller != resolved[i].callee) {
                add_edge_hashed(resolved[i].caller, resolved[i].callee, batch[i].weight, resolved[i].pair_hash);
            }
        }
    }
}
