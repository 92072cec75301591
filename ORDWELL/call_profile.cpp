#include "ORDWELL/call_profile.h"

#include "support/assertion.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::size_t batch_rows = 48; // rows whose memory accesses overlap; more would not fit the first-level cache

} // namespace

call_profile::call_profile(const call_profile& other)
    : name_index_(other.name_index_), edges_(other.edges_), pair_index_(other.pair_index_),
      has_pair_index_(other.has_pair_index_), row_count_(other.row_count_), all_calls_(other.all_calls_),
      has_weightless_edge_(other.has_weightless_edge_) {
    handles_.reserve(other.handles_.size());
    for (std::uint32_t function = 0; function < other.function_count(); ++function) {
        append_name(other.name(function)); // its handle is the same, so the index is, too
    }
}

void call_profile::append_name(std::string_view name) {
    handles_.push_back(names_.add(name, function_count()));
}

std::uint32_t call_profile::find(std::string_view name) const {
    return find_hashed(name, hash_of_bytes(name));
}

std::uint32_t call_profile::find_or_add(std::string_view name) {
    return find_or_add_hashed(name, hash_of_bytes(name));
}

std::uint32_t call_profile::find_hashed(std::string_view name, std::uint32_t hash) const {
    const std::uint32_t found =
        name_index_.find(hash, [&](std::uint32_t handle) { return names_.at(handle).name() == name; });
    return found == no_index ? no_index : names_.at(found).number();
}

std::uint32_t call_profile::find_or_add_hashed(std::string_view name, std::uint32_t hash) {
    const std::uint32_t found = find_hashed(name, hash);
    if (found != no_index) {
        return found;
    }
    internal_assert(handles_.size() < no_index, "ORDWELL/call_profile", "find_or_add", "function count < 4294967295");
    const std::uint32_t added = function_count();
    append_name(name);
    if (name_index_.is_full()) {
        name_index_.refill(handles_.size() * 3, added, [this](std::uint32_t function) {
            const std::uint32_t handle = handles_[function];
            return hash_index::entry{hash_of_bytes(names_.at(handle).name()), handle};
        });
    }
    name_index_.insert(hash, handles_[added]);
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
        const auto [first, second] = edges_[number].end;
        return hash_index::entry{hash_of_pair(first, second), number};
    });
    has_pair_index_ = true;
}

void call_profile::add_edge(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight) {
    add_edge_hashed(caller, callee, weight, hash_of_pair(caller, callee));
}

void call_profile::add_edge_hashed(std::uint32_t caller, std::uint32_t callee, std::uint32_t weight,
                                   std::uint32_t hash) {
    has_weightless_edge_ |= weight == 0;
    all_calls_ = saturating_sum(all_calls_, weight);
    if (!has_pair_index_) {
        index_pairs(grown_edge_count());
    }
    const std::uint32_t found =
        pair_index_.find(hash, [&](std::uint32_t number) { return edges_[number].joins(caller, callee); });
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
    edges_.push_back({{caller, callee}, weight, static_cast<std::uint32_t>(edges_.size())});
}

void call_profile::add_rows(std::span<const call_row> rows) {
    struct name_look_up {
        std::string_view name;
        std::uint32_t hash;
        std::uint32_t found; // the handle of what it most probably is, then the function
    };
    struct row_look_up {
        std::size_t caller, callee; // in the array of names
        std::uint32_t hash;         // of the pair
    };
    std::array<name_look_up, 2 * batch_rows> names;
    std::array<row_look_up, batch_rows> pairs;
    row_count_ += rows.size();

    while (!rows.empty()) {
        const std::span<const call_row> batch = rows.first(std::min(rows.size(), batch_rows));
        rows = rows.subspan(batch.size());

        std::size_t name_count = 0;
        const auto look_up = [&](std::string_view name) {
            names[name_count] = {name, hash_of_bytes(name), no_index};
            name_index_.prefetch(names[name_count].hash);
            return name_count++;
        };
        for (std::size_t i = 0; i < batch.size(); ++i) {
            // Profiles are often grouped by caller: then the last caller is the next.
            const bool same_caller = i > 0 && batch[i].caller == batch[i - 1].caller;
            pairs[i].caller = same_caller ? pairs[i - 1].caller : look_up(batch[i].caller);
            pairs[i].callee = look_up(batch[i].callee);
        }
        const std::span<name_look_up> looked_up = std::span(names).first(name_count);
        for (name_look_up& n : looked_up) {
            n.found = name_index_.find(n.hash, [](std::uint32_t) { return true; });
            if (n.found != no_index) {
                const name_store::entry& entry = names_.at(n.found);
                prefetch_line(&entry);
                prefetch_line(&entry + 1 + n.name.size() / sizeof(entry)); // where it ends, if it is that name
            }
        }
        for (name_look_up& n : looked_up) {
            const name_store::entry* const entry = n.found == no_index ? nullptr : &names_.at(n.found);
            n.found =
                entry != nullptr && entry->name() == n.name ? entry->number() : find_or_add_hashed(n.name, n.hash);
        }
        for (row_look_up& pair : std::span(pairs).first(batch.size())) {
            pair.hash = hash_of_pair(names[pair.caller].found, names[pair.callee].found);
            pair_index_.prefetch(pair.hash);
        }
        for (std::size_t i = 0; i < batch.size(); ++i) {
            const std::uint32_t caller = names[pairs[i].caller].found;
            const std::uint32_t callee = names[pairs[i].callee].found;
            if (caller != callee) {
                add_edge_hashed(caller, callee, batch[i].weight, pairs[i].hash);
            }
        }
    }
}
