// "perf": the text of perf script, with call chains or with branch stacks (brstacksym), and any list of fields that has ip
// and sym among them.
//
//     app 10606  1570.842829:     250000 cpu-clock:            a sample: command, process, time, event,
//                   1253 fib+0x3 (/tmp/app)                    then its chain, the innermost frame first,
//                   12b2 spin+0x22 (/tmp/app)                  each behind a tab, up to an empty line
//       app.c:17                                               with srcline the line of the frame before
//
//                  app 10613  1572.1: 1 cycles:              1253 fib+0x3 (/tmp/app)      a sample without chain
//                  1253 fib+0x3 (/tmp/app)main+0x5(/tmp/app)/f+0x0(/tmp/app)/P/-/-/0  f+0x9...       and with branches
//
// A branch whose target is a function's first byte is a call. Without branches the innermost pair of the chain counts
// (import/call_table.h). Inlined frames are no functions at run time.
//
//                  1253 0x55d0c0001040/0x55d0c0001100/P/-/-/0  0x55...    with branches of a program without symbols
//
// A profile may hold the samples of several events, which mean different things. Those of one are taken.
//
// perf's addresses are places in the file in chains, and addresses of the running process elsewhere, which mean something
// where the lines of mmap events tell what was loaded where (import/perf_mappings.h). What they tell is asked of
// functions whose names leave it open and, where branches have no symbols, of all.
#include "import/perf_line.h"
#include "import/perf_mappings.h"
#include "import/profile_format.h"
#include "support/failure.h"

#include <algorithm>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr const char* advice = "print again with perf script -F ip,sym,symoff,dso";

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls) {
        if (calls_.binary() != nullptr) {
            mappings_.emplace(*calls_.binary());
        }
        if (profile_.perf() != nullptr) {
            note_perf_data(*profile_.perf());
        }
    }

    void run() {
        for (std::string_view line; profile_.next_line(line);) {
            if (line.empty() || line == "\r") {
                expect_frame(false);
                end_sample();
                is_behind_frame_ = false;
            } else if (line.starts_with('\t')) {
                read_frame(line);
            } else if (line.substr(0, most_before_record).find("PERF_RECORD_") != std::string_view::npos) {
                if (mappings_.has_value()) {
                    mappings_->add(line, calls_.is_wanted_object(perf_mappings::path_in(line)));
                }
                is_whole_ = profile_.has_line_feed() || !perf_mappings::path_in(line).empty();
            } else if (line.starts_with(' ') && (has_sample_ || is_behind_frame_) && read_rest_of_sample(line)) {
                continue;
            } else if (!line.starts_with('#')) {
                read_head(line);
            }
        }
        expect_frame(false);
        end_sample();
        if (!is_whole_) {
            profile_.fail("ends inside a line: cut off");
        }
        if (sample_count_ != 0 && !has_frames_) {
            profile_.fail(std::string("the field ip is missing: ") + advice);
        }
        if (has_bare_addresses_ && !has_symbols_ && flag_count_ == 0) {
            profile_.fail(std::string("the field sym is missing: ") + advice);
        }
        end_events();
        if (!has_calls_ && sample_count_ != 0) {
            calls_.tell(profile_.name() + ": no call chains, so functions get rows to themselves: perf record with -g");
        }
        if (calls_.keeps_first_run()) {
            if (!has_times_) {
                throw failure(profile_.name(),
                              "the field time is missing, without which nothing tells when functions ran: "
                              "print again with perf script -F time,ip,sym,symoff,dso");
            }
            calls_.tell(profile_.name() + ": functions that ran between two samples only are not in the order of first "
                                          "execution");
        }
    }

