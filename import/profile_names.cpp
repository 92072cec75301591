#include "import/profile_names.h"

#include "support/failure.h"

#include <algorithm>

namespace {

// The name without what is no part of it: a version ("f@@V1") or the mark of a stub ("f@plt").
std::string_view symbol_of(std::string_view name) {
    return name.substr(0, name.find('@', 1));
}

// Whether a profiler's name is a word for a function whose symbol it did not have.
bool is_placeholder(std::string_view name) {
    const bool is_address = name.size() > 2 && name.starts_with("0x") &&
                            name.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string_view::npos;
    return is_address || name == "(below main)" || name == "[unknown]" || name == "???";
}

// Whether a name has the marks of a demangled one: scopes, template brackets or an argument list. The brackets of Go's
// methods, "main.(*T).walk", follow a dot and are the linker's own.
bool looks_demangled(std::string_view name) {
    const std::size_t bracket = name.find_first_of("(<");
    const bool is_method = bracket != std::string_view::npos && bracket > 0 && name[bracket - 1] == '.';
    return name.find("::") != std::string_view::npos ||
           (bracket != std::string_view::npos && bracket > 0 && !is_method &&
            name.find_first_of(")>", bracket) != std::string_view::npos);
}

// Whether all functions go by one name, as static ones in several sources do.
bool is_one_name(const std::vector<const linked_function*>& functions) {
    return std::all_of(functions.begin(), functions.end(),
                       [&](const linked_function* f) { return f->name == functions.front()->name; });
}

} // namespace

profile_names::function profile_names::at(std::uint64_t address, std::string_view name, name_form form) {
    if (name.empty() || (form == name_form::any && is_placeholder(name))) {
        const linked_function* const around = binary_ == nullptr ? nullptr : binary_->at(address);
        return around == nullptr ? unknown : pending_at(*around, no_index);
    }
    const std::uint32_t number = entry_of(name, form);
    entry& e = entries_[number];
    if (e.fits == no_index) {
        return e.by_name;
    }
    name_fits& fits = fits_[e.fits];
    if (fits.functions.size() == 1) {
        compare(fits, address);
    } else if (e.needs_address) {
        const linked_function* const around = binary_->at(address);
        if (std::find(fits.functions.begin(), fits.functions.end(), around) != fits.functions.end()) {
            return pending_at(*around, number);
        }
    }
    return by_name(e);
}

// Notes whether an address lies in the function that its name fits. A part that the compiler made of it ("f.cold") may go
// by its name, and the end of a function of unknown size is where the next one begins.
void profile_names::compare(name_fits& fits, std::uint64_t address) {
    compared_count_ += fits.is_compared ? 0 : 1;
    fits.is_compared = true;
    if (fits.lies_elsewhere) {
        return;
    }
    const linked_function& own = *fits.functions.front();
    const linked_function* const around = binary_->at(address);
    const bool is_part = around != nullptr && around->name.size() > own.name.size() &&
                         around->name.starts_with(own.name) && around->name[own.name.size()] == '.';
    const bool is_in_unsized = own.size == 0 && binary_->nearest(address) == &own;
    fits.lies_elsewhere = around != &own && !is_part && !is_in_unsized;
    elsewhere_count_ += fits.lies_elsewhere ? 1 : 0;
}

profile_names::function profile_names::pending_at(const linked_function& lies_in, std::uint32_t number) {
    const auto place = static_cast<std::uint64_t>(&lies_in - binary_->functions().data());
    const auto next = static_cast<function>(first_pending + pending_.size());
    const auto [known, is_new] = pending_numbers_.emplace(place << 32U | number, next);
    if (is_new) {
        if (!is_pending(next)) {
            throw failure("more than 2147483643 functions by address");
        }
        pending_.push_back({&lies_in, number, unknown});
    }
    return known->second;
}

std::uint32_t profile_names::entry_of(std::string_view name, name_form form) {
    const std::uint32_t number = names_->find_or_add(name);
    if (number == entries_.size()) {
        entries_.push_back(resolve(name, form));
    }
    return number;
}

profile_names::entry profile_names::resolve(std::string_view name, name_form form) {
    if (form == name_form::any && is_placeholder(name)) {
        return {unknown};
    }
    ++symbol_count_;
    if (binary_ != nullptr) {
        return name.empty() ? entry{outside} : resolve_in_binary(name);
    }
    if (form == name_form::any && looks_demangled(name)) {
        ++readable_count_;
        return {readable};
    }
    return {keep(form == name_form::any ? symbol_of(name) : name)};
}

