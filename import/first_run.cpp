#include "import/first_run.h"

#include "support/hash_index.h"

#include <utility>

std::uint32_t part_calls::place_of(std::uint32_t function) {
    if (function >= places_.size()) {
        places_.resize(std::size_t{function} + 1, no_index);
    }
    if (places_[function] == no_index) {
        places_[function] = static_cast<std::uint32_t>(functions_.size());
        functions_.push_back(function);
    }
    return places_[function];
}

void part_calls::add_function(std::uint32_t function) {
    place_of(function);
}

void part_calls::add_call(std::uint32_t caller, std::uint32_t callee) {
    const std::uint32_t from = place_of(caller);
    calls_.push_back({from, place_of(callee)});
}

std::vector<std::uint32_t> part_calls::take_order() {
    // The callees of each function side by side, in the order of the file.
    const std::size_t count = functions_.size();
    std::vector<std::uint32_t> first_call(count + 1, 0);
    std::vector<bool> is_called(count);
    for (const call& c : calls_) {
        ++first_call[c.caller + 1];
        is_called[c.callee] = is_called[c.callee] || c.caller != c.callee;
    }
    for (std::size_t i = 0; i < count; ++i) {
        first_call[i + 1] += first_call[i];
    }
    std::vector<std::uint32_t> callees(calls_.size());
    std::vector<std::uint32_t> next(first_call.begin(), first_call.end() - 1);
    for (const call& c : calls_) {
        callees[next[c.caller]++] = c.callee;
    }

    std::vector<bool> has_run(count);
    std::vector<std::uint32_t> order;
    order.reserve(count);
    for (const bool is_root : {true, false}) { // last those that are in cycles only
        for (std::uint32_t place = 0; place < count; ++place) {
            if (!has_run[place] && (!is_called[place] || !is_root)) {
                follow(place, first_call, callees, has_run, order);
            }
        }
    }
    for (const std::uint32_t function : functions_) {
        places_[function] = no_index;
    }
    functions_.clear();
    calls_.clear();
    return order;
}

// In depth first, without recursion: a profile may be as deep as it likes.
void part_calls::follow(std::uint32_t root, std::span<const std::uint32_t> first_call,
                        std::span<const std::uint32_t> callees, std::vector<bool>& has_run,
                        std::vector<std::uint32_t>& order) const {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> path; // a function, and which of its calls is next
    const auto enter = [&](std::uint32_t place) {
        has_run[place] = true;
        order.push_back(functions_[place]);
        path.emplace_back(place, first_call[place]);
    };
    enter(root);
    while (!path.empty()) {
        auto& [place, next] = path.back();
        if (next == first_call[place + 1]) {
            path.pop_back();
            continue;
        }
        const std::uint32_t callee = callees[next++];
        if (!has_run[callee]) {
            enter(callee);
        }
    }
}
