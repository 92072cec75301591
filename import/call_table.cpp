#include "import/call_table.h"

#include "support/failure.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <span>

namespace {

constexpr std::size_t other_objects_kept = 5;

// The name without what is no part of it: a version ("f@@V1") or the mark of a stub ("f@plt").
std::string_view symbol_of(std::string_view name) {
    return name.substr(0, name.find('@', 1));
}

// Whether a profiler's name is a placeholder for a function whose symbol it did not have.
bool is_placeholder(std::string_view name) {
    const bool is_address = name.size() > 2 && name.starts_with("0x") &&
                            name.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string_view::npos;
    return is_address || name == "(below main)" || name == "[unknown]" || name == "???";
}

// Whether a name has the marks of a demangled one: scopes, template brackets or an argument list.
bool looks_demangled(std::string_view name) {
    const std::size_t bracket = name.find_first_of("(<");
    return name.find("::") != std::string_view::npos || (bracket != std::string_view::npos && bracket > 0 &&
                                                         name.find_first_of(")>", bracket) != std::string_view::npos);
}

std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return b > most - a ? most : a + b;
}

// The hash of a call, in which the two ends differ in their parts.
std::uint32_t hash_of_call(std::uint32_t caller, std::uint32_t callee) {
    return hash_of_pair(caller, ~callee);
}

} // namespace

std::string_view base_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

call_table::call_table(const function_table* binary, std::vector<std::string> objects)
    : binary_(binary), objects_(std::move(objects)) {
    begin_profile();
}

bool call_table::is_wanted_object(std::string_view object) {
    if (objects_.empty()) {
        return true;
    }
    if (object != last_object_) {
        last_object_ = object;
        is_last_wanted_ = std::find(objects_.begin(), objects_.end(), base_name(object)) != objects_.end();
        if (!is_last_wanted_ && other_objects_.size() < other_objects_kept &&
            std::find(other_objects_.begin(), other_objects_.end(), object) == other_objects_.end()) {
            other_objects_.emplace_back(object);
        }
    }
    return is_last_wanted_;
}

call_table::function call_table::named(std::string_view name, name_form /*form*/) {
    const std::uint32_t number = profile_names_->find_or_add(name);
    if (number == resolved_.size()) {
        resolved_.push_back(resolve(name));
    }
    return resolved_[number];
}

call_table::function call_table::at(std::uint64_t address, std::string_view name, name_form /*form*/) {
    if (binary_ != nullptr) {
        const std::string_view found = binary_->at(address, symbol_of(name));
        if (!found.empty()) {
            ++symbol_count_;
            return keep(found);
        }
    }
    return named(name);
}

void call_table::note_build_id(std::string_view /*build_id*/) {}

call_table::function call_table::resolve(std::string_view name) {
    if (is_placeholder(name)) {
        return unknown;
    }
    ++symbol_count_;
    std::string_view symbol = symbol_of(name);
    if (binary_ != nullptr) {
        const std::string_view defined = binary_->find(name); // some names do have an "@"
        symbol = defined.empty() ? binary_->find(symbol) : defined;
        if (symbol.empty()) {
            demangled_count_ += looks_demangled(name) || binary_->is_demangled(name) ? 1 : 0;
            return outside;
        }
    } else {
        demangled_count_ += looks_demangled(name) ? 1 : 0;
    }
    return keep(symbol);
}

call_table::function call_table::keep(std::string_view name) {
    if (name.empty() || name.starts_with('"') || name.find_first_of(",\n") != std::string_view::npos) {
        unholdable_names_.emplace(name);
        return unholdable;
    }
    const function number = kept_names_.find_or_add(name);
    if (number == functions_.size()) {
        functions_.emplace_back();
    }
    return number;
}

void call_table::add_call(function caller, function callee, std::uint64_t count) {
    if (count == 0) {
        return;
    }
    if (!is_kept(caller) || !is_kept(callee)) {
        std::uint64_t& left_out = left_out_calls_[(is_kept(caller) ? callee : caller) - outside];
        left_out = sum(left_out, count);
        add_run(caller, count);
        add_run(callee, count);
        return;
    }
    if (caller != callee) {
        functions_[caller].has_call = functions_[callee].has_call = true;
        add_pair(caller, callee, count);
    }
}

void call_table::add_run(function f, std::uint64_t count) {
    if (is_kept(f)) {
        functions_[f].was_executed = true;
        add_pair(f, f, count);
    }
}

void call_table::add_pair(function caller, function callee, std::uint64_t count) {
    pair_index_.prefetch(hash_of_call(caller, callee));
    pending_[pending_count_++] = {caller, callee, count};
    if (pending_count_ == pending_.size()) {
        enter_pending_pairs();
    }
}

void call_table::enter_pending_pairs() {
    for (const pair& added : std::span(pending_).first(pending_count_)) {
        const std::uint32_t hash = hash_of_call(added.caller, added.callee);
        const std::uint32_t found = pair_index_.find(hash, [&](std::uint32_t number) {
            return pairs_[number].caller == added.caller && pairs_[number].callee == added.callee;
        });
        if (found != no_index) {
            pairs_[found].count = sum(pairs_[found].count, added.count);
            continue;
        }
        if (pairs_.size() >= no_index) {
            throw failure("more than 4294967294 pairs of functions");
        }
        if (pair_index_.is_full()) {
            pair_index_.refill(
                pairs_.size() * 2, static_cast<std::uint32_t>(pairs_.size()),
                [this](std::uint32_t number) { return hash_of_call(pairs_[number].caller, pairs_[number].callee); });
        }
        pair_index_.insert(hash, static_cast<std::uint32_t>(pairs_.size()));
        pairs_.push_back(added);
    }
    pending_count_ = 0;
}

void call_table::begin_profile() {
    profile_names_ = std::make_unique<call_profile>();
    resolved_.clear();
    symbol_count_ = 0;
    demangled_count_ = 0;
}

void call_table::end_profile(const std::string& profile) {
    enter_pending_pairs();
    if (demangled_count_ * 2 > symbol_count_) {
        throw failure(profile, "the names are demangled, and no linker knows those: profile again with --demangle=no "
                               "(valgrind), or print again with --no-demangle (perf script)");
    }
}

// A pair of a function with itself stands for executions: a row for functions that have no other.
bool call_table::is_row(const pair& p) const {
    return p.caller != p.callee || !functions_[p.caller].has_call;
}

bool call_table::is_empty() const {
    return pairs_.empty();
}

call_table::summary call_table::summarise() const {
    summary result;
    result.left_out_calls = left_out_calls_;
    result.unholdable_names = unholdable_names_.size();
    std::uint64_t largest = 0;
    for (const pair& p : pairs_) {
        if (is_row(p)) {
            largest = std::max(largest, p.count);
            result.calls = p.caller == p.callee ? result.calls : sum(result.calls, p.count);
        }
    }
    for (const kept_function& f : functions_) {
        result.functions += f.has_call || f.was_executed ? 1 : 0;
    }
    result.divisor_bits = static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(largest)) - 32, 0));
    return result;
}

void call_table::write(output_file& out) const {
    const unsigned int divisor_bits = summarise().divisor_bits;
    out.write("\"caller\",\"callee\",\"weight\"\n");
    std::string line;
    visit_rows([&](const row& r) {
        line = kept_names_.name(r.caller);
        line += ',';
        line += kept_names_.name(r.callee);
        line += ',';
        line += std::to_string(std::max<std::uint64_t>(r.count >> divisor_bits, 1));
        line += '\n';
        out.write(line);
    });
}
