#include "bench/layouts/trace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <tuple>
#include <unordered_map>

namespace {

// Numbers in a file: seven bits a byte, the lowest first, the eighth bit set in all but the last byte.
void put(std::string& bytes, std::uint64_t number) {
    for (; number >= 128; number /= 128) {
        bytes += static_cast<char>(number % 128 + 128);
    }
    bytes += static_cast<char>(number);
}

class number_reader {
public:
    explicit number_reader(const std::string& bytes) : bytes_(bytes) {}
    std::uint64_t next() {
        std::uint64_t number = 0;
        for (unsigned int shift = 0; shift < 64; shift += 7) {
            const auto byte = static_cast<unsigned char>(bytes_.at(at_++));
            number |= std::uint64_t{byte % 128U} << shift;
            if (byte < 128) {
                return number;
            }
        }
        throw std::out_of_range("number");
    }
    /// A number below `limit`.
    std::uint32_t below(std::uint64_t limit) {
        const std::uint64_t number = next();
        if (number >= limit) {
            throw std::out_of_range("number");
        }
        return static_cast<std::uint32_t>(number);
    }
    /// How many entries follow; each has a byte at least.
    std::size_t count() { return below(bytes_.size() - at_ + 1); }
    std::string text() {
        const std::size_t length = count();
        at_ += length;
        return bytes_.substr(at_ - length, length);
    }
    bool is_at_end() const { return at_ == bytes_.size(); }

private:
    const std::string& bytes_;
    std::size_t at_ = 0;
};

/// Collects instructions to runs, and runs to a trace.
class recorder {
public:
    explicit recorder(const std::vector<section>& sections) : sections_(sections) {
        for (const section& s : sections) {
            result_.sections.push_back(s.name);
        }
    }

    void instruction(std::uint64_t address, std::uint64_t bytes) {
        if (address != next_ || address >= section_end_) {
            finish_run();
            begin_ = address;
            find_section(address);
        }
        next_ = address + bytes;
        ++instructions_;
    }

    trace finish() {
        finish_run();
        return std::move(result_);
    }

private:
    void find_section(std::uint64_t address) {
        const auto after = std::upper_bound(sections_.begin(), sections_.end(), address,
                                            [](std::uint64_t a, const section& s) { return a < s.address; });
        section_ = run::foreign;
        section_end_ = UINT64_MAX;
        if (after != sections_.begin() && address < after[-1].address + after[-1].size) {
            section_ = static_cast<std::uint32_t>(after - sections_.begin() - 1);
            section_end_ = after[-1].address + after[-1].size;
        }
    }

    void finish_run() {
        if (instructions_ == 0) {
            return;
        }
        // The instructions of a run follow from its begin and end.
        const auto [known, is_new] = numbers_[begin_].try_emplace(next_, result_.runs.size());
        if (is_new) {
            const std::uint64_t start = section_ == run::foreign ? 0 : sections_[section_].address;
            result_.runs.push_back({section_, instructions_, begin_ - start, next_ - begin_});
        }
        result_.steps.push_back(known->second);
        instructions_ = 0;
    }

    const std::vector<section>& sections_;
    std::unordered_map<std::uint64_t, std::map<std::uint64_t, std::uint32_t>> numbers_; ///< of a run, by begin and end
    trace result_;
    std::uint64_t begin_ = 0;       ///< of the run that is being collected
    std::uint64_t next_ = 0;        ///< where it goes on
    std::uint64_t section_end_ = 0; ///< of the section it is in
    std::uint32_t section_ = 0;
    std::uint32_t instructions_ = 0;
};

} // namespace

trace record(std::istream& in, const std::vector<section>& sections) {
    recorder r(sections);
    bool is_whole = false;
    for (std::string line; std::getline(in, line);) {
        if (line[0] != 'I') { // loads, stores, and what valgrind says
            is_whole |= line.find("guest instrs:") != std::string::npos;
            continue;
        }
        const char* const end = line.data() + line.size();
        std::uint64_t address = 0;
        std::uint64_t bytes = 0;
        const auto comma = std::from_chars(line.data() + std::min<std::size_t>(3, line.size()), end, address, 16);
        if (comma.ptr == end || *comma.ptr != ',' || std::from_chars(comma.ptr + 1, end, bytes).ptr != end) {
            throw std::runtime_error("no instruction of lackey's: " + line);
        }
        r.instruction(address, bytes);
    }
    trace result = r.finish();
    if (result.steps.empty()) {
        throw std::runtime_error("no instructions; valgrind --tool=lackey --trace-mem=yes writes them");
    }
    if (!is_whole) {
        throw std::runtime_error("cut off: lackey's counts, which it writes at the end, are missing");
    }
    return result;
}

void save(const trace& t, const std::string& file) {
    std::string bytes;
    put(bytes, t.sections.size());
    for (const std::string& name : t.sections) {
        put(bytes, name.size());
        bytes += name;
    }
    put(bytes, t.runs.size());
    for (const run& r : t.runs) {
        for (const std::uint64_t number : std::array<std::uint64_t, 4>{r.section, r.instructions, r.offset, r.bytes}) {
            put(bytes, number);
        }
    }
    put(bytes, t.steps.size());
    for (const std::uint32_t step : t.steps) {
        put(bytes, step);
    }
    const std::string unfinished = file + ".new";
    if (!std::ofstream(unfinished, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        throw std::runtime_error(unfinished + ": cannot write");
    }
    std::filesystem::rename(unfinished, file);
}

trace load(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    number_reader reader(bytes);
    trace t;
    try {
        t.sections.resize(reader.count());
        for (std::string& name : t.sections) {
            name = reader.text();
        }
        t.runs.resize(reader.count());
        for (run& r : t.runs) {
            r.section = reader.below(std::uint64_t{run::foreign} + 1);
            r.instructions = reader.below(UINT32_MAX);
            r.offset = reader.next();
            r.bytes = reader.below(UINT32_MAX);
            if ((r.section >= t.sections.size() && r.section != run::foreign) || r.bytes == 0) {
                throw std::out_of_range("run");
            }
        }
        t.steps.resize(reader.count());
        for (std::uint32_t& step : t.steps) {
            step = reader.below(t.runs.size());
        }
        if (!reader.is_at_end()) {
            throw std::out_of_range("end");
        }
    } catch (const std::out_of_range&) {
        throw std::runtime_error(file + ": no trace, or cut off");
    }
    return t;
}
