// ordwell-import: where names come from, and input that a user hands over by mistake. Programs are linked, and profiles
// recorded, by the tests themselves; those of exact names and addresses are assembled.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

/// A folder with a program of 16-byte functions from 0x401000 on.
class ImportNames : public testing::Test {
protected:
    void SetUp() override {
        folder.write("a.s",
                     ".macro fn name, size=16\n.type \"\\name\",@function\n\"\\name\": .skip 16\n"
                     ".size \"\\name\",\\size\n.endm\n.globl main, alias_g, _ZN4shop5orderEi, _ZN4shop5orderEd\n"
                     "fn main\n.type alias_l,@function\nalias_l:\nfn alias_g\nfn helper\nfn _ZN4shop5orderEi.part.0\n"
                     "fn _ZN4shop5orderEd\nfn _ZN4shop5orderEi\nfn f.llvm.77\nfn two.llvm.1\nfn two.llvm.2\n"
                     "fn short, 8\nfn odd@name\n");
        folder.write("b.s", ".globl second_helper\n.type helper,@function\n.type second_helper,@function\n"
                            "helper:\nsecond_helper: .skip 16\n.size helper,16\n.size second_helper,16\n");
        ASSERT_EQ(folder.run("as a.s -o a.o && as b.s -o b.o && ld -Ttext=0x401000 -e main a.o b.o -o app").err, "");
    }

    // The one call of main in the CSV, to a function that callgrind knows by a name and perhaps an address; what was told.
    std::string imported(const std::string& name, const std::string& address) const {
        const std::string at = address.empty() ? "" : "0x4010" + address + " ";
        folder.write("p", (address.empty() ? "" : "positions: instr line\n"s) + "events: Ir\nfn=main\n" +
                              (address.empty() ? "" : "0x401000 ") + "1 1\ncfn=" + name + "\ncalls=1 " + at + "1\n" +
                              (address.empty() ? "" : "0x401004 ") + "1 1\n");
        const std::string out = folder.run("ordwell-import --binary=app p 2>said").out;
        return out.substr(csv("main,").size());
    }

    scratch_folder folder;
};

