// "gmon": gmon.out of programs built with gcc -pg. Format: glibc's <sys/gmon_out.h>.
//
//     "gmon", version 1, 12 unused bytes                             pointers and numbers as the program's machine has them
//     0  low, high, bins, rate, unit (15 bytes), letter, bins x 2    a histogram: how often the clock found each stretch
//     1  caller, callee, count                                       an arc: a return address, an address in the callee
//     2  blocks, blocks x (address, count)                           counts of basic blocks
//
// Addresses are link-time addresses, also of position-independent programs, and mean nothing without the program. They are
// all that tells whether it is the program: an arc ends where a function has just begun. Callbacks have no arcs, as they are
// called from outside the program: the histogram shows that they ran.
#include "import/profile_format.h"
#include "support/failure.h"

namespace {

constexpr std::string_view magic = "gmon";
constexpr std::size_t header_size = 20;
constexpr std::uint64_t most_prologue = 32; // bytes from the start of a function to behind its call of mcount

/// The bytes of the file, taken from the front.
class byte_stream {
public:
    byte_stream(std::string_view bytes, const std::string& name, const function_table& binary)
        : rest_(bytes), name_(name), binary_(binary) {}

    bool is_empty() const { return rest_.empty(); }

    std::string_view take(std::size_t size) {
        if (size > rest_.size()) {
            throw failure(name_, "ends inside a record");
        }
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(size);
        return taken;
    }

    std::uint64_t take_number(std::size_t size) {
        const std::string_view bytes = take(size);
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i) {
            value = value << 8U | static_cast<unsigned char>(bytes[binary_.is_little_endian() ? size - 1 - i : i]);
        }
        return value;
    }

    std::uint64_t take_pointer() { return take_number(binary_.is_64_bit() ? 8 : 4); }

private:
    std::string_view rest_;
    const std::string& name_;
    const function_table& binary_;
};

void read_histogram(byte_stream& stream, const std::string& name, call_table& calls) {
    const std::uint64_t low = stream.take_pointer();
    const std::uint64_t high = stream.take_pointer();
    const std::uint64_t bins = stream.take_number(4);
    stream.take(4 + 15 + 1); // rate, unit, letter
    if (high < low || (bins == 0 && high != low)) {
        throw failure(name, "a histogram of no addresses");
    }
    // (high - low) * bin / bins, whose product may exceed 64 bits; bins are of 32.
    const auto border = [&](std::uint64_t bin) {
        return low + (high - low) / bins * bin + (high - low) % bins * bin / bins;
    };
    for (std::uint64_t bin = 0; bin < bins; ++bin) {
        const std::uint64_t ticks = stream.take_number(2);
        if (ticks == 0) {
            continue;
        }
        // A bin at the border of two functions counts for the one that it begins in, unless that is a gap.
        const std::uint64_t start = border(bin);
        const call_table::function f = calls.at(start, {});
        calls.add_run(f != call_table::unknown ? f : calls.at(border(bin + 1) - 1, {}), ticks);
    }
}

} // namespace

bool is_gmon(std::string_view head) {
    return head.starts_with(magic);
}

void read_gmon(profile_input& profile, call_table& calls) {
    if (calls.binary() == nullptr) {
        throw failure(profile.name(), "gmon.out holds addresses: name the program with --binary");
    }
    const std::string bytes = profile.whole();
    byte_stream stream(bytes, profile.name(), *calls.binary());
    if (stream.take(4) != magic || stream.take_number(4) != 1) {
        throw failure(profile.name(), "not a gmon.out of version 1 of a program like the binary");
    }
    stream.take(header_size - 8);
    std::uint64_t arcs = 0;
    std::uint64_t arcs_to_starts = 0; // of functions
    while (!stream.is_empty()) {
        switch (stream.take_number(1)) {
        case 0:
            read_histogram(stream, profile.name(), calls);
            break;
        case 1: {
            const std::uint64_t caller = stream.take_pointer();
            const std::uint64_t callee = stream.take_pointer();
            const std::uint64_t count = stream.take_number(4);
            const linked_function* const called = calls.binary()->nearest(callee);
            ++arcs;
            arcs_to_starts += called != nullptr && callee - called->address <= most_prologue ? 1 : 0;
            const call_table::function from = calls.at(caller, {});
            calls.add_call(from, calls.at(callee, {}), count);
            break;
        }
        case 2: {
            const std::uint64_t blocks = stream.take_number(4);
            for (std::uint64_t i = 0; i < blocks; ++i) {
                stream.take_pointer();
                stream.take_pointer();
            }
            break;
        }
        default:
            throw failure(profile.name(), "a record of an unknown kind");
        }
    }
    if (arcs_to_starts * 10 < arcs * 9) {
        throw failure(profile.name(), "recorded with another program than " + calls.binary()->path() +
                                          ", or another build of it: of " + std::to_string(arcs) +
                                          " call records only " + std::to_string(arcs_to_starts) +
                                          " go to the start of a function");
    }
}
