// ordwell-report from outside: its figures against a computation by brute force from what readelf and the files say, its
// gates, its files, and its bad input. Verdicts on really linked programs are in test_report_verdicts.cpp, the page in a
// real browser in test_report_page.cpp.
#include "tests/report_program.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <set>

namespace {

using namespace std::string_literals;
using nlohmann::json;

struct call {
    std::string caller;
    std::string callee;
    std::uint64_t count;
};

// The least number of pages that hold so many percent of the ends of calls.
std::size_t hot_pages(const std::map<std::uint64_t, std::uint64_t>& ends, std::uint64_t all, std::uint64_t percent) {
    std::multiset<std::uint64_t, std::greater<>> heats;
    for (const auto& [page, count] : ends) {
        heats.insert(count);
    }
    std::uint64_t held = 0;
    std::size_t pages = 0;
    for (auto heat = heats.begin(); held * 100 < all * percent; ++heat, ++pages) {
        held += *heat;
    }
    return pages;
}

// What a report says of the calls, the slow way.
json expected_figures(const symbol_map& symbols, const std::vector<call>& calls, std::uint64_t& all_calls) {
    std::set<std::uint64_t> starts;
    std::set<std::uint64_t> bytes;
    std::vector<std::uint64_t> distances;        // one for each call, sorted
    std::map<std::uint64_t, std::uint64_t> ends; // of calls, by page
    const std::uint64_t sizes[3] = {4096, 65536, 2097152};
    std::uint64_t same[2] = {0, 0};
    all_calls = 0;
    for (const call& c : calls) {
        for (const std::string& name : {c.caller, c.callee}) {
            for (const auto& [address, size] : symbols.contains(name) ? symbols.at(name) : std::set<place>()) {
                starts.insert(address);
                for (std::uint64_t byte = address; byte < address + size; ++byte) {
                    bytes.insert(byte);
                }
            }
        }
        const bool is_inner = symbols.contains(c.caller) && symbols.contains(c.callee);
        const std::uint64_t a = is_inner ? symbols.at(c.caller).begin()->first : 0;
        const std::uint64_t b = is_inner ? symbols.at(c.callee).begin()->first : 0;
        all_calls += is_inner ? (a != b ? c.count : 0) : c.caller != c.callee ? c.count : 0;
        if (a != b) {
            distances.insert(distances.end(), c.count, a < b ? b - a : a - b);
            ends[a / 4096] += c.count;
            ends[b / 4096] += c.count;
            same[0] += a / 4096 == b / 4096 ? c.count : 0;
            same[1] += a / 65536 == b / 65536 ? c.count : 0;
        }
    }
    std::set<std::uint64_t> blocks[3];
    for (const std::uint64_t byte : bytes) {
        for (int i = 0; i < 3; ++i) {
            blocks[i].insert(byte / sizes[i]);
        }
    }
    std::sort(distances.begin(), distances.end());
    double sum = 0;
    for (const std::uint64_t distance : distances) {
        sum += static_cast<double>(distance);
    }
    const auto count = static_cast<double>(distances.size());
    return {{"functions", starts.size()},
            {"bytes", bytes.size()},
            {"calls", distances.size()},
            {"pages_4k", blocks[0].size()},
            {"blocks_64k", blocks[1].size()},
            {"pages_2m", blocks[2].size()},
            {"hot_pages_90", hot_pages(ends, 2 * distances.size(), 90)},
            {"hot_pages_99", hot_pages(ends, 2 * distances.size(), 99)},
            {"mean_distance", sum / count},
            {"median_distance", distances[(distances.size() - 1) / 2]},
            {"same_page", 100.0 * static_cast<double>(same[0]) / count},
            {"same_64k", 100.0 * static_cast<double>(same[1]) / count},
            {"cold_faults", nullptr},
            {"cold_faults_around", nullptr}};
}

// The longest rising sequence, by the square of the length.
std::size_t longest_rising(const std::vector<std::uint64_t>& addresses) {
    std::vector<std::size_t> best(addresses.size(), 1);
    std::size_t longest = 0;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            best[i] = addresses[j] < addresses[i] ? std::max(best[i], best[j] + 1) : best[i];
        }
        longest = std::max(longest, best[i]);
    }
    return longest;
}

