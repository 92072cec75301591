#include "import/call_table.h"

#include "ORDWELL/order_file.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace {

constexpr std::size_t other_objects_kept = 5;

// Sets a bit, which is added when it is missing; whether it was not set.
bool set_bit(std::vector<bool>& bits, std::size_t place) {
    if (place >= bits.size()) {
        bits.resize(place + 1);
    }
    const bool is_new = !bits[place];
    bits[place] = true;
    return is_new;
}

} // namespace

std::string_view base_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0
}

call_table::call_table(const function_table* binary, std::vector<std::string> objects)
    : names_(binary), objects_(std::move(objects)) {}

bool call_table::is_wanted_object(std::string_view object) {
    if (objects_.empty()) {
        if (object != last_object_) {
            has_several_objects_ = has_several_objects_ || !last_object_.empty();
            last_object_ = object;
        }
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

void call_table::add_call(function caller, function callee, std::uint64_t count) {
    if (count == 0) {
        return;
    }
    if (!profile_names::is_kept(caller) || !profile_names::is_kept(callee)) {
        std::uint64_t& left_out = left_out_calls_[(profile_names::is_kept(caller) ? callee : caller) - outside];
        left_out = saturating_count(left_out, count);
        add_run(caller, count);
        add_run(callee, count);
    } else if (caller != callee) {
        current_pairs().add(caller, callee, count);
    }
}

void call_table::add_run(function f, std::uint64_t count) {
    if (profile_names::is_kept(f)) {
        current_pairs().add(f, f, count);
    }
}

void call_table::note_first_run(function f) {
    if (keeps_first_run_ && profile_names::is_kept(f)) {
        const bool is_pending = profile_names::is_pending(f);
        if (set_bit(is_noted_[is_pending ? 1 : 0], is_pending ? f - profile_names::first_pending : f)) {
            noted_run_.push_back(f);
        }
    }
}

// Chains are numbered from 1; when the numbers are used up, it begins anew.
void call_table::begin_chain() {
    if (++chain_ == 0) {
        last_chain_ = {};
        chain_ = 1;
    }
}

// Whether a function that may be kept stands in the current chain for the first time.
bool call_table::is_new_in_chain(function f) {
    if (!profile_names::is_kept(f)) {
        return false;
    }
    const bool is_pending = profile_names::is_pending(f);
    const std::size_t place = is_pending ? f - profile_names::first_pending : f;
    std::vector<std::uint32_t>& last = last_chain_[is_pending ? 1 : 0];
    if (place >= last.size()) {
        last.resize(is_pending ? names_.pending_count() : names_.kept_count());
    }
    const bool is_new = last[place] != chain_;
    last[place] = chain_;
    return is_new;
}

void call_table::begin_profile() {
    names_.begin_profile();
    last_chain_[1].clear();
    noted_run_.clear();
    is_noted_ = {};
}

void call_table::end_profile(const std::string& profile) {
    for (std::string& line : names_.end_profile(profile)) {
        tell(std::move(line));
    }
    settle_pending_pairs();
    settle_first_run();
    pairs_.complete();
}

void call_table::settle_first_run() {
    for (const function noted : noted_run_) {
        const function f = names_.final(noted);
        if (profile_names::is_kept(f) && set_bit(has_run_, f)) {
            first_run_.push_back(f);
        }
    }
}

// Adds the pairs of the profile to all, now that it is known what its functions are.
void call_table::settle_pending_pairs() {
    pending_pairs_.complete();
    const pair_table settled = std::exchange(pending_pairs_, pair_table());
    for (const counted_pair& p : settled.pairs()) {
        const function caller = names_.final(p.caller);
        const function callee = names_.final(p.callee);
        if (p.caller == p.callee) {
            add_run(caller, p.count);
        } else {
            add_call(caller, callee, p.count);
        }
    }
}

bool call_table::is_empty() const {
    return pairs_.pairs().empty();
}

// By number, whether a function is in a row with another.
std::vector<bool> call_table::functions_with_calls() const {
    std::vector<bool> has_call(names_.kept_count());
    for (const counted_pair& p : pairs_.pairs()) {
        if (p.caller != p.callee) {
            has_call[p.caller] = has_call[p.callee] = true;
        }
    }
    return has_call;
}

call_table::summary call_table::summarise() const {
    summary result;
    result.left_out_calls = left_out_calls_;
    result.unholdable_names = names_.unholdable_count();
    const std::vector<bool> has_call = functions_with_calls();
    result.functions = static_cast<std::uint64_t>(std::count(has_call.begin(), has_call.end(), true));
    std::uint64_t largest = 0;
    visit_rows([&](const counted_pair& p) {
        largest = std::max(largest, p.count);
        result.functions += p.caller == p.callee ? 1 : 0;
        result.calls = saturating_count(result.calls, p.caller == p.callee ? 0 : p.count);
    });
    result.divisor_bits = static_cast<unsigned int>(std::max(static_cast<int>(std::bit_width(largest)) - 32, 0));
    return result;
}

void call_table::write(output_file& out) const {
    const unsigned int divisor_bits = summarise().divisor_bits;
    out.write("\"caller\",\"callee\",\"weight\"\n");
    std::string line;
    visit_rows([&](const counted_pair& p) {
        line = names_.name(p.caller);
        line += ',';
        line += names_.name(p.callee);
        line += ',';
        line += std::to_string(std::max<std::uint64_t>(p.count >> divisor_bits, 1));
        line += '\n';
        out.write(line);
    });
}

void call_table::write_first_run(output_file& out) const {
    std::string line;
    for (const function f : first_run_) {
        line = order_line_start;
        line += names_.name(f);
        line += order_line_end;
        line += '\n';
        out.write(line);
    }
}