TEST_F(ImportNames, ComeFromTheNameThenFromTheAddress) {
    const struct {
        const char* name;
        const char* address; ///< behind 0x4010; empty: callgrind has none
        const char* expected;
    } cases[] = {
        {"alias_l", "", "alias_g"},
        {"alias_g", "", "alias_g"},
        {"alias_g@@V2", "", "alias_g"},
        {"odd@name", "", "odd"}, // a version is no part of a symbol
        {"helper", "", "helper"},
        {"helper", "24", "helper"},
        {"helper", "b4", "second_helper"},
        {"helper", "04", "helper"},
        {"shop::order(double)", "", "_ZN4shop5orderEd"},
        {"shop::order", "", "_ZN4shop5orderEd"}, // the lowest that is no clone
        {"shop::order", "54", "_ZN4shop5orderEi"},
        {"shop::order(int) [clone .part.0]", "", "_ZN4shop5orderEi.part.0"},
        {"f.llvm.5", "", "f.llvm.77"},
        {"f", "", "f.llvm.77"},
        {"two.llvm.5", "", "main"}, // none of two: only main is left
        {"two.llvm.5", "84", "two.llvm.2"},
        {"short", "04", "short"}, // the name goes before the address
        {"???", "97", "short"},
        {"???", "98", "main"}, // behind its end
        {"(below main)", "14", "alias_g"},
        {"", "", "main"},
        {"gone", "14", "main"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(imported(c.name, c.address), c.expected + ",1\n"s) << c.name << c.address << folder.read("said");
        EXPECT_EQ(folder.read("said").find("1 demangled names fit several functions") != std::string::npos,
                  c.name == "shop::order"s && *c.address == '\0')
            << folder.read("said");
    }
    imported("", "");
    EXPECT_NE(folder.read("said").find("left out 1 calls with a function outside the binary\n"), std::string::npos);
}

TEST_F(ImportNames, TellAnotherBuild) {
    const auto with_functions_elsewhere = [&](int count) { // and one nameless function, in main
        std::string profile = "positions: instr\nevents: Ir\nfn=???\n0x401004 1\n";
        const char* const names[] = {"short", "alias_g", "f.llvm.77"};
        for (int i = 0; i < 3; ++i) {
            profile += "fn="s + names[i] +
                       (i < count ? "\n0x4010b4 1\n"
                        : i == 1  ? "\n0x40101f 1\n"
                                  : "\n0x401067 1\n");
        }
        folder.write("p", profile);
        return folder.run("ordwell-import --binary=app p | sed 1d").out +
               folder.run("ordwell-import --binary=app p").err;
    };
    EXPECT_EQ(with_functions_elsewhere(2), "main,main,1\nshort,short,1\nalias_g,alias_g,1\nf.llvm.77,f.llvm.77,1\n"
                                           "ordwell-import: kept 4 functions and 0 calls\n");
    EXPECT_EQ(
        with_functions_elsewhere(3),
        "short,short,1\nalias_g,alias_g,1\nf.llvm.77,f.llvm.77,1\n"
        "ordwell-import: p was recorded with another build of app: 3 of 3 functions lie elsewhere; taken by name\n"
        "ordwell-import: kept 3 functions and 0 calls\n");
}

TEST_F(ImportNames, DemangledOnesNeedABinary) {
    folder.write("p", "main.(*T).walk go.f 2\nns::f(int) g 3\ng h 1\n");
    const outcome ran = folder.run("ordwell-import p | sed 1d");
    EXPECT_EQ(ran.out + ran.err,
              "main.(*T).walk,go.f,2\ng,h,1\n"
              "ordwell-import: p: left out 1 demangled names, which no linker knows: name the program "
              "with --binary, or record without demangling\n"
              "ordwell-import: kept 4 functions and 3 calls\n"
              "ordwell-import: left out 3 calls with a demangled name\n");
}

/// Real profiles of the sample program.
class ImportMistakes : public testing::Test {
protected:
    void SetUp() override { folder.run("cp " ORDWELL_SOURCE "/tests/sample/* ."); }

    // What a command, which has to fail, says of the file p.
    std::string said(const std::string& command) const {
        const outcome ran = folder.run("echo old >out; ordwell-import -o out " + command);
        EXPECT_EQ(ran.status, 1) << command << ran.err;
        EXPECT_EQ(folder.read("out"), "old\n") << command;
        return ran.err.substr(0, ran.err.size() - 1);
    }

    scratch_folder folder;
};

TEST_F(ImportMistakes, RebuiltPrograms) {
    ASSERT_EQ(
        folder
            .run(R"(g++ -O2 main.cpp shapes.cpp -o app && g++ -pg -O2 main.cpp shapes.cpp -o profiled && ./profiled
        valgrind -q --tool=callgrind --demangle=no --dump-instr=yes --callgrind-out-file=p ./app
        mkdir new; g++ -O2 shapes.cpp main.cpp -Wl,--section-start=.init=0x8000 -o new/app
        g++ -pg -O1 shapes.cpp main.cpp -Wl,--section-start=.init=0x8010 -o new/profiled)")
            .status,
        0);
    const outcome ran =
        folder.run("ordwell-import --binary=app p >a.csv 2>said; ordwell-import --binary=new/app -o b.csv p;"
                   "grep -v -e _start -e _dummy -e _clones -e _aux a.csv | cmp - b.csv");
    EXPECT_TRUE(ran.err.starts_with("ordwell-import: p was recorded with another build of new/app: ")) << ran.err;
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(folder.run("grep another said").out, "");
    EXPECT_EQ(folder.run("ordwell-import --quiet --binary=profiled gmon.out | grep -c main,_Z9recursivei").out, "1\n");
    EXPECT_NE(said("--binary=new/profiled gmon.out").find("another build of it: of "), std::string::npos);
}

TEST_F(ImportMistakes, CutFiles) {
    ASSERT_EQ(folder
                  .run("g++ -pg main.cpp shapes.cpp -o app && ./app && g++ -O2 -g main.cpp shapes.cpp -o app && "
                       "valgrind -q --tool=callgrind "
                       "--demangle=no --separate-threads=yes --combine-dumps=yes --dump-before=_Z9recursivei "
                       "--callgrind-out-file=whole ./app && head -c -1 whole >p && ordwell-import -o rows p")
                  .status,
              0);
    EXPECT_EQ(folder.run("grep -c _Z9recursivei, rows").out, "1\n");
    for (const char* const part : {"head -n -1", "head -c 9000", "grep -v ^totals:"}) {
        folder.run(part + " whole >p"s);
        EXPECT_NE(said("p").find("cut off: what callgrind writes ends with a line \"totals:\""), std::string::npos)
            << part;
    }
    folder.run("head -c -3 gmon.out >p");
    EXPECT_EQ(said("--binary=app p"), "ordwell-import: p: ends inside a record");
    const std::string frames = "app 1 2.5:          1 cycles: \n\t              10 f+0x3 (/bin/app)\n";
    const struct {
        std::string last; ///< behind the frames
        bool is_whole;
    } cases[] = {
        {"\t              11 g+0x3 (/bin/app)", true}, {"\t              11 g+0x3 (/bin/ap", false},
        {"\t              11 g+0x3", false},           {"\t              11 ", false},
        {"\napp 1 2.6:          1 cycles: ", true},    {"\napp 1 2.6:          1 cyc", false},
    };
    for (const auto& c : cases) {
        folder.write("p", frames + c.last);
        EXPECT_EQ(folder.run("ordwell-import p").status, c.is_whole ? 0 : 1) << c.last;
        EXPECT_TRUE(c.is_whole || said("p").ends_with("ends inside a line: cut off")) << c.last;
    }
}

TEST_F(ImportMistakes, PerfFieldsAndEvents) {
    folder.write("p.c", "void leaf(int n) { for (volatile int i = 0; i < n; ++i) {} }\nvolatile int x;\n"
                        "void middle(int n) { leaf(n); ++x; }\n"
                        "int main() { for (int i = 0; i < 300; ++i) middle(300000); }\n");
    const std::string record = "perf record -q -F 250 -e cpu-clock -e task-clock -g -o d 'a (b) c/my app'";
    folder.run("mkdir 'a (b) c' && gcc -g -fno-omit-frame-pointer p.c -o 'a (b) c/my app'");
    if (folder.run(record).status != 0) {
        GTEST_SKIP() << "no perf, or not allowed";
    }
    const std::string script = "perf script --no-demangle -i d 2>/dev/null ";
    const std::string counted =
        folder
            .run(script + "-F event,ip,sym | awk -v RS= '$1 == \"cpu-clock:\" && $3 == \"leaf\" && "
                          "$5 == \"middle\" { ++n } END { print n + 0 }'")
            .out;
    ASSERT_NE(counted, "0\n");
    for (const char* const fields :
         {"event,ip,sym,dso", "comm,tid,time,event,ip,sym,symoff,dso,srcline", "event,period,sym,ip,dso"}) {
        const outcome ran = folder.run(script + "-F " + fields +
                                       " | ordwell-import --object='my app' --event=cpu-clock - | "
                                       "grep middle,leaf");
        EXPECT_EQ(ran.out, "middle,leaf," + counted) << fields << ran.err;
    }
    EXPECT_NE(folder.run(script + "| ordwell-import -").err.find("took the event "), std::string::npos);
    folder.run(script + ">p");
    EXPECT_NE(said("--event=cycles p").find("p: no event cycles, but "), std::string::npos);
    EXPECT_NE(said("--event=cycles p").find("cpu-clock ("), std::string::npos);
    for (const auto& [fields, missing] : {std::pair{"ip", "sym"}, {"ip,dso", "sym"}, {"comm,event", "ip"}}) {
        folder.run(script + "-F " + fields + " >p");
        EXPECT_NE(said("p").find("the field "s + missing + " is missing"), std::string::npos) << fields;
    }
    folder.write("p", "\t            1145\n\t            1169\n"); // digits that might be a count
    EXPECT_NE(said("p").find("the field sym is missing"), std::string::npos);
    for (const char* const fields : {"ip,sym,period", "comm,tid,time,period,ip,sym"}) { // a head that ends in a number
        EXPECT_EQ(folder.run(script + "-F " + fields + " | ordwell-import --quiet - | grep -c middle,leaf").out, "1\n");
    }
    // Branch records, by hand in perf's form: this machine cannot record them.
    folder.write("p", "            1253 f+0x3main+0x5/f+0x0/P/-/-/0 \n");
    EXPECT_NE(said("p").find("the field dso is missing"), std::string::npos);
    folder.write("p", "            1253 f+0x3 (/a (b)/c)main+0x5(/a (b)/c)/f+0x0(/a (b)/c)/P/-/-/0  f+0x9(/a (b)/c)/"
                      "[unknown]([unknown])/P/-/-/0 g+0x1(/a (b)/c)/h+0x0(/a (b)/c)/M/-/-/9 \n");
    EXPECT_EQ(folder.run("ordwell-import --quiet --object=c p").out, csv("main,f,1\ng,h,1\n"));
    folder.write("p", "a b 1\n");
    EXPECT_EQ(said("--event=cycles p"), "ordwell-import: p: the format pairs has no events: leave --event out");
}

TEST_F(ImportMistakes, Objects) {
    ASSERT_EQ(folder
                  .run(R"(set -e; clang++ -O2 -fprofile-instr-generate main.cpp shapes.cpp -o app && ./app
        llvm-profdata merge -o d default.profraw; cc() { clang++ -O2 -fprofile-instr-use=d -c "$@"; }
        mkdir lib; cc main.cpp -o lib/main.o; cc shapes.cpp -o lib/shapes.o; cc -flto shapes.cpp -o bitcode.o
        echo 'int x;' | clang -xc -c - -o none.o; ar rcT thin.a lib/main.o lib/shapes.o; ar rcT outer.a thin.a none.o
        ar rc mixed.a lib/main.o bitcode.o; ordwell-import --quiet lib/main.o lib/shapes.o >expected
        ordwell-import --quiet none.o lib/main.o none.o lib/shapes.o | cmp - expected
        ordwell-import --quiet thin.a | cmp - expected; ordwell-import --quiet outer.a | cmp - expected
        grep -q main,_Z9recursivei expected)")
                  .status,
              0);
    EXPECT_EQ(said("none.o"),
              "ordwell-import: none.o: no call graph profile: compile with clang -fprofile-use, without -flto");
    EXPECT_TRUE(said("lib/main.o bitcode.o").starts_with("ordwell-import: bitcode.o: LLVM bitcode, not yet code: "));
    EXPECT_TRUE(said("mixed.a").starts_with("ordwell-import: mixed.a(bitcode.o): LLVM bitcode, "));
    folder.run("head -c 70 thin.a >p");
    EXPECT_EQ(said("p"), "ordwell-import: p: a damaged thin archive");
}

} // namespace