private:
    /// A branch from one function to another.
    struct branch {
        call_table::function from;
        call_table::function to;
    };

    /// The samples of an event.
    struct event {
        std::string name;
        std::uint64_t samples;
    };

    /// Where a frame stands: outer frames have the address behind their call.
    enum class frame_kind { sampled, innermost, outer };

    // What perf says of the whole file: its builds, and whether it can hold calls.
    void note_perf_data(const perf_data& perf) {
        for (const auto& [build_id, path] : perf.build_ids()) {
            if (calls_.binary() != nullptr && calls_.is_wanted_object(path)) {
                calls_.note_build_id(build_id);
                is_same_build_ |= build_id == calls_.binary()->build_id();
            }
        }
        if (rlimit limit{}; getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
            calls_.tell(profile_.name() +
                        ": memory is limited (ulimit -v), and perf leaves out in silence what has no room");
        }
    }

    void read_frame(std::string_view line) {
        std::uint64_t address = 0;
        if (!take_perf_address(line, address)) {
            profile_.fail("not a frame of perf script");
        }
        expect_frame(true);
        has_sample_ = true;
        add_frame(line, address, frames_.empty() ? frame_kind::innermost : frame_kind::outer);
    }

    void add_frame(std::string_view text, std::uint64_t address, frame_kind kind) {
        const perf_place place = parse_perf_place(text);
        if (place.symbol.empty() && !has_symbols_) {
            profile_.fail(std::string("the field sym is missing: ") + advice);
        }
        has_frames_ = has_symbols_ = is_behind_frame_ = true;
        has_objects_ |= !place.object.empty() && place.object != "inlined";
        is_whole_ = !place.symbol.empty() && (!place.object.empty() || !has_objects_);
        if (place.object != "inlined" && !is_skipped_) {
            frames_.push_back(number_of(place, address, kind));
        }
    }

    // Lines of a sample that are no frames: branches, or the source line of the frame before. False for another line.
    bool read_rest_of_sample(std::string_view line) {
        if (has_perf_time(line)) {
            return false;
        }
        std::string_view start = line;
        const bool has_address = take_perf_address(start);
        if (!has_address && read_branches(line)) {
            return true;
        }
        if (!is_behind_frame_ || has_address || !line.starts_with("  ") || !parse_perf_head(line).rest.empty()) {
            return false;
        }
        is_behind_frame_ = false;
        is_whole_ = true;
        if (line.ends_with(" (inlined)") && !frames_.empty()) {
            frames_.pop_back();
        }
        return true;
    }

    void read_head(std::string_view line) {
        end_sample();
        expect_frame(false);
        has_sample_ = true;
        is_behind_frame_ = false;
        ++sample_count_;
        std::string_view rest = line;
        const bool has_time = has_perf_time(line);
        has_times_ |= has_time;
        perf_head head = parse_perf_head(line);
        if (head.rest.empty() && !head.ends_with_event && !has_time && line.starts_with(' ') &&
            take_perf_address(rest)) {
            head.rest = line; // without any head, and not aligned
        }
        enter_event(head.event);
        process_ = head.process;
        rest = head.rest;
        is_lone_number_ = !rest.empty() && rest.find_first_not_of(" 0123456789\r") == std::string_view::npos;
        if (std::uint64_t address = 0; !is_lone_number_ && take_perf_address(rest, address)) {
            read_behind_address(rest, address);
            return;
        }
        if (read_branches(line)) {
            return;
        }
        needs_frame_ = is_lone_number_ || (!head.ends_with_event && !has_time);
        is_whole_ = is_lone_number_ ? profile_.has_line_feed() : head.ends_with_event || !has_event_heads_;
        has_event_heads_ |= head.ends_with_event;
    }

    // A frame on the line of the sample's head, perhaps with branches.
    void read_behind_address(std::string_view text, std::uint64_t address) {
        std::string_view rest = text;
        std::string_view ends;
        std::string_view frame;
        std::string_view first;
        std::size_t flag_count = 0;
        if (!take_perf_branch(rest, ends, flag_count)) {
            const std::size_t start = text.find_first_not_of(" \r");
            const bool is_cut = text.substr(std::min(start, text.size())).starts_with("0x"); // the ends of a branch
            if (start == std::string_view::npos || is_cut) {
                has_bare_addresses_ = has_frames_ = true;
                is_whole_ = !is_cut && profile_.has_line_feed();
            } else {
                add_frame(text, address, frame_kind::sampled);
            }
            return;
        }
        is_whole_ = rest.find_first_not_of(" \r") == std::string_view::npos;
        if (std::uint64_t from = 0, to = 0; parse_perf_addresses(ends, from, to)) {
            add_branch(ends);
            flag_count_ = flag_count;
            read_branches(rest);
            return;
        }
        if (!split_perf_frame(ends, frame, first)) {
            profile_.fail("the field dso is missing, without which nothing separates branches: print again with perf "
                          "script -F ip,sym,symoff,dso,brstacksym");
        }
        add_frame(frame, address, frame_kind::sampled);
        add_branch(first);
        flag_count_ = flag_count;
        is_whole_ = rest.find_first_not_of(" \r") == std::string_view::npos;
        read_branches(rest);
    }

    // Where a line was no head by itself, a frame has to follow. A number without one was an address.
    void expect_frame(bool is_there) {
        if (needs_frame_ && !is_there) {
            if (!is_lone_number_) {
                profile_.fail(std::string("no line of perf script before it, or the field ip is missing: ") + advice);
            }
            has_bare_addresses_ = has_frames_ = true;
        }
        needs_frame_ = false;
    }

    // Reads the branches in a line, "FROM/TO/P/-/-/0 ..."; false when there are none.
    bool read_branches(std::string_view line) {
        std::string_view ends;
        std::size_t flag_count = 0;
        bool found = false;
        while (take_perf_branch(line, ends, flag_count)) {
            add_branch(ends);
            flag_count_ = flag_count_ == 0 ? flag_count : flag_count_;
            found = true;
        }
        is_whole_ =
            found ? line.find_first_not_of(" \r") == std::string_view::npos && flag_count == flag_count_ : is_whole_;
        is_behind_frame_ &= !found;
        return found;
    }

    void add_branch(std::string_view ends) {
        has_branches_ = has_frames_ = true;
        if (std::uint64_t from = 0, to = 0; parse_perf_addresses(ends, from, to)) {
            const std::optional<std::uint64_t> target = link_address(to);
            const linked_function* const callee = target ? calls_.binary()->at(*target) : nullptr;
            if (!is_skipped_ && callee != nullptr && callee->address == *target) {
                const std::optional<std::uint64_t> source = link_address(from);
                branches_.push_back({source ? calls_.at(*source, {}) : call_table::outside, calls_.at(*target, {})});
            }
            return;
        }
        std::string_view from_text;
        std::string_view to_text;
        if (!split_perf_branch(ends, from_text, to_text)) {
            profile_.fail("a branch without its two ends");
        }
        const perf_place from = parse_perf_place(from_text);
        const perf_place to = parse_perf_place(to_text);
        if (to.is_first_byte && !is_skipped_) {
            branches_.push_back({number_by_name(from), number_by_name(to)});
        }
    }

    // The link-time address of one in the process of the sample; none where it is not in the binary.
    std::optional<std::uint64_t> link_address(std::uint64_t address) {
        if (!mappings_.has_value()) {
            profile_.fail("branches without symbols: name the program with --binary");
        }
        if (mappings_->is_empty()) {
            profile_.fail("nothing tells where the program was loaded: print again with perf script --show-mmap-events "
                          "-F ip,brstack");
        }
        const perf_mappings::place place = mappings_->find(process_, address);
        if (place.what == perf_mappings::kind::contradicted) {
            profile_.fail("processes have different things at one address: print again with perf script "
                          "--show-mmap-events -F pid,ip,brstack");
        }
        return place.what == perf_mappings::kind::in_binary ? std::optional(place.address) : std::nullopt;
    }

    static bool has_symbol(const perf_place& place) { return place.symbol != "[unknown]" && !place.symbol.empty(); }

    call_table::function number_by_name(const perf_place& place) {
        if (!has_symbol(place)) {
            return call_table::unknown;
        }
        if (!place.object.empty() && !calls_.is_wanted_object(place.object)) {
            return call_table::outside;
        }
        return calls_.named(place.symbol);
    }

    // Most frames are those of a sample shortly before.
    call_table::function number_of(const perf_place& place, std::uint64_t address, frame_kind kind) {
        known_frame& known = known_frames_[address % known_frames_.size()];
        if (known.address != address || known.process != process_ || known.kind != kind ||
            known.symbol != place.symbol || known.object != place.object) {
            known = {address,
                     process_,
                     kind,
                     std::string(place.symbol),
                     std::string(place.object),
                     number_of_new(place, address, kind)};
        }
        return known.number;
    }

    call_table::function number_of_new(const perf_place& place, std::uint64_t address, frame_kind kind) {
        if (!mappings_.has_value() || place.object.empty() || !calls_.is_wanted_object(place.object) ||
            !(has_symbol(place) || is_same_build_)) {
            return number_by_name(place);
        }
        const perf_mappings::place in_process = mappings_->find(process_, address);
        std::optional<std::uint64_t> linked;
        if (in_process.what == perf_mappings::kind::in_binary) {
            linked = in_process.address;
        } else if (kind != frame_kind::sampled) {
            linked = calls_.binary()->address_of_byte(address);
        }
        if (!linked.has_value()) {
            return number_by_name(place);
        }
        return calls_.at(*linked - (kind == frame_kind::outer ? 1 : 0),
                         has_symbol(place) ? place.symbol : std::string_view());
    }

    // The event of a sample, which says whether it is skipped.
    void enter_event(std::string_view name) {
        if (events_.empty() || events_[last_event_].name != name) {
            last_event_ = 0;
            while (last_event_ != events_.size() && events_[last_event_].name != name) {
                ++last_event_;
            }
            if (last_event_ == events_.size()) {
                if (events_.size() == most_events) {
                    profile_.fail("more than 1000 events");
                }
                events_.push_back({std::string(name), 0});
            }
        }
        ++events_[last_event_].samples;
        is_skipped_ = profile_.event().empty() ? last_event_ != 0 : name != profile_.event();
    }

    void end_events() {
        std::string others;
        bool is_there = profile_.event().empty();
        for (const event& e : events_) {
            is_there |= e.name == profile_.event();
            if (!e.name.empty() && (&e != &events_.front() || !profile_.event().empty())) {
                others += (others.empty() ? "" : ", ") + e.name + " (" + std::to_string(e.samples) + " samples)";
            }
        }
        if (!is_there) {
            throw failure(profile_.name(), others.empty()
                                               ? "the samples name no event: print again with the field event, too"
                                               : "no event " + profile_.event() + ", but " + others);
        }
        if (events_.size() > 1 && profile_.event().empty()) {
            calls_.tell(profile_.name() + ": took the event " + events_.front().name + ", not " + others +
                        "; --event takes another");
        }
    }

    void end_sample() {
        has_calls_ |= has_branches_ || frames_.size() > 1;
        if (calls_.keeps_first_run()) { // what is oldest or furthest out ran first
            for (auto b = branches_.rbegin(); b != branches_.rend(); ++b) {
                calls_.note_first_run(b->from);
                calls_.note_first_run(b->to);
            }
            for (auto frame = frames_.rbegin(); frame != frames_.rend(); ++frame) {
                calls_.note_first_run(*frame);
            }
        }
        if (has_branches_) {
            for (const branch& b : branches_) {
                calls_.add_call(b.from, b.to, 1);
            }
            if (!frames_.empty()) {
                calls_.add_run(frames_.front(), 1);
            }
        } else {
            std::size_t next = 0;
            calls_.add_chain(1, [&](call_table::function& f) {
                if (next == frames_.size()) {
                    return false;
                }
                f = frames_[next++];
                return true;
            });
        }
        frames_.clear();
        branches_.clear();
        has_branches_ = has_sample_ = false;
    }

    static constexpr std::size_t most_events = 1000;
    static constexpr std::size_t most_before_record = 128; ///< before the name of an event that is no sample

    /// A frame that was seen before, and what it stands for.
    struct known_frame {
        std::uint64_t address = 0;
        std::uint64_t process = 0;
        frame_kind kind = frame_kind::sampled;
        std::string symbol;
        std::string object;
        call_table::function number = call_table::unknown;
    };

    profile_input& profile_;
    call_table& calls_;
    std::vector<event> events_; ///< in order of appearance
    std::size_t last_event_ = 0;
    std::optional<perf_mappings> mappings_;
    bool is_same_build_ = false; ///< as that of the binary, so that addresses tell what has no symbol
    std::vector<known_frame> known_frames_ = std::vector<known_frame>(4096); ///< by address

    // Of the current sample:
    std::vector<call_table::function> frames_; ///< the innermost first
    std::vector<branch> branches_;             ///< calls
    std::uint64_t process_ = 0;                ///< 0: not known
    bool has_sample_ = false;                  ///< whether there is one
    bool has_calls_ = false;                   ///< whether any sample had a chain or branches
    bool has_branches_ = false;                ///< whether it has any branch, calls or not
    bool is_skipped_ = false;                  ///< of another event
    bool is_lone_number_ = false;              ///< its head is a number: a period, or an address without a symbol
    bool needs_frame_ = false;                 ///< the line before was no sample without one
    bool is_behind_frame_ = false;             ///< the line before was one

    // Of the profile so far:
    std::uint64_t sample_count_ = 0;
    bool has_times_ = false;
    bool has_frames_ = false;         ///< addresses or branches
    bool has_symbols_ = false;        ///< frames have symbols,
    bool has_objects_ = false;        ///< and objects
    bool has_bare_addresses_ = false; ///< samples of an address alone, as those are that recorded no branch
    bool has_event_heads_ = false;    ///< heads of samples end with the event
    bool is_whole_ = true;            ///< the line before did not end early
    std::size_t flag_count_ = 0;      ///< fields behind the ends of a branch
};

} // namespace

bool is_perf(std::string_view head) {
    const std::string_view line = first_line(head);
    if (line.empty()) {
        return false;
    }
    if (!perf_mappings::path_in(line).empty()) {
        return true;
    }
    std::string_view rest = line;
    std::string_view ends;
    std::size_t flag_count = 0;
    if (has_perf_time(line) || take_perf_branch(rest, ends, flag_count) || parse_perf_head(line).ends_with_event) {
        return true;
    }
    std::string_view next = head.substr(static_cast<std::size_t>(line.data() - head.data()) + line.size());
    next.remove_prefix(std::min<std::size_t>(next.size(), 1));
    if (next.starts_with('\t') && take_perf_address(next)) {
        return true;
    }
    if (std::string_view alone = line; line.starts_with('\t') && take_perf_address(alone) && alone.empty()) {
        return true; // other formats have two words at least
    }
    std::uint64_t count = 0; // that other formats have at the end of each line
    return !parse_count(line.substr(line.rfind(' ') + 1), count) &&
           ((line.find_first_of("\t ") == 0 && take_perf_address(rest)) || !parse_perf_head(line).rest.empty());
}

void read_perf(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
