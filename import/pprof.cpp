// "pprof": profile.proto, as Go and continuous profilers write it. Format: github.com/google/pprof/proto/profile.proto.
//
//     sample      locations 3, 2, 1, the innermost first; values 7, 70000000
//     location    2, in mapping 1, at 0x55d0c0001040, lines of functions 5 and 4: 5 was inlined into 4
//     function    4, name and system name: places in the table of strings
//     mapping     1, addresses from 0x55d0c0001000 on, which are the bytes from 0x1000 on of /tmp/app, and its build ID
//     sample_type cpu, nanoseconds, of which each sample has a value
//
// The tables may stand behind the samples, so a profile is gone through twice: for the tables, then for the samples. Of a
// location the last line counts, the function that runs. One without lines or without a name goes by its address.
#include "import/profile_format.h"
#include "support/failure.h"
#include "support/seeded_hash.h"

#include <boost/unordered/unordered_flat_map.hpp>
#include <protozero/pbf_message.hpp>

#include <algorithm>
#include <optional>
#include <vector>

namespace {

enum class profile_field : protozero::pbf_tag_type {
    sample_type = 1,
    sample = 2,
    mapping = 3,
    location = 4,
    function = 5,
    string = 6,
    default_sample_type = 14
};
enum class value_type_field : protozero::pbf_tag_type { type = 1 };
enum class sample_field : protozero::pbf_tag_type { location_id = 1, value = 2 };
enum class mapping_field : protozero::pbf_tag_type {
    id = 1,
    start = 2,
    limit = 3,
    offset = 4,
    filename = 5,
    build_id = 6
};
enum class location_field : protozero::pbf_tag_type { id = 1, mapping_id = 2, address = 3, line = 4 };
enum class line_field : protozero::pbf_tag_type { function_id = 1 };
enum class function_field : protozero::pbf_tag_type { id = 1, name = 2, system_name = 3 };

template <typename Field>
using message = protozero::pbf_message<Field>;

std::string_view view_of(protozero::data_view bytes) {
    return {bytes.data(), bytes.size()};
}

class reader {
public:
    reader(profile_input& profile, call_table& calls) : profile_(profile), calls_(calls), bytes_(profile.whole()) {}

    void run() {
        try {
            read_tables();
            find_value();
            resolve_locations();
            read_samples();
        } catch (const protozero::exception& error) {
            throw failure(profile_.name(), std::string("damaged or cut off: ") + error.what());
        }
    }

private:
    struct mapping {
        std::uint64_t start = 0;
        std::uint64_t limit = 0;
        std::uint64_t offset = 0;
        std::uint64_t filename = 0; ///< places in the table of strings
        std::uint64_t build_id = 0;
        bool is_asked = false;      ///< whether the next two are known
        bool is_wanted = false;     ///< may hold the binary's functions: also one without a file name, by their names
        bool has_addresses = false; ///< of the binary
    };
    struct location {
        std::uint64_t id = 0;
        std::uint64_t mapping = 0; ///< IDs, 0: none
        std::uint64_t address = 0;
        std::uint64_t function = 0; ///< of the last line
        call_table::function number = call_table::unknown;
    };
    struct function_names {
        std::uint64_t name = 0; ///< places in the table of strings
        std::uint64_t system_name = 0;
    };
    static constexpr call_table::function unlisted = no_index; ///< no location has this ID
    template <typename T>
    using by_id = boost::unordered_flat_map<std::uint64_t, T, number_hash>;

    void read_tables() {
        message<profile_field> profile(bytes_);
        while (profile.next()) {
            if (profile.tag() <= profile_field::string && profile.tag() >= profile_field::sample_type) {
                expect(profile, protozero::pbf_wire_type::length_delimited);
            }
            switch (profile.tag()) {
            case profile_field::sample_type:
                read_value_type(profile.get_message());
                break;
            case profile_field::mapping:
                read_mapping(profile.get_message());
                break;
            case profile_field::location:
                read_location(profile.get_message());
                break;
            case profile_field::function:
                read_function(profile.get_message());
                break;
            case profile_field::string:
                strings_.push_back(view_of(profile.get_view()));
                break;
            case profile_field::default_sample_type:
                take(profile, &default_type_);
                break;
            default:
                profile.skip();
            }
        }
    }

    void read_value_type(message<value_type_field> type) {
        value_types_.push_back(0);
        while (type.next()) {
            if (type.tag() == value_type_field::type) {
                take(type, &value_types_.back());
            } else {
                type.skip();
            }
        }
    }