// What a report says of an order, byte by byte. The reasons of missing names and the hole's function are looked at elsewhere.
void expect_order(const symbol_map& symbols, const std::vector<std::string>& order, const json& got) {
    std::vector<std::uint64_t> addresses;
    std::set<std::uint64_t> owned;
    std::set<std::string> seen;
    std::size_t found = 0;
    std::uint64_t low = UINT64_MAX;
    std::uint64_t high = 0;
    for (const std::string& name : order) {
        if (!seen.insert(name).second || !symbols.contains(name)) {
            continue;
        }
        ++found;
        for (const auto& [address, size] : symbols.at(name)) {
            for (std::uint64_t byte = address; byte < address + size; ++byte) {
                owned.insert(byte);
            }
        }
        const std::uint64_t address = symbols.at(name).begin()->first;
        if (std::find(addresses.begin(), addresses.end(), address) == addresses.end()) {
            addresses.push_back(address);
            low = std::min(low, address);
            for (const auto& [start, size] : symbols.at(name)) {
                high = start == address ? std::max(high, start + size) : high;
            }
        }
    }
    std::uint64_t gaps = 0;
    std::uint64_t run = 0;
    std::uint64_t longest = 0;
    std::uint64_t longest_at = 0;
    for (std::uint64_t byte = low; byte < high; ++byte) {
        run = owned.contains(byte) ? 0 : run + 1;
        gaps += run != 0 ? 1 : 0;
        if (run > longest) {
            longest = run;
            longest_at = byte + 1 - run;
        }
    }
    const std::size_t rising = longest_rising(addresses);
    EXPECT_EQ(got["names"], seen.size());
    EXPECT_EQ(got["found"], found);
    EXPECT_EQ(got["folded"], found - addresses.size());
    EXPECT_EQ(got["in_order"], rising);
    EXPECT_NEAR(got["placed"].get<double>(),
                100.0 * static_cast<double>(rising) / static_cast<double>(addresses.size()), 1e-9);
    EXPECT_NEAR(got["found_share"].get<double>(), 100.0 * static_cast<double>(found) / static_cast<double>(seen.size()),
                1e-9);
    EXPECT_EQ(got["missing"].size(), seen.size() - found);
    EXPECT_EQ(got["gap_bytes"], gaps);
    EXPECT_EQ(got["largest_hole"].is_null(), longest == 0);
    if (longest != 0) {
        EXPECT_EQ(got["largest_hole"]["bytes"], longest);
        EXPECT_EQ(got["largest_hole"]["address"], longest_at);
    }
}

