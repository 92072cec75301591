// "callgrind": what valgrind --tool=callgrind writes. Format: "Callgrind Format Specification" in valgrind's manual.
//
//     positions: line                    what stands before the costs of a line
//     ob=(1) /usr/bin/app                the functions that follow are of this object,
//     fl=(1) main.c                      of this source file,
//     fn=(1) main                        and this one's costs follow
//     16 400
//     cfn=(2) f                          the next call goes to f
//     calls=10 50                        10 calls, to line 50,
//     16 800                             made from line 16, whose inclusive cost is 800
//     fn=(2)                             f again, by its number
//     +5 20                              positions may be relative to those of the line before
//
// Only names and calls matter here. "(2) f" defines a number in one of three name spaces (objects, files, functions), and
// "(2)" stands for it; jfn and jfi of jump lines define numbers too. Numbers hold for all parts of a file. With
// --dump-instr=yes positions begin with a link-time address, which says what a name leaves open (import/profile_names.h):
// that of a call's line is in the caller, and the target of "calls=" is the callee's.
//
// A file may have several parts, each from "part:" to "totals:", by thread or as the run was asked for them. One that ends
// without that line was cut off, or the run is not over.
#include "import/first_run.h"
#include "import/profile_format.h"
#include "support/failure.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include <charconv>
#include <optional>
#include <string>
#include <vector>

namespace {

/// One of the name spaces: names by their numbers, and all of them by place.
class name_space {
public:
    /// The place of the name that "(2) f", "(2)" or "f" stands for; none for a number that was never defined.
    std::optional<std::uint32_t> place_of(std::string_view text) {
        std::uint32_t number = 0;
        const std::size_t bracket = text.starts_with('(') ? text.find(')') : std::string_view::npos;
        if (bracket == std::string_view::npos || !parse_number(text.substr(1, bracket - 1), number)) {
            return names_.find_or_add(text);
        }
        text.remove_prefix(bracket + 1);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (!text.empty()) {
            return by_number_[number] = names_.find_or_add(text);
        }
        const auto known = by_number_.find(number);
        return known == by_number_.end() ? std::nullopt : std::optional(known->second);
    }

    std::string_view name(std::uint32_t place) const { return names_.name(place); }

    /// Forgets the numbers, which the next file defines anew.
    void forget_numbers() { by_number_.clear(); }

private:
    static bool parse_number(std::string_view text, std::uint32_t& number) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        return error == std::errc() && end == text.data() + text.size();
    }

    boost::unordered_flat_map<std::uint32_t, std::uint32_t> by_number_;
    call_profile names_; ///< numbers them by place
};

/// The name without the mark of a recursion level, "fib'2".
std::string_view without_recursion(std::string_view name) {
    const std::size_t mark = name.rfind('\'');
    const bool is_level = mark != std::string_view::npos && mark > 0 && mark + 1 < name.size() &&
                          name.find_first_not_of("0123456789", mark + 1) == std::string_view::npos;
    return is_level ? name.substr(0, mark) : name;
}

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls) {}

    void run() {
        for (std::string_view line; profile_.next_line(line);) {
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
            if (line.empty() || line.front() == '#') {
                continue;
            }
            if (!profile_.has_line_feed() && ends_with_totals_ && is_part_open_ && !line.starts_with("totals:")) {
                fail_cut_off();
            }
            const char first = line.front();
            if ((first >= '0' && first <= '9') || first == '+' || first == '-' || first == '*') {
                read_costs(line);
            } else if (!read_specification(line)) {
                read_header_line(line);
            }
        }
        expect_end_of_part();
        end_part_in_time();
        if (calls_.keeps_first_run() && dumps_ < 2) {
            throw failure(profile_.name(),
                          std::string("one part only, which does not tell when functions ran: ") + how_to_record_time);
        }
        if (calls_.keeps_first_run() && is_end_missing_) {
            calls_.tell(profile_.name() +
                        ": the program's end is missing: what first ran after the last part is not in order");
        }
    }