    void read_mapping(message<mapping_field> bytes) {
        mapping read;
        std::uint64_t id = 0;
        while (bytes.next()) {
            std::uint64_t* const number = bytes.tag() == mapping_field::id         ? &id
                                          : bytes.tag() == mapping_field::start    ? &read.start
                                          : bytes.tag() == mapping_field::limit    ? &read.limit
                                          : bytes.tag() == mapping_field::offset   ? &read.offset
                                          : bytes.tag() == mapping_field::filename ? &read.filename
                                          : bytes.tag() == mapping_field::build_id ? &read.build_id
                                                                                   : nullptr;
            take(bytes, number);
        }
        mappings_.emplace(id, read);
    }

    void read_location(message<location_field> bytes) {
        location read;
        while (bytes.next()) {
            if (bytes.tag() == location_field::line) {
                expect(bytes, protozero::pbf_wire_type::length_delimited);
                message<line_field> line(bytes.get_message());
                read.function = 0;
                while (line.next()) {
                    take(line, line.tag() == line_field::function_id ? &read.function : nullptr);
                }
                continue;
            }
            take(bytes, bytes.tag() == location_field::id           ? &read.id
                        : bytes.tag() == location_field::mapping_id ? &read.mapping
                        : bytes.tag() == location_field::address    ? &read.address
                                                                    : nullptr);
        }
        if (places_.emplace(read.id, locations_.size()).second) {
            locations_.push_back(read);
        }
    }

    void read_function(message<function_field> bytes) {
        function_names read;
        std::uint64_t id = 0;
        while (bytes.next()) {
            take(bytes, bytes.tag() == function_field::id            ? &id
                        : bytes.tag() == function_field::name        ? &read.name
                        : bytes.tag() == function_field::system_name ? &read.system_name
                                                                     : nullptr);
        }
        functions_.emplace(id, read);
    }

    template <typename Field>
    static void expect(const message<Field>& bytes, protozero::pbf_wire_type type) {
        if (bytes.wire_type() != type) {
            throw protozero::unknown_pbf_wire_type_exception();
        }
    }

    // Takes a number, or whatever stands there where it is of no use.
    template <typename Field>
    static void take(message<Field>& bytes, std::uint64_t* number) {
        if (number != nullptr) {
            expect(bytes, protozero::pbf_wire_type::varint);
            *number = bytes.get_uint64();
        } else {
            bytes.skip();
        }
    }

    std::string_view string(std::uint64_t place) const {
        if (place >= strings_.size() && place != 0) {
            throw failure(profile_.name(), "damaged or cut off: a string is not in the table");
        }
        return place < strings_.size() ? strings_[place] : std::string_view();
    }

    // Which of the values of a sample counts.
    void find_value() {
        const std::string_view wanted = !profile_.event().empty() ? profile_.event() : string(default_type_);
        value_ = value_types_.empty() ? 0 : value_types_.size() - 1;
        std::string known;
        bool is_there = false;
        for (std::size_t i = 0; i < value_types_.size(); ++i) {
            const std::string_view name = string(value_types_[i]);
            known.append(known.empty() ? "" : ", ").append(name);
            if (!wanted.empty() && name == wanted && !is_there) {
                value_ = i;
                is_there = true;
            }
        }
        if (!is_there && !profile_.event().empty()) {
            throw failure(profile_.name(),
                          "no type of value " + profile_.event() + ", but " + (known.empty() ? "none at all" : known));
        }
    }

    void resolve_locations() {
        numbers_.assign(2 * locations_.size(), unlisted);
        for (location& l : locations_) {
            l.number = number_of(l);
            if (l.id < numbers_.size()) {
                numbers_[static_cast<std::size_t>(l.id)] = l.number;
            }
        }
    }