profile_names::entry profile_names::resolve_in_binary(std::string_view name) {
    std::string_view symbol = name; // some names do have an "@"
    std::vector<const linked_function*> fits = binary_->find(symbol, known_form::as_it_stands);
    if (fits.empty()) {
        symbol = symbol_of(name);
        fits = binary_->find(symbol, known_form::as_it_stands);
    }
    if (!fits.empty()) {
        const function by_name = keep(is_one_name(fits) ? fits.front()->name : symbol);
        return entry_for(std::move(fits), by_name);
    }
    fits = binary_->find(symbol, known_form::without_additions);
    if (!fits.empty()) {
        const function by_name = is_one_name(fits) ? keep(fits.front()->name) : outside;
        return fits.size() == 1 ? entry{by_name} : entry_for(std::move(fits), by_name); // of another build, most often
    }
    fits = binary_->find(symbol, known_form::demangled);
    if (!fits.empty()) {
        entry result = entry_for(fits, keep(fits.front()->name));
        result.is_unused_guess = result.needs_address;
        return result;
    }
    return {outside};
}

profile_names::entry profile_names::entry_for(std::vector<const linked_function*> fits, function otherwise) {
    entry result = {otherwise};
    result.needs_address = !is_one_name(fits);
    if (result.needs_address || fits.size() == 1) {
        result.fits = static_cast<std::uint32_t>(fits_.size());
        fits_.push_back({std::move(fits)});
    }
    return result;
}

profile_names::function profile_names::keep(std::string_view name) {
    if (name.empty() || name.starts_with('"') || name.find_first_of(",\n") != std::string_view::npos) {
        unholdable_names_.emplace(name);
        return unholdable;
    }
    const function number = kept_.find_or_add(name);
    if (number >= first_pending) {
        throw failure("more than 2147483648 functions");
    }
    return number;
}

void profile_names::note_build_id(std::string_view build_id) {
    if (binary_ != nullptr && !binary_->build_id().empty() && !build_id.empty()) {
        (build_id == binary_->build_id() ? has_equal_build_id_ : has_other_build_id_) = true;
    }
}

bool profile_names::is_of_another_build() const {
    return has_other_build_id_ ||
           (!has_equal_build_id_ && elsewhere_count_ >= 3 && elsewhere_count_ > compared_count_ / 50);
}

void profile_names::begin_profile() {
    names_ = std::make_unique<call_profile>();
    entries_.clear();
    fits_.clear();
    pending_.clear();
    pending_numbers_.clear();
    symbol_count_ = readable_count_ = guess_count_ = compared_count_ = elsewhere_count_ = 0;
    is_complete_ = has_equal_build_id_ = has_other_build_id_ = false;
}

std::vector<std::string> profile_names::end_profile(const std::string& profile) {
    if (readable_count_ * 2 > symbol_count_) {
        throw failure(profile, "the names are demangled, and no linker knows those: name the program with --binary, or "
                               "profile again with --demangle=no (valgrind), or print again with --no-demangle (perf "
                               "script)");
    }
    const auto number = [](std::uint64_t n) { return std::to_string(n); };
    const bool is_other = is_of_another_build();
    for (pending_function& p : pending_) {
        p.final = !is_other ? keep(p.lies_in->name) : p.entry == no_index ? outside : by_name(entries_[p.entry]);
    }
    is_complete_ = true;
    std::vector<std::string> told;
    if (is_other) {
        told.push_back(profile + " was recorded with another build of " + binary_->path() +
                       (has_other_build_id_ ? ""
                                            : ": " + number(elsewhere_count_) + " of " + number(compared_count_) +
                                                  " functions lie elsewhere") +
                       "; taken by name");
    }
    if (readable_count_ != 0) {
        told.push_back(profile + ": left out " + number(readable_count_) +
                       " demangled names, which no linker knows: name the program with --binary, or record without "
                       "demangling");
    }
    if (guess_count_ != 0) {
        told.push_back(profile + ": " + number(guess_count_) +
                       " demangled names fit several functions; taken is the lowest that is no clone");
    }
    return told;
}