private:
    /// A function with the object that it belongs to, by place.
    struct located {
        std::uint32_t function;
        std::uint32_t object;
    };

    // Lines of the form "KEY: VALUE".
    void read_header_line(std::string_view line) {
        if (line.find(':') == std::string_view::npos) {
            profile_.fail("not a line of the callgrind format");
        }
        if (line.starts_with("version:")) { // of another file behind this one
            expect_end_of_part();
            ends_with_totals_ = false;
            objects_.forget_numbers();
            files_.forget_numbers();
            functions_.forget_numbers();
        } else if (line.starts_with("creator: callgrind-")) {
            ends_with_totals_ = true;
        } else if (line.starts_with("part:")) {
            expect_end_of_part();
            end_part_in_time();
            dumps_ += line != last_part_ ? 1 : 0; // those of several threads have one number
            last_part_ = line;
            has_function_ = false;
            object_ = no_object;
        } else if (line.starts_with("positions:")) {
            has_addresses_ = line.find("instr") != std::string_view::npos;
            is_part_open_ = true;
        } else if (line.starts_with("totals:")) {
            is_part_open_ = false;
        } else if (line.starts_with("desc: Trigger: ")) { // why the part was written
            is_end_missing_ = line.find("--dump-every-bb=") != std::string_view::npos;
        }
    }

    void expect_end_of_part() {
        if (has_pending_call_) {
            profile_.fail("ends before the costs of the last call");
        }
        if (ends_with_totals_ && is_part_open_) {
            fail_cut_off();
        }
        is_part_open_ = false;
    }

    [[noreturn]] void fail_cut_off() const {
        profile_.fail("cut off: what callgrind writes ends with a line \"totals:\"");
    }

    // Costs: positions, then counts. Those of a function show that it ran; those behind "calls=" complete the call.
    void read_costs(std::string_view line) {
        if (has_addresses_ && calls_.binary() != nullptr) {
            address_ = read_address(take_word(line));
        }
        if (has_jump_) { // where the jump was made from
            has_jump_ = false;
            return;
        }
        if (!has_function_) {
            profile_.fail("costs without a function");
        }
        if (!is_current_known_) {
            current_ = number_of(current_function_, address_);
            is_current_known_ = true;
            current_node_ = node_of(current_function_, current_);
        }
        if (has_pending_call_) {
            has_pending_call_ = false;
            calls_.add_call(current_, callee_, call_count_);
            if (calls_.keeps_first_run()) {
                part_.add_call(current_node_, callee_node_);
            }
        } else if (!has_run_) {
            calls_.add_run(current_, 0);
            has_run_ = true;
        }
    }

    // An address: absolute, relative to that of the last cost line, or "*", the same.
    std::uint64_t read_address(std::string_view text) const {
        const bool is_relative = text.starts_with('+') || text.starts_with('-');
        std::uint64_t value = 0;
        if (text == "*") {
            return address_;
        }
        if (!parse_hexadecimal_or_decimal(is_relative ? text.substr(1) : text, value)) {
            profile_.fail("a position that is no number");
        }
        return !is_relative ? value : text.front() == '+' ? address_ + value : address_ - value;
    }

    static bool parse_hexadecimal_or_decimal(std::string_view text, std::uint64_t& value) {
        const bool is_hexadecimal = text.starts_with("0x");
        text.remove_prefix(is_hexadecimal ? 2 : 0);
        return is_hexadecimal ? parse_hexadecimal(text, value) : parse_count(text, value);
    }

    // Lines of the form KEY=VALUE; false for others.
    bool read_specification(std::string_view line) {
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            return false;
        }
        const std::string_view key = line.substr(0, equals);
        std::string_view value = line.substr(equals + 1);
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        if (key == "fn") {
            current_function_ = {place_in(functions_, value), object_};
            has_function_ = true;
            is_current_known_ = has_run_ = false;
        } else if (key == "ob") {
            object_ = place_in(objects_, value);
        } else if (key == "cob") {
            called_object_ = place_in(objects_, value);
        } else if (key == "cfn") {
            called_function_ = place_in(functions_, value);
        } else if (key == "jfn") {
            place_in(functions_, value);
        } else if (key == "fl" || key == "fi" || key == "fe" || key == "cfi" || key == "cfl" || key == "jfi") {
            place_in(files_, value);
        } else if (key == "calls") {
            read_call(value);
        } else if (key == "jump" || key == "jcnd") {
            has_jump_ = true;
        } else {
            return false;
        }
        return true;
    }

    std::uint32_t place_in(name_space& names, std::string_view text) const {
        const std::optional<std::uint32_t> place = names.place_of(text);
        if (!place.has_value()) {
            profile_.fail("a name by a number that was not defined");
        }
        return *place;
    }

    void read_call(std::string_view value) {
        if (!called_function_.has_value()) {
            profile_.fail("calls without a called function");
        }
        if (!parse_hexadecimal_or_decimal(take_word(value), call_count_)) {
            profile_.fail("a number of calls that is none");
        }
        std::uint64_t target = 0;
        if (has_addresses_ && calls_.binary() != nullptr) {
            target = read_address(take_word(value));
        }
        const located callee = {*called_function_, called_object_.value_or(object_)};
        callee_ = number_of(callee, target);
        callee_node_ = node_of(callee, callee_);
        called_function_.reset();
        called_object_.reset();
        has_pending_call_ = true;
    }

    // The number under which a function is counted; `address` is one in it, where the profile has addresses. One name may be
    // that of several functions, so what depends on the address is asked for anew each time.
    call_table::function number_of(const located& l, std::uint64_t address) {
        const auto [entry, is_new] = numbers_.emplace(std::uint64_t{l.function} << 32U | l.object, call_table::unknown);
        if (is_new || (has_addresses_ && profile_names::depends_on_address(entry->second))) {
            const std::string_view name = without_recursion(functions_.name(l.function));
            if (l.object != no_object && !calls_.is_wanted_object(objects_.name(l.object))) {
                entry->second = call_table::outside;
            } else if (has_addresses_ && calls_.binary() != nullptr) {
                // What has no symbol is named after the address where it begins, which tells more than one inside: crt's
                // functions have a start but no size.
                std::uint64_t start = 0;
                const bool tells_start = name.starts_with("0x") && parse_hexadecimal_or_decimal(name, start);
                entry->second = calls_.at(tells_start ? start : address, name);
            } else {
                entry->second = calls_.named(name);
            }
        }
        return entry->second;
    }

    // The number under which a function is put in order. What lies outside has one, too, since calls lead through it.
    std::uint32_t node_of(const located& l, call_table::function number) {
        if (!calls_.keeps_first_run()) {
            return 0;
        }
        const auto next = static_cast<std::uint32_t>(node_functions_.size());
        const auto [entry, is_new] = nodes_.emplace(std::uint64_t{l.function} << 32U | l.object, next);
        if (is_new) {
            node_functions_.push_back(number);
        }
        part_.add_function(entry->second);
        return entry->second;
    }

    void end_part_in_time() {
        for (const std::uint32_t node : part_.take_order()) {
            calls_.note_first_run(node_functions_[node]);
        }
    }

    static constexpr std::uint32_t no_object = 4294967295U;

    profile_input& profile_;
    call_table& calls_;
    name_space objects_;
    name_space files_;
    name_space functions_;
    boost::unordered_flat_map<std::uint64_t, call_table::function> numbers_; ///< by place of function and object
    bool has_addresses_ = false;
    bool ends_with_totals_ = false; ///< callgrind itself wrote this, each part of it with totals at the end
    bool is_part_open_ = false;     ///< they did not come yet
    bool is_end_missing_ = false;   ///< the last part was written in the midst of the run
    part_calls part_;               ///< where the order of first execution is wanted,
    boost::unordered_flat_map<std::uint64_t, std::uint32_t> nodes_; ///< by function and object, the number there,
    std::vector<call_table::function> node_functions_;              ///< and by that number
    std::uint32_t current_node_ = 0;
    std::uint32_t callee_node_ = 0;
    std::string last_part_;     ///< its line
    unsigned int dumps_ = 0;    ///< parts of different times
    std::uint64_t address_ = 0; ///< of the last cost line

    std::uint32_t object_ = no_object;
    located current_function_{}; ///< whose costs follow; valid if has_function_
    bool has_function_ = false;
    call_table::function current_ = 0; ///< its number, if is_current_known_
    bool is_current_known_ = false;
    bool has_run_ = false;                         ///< whether it was noted that it ran
    std::optional<std::uint32_t> called_object_;   ///< of the next call, where it is another object
    std::optional<std::uint32_t> called_function_; ///< of the next call
    call_table::function callee_ = 0;              ///< of the call whose costs come next
    std::uint64_t call_count_ = 0;
    bool has_pending_call_ = false;
    bool has_jump_ = false; ///< whether the next line is where a jump was made from
};

} // namespace

bool is_callgrind(std::string_view head) {
    if (head.starts_with("# callgrind format")) {
        return true;
    }
    while (!head.empty()) { // older files and other tools' lack that line
        const std::string_view line = take_line(head);
        for (const char* const start : {"events:", "positions:", "creator:", "fn=(", "fl=(", "ob=("}) {
            if (line.starts_with(start)) {
                return true;
            }
        }
    }
    return false;
}

void read_callgrind(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
