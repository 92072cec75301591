// ordwell-report from outside: its figures against a computation by brute force from what readelf and the files say, its bad
// input, and its page in a real browser.
#include "tests/run_tool.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <map>
#include <random>
#include <set>
#include <sstream>

namespace {

using namespace std::string_literals;
using nlohmann::json;

using place = std::pair<std::uint64_t, std::uint64_t>; // address, size

/// What readelf says of a program: the places of each function name.
using symbol_map = std::map<std::string, std::set<place>>;

symbol_map symbols_of(const scratch_folder& folder, const std::string& binary) {
    symbol_map symbols;
    std::istringstream lines(folder
                                 .run("readelf -sW " + binary + R"( |
        awk '$4 ~ /^I?FUNC$/ && $7 != "UND" && $3 != 0 { print $2, $3, $8 }')")
                                 .out);
    for (std::string address, size, name; lines >> address >> size >> name;) {
        symbols[name.substr(0, name.find('@'))].insert(
            {std::stoull(address, nullptr, 16), std::stoull(size, nullptr, 0)});
    }
    return symbols;
}

struct call {
    std::string caller;
    std::string callee;
    std::uint64_t count;
};

/// What a report says of the calls, the slow way.
struct expectation {
    json figures;
    std::vector<std::uint64_t> distances;        // one for each call, sorted
    std::map<std::uint64_t, std::size_t> pages;  // functions by page
    std::map<std::uint64_t, std::uint64_t> ends; // ends of calls by page
};

expectation expected_report(const symbol_map& symbols, const std::vector<call>& calls) {
    std::map<std::uint64_t, std::uint64_t> functions; // size by address
    expectation expected;
    auto& distances = expected.distances;
    std::set<std::uint64_t> blocks[3];
    const std::uint64_t sizes[3] = {4096, 65536, 2097152};
    std::uint64_t same_page = 0;
    std::uint64_t same_block = 0;
    for (const call& c : calls) {
        for (const std::string& name : {c.caller, c.callee}) {
            if (symbols.contains(name)) {
                for (const auto& [address, size] : symbols.at(name)) {
                    functions[address] = std::max(functions[address], size);
                }
            }
        }
        if (symbols.contains(c.caller) && symbols.contains(c.callee)) {
            const std::uint64_t a = symbols.at(c.caller).begin()->first;
            const std::uint64_t b = symbols.at(c.callee).begin()->first;
            if (a != b) {
                distances.insert(distances.end(), c.count, a < b ? b - a : a - b);
                expected.ends[a / 4096] += c.count;
                expected.ends[b / 4096] += c.count;
                same_page += a / 4096 == b / 4096 ? c.count : 0;
                same_block += a / 65536 == b / 65536 ? c.count : 0;
            }
        }
    }
    std::uint64_t bytes = 0;
    for (const auto& [address, size] : functions) {
        bytes += size;
        ++expected.pages[address / 4096];
        for (int i = 0; i < 3; ++i) {
            for (std::uint64_t b = address / sizes[i]; b <= (address + size - 1) / sizes[i]; ++b) {
                blocks[i].insert(b);
            }
        }
    }
    std::sort(distances.begin(), distances.end());
    double sum = 0;
    for (const std::uint64_t distance : distances) {
        sum += static_cast<double>(distance);
    }
    const auto count = static_cast<double>(distances.size());
    expected.figures = {{"functions", functions.size()},
                        {"bytes", bytes},
                        {"calls", distances.size()},
                        {"pages_4k", blocks[0].size()},
                        {"blocks_64k", blocks[1].size()},
                        {"pages_2m", blocks[2].size()},
                        {"mean_distance", sum / count},
                        {"median_distance", distances[(distances.size() - 1) / 2]},
                        {"same_page", 100.0 * static_cast<double>(same_page) / count},
                        {"same_64k", 100.0 * static_cast<double>(same_block) / count}};
    return expected;
}

// The curve and the map of a page.
void expect_drawn(const expectation& expected, const std::string& page) {
    const std::string mark = "<script id=\"data\" type=\"application/json\">";
    const std::size_t start = page.find(mark) + mark.size();
    const json drawn = json::parse(page.substr(start, page.find("</script>", start) - start))["drawn"]["binary"];
    const auto& distances = expected.distances;
    for (const auto& point : drawn["curve"]) {
        const auto near = std::upper_bound(distances.begin(), distances.end(), point[0].get<std::uint64_t>());
        EXPECT_NEAR(point[1].get<double>(),
                    100.0 * static_cast<double>(near - distances.begin()) / static_cast<double>(distances.size()),
                    1e-9);
    }
    EXPECT_EQ(drawn["curve"].back()[1], 100);
    const json& map = drawn["map"];
    EXPECT_EQ(map["pages_per_cell"], 1);
    EXPECT_EQ(map["called"].size(), expected.pages.size());
    for (const auto& cell : map["called"]) {
        const std::uint64_t page_number = map["address"].get<std::uint64_t>() / 4096 + cell[0].get<std::uint64_t>();
        const auto ends = expected.ends.find(page_number);
        EXPECT_EQ(cell[1], ends == expected.ends.end() ? 0 : ends->second);
        EXPECT_EQ(cell[2], expected.pages.at(page_number));
    }
}

// The longest never falling sequence, by the square of the length.
std::size_t longest_rising(const std::vector<std::uint64_t>& addresses) {
    std::vector<std::size_t> best(addresses.size(), 1);
    std::size_t longest = 0;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            best[i] = addresses[j] <= addresses[i] ? std::max(best[i], best[j] + 1) : best[i];
        }
        longest = std::max(longest, best[i]);
    }
    return longest;
}

