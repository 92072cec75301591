// The verdicts of ordwell-report, one by one, on programs that real linkers made; and the faults of a cold start, foretold
// for functions whose pages are known by construction.
#include "tests/report_program.h"

namespace {

using namespace std::string_literals;
using nlohmann::json;

// Forty functions in four sources, which call each other round; the order is a fixed shuffle of them.
class Verdict : public testing::Test {
protected:
    void SetUp() override {
        std::string rows;
        for (int i = 0; i < count; ++i) {
            order.push_back("f" + std::to_string(i * 27 % count));
            rows +=
                "f" + std::to_string(i) + ",f" + std::to_string((i + 1) % count) + "," + std::to_string(i + 1) + "\n";
        }
        for (int source = 0; source < 4; ++source) {
            std::string text;
            for (int i = 10 * source; i < 10 * source + 10; ++i) { // every third is like the others of its kind
                text += "int f" + std::to_string(i) + "(int i) { return i * " + std::to_string(i % 3 == 0 ? 3 : i + 5) +
                        "; }\n";
            }
            folder.write("s" + std::to_string(source) + ".c",
                         text + (source == 0 ? "int main(void) { return 0; }\n" : ""));
        }
        folder.write("calls.csv", csv(rows));
        write_order("order", order);
        ASSERT_EQ(folder
                      .run("for f in -ffunction-sections -fno-function-sections; do mkdir ./$f && cp s?.c ./$f && "
                           "(cd ./$f && gcc -O1 $f -c s?.c) || exit 1; done; gcc ./-ffunction-sections/*.o -o plain")
                      .status,
                  0);
    }
    void write_order(const std::string& name, const std::vector<std::string>& names) const {
        std::string list;
        for (const std::string& one : names) {
            list += one + "\n";
        }
        folder.write(name, order_lines(names));
        folder.write(name + ".list", list);
    }
    // Links objects compiled so, in that order, to the program p.
    void link(const std::string& linker, const std::string& compiled = "-ffunction-sections",
              const std::string& flags = "", const std::string& name = "order") const {
        const std::string objects = linker == "lld"
                                        ? ""
                                        : " --objects=" + compiled + "/s0.o --objects=" + compiled +
                                              "/s1.o --objects=" + compiled + "/s2.o --objects=" + compiled + "/s3.o";
        const outcome ran =
            folder.run("option=$(cd . && ordwell-export --linker=" + linker + objects + " -o list " + name +
                       " 2>&1 | sed -n 's/.*link with //p'); gcc $option " + flags + " ./" + compiled + "/*.o -o p");
        ASSERT_EQ(ran.status, 0) << ran.err;
    }
    json report(const std::string& arguments) const {
        const outcome ran = folder.run("ordwell-report --calls=calls.csv --json=j " + arguments);
        EXPECT_EQ(ran.status, 0) << ran.err;
        json got = json::parse(folder.read("j"));
        const json& verdict = got["verdict"];
        EXPECT_EQ(ran.out.substr(0, ran.out.find('\n')), verdict["word"].get<std::string>() + ": " +
                                                             verdict["why"].get<std::string>() + ". " +
                                                             verdict["advice"].get<std::string>() + ".");
        EXPECT_NE(ran.out.find("\nagainst "), std::string::npos);
        return got;
    }
    std::string word(const std::string& arguments) const { return report(arguments)["verdict"]["word"]; }