    // Asks once, and only for what holds a location: the others are no object of the profile's calls.
    void ask_for(mapping& m) {
        if (m.is_asked) {
            return;
        }
        m.is_asked = true;
        const std::string_view filename = string(m.filename);
        std::string build_id(string(m.build_id));
        std::transform(build_id.begin(), build_id.end(), build_id.begin(),
                       [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
        const bool is_of_binary =
            calls_.binary() != nullptr && !build_id.empty() && build_id == calls_.binary()->build_id();
        m.is_wanted = is_of_binary || filename.empty() || calls_.is_wanted_object(filename);
        m.has_addresses = is_of_binary || (m.is_wanted && !filename.empty());
        if (m.has_addresses && !build_id.empty()) {
            calls_.note_build_id(build_id);
        }
    }

    call_table::function number_of(const location& l) {
        const auto found = mappings_.find(l.mapping);
        mapping* const in = found == mappings_.end() ? nullptr : &found->second;
        if (in != nullptr) {
            ask_for(*in);
            if (!in->is_wanted) {
                return call_table::outside;
            }
        }
        std::optional<std::uint64_t> linked;
        if (calls_.binary() != nullptr && in != nullptr && in->has_addresses && l.address >= in->start &&
            l.address < in->limit) {
            linked = calls_.binary()->address_of_byte(l.address - in->start + in->offset);
        }
        const auto names = functions_.find(l.function);
        const bool has_names = names != functions_.end();
        const std::string_view system_name = has_names ? string(names->second.system_name) : std::string_view();
        const std::string_view name = !system_name.empty() || !has_names ? system_name : string(names->second.name);
        const name_form form = system_name.empty() ? name_form::any : name_form::linker;
        if (linked.has_value()) {
            return calls_.at(*linked, name, form);
        }
        return name.empty() ? call_table::unknown : calls_.named(name, form);
    }

    void read_samples() {
        message<profile_field> profile(bytes_);
        while (profile.next(profile_field::sample, protozero::pbf_wire_type::length_delimited)) {
            read_sample(profile.get_message());
        }
    }

    void read_sample(message<sample_field> sample) {
        chain_.clear();
        std::size_t values = 0;
        std::int64_t value = 0;
        const auto take_value = [&](std::int64_t v) { value = values++ == value_ ? v : value; };
        while (sample.next()) {
            const bool is_packed = sample.wire_type() == protozero::pbf_wire_type::length_delimited;
            if (sample.tag() == sample_field::location_id && is_packed) {
                for (const std::uint64_t id : sample.get_packed_uint64()) {
                    add_location(id);
                }
            } else if (sample.tag() == sample_field::location_id) {
                std::uint64_t id = 0;
                take(sample, &id);
                add_location(id);
            } else if (sample.tag() == sample_field::value && is_packed) {
                for (const std::int64_t v : sample.get_packed_int64()) {
                    take_value(v);
                }
            } else if (sample.tag() == sample_field::value) {
                std::uint64_t v = 0;
                take(sample, &v);
                take_value(static_cast<std::int64_t>(v));
            } else {
                sample.skip();
            }
        }
        if (value < 0) {
            throw failure(profile_.name(),
                          "a negative value, as in the difference of two profiles: give one profile, or "
                          "another type of value by --event");
        }
        auto next = chain_.begin();
        calls_.add_chain(static_cast<std::uint64_t>(value), [&](call_table::function& f) {
            if (next == chain_.end()) {
                return false;
            }
            f = *next++;
            return true;
        });
    }

    void add_location(std::uint64_t id) {
        if (id < numbers_.size() && numbers_[static_cast<std::size_t>(id)] != unlisted) {
            chain_.push_back(numbers_[static_cast<std::size_t>(id)]);
            return;
        }
        const auto found = places_.find(id);
        if (found == places_.end()) {
            throw failure(profile_.name(), "damaged or cut off: a location is not in the table");
        }
        chain_.push_back(locations_[found->second].number);
    }

    profile_input& profile_;
    call_table& calls_;
    std::string bytes_;
    std::vector<std::string_view> strings_;
    std::vector<std::uint64_t> value_types_; ///< places of their names
    std::uint64_t default_type_ = 0;         ///< the same; 0: none
    by_id<mapping> mappings_;
    std::vector<location> locations_;
    by_id<std::size_t> places_;                 ///< in locations_
    std::vector<call_table::function> numbers_; ///< of locations with small IDs, as most have, by ID
    by_id<function_names> functions_;
    std::size_t value_ = 0;                   ///< which of a sample's values counts
    std::vector<call_table::function> chain_; ///< of the current sample
};

// Whether a field may stand in a profile.
bool is_field(std::uint32_t number, protozero::pbf_wire_type type) {
    constexpr std::string_view of_numbers = "mmmmmmnnnnmnpn"; // from field 1 on: a message or string, a number, either
    const bool is_number = type == protozero::pbf_wire_type::varint;
    if (number == 0 || number > of_numbers.size() ||
        (!is_number && type != protozero::pbf_wire_type::length_delimited)) {
        return false;
    }
    const char wanted = of_numbers[number - 1];
    return wanted == 'p' || (wanted == 'n') == is_number;
}

} // namespace

// There is no magic number: the first fields must be a profile's, and among them a whole type of value, sample or mapping,
// which no text begins with.
bool is_pprof(std::string_view head) {
    bool has_message = false;
    try {
        protozero::pbf_reader profile(head.data(), head.size());
        for (int fields = 0; fields < 8 && profile.next(); ++fields) {
            if (!is_field(profile.tag(), profile.wire_type())) {
                return false;
            }
            const bool is_message = profile.tag() <= 3;
            if (!is_message) {
                profile.skip();
                continue;
            }
            protozero::pbf_reader inside = profile.get_message();
            while (inside.next()) {
                if (inside.tag() > 12) {
                    return false;
                }
                inside.skip();
            }
            has_message = true;
        }
    } catch (const protozero::exception&) { // the head ends inside a field
        return has_message;
    }
    return has_message;
}

void read_pprof(profile_input& profile, call_table& calls) {
    reader(profile, calls).run();
}