void expect_same(const json& expected, const json& got) {
    ASSERT_EQ(expected.size(), got.size());
    for (const auto& [key, value] : expected.items()) {
        EXPECT_NEAR(value.get<double>(), got.at(key).get<double>(), 1e-9 * std::abs(value.get<double>())) << key;
    }
}

// Random call graphs and orders over a program of many functions, this tool itself.
TEST(Report, FiguresAreThoseOfBruteForce) {
    const scratch_folder folder;
    const symbol_map symbols = symbols_of(folder, ORDWELL_TOOL);
    ASSERT_GT(symbols.size(), 200U);
    std::vector<std::string> names = {"absent", "printf", "also absent"};
    for (const auto& [name, places] : symbols) {
        names.push_back(name);
    }
    for (unsigned int seed = 0; seed < 12; ++seed) {
        std::mt19937 random(seed);
        std::shuffle(names.begin(), names.end(), random);
        const std::size_t used = 5 + random() % (names.size() - 5);
        std::vector<call> calls;
        std::string rows;
        for (std::size_t i = 0; i < 2 * used; ++i) {
            calls.push_back({names[random() % used], names[random() % used], 1 + random() % 50});
            rows += calls.back().caller + "," + calls.back().callee + "," + std::to_string(calls.back().count) + "\n";
        }
        std::vector<std::string> order(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(used));
        if (seed % 2 == 0) { // mostly in order
            std::sort(order.begin(), order.end() - 5, [&](const std::string& a, const std::string& b) {
                const auto address = [&](const std::string& name) {
                    return symbols.contains(name) ? symbols.at(name).begin()->first : 0;
                };
                return std::pair(address(a), a) < std::pair(address(b), b);
            });
        }
        std::string order_lines;
        std::vector<std::uint64_t> addresses;
        std::size_t several = 0;
        for (const std::string& name : order) {
            order_lines += "--preferred_order=\"" + name + "\"\n";
            if (symbols.contains(name)) {
                addresses.push_back(symbols.at(name).begin()->first);
                several += symbols.at(name).begin()->first != symbols.at(name).rbegin()->first ? 1 : 0;
            }
        }
        folder.write("calls.csv", csv(rows));
        folder.write("order", order_lines);
        const outcome ran = folder.run(
            "ordwell-report --calls=calls.csv --order=order --json=j --html=page " ORDWELL_TOOL " " ORDWELL_TOOL);
        ASSERT_EQ(ran.status, 0) << ran.err;
        const json got = json::parse(folder.read("j"));
        const expectation expected = expected_report(symbols, calls);
        expect_same(expected.figures, got["binary"]);
        expect_drawn(expected, folder.read("page"));
        EXPECT_EQ(got["binary"], got["baseline"]);
        EXPECT_EQ(got["order"]["names"], order.size());
        EXPECT_EQ(got["order"]["found"], addresses.size());
        EXPECT_EQ(got["order"]["missing"].size(), order.size() - addresses.size());
        EXPECT_EQ(got["order"]["several_definitions"], several);
        EXPECT_EQ(got["order"]["in_order"], longest_rising(addresses)) << seed;
        EXPECT_NEAR(got["order"]["placed"].get<double>(),
                    100.0 * static_cast<double>(longest_rising(addresses)) / static_cast<double>(order.size()), 1e-9);
        // The controls: packed functions lie a third of their length apart on average.
        const double bytes = got["binary"]["bytes"];
        EXPECT_EQ(got["bound"]["pages_4k"], std::ceil(bytes / 4096));
        EXPECT_GE(got["random"]["pages_4k"], got["bound"]["pages_4k"]);
        EXPECT_LE(got["random"]["pages_4k"].get<double>(), (bytes + 16.0 * static_cast<double>(used)) / 4096 + 1);
        if (used > 150) {
            EXPECT_NEAR(got["random"]["mean_distance"].get<double>(), bytes / 3, bytes / 8);
        }
        const std::string again = folder.run("ordwell-report --calls=calls.csv --json=j " ORDWELL_TOOL).out;
        EXPECT_EQ(folder.run("ordwell-report --calls calls.csv --seed 1 " ORDWELL_TOOL).out, again);
        EXPECT_NE(folder.run("ordwell-report --calls=calls.csv --seed=2 " ORDWELL_TOOL).out, again);
    }
}