    static constexpr int count = 40;
    std::vector<std::string> order;
    scratch_folder folder;
};

TEST_F(Verdict, TookWithEveryLinker) {
    for (const char* const linker : {"lld", "gold", "ld"}) {
        link(linker);
        const json got = report("--order=order p plain");
        EXPECT_EQ(got["verdict"]["word"], "took") << linker;
        EXPECT_EQ(got["order"]["in_order"], count);
        const outcome text = folder.run("ordwell-report --calls=calls.csv --order=order p");
        EXPECT_NE(text.out.find("\nin order "), std::string::npos);
        EXPECT_EQ(word("--order=order plain"), "did_not_take");
        EXPECT_EQ(report("--order=order plain p")["verdict"]["advice"],
                  "Give the two programs the other way round: the order is in the baseline");
    }
    EXPECT_EQ(word("plain"), "none");
}

TEST_F(Verdict, SaysWhatWentWrong) {
    std::vector<std::string> names(order.rbegin(), order.rend());
    write_order("reverse", names);
    link("lld", "-ffunction-sections", "", "reverse");
    EXPECT_EQ(word("--order=order p"), "reversed");

    // Another build: some names are gone, then most.
    link("lld");
    names = order;
    names.insert(names.end(), {"gone1", "gone2", "gone3"});
    write_order("more", names);
    EXPECT_EQ(word("--order=more p"), "stale");
    for (int i = 0; i < count - 2; ++i) {
        names.push_back("gone" + std::to_string(i + 4));
    }
    write_order("most", names);
    EXPECT_EQ(word("--order=most p"), "wrong_profile");

    // Whole sources as sections: what the baseline had as neighbours stays so.
    folder.run("gcc ./-fno-function-sections/*.o -o whole");
    std::vector<std::string> by_source = order;
    std::stable_sort(by_source.begin(), by_source.end(), [](const std::string& a, const std::string& b) {
        return (a.size() > 2 ? a[1] : '0') > (b.size() > 2 ? b[1] : '0');
    });
    write_order("sources", by_source);
    link("lld", "-fno-function-sections", "", "sources");
    const json runs = report("--order=sources p whole");
    EXPECT_EQ(runs["verdict"]["word"], "took_partly");
    EXPECT_NE(runs["verdict"]["why"].get<std::string>().find("runs of functions that stand as in the source"),
              std::string::npos);
    EXPECT_EQ(runs["verdict"]["advice"], "Compile everything with -ffunction-sections");
}

TEST_F(Verdict, FoldedFunctionsCountOnce) {
    link("lld", "-ffunction-sections", "-Wl,--icf=all");
    const json got = report("--order=order p");
    EXPECT_EQ(got["order"]["folded"], 13); // of the fourteen functions that are alike
    EXPECT_EQ(got["order"]["found"], count);
    EXPECT_EQ(got["order"]["placed"], 100);
    EXPECT_EQ(got["verdict"]["word"], "took");
    // Half of the order is another: folding is a reason that the files show.
    std::vector<std::string> half = order;
    std::reverse(half.begin() + count / 2, half.end());
    write_order("half", half);
    const json partly = report("--order=half p");
    EXPECT_EQ(partly["verdict"]["word"], "took_partly");
    EXPECT_NE(partly["verdict"]["why"].get<std::string>().find("folded functions (13)"), std::string::npos);
    // Identical functions are measured once.
    EXPECT_EQ(partly["layouts"]["binary"]["functions"], count - 13);
}

// Functions of one page each: what a fault reads decides how many there are.
TEST_F(Verdict, ForetellsColdStarts) {
    std::string assembly = ".globl _start\n_start: ret\n.balign 4096\n";
    std::string rows;
    std::vector<std::string> forward;
    for (int i = 0; i < 64; ++i) {
        const std::string name = "g" + std::to_string(i);
        assembly +=
            ".globl " + name + "\n.type " + name + ",@function\n" + name + ": .skip 4096\n.size " + name + ", 4096\n";
        forward.push_back(name);
        rows += name + ",g0," + std::to_string(i + 1) + "\n";
    }
    folder.write("g.s", assembly);
    folder.write("calls.csv", csv(rows));
    ASSERT_EQ(folder.run("gcc -c g.s && ld.lld g.o -o g").status, 0);
    std::vector<std::string> backward(forward.rbegin(), forward.rend());
    backward.insert(backward.begin(), "gone"); // left out
    write_order("forward", forward);
    write_order("backward", backward);
    write_order("some", {"g40", "g0", "g41", "g8", "g7", "g63"});
    struct {
        const char* list;
        int kib;
        int ahead;
        int around;
    } const cases[] = {
        {"forward", 128, 2, 4},   // pages 0 and 32; 0 to 15, then 16 to 31 at each of 16, 32, 48
        {"backward", 128, 64, 4}, // nothing ahead is new; 63 reads 47 to 63, 46 reads 30 to 61, 29, 12
        {"some", 32, 4, 4},       // 40-47, 0-7, 8-15, 63; 36-43, 0-3, 4-11, 59-63
        {"some", 1, 6, 6},        // a page at least
        {"some", 262144, 2, 1},   // 40 to the end, 0; all around 40
    };
    for (const auto& [list, kib, ahead, around] : cases) {
        const json layouts = report("--first-run="s + list + " --read-ahead=" + std::to_string(kib) + " g")["layouts"];
        EXPECT_EQ(layouts["binary"]["cold_faults"], ahead) << list << kib;
        EXPECT_EQ(layouts["binary"]["cold_faults_around"], around) << list << kib;
        EXPECT_TRUE(layouts["bound"]["cold_faults"].is_null());
        EXPECT_FALSE(layouts["random"]["deviation"]["cold_faults"].is_null());
    }
    write_order("other", {"g1", "x", "y", "g1"});
    EXPECT_EQ(
        folder
            .run("ordwell-report --calls=calls.csv --first-run=other --json=j g 2>&1 | grep -o 'it has.*\\|ordwell-.*'")
            .out,
        "it has 1 of the first run's 3 functions\n"
        "ordwell-report: other: g has only 1 of its 3 functions: give the first run of this program, imported with "
        "--binary\n");
    EXPECT_EQ(json::parse(folder.read("j"))["first_run"].dump(), R"({"found":1,"names":3,"path":"other"})");
    // An order of the first execution makes the same start one of reading ahead.
    const json turned = report("--first-run=backward --candidate=backward g")["layouts"];
    EXPECT_EQ(turned["candidates"][0]["cold_faults"], 2);
    EXPECT_EQ(
        folder
            .run("ordwell-report --calls=calls.csv --first-run=backward --candidate=backward --no-worse g 2>&1 >text | "
                 "grep cold; grep -c '^  faults of a cold start: ' text")
            .out,
        "ordwell-report: no-worse cold_faults: wanted at most 2.02, measured 64\n1\n");
}

} // namespace