void expect_same(const json& expected, const json& got) {
    ASSERT_EQ(expected.size(), got.size());
    for (const auto& [key, value] : expected.items()) {
        EXPECT_EQ(value.is_null(), got.at(key).is_null()) << key;
        if (!value.is_null()) {
            EXPECT_NEAR(value.get<double>(), got.at(key).get<double>(), 1e-9 * std::abs(value.get<double>())) << key;
        }
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
    for (unsigned int seed = 0; seed < 6; ++seed) {
        std::mt19937 random(seed);
        std::shuffle(names.begin(), names.end(), random);
        const std::size_t used = 5 + random() % (names.size() - 5);
        std::vector<call> calls;
        std::string rows[2];
        for (std::size_t i = 0; i < 2 * used; ++i) {
            calls.push_back({names[random() % used], names[random() % used], 1 + random() % 50});
            rows[i % 2] +=
                calls.back().caller + "," + calls.back().callee + "," + std::to_string(calls.back().count) + "\n";
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
        order.push_back(order.front()); // twice
        folder.write("1.csv", csv(rows[0]));
        folder.write("2.csv", csv("absent,absent,7\n" + rows[1] + "\"x,y,1\nx,y,0\n"));
        folder.write("order", order_lines(order));
        const outcome ran = folder.run("ordwell-report --calls=1.csv --calls=2.csv --order=order --json=j " ORDWELL_TOOL
                                       " " ORDWELL_TOOL);
        ASSERT_EQ(ran.status, 0) << ran.err;
        const json got = json::parse(folder.read("j"));
        const json& layouts = got["layouts"];
        std::uint64_t all_calls = 0;
        const json expected = expected_figures(symbols, calls, all_calls);
        expect_same(expected, layouts["binary"]);
        expect_order(symbols, order, got["order"]);
        EXPECT_EQ(layouts["binary"], layouts["baseline"]);
        EXPECT_EQ(got["calls"]["rows"], 2 * used + 1);
        EXPECT_EQ(got["calls"]["total"], all_calls);
        EXPECT_NEAR(got["calls"]["covered"].get<double>(),
                    100.0 * expected["calls"].get<double>() / static_cast<double>(all_calls), 1e-9);
        // The controls: packed functions lie a third of their length apart on average.
        const double bytes = expected["bytes"];
        EXPECT_EQ(layouts["bound"]["pages_4k"], std::ceil(bytes / 4096));
        EXPECT_GE(layouts["random"]["pages_4k"], layouts["bound"]["pages_4k"]);
        EXPECT_LE(layouts["random"]["pages_4k"].get<double>(), (bytes + 16.0 * static_cast<double>(used)) / 4096 + 1);
        if (used > 150) {
            EXPECT_NEAR(layouts["random"]["mean_distance"].get<double>(), bytes / 3, bytes / 8);
            EXPECT_LT(layouts["random"]["deviation"]["mean_distance"].get<double>(), bytes / 10);
        }
        const auto text = [&](const std::string& options) {
            return folder.run("ordwell-report --calls=1.csv " + options + " " ORDWELL_TOOL).out;
        };
        EXPECT_EQ(text("--seed 1"), text(""));
        EXPECT_NE(text("--seed=2"), text(""));
    }
}

TEST_F(ReportProgram, SaysAllKeys) {
    const json got = report("--calls=calls.csv --order=order --min-placed=50 p");
    const json missing = {{{"name", "gone"}, {"reason", "absent"}},
                          {{"name", "data"}, {"reason", "no_function"}},
                          {{"name", "puts"}, {"reason", "undefined"}},
                          {{"name", "half"}, {"reason", "cold_part"}},
                          {{"name", "space::plus(int)"}, {"reason", "mangled"}}};
    EXPECT_EQ(got["order"]["missing"], missing);
    EXPECT_EQ(got["format"], 2);
    EXPECT_EQ(got["tool"]["name"], "ordwell-report");
    EXPECT_EQ(got["binary"], (json{{"path", "p"}, {"build_id", "0123456789abcdef"}}));
    EXPECT_EQ(got["baseline"], nullptr);
    EXPECT_EQ(got["order"]["path"], "order");
    // first and alias are one function, so alias is folded; second lies between first and third.
    EXPECT_EQ(got["order"]["found"], 4);
    EXPECT_EQ(got["order"]["folded"], 1);
    EXPECT_EQ(got["order"]["in_order"], 2);
    EXPECT_EQ(got["calls"], (json{{"paths", {"calls.csv"}}, {"rows", 4}, {"total", 9}, {"covered", 100}}));
    EXPECT_EQ(got["verdict"]["word"], "wrong_profile");
    EXPECT_EQ(got["layouts"]["binary"]["functions"], 3); // the alias is no function of its own, nor does it call one
    EXPECT_EQ(got["layouts"]["bound"]["mean_distance"], nullptr);
    EXPECT_EQ(got["layouts"]["candidates"], json::array());
    EXPECT_EQ(got["gates"],
              json::parse(R"([{"name": "min-placed", "wanted": 50, "measured": 66.66666666666667, "met": true}])"));

    // Rows to oneself are no calls: a report of nulls.
    folder.write("self.csv", csv("first,first,5\n"));
    const json self = report("--calls=self.csv p");
    EXPECT_EQ(self["order"], nullptr);
    EXPECT_EQ(self["verdict"]["word"], "none");
    EXPECT_EQ(self["calls"]["covered"], nullptr);
    EXPECT_EQ(self["calls"]["rows"], 1);
    EXPECT_EQ(self["layouts"]["random"]["mean_distance"], nullptr);
    EXPECT_EQ(self["layouts"]["random"]["deviation"]["hot_pages_90"], nullptr);
    // Exactly 90 % is 90 %; below, the verdict says so.
    folder.write("90.csv", csv("first,third,9\ngone,third,1\n"));
    EXPECT_EQ(report("--calls=90.csv --min-covered=90 p")["verdict"]["why"], "no order was given");
    folder.write("89.csv", csv("first,third,8999\ngone,third,1001\n"));
    const json low = report("--calls=89.csv --min-covered=90 p", 3);
    EXPECT_EQ(low["verdict"]["why"], "no order was given; only 89.9 % of the calls are between functions of p");
    folder.write("share.csv",
                 csv("first,third,794\ngone,third,9206\n")); // no whole number of percents, and met exactly
    EXPECT_EQ(report("--calls=share.csv --min-covered=7.94 p")["calls"]["covered"], 7.94);
    // A baseline that lacks functions is no fair comparison, and the text says so.
    EXPECT_NE(folder.run("objcopy --strip-symbol=second p q; ordwell-report --calls=calls.csv p q")
                  .out.find("\nagainst q, which has only 6 of the 9 calls (another program?):\n"),
              std::string::npos);
    // Sums stay at the largest weight.
    folder.write("much.csv", csv("first,third,4294967295\n"));
    EXPECT_EQ(report("--calls=much.csv --calls=much.csv p")["calls"]["total"], 4294967295U);
}

// Orders of overlapping functions, and of functions that the calls do not have, are foretold as a linker places them.
TEST_F(ReportProgram, ForetellsACandidate) {
    folder.write("other", order_lines({"main", "third", "first", "second"}));
    ASSERT_EQ(folder
                  .run("for f in main third first second; do echo $f; done >list && " + link +
                       " -fuse-ld=lld -Wl,--symbol-ordering-file=list -o q")
                  .status,
              0);
    const json got = report("--calls=calls.csv --candidate=other --candidate=order --no-worse p", 3);
    const json linked = report("--calls=calls.csv q");
    EXPECT_EQ(got["layouts"]["candidates"].size(), 2U);
    EXPECT_EQ(got["layouts"]["candidates"][0]["path"], "other");
    for (const char* const key : {"pages_4k", "mean_distance", "median_distance", "hot_pages_90"}) {
        EXPECT_EQ(got["layouts"]["candidates"][0][key], linked["layouts"]["binary"][key]) << key;
    }
    EXPECT_EQ(got["gates"].size(), 3U);
    EXPECT_EQ(got["gates"][2]["name"], "no-worse mean_distance");
    EXPECT_NEAR(got["gates"][2]["wanted"].get<double>(),
                1.01 * linked["layouts"]["binary"]["mean_distance"].get<double>(), 1e-9);
    // What an order leaves out is not packed by a link, and every form says so.
    folder.write("few", order_lines({"first", "main"}));
    EXPECT_EQ(folder
                  .run("ordwell-report --calls=calls.csv --candidate=other --candidate=few --markdown=m --html=h p >t; "
                       "grep -c ': few names 1 of the 3 called functions' t m h; grep -c other.names t")
                  .out,
              "t:1\nm:1\nh:1\n0\n");
}

TEST_F(ReportProgram, GatesEndWithThree) {
    struct {
        const char* options;
        int status;
        const char* message;
    } const cases[] = {
        {"--order=order --min-placed=66.6", 0, ""},
        {"--order=order --min-placed=66.7", 3, "min-placed: wanted at least 66.7 %, measured 66.67 %\n"},
        {"--order=order --min-found=44.5", 3, "min-found: wanted at least 44.5 %, measured 44.44 %\n"},
        {"--order=none --min-placed=0 --min-found=0", 3, "min-placed: wanted at least 0 %, measured none\n"},
        {"--min-covered=100", 0, ""},
        {"--no-worse --candidate=order", 3, "no-worse mean_distance: wanted at most "},
        {"--min-placed=50", 2, "--min-placed requires --order\n"},
        {"--no-worse", 2, "--no-worse requires BASELINE or --candidate\n"},
        {"--order=order --min-found=100.1", 2, "--min-found: 100.1 is no number from 0 to 100\n"},
        {"--order=order --min-found=nan", 2, "--min-found: nan is no number from 0 to 100\n"},
        {"--no-worse=false --candidate=order", 2, "--no-worse takes no value"},
        {"--seed=-1", 2, "--seed: -1 is no whole number"},
        {"--json=- --html=-", 2, "only one of --html, --json and --markdown can go to standard output\n"},
    };
    folder.write("none", order_lines({"gone"}));
    for (const auto& [options, status, message] : cases) {
        const outcome ran = folder.run("ordwell-report --calls=calls.csv "s + options + " p");
        EXPECT_EQ(ran.status, status) << options;
        EXPECT_TRUE(ran.err.starts_with(*message == 0 ? "" : "ordwell-report: "s + message)) << options << ran.err;
        EXPECT_EQ(ran.out.empty(), status == 2) << options;
    }
}

TEST_F(ReportProgram, ReadsEveryWidthAndByteOrder) {
    for (const char* const target :
         {"powerpc-linux-gnu", "powerpc64-linux-gnu", "i686-linux-gnu", "aarch64-linux-gnu"}) {
        const outcome built =
            folder.run("clang --target="s + target + " -ffreestanding -O1 -fno-inline -ffunction-sections -c " +
                       ORDWELL_SOURCE "/tests/sample/plain.c -o e.o && ld.lld --build-id=0xfedcba98 -e first e.o -o e");
        ASSERT_EQ(built.status, target == "powerpc64-linux-gnu"s ? built.status : 0) << built.err;
        if (built.status == 0) { // the linker at hand may not know the old calling convention of the one
            const json got = report("--calls=calls.csv --first-run=order e");
            EXPECT_EQ(got["layouts"]["binary"]["calls"], 6) << target;
            EXPECT_EQ(got["layouts"]["binary"]["cold_faults"], 1) << target;
            EXPECT_EQ(got["binary"]["build_id"], "fedcba98") << target;
        }
    }
}

TEST_F(ReportProgram, SaysWhatIsWrong) {
    folder.run("strip -o stripped p; gcc -c p.c; : >empty; ar rc a.a p.o");
    folder.write("none.csv", csv("x,y,1\n"));
    folder.write("bad.csv", csv("first,third,6\nbad\nfirst,second,1\n"));
    folder.write("weighed.csv", "\"caller\",\"callee\",\"weight\" weighed\r\nfirst,third,6\r\n");
    folder.write("head.csv", csv(""));
    folder.write("nonsense", "nonsense\n");
    folder.run("printf 'int x = 1;' | gcc -x c -shared -nostdlib - -o data.so");
    const std::pair<const char*, const char*> cases[] = {
        {"--calls=calls.csv stripped", "ordwell-report: stripped: no symbol table: link without -s"},
        {"--calls=calls.csv calls.csv", "ordwell-report: calls.csv: neither an ELF file nor an archive"},
        {"--calls=calls.csv empty", "ordwell-report: empty: an empty file"},
        {"--calls=calls.csv p.o", "ordwell-report: p.o: an object file: give the linked program"},
        {"--calls=calls.csv a.a", "ordwell-report: a.a: an archive: give the linked program"},
        {"--calls=calls.csv data.so", "ordwell-report: data.so: no symbol is a function of known size: give"},
        {"--calls=calls.csv gone", "ordwell-report: gone: No such file or directory"},
        {"--calls=calls.csv p gone", "ordwell-report: gone: No such file or directory"},
        {"--calls=none.csv p", "ordwell-report: none.csv: none of its 2 functions is in p"},
        {"--calls=calls.csv --order=nonsense p", "ordwell-report: nonsense:1: not a line of an order file"},
        {"--calls=calls.csv --order=empty p", "ordwell-report: empty: no name in it"},
        {"--calls=calls.csv --candidate=empty p", "ordwell-report: empty: no name in it"},
        {"--calls=weighed.csv p", "ordwell-report: weighed.csv: holds weights for the layout"},
        {"--calls=head.csv p", "ordwell-report: head.csv: there are no rows"},
        {"--calls=bad.csv p", "error: Error reading callee function specification from bad.csv, line 3;"},
        {"--calls=calls.csv --calls=missing p", "error: Error opening input file missing"},
        {"--calls=calls.csv --html=no/page p", "ordwell-report: no/page: cannot be opened for writing: No such file"},
    };
    for (const auto& [arguments, message] : cases) {
        const outcome ran = folder.run("ordwell-report --json=j "s + arguments);
        EXPECT_EQ(ran.status, 1) << arguments;
        EXPECT_TRUE(ran.err.starts_with(message)) << arguments << "\n" << ran.err;
        EXPECT_EQ(ran.out, "") << arguments;
        EXPECT_FALSE(folder.has("j")) << arguments;
    }
    for (const char* const wrong : {"", "p", "--calls=calls.csv", "--calls=calls.csv --read-ahead=4 p"}) {
        EXPECT_EQ(folder.run("ordwell-report "s + wrong).status, 2) << wrong;
    }
}

} // namespace