// A program of three functions in the order first, second, third, with a pair of aliases.
class SmallProgram : public testing::Test {
protected:
    void SetUp() override {
        folder.write("p.c",
                     "int third(void);\nint first(void) { return third(); }\nint second(void) { return 2; }\n"
                     "int data = 1;\nint third(void) { return 3; }\n"
                     "int alias(void) __attribute__((alias(\"first\")));\nint main(void) { return first() + data; }\n");
        folder.write("calls.csv", csv("first,third,6\nalias,second,3\nalias,first,9\nsecond,second,9\n"));
        folder.write("order", order_of("second first third gone data puts"));
        ASSERT_EQ(folder
                      .run("gcc -O1 -fno-inline -fno-toplevel-reorder -ffunction-sections p.c -o p && "
                           "nm p | grep -q ' T first'")
                      .status,
                  0);
    }
    json report(const std::string& arguments, int status = 0) const {
        const outcome ran = folder.run("ordwell-report --json=j " + arguments);
        EXPECT_EQ(ran.status, status) << ran.err;
        return json::parse(folder.read("j"));
    }
    scratch_folder folder;
};

TEST_F(SmallProgram, TellsWhetherTheOrderTook) {
    const json got = report("--calls=calls.csv --order=order p");
    const json missing = {{{"name", "gone"}, {"reason", "not there"}},
                          {{"name", "data"}, {"reason", "not a function"}},
                          {{"name", "puts"}, {"reason", "not there"}}};
    const json order = {{"names", 6},    {"found", 3},          {"missing", missing}, {"several_definitions", 0},
                        {"in_order", 2}, {"placed", 100.0 / 3}, {"foreign", 0}}; // second stands between the two others
    EXPECT_EQ(got["order"], order);
    EXPECT_EQ(got["binary"]["functions"], 3); // the alias is no function of its own, nor does it call one
    EXPECT_EQ(got["binary"]["calls"], 9);
    folder.write("few.csv", csv("first,second,3\nfirst,third,2\n")); // the third of five calls is a short one
    const json few = report("--calls=few.csv p")["binary"];
    EXPECT_LT(few["median_distance"].get<double>(), few["mean_distance"].get<double>());
    folder.write("one.csv", csv("first,third,1\n"));
    EXPECT_GT(report("--calls=one.csv p")["binary"]["median_distance"], 0);
    folder.write("order", order_of("first third"));
    EXPECT_EQ(report("--calls=calls.csv --order=order p")["order"]["foreign"], 1);
    EXPECT_EQ(folder.run("ordwell-report --calls=calls.csv --order=order --min-placed=100 p | head -n 1").out,
              "The order took: 100.0 % of its 2 functions stand in it.\n");
    folder.write("order", order_of("third first"));
    EXPECT_EQ(report("--calls=calls.csv --order=order --min-placed=51 --html=page p", 1)["order"]["placed"], 50);
    EXPECT_TRUE(folder.has("page")); // everything is written first
    report("--calls=calls.csv --order=order --min-placed=50 p");
    folder.run("printf 'int puts(const char*); int f(void) { return puts(\"\"); } int main(void) { return f(); }' "
               ">q.c; gcc q.c -o q");
    folder.write("order", order_of("puts f"));
    folder.write("f.csv", csv("f,main,1\n"));
    EXPECT_EQ(report("--calls=f.csv --order=order q")["order"]["missing"][0]["reason"],
              "undefined: bound in a shared library");
}

TEST_F(SmallProgram, ReadsEveryWidthAndByteOrder) {
    for (const char* const target :
         {"powerpc-linux-gnu", "powerpc64-linux-gnu", "i686-linux-gnu", "aarch64-linux-gnu"}) {
        const outcome built =
            folder.run("clang --target="s + target + " -ffreestanding -O1 -fno-inline -ffunction-sections -c " +
                       ORDWELL_SOURCE "/tests/sample/plain.c -o e.o && ld.lld -e first e.o -o e");
        ASSERT_EQ(built.status, target == "powerpc64-linux-gnu"s ? built.status : 0) << built.err;
        if (built.status == 0) { // the linker at hand may not know the old calling convention of the one
            EXPECT_EQ(report("--calls=calls.csv e")["binary"]["calls"], 6) << target;
        }
    }
}

TEST_F(SmallProgram, SaysWhatIsWrong) {
    folder.run("strip -o stripped p");
    folder.write("none.csv", csv("x,y,1\n"));
    folder.write("order", "nonsense\n");
    const std::pair<const char*, const char*> cases[] = {
        {"--calls=calls.csv stripped",
         "stripped: no symbol table: link without -s and strip only the copy that you ship, or "
         "give the file with the separate debug information\n"},
        {"--calls=calls.csv calls.csv", "calls.csv: neither an ELF file nor an archive\n"},
        {"--calls=calls.csv gone", "gone: No such file or directory\n"},
        {"--calls=calls.csv p gone", "gone: No such file or directory\n"},
        {"--calls=none.csv p", "none.csv: none of its 2 functions is in p\n"},
        {"--calls=calls.csv --order=order p", "order:1: not a line of an order file\n"},
        {"--calls=calls.csv --html=no/page p", "no/page: cannot be opened for writing: No such file or directory\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const outcome ran = folder.run("ordwell-report "s + arguments);
        EXPECT_EQ(ran.status, 1) << arguments;
        EXPECT_EQ(ran.err, "ordwell-report: "s + message) << arguments;
    }
    for (const char* const wrong : {"", "p", "--calls=calls.csv", "--calls=calls.csv --min-placed=5 p"}) {
        EXPECT_EQ(folder.run("ordwell-report "s + wrong).status, 2) << wrong;
    }
    folder.write("bad.csv", csv("first,third,6\nbad\nfirst,second,1\n"));
    EXPECT_EQ(report("--calls=bad.csv --html=page p", 1)["incomplete"], true);
    EXPECT_EQ(report("--calls=bad.csv p", 1)["binary"]["calls"], 6);
    EXPECT_NE(folder.read("page").find("The call graph has a bad row; this report is incomplete."), std::string::npos);
    const outcome ran = folder.run("ordwell-report --calls=bad.csv p | head -n 1");
    EXPECT_EQ(ran.out, "The call graph has a bad row; this report is incomplete.\n");
    EXPECT_EQ(
        ran.err,
        "error: Error reading callee function specification from bad.csv, line 3;\n   remainder of file ignored\n");
}

// The page of the demo's kind: this tool against itself, in a real browser.
TEST(Report, ThePageDrawsTheFigures) {
    const scratch_folder folder;
    std::string rows;
    std::string order;
    const symbol_map symbols = symbols_of(folder, ORDWELL_TOOL);
    const std::string* last = nullptr;
    for (const auto& [name, places] : symbols) {
        rows += last == nullptr ? "" : *last + "," + name + "," + std::to_string(1 + rows.size() % 977) + "\n";
        order += "--preferred_order=\"" + name + "\"\n";
        last = &name;
    }
    folder.write("calls.csv", csv(rows + "</script><b>,absent,5\n"));
    folder.write("order", order + "--preferred_order=\"</script><b>&amp;\"\n");
    const outcome ran = folder.run(R"(
        ordwell-report --calls=calls.csv --order=order --html=page.html --json=j )" ORDWELL_TOOL " " ORDWELL_TOOL
                                   R"( >text
        # The page forbids itself all requests, so that one would be reported on the console.
        chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
            --disable-component-update --disable-sync --user-data-dir="$PWD/profile" --enable-logging=stderr \
            --dump-dom "file://$PWD/page.html" >dom 2>log
        grep CONSOLE log; grep -c 'http' page.html)");
    EXPECT_EQ(ran.out, "2\n"); // the namespace of SVG, and "http-equiv"
    const std::string dom = folder.read("dom");
    const std::string text = folder.read("text");
    const auto has = [&](const std::string& wanted) { return dom.find(wanted) != std::string::npos; };
    EXPECT_TRUE(has("data-drawn=\"yes\"")) << folder.read("log");
    EXPECT_TRUE(has("data-layout=\"binary\"") && has("data-layout=\"baseline\"") && has("data-curves=\"2\""));
    EXPECT_TRUE(has("&lt;/script&gt;&lt;b&gt;&amp;amp;</td><td>not there</td>"));
    EXPECT_TRUE(has(text.substr(0, text.find('\n'))));
    // Every figure of the text table stands in the page's.
    std::istringstream lines(text);
    int checked = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > 28 && line.find(',') < line.size() && line[0] >= 'a' && line[0] <= 'z') {
            std::istringstream cells(line.substr(28));
            for (std::string cell; cells >> cell;) {
                checked += cell == "%" ? 0 : 1;
                EXPECT_TRUE(cell == "%" || has(">" + cell + "</td>") || has(">" + cell + " %</td>")) << line;
            }
        }
    }
    EXPECT_GE(checked, 9);
    const std::size_t cells = std::stoul(folder.run("grep -o '<rect ' dom | wc -l").out);
    EXPECT_GT(cells, 10U);
    EXPECT_LE(cells, 2 * json::parse(folder.read("j"))["binary"]["pages_4k"].get<std::size_t>());
    EXPECT_LT(folder.read("page.html").size(), 2000000U);
}

} // namespace
