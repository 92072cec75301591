// ordwell-import as a whole: what yields the bytes of a profile, several binaries, the rows of earlier runs.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string header = "\"caller\",\"callee\",\"weight\"\n";

class Profiles : public testing::Test {
protected:
    void SetUp() override {
        folder.run("cp " ORDWELL_SOURCE "/tests/sample/*.cpp " ORDWELL_SOURCE "/tests/sample/*.h .");
    }
    /// What a run says on standard error, which has to fail.
    std::string failing(const std::string& arguments) const {
        const outcome ran = folder.run("ordwell-import " + arguments);
        EXPECT_EQ(ran.status, 1) << arguments;
        EXPECT_EQ(ran.out, "");
        return ran.err;
    }
    scratch_folder folder;
};

TEST_F(Profiles, OwnRows) {
    folder.write("a.csv", header + "main,f,10\nf,?g@@YAHXZ,3\n\"skipped\nf,h,0\nh,h,-4294967289 more\nmain,f,2");
    EXPECT_EQ(folder.run("ordwell-import --quiet a.csv").out, header + "main,f,12\nf,?g@@YAHXZ,3\nh,h,7\n");
    folder.write("b.csv", header + "main,f,9\nf,?g@@YAHXZ,1\nx,x,5\n");
    const outcome ran = folder.run("ordwell-import -o c.csv --compare=b.csv a.csv");
    EXPECT_NE(ran.err.find(": common 90.0 % of calls, 1 functions new, 1 gone\n"), std::string::npos) << ran.err;
    folder.write("c.csv", "kept");
    const struct {
        const char* rows;
        const char* said;
    } cases[] = {{"main,f,1\n\nf,g,1\n", "p:3: no row: the caller is missing"},
                 {"main\n", "p:2: no row: the callee is missing"},
                 {"main,f,4294967296\n", "p:2: no row: the weight is no number from 0 to 4294967295"},
                 {"", "p: there are no rows"}};
    for (const auto& c : cases) {
        folder.write("p", header + c.rows);
        EXPECT_EQ(failing("-o c.csv p"), "ordwell-import: "s + c.said + "\n");
        EXPECT_EQ(folder.read("c.csv"), "kept");
    }
    folder.write("p", "\"caller\",\"callee\",\"weight\" weighed\nmain,f,1\n");
    EXPECT_EQ(failing("p"),
              "ordwell-import: p: the rows are weighed, which are no calls: name the file of the calls\n");
    EXPECT_NE(failing("--compare=p a.csv").find("p: the rows are weighed"), std::string::npos);
}

TEST_F(Profiles, CompressedOnesAreReadByContent) {
    ASSERT_EQ(folder
                  .run("awk 'BEGIN { for (i = 0; i < 200000; ++i) print \"f\" i % 9999, \"g\" i % 7777, i }' >p && "
                       "ordwell-import --quiet p >expected")
                  .status,
              0);
    for (const char* const program : {"gzip", "xz -T1 -0", "zstd -q", "bzip2 -1"}) {
        EXPECT_EQ(folder
                      .run("cp p c; "s + program + R"( -c p >c; (head -n 99999 p | )" + program +
                           "; tail -n +100000 p | "s + program + R"() >two
            ordwell-import --quiet c | cmp - expected; ordwell-import --quiet - <c | cmp - expected; ordwell-import --quiet two | cmp - expected
            (cat c; head -c 9 c) >end; cp c flip; printf XY | dd of=flip bs=1 seek=60 conv=notrunc status=none
            for size in 9 40 100000; do head -c $size c >cut$size; done
            for f in cut* end flip; do ordwell-import -o old --format=pairs p $f 2>&1 | grep -cE "$f: ends early|flip:"; done; ls old)")
                      .out,
                  "1\n1\n1\n1\n1\n")
            << program;
    }
    EXPECT_EQ(
        folder
            .run(R"(gzip -c p >c; (cat c; head -c 999 /dev/zero) >zeros; ordwell-import --quiet zeros | cmp - expected
        gzip -c c | xz | ordwell-import --quiet - | cmp - expected; gzip -c c | gzip | gzip >again; ordwell-import again 2>&1
        (cat c; echo more) >more; (head -c -8 c; tail -c 8 p) >sum; for f in more sum; do ordwell-import -o old $f 2>&1; done; ls old)")
            .out,
        "ordwell-import: again: compressed again and again: unpack it\nordwell-import: more: ends early or is damaged: "
        "incorrect header check\n"
        "ordwell-import: sum: ends early or is damaged: incorrect data check\n");
}

// perf.data is what perf script prints of it, however it comes; what was cut off is never read.
TEST_F(Profiles, PerfData) {
    ASSERT_EQ(
        folder.run("g++ -O1 -fno-omit-frame-pointer -Wl,--build-id main.cpp shapes.cpp -o app && strip app -o stripped")
            .status,
        0);
    folder.write(
        "b.c",
        "__attribute__((noinline)) void leaf(int n) { for (volatile int i = 0; i < n; ++i) {} }\nvolatile int x;\n"
        "static __attribute__((noinline)) void middle(int n) { leaf(n); ++x; }\n"
        "int main() { for (int i = 0; i < 300; ++i) middle(300000); }\n");
    folder.run("gcc -O1 -g -fno-omit-frame-pointer b.c -Wl,--build-id -o b");
    if (folder.run("perf record -q -F 1000 -e cpu-clock -g -o d ./b").status != 0) {
        GTEST_SKIP() << "no perf, or not allowed";
    }
    // A profile is collected from another user.
    const outcome counted = folder.run(
        "perf script -i d -F ip,sym | awk -v RS= '$2 == \"leaf\" && $4 == \"middle\" { ++n } END { print n + 0 }'");
    ASSERT_NE(counted.out, "0\n");
    folder.run("gzip -c d >d.gz; perf record -q -F 1000 -e cpu-clock -g -o - ./b >piped; perf record -q -F 1000 -e "
               "cpu-clock -o flat ./b; perf record -q -e cpu-clock -g --threads -o threads ./b; chown 12345 d");
    for (const char* const profile : {"d", "- <d", "d.gz", "- <d.gz"}) {
        const outcome ran = folder.run("ordwell-import --quiet --binary=b "s + profile + " | grep middle,leaf");
        EXPECT_EQ(ran.out, "middle,leaf," + counted.out) << profile << ran.err;
    }
    EXPECT_EQ(folder.run("ordwell-import --quiet --binary=b piped | grep -c -e middle,leaf -e main,main").out, "2\n");
    EXPECT_NE(
        folder.run("ordwell-import --binary=b -o rows flat; grep -q leaf,leaf rows").err.find("perf record with -g"),
        std::string::npos);
    // A stripped copy was shipped: its addresses tell, if it is the same build.
    EXPECT_EQ(
        folder
            .run(
                R"(mkdir s; export HOME=$PWD/s; strip b -o s/b; perf record -q -F 1000 -e cpu-clock -g -o ds s/b; mv s/b gone
        perf script -i ds -F ip,sym,dso --no-inline 2>&1 | grep -c 'leaf'; ordwell-import --quiet --binary=b ds | grep -c middle,leaf
        gcc -O1 -fno-omit-frame-pointer b.c -Wl,--build-id=0x123456789a -o s/b; ordwell-import --binary=s/b ds)")
            .out,
        "0\n1\n");
    for (const char* const cut :
         {"head -c -9 d", "head -c 2000 d", "head -c 90 d", "head -c -9 piped", "head -c 30 piped"}) {
        folder.run(cut + " >cut"s);
        EXPECT_NE(failing("--binary=b cut").find("cut: cut off: perf.data is shorter than its header says"),
                  std::string::npos)
            << cut;
    }
    for (const char* const part : {"threads", "threads/data"}) {
        EXPECT_NE(failing("--binary=b "s + part).find("what perf script prints of"), std::string::npos);
    }
    EXPECT_NE(
        folder.run("PATH=$(dirname $(which ordwell-import)) ordwell-import d").err.find("perf script -f --no-demangle"),
        std::string::npos);
}

// By hand in perf's form, since most machines cannot record branches: a position-independent program at two places.
TEST_F(Profiles, BranchesWithoutSymbols) {
    folder.run("gcc -O1 -fPIE -pie -x c - -o app <<'E'\n__attribute__((noinline)) int leaf(int n) { return n + 1; }\n"
               "int main(int c, char** v) { return leaf(c); }\nE\nnm app >symbols");
    const auto address = [&](const char* name) {
        return std::stoull(folder.run("awk '$3 == \""s + name + "\" { print $1 }' symbols").out, nullptr, 16);
    };
    const auto hex = [](unsigned long long n) {
        char text[32];
        std::snprintf(text, sizeof text, "%llx", n);
        return std::string(text);
    };
    const auto mapped = [&](const char* process, unsigned long long base) {
        return "    0 PERF_RECORD_MMAP2 "s + process + "/" + process + ": [0x" + hex(base + 0x1000) +
               "(0x1000) @ 0x1000 fe:00 1 0]: r-xp /x/app\n";
    };
    const auto sample = [&](const char* process, unsigned long long base) {
        const std::string from = "0x" + hex(base + address("main") + 5);
        return process + "     "s + hex(base + address("leaf")) + " "s + from + "/0x" + hex(base + address("leaf")) +
               "/P/-/-/0  0x" + hex(base + address("leaf") + 3) + "/" + from + "/P/-/-/0  0x7f0000000000/" + from +
               "/P/-/-/0 \n";
    };
    const unsigned long long one = 0x550000000000;
    const unsigned long long two = 0x560000000000;
    folder.write("p", mapped("7", one) + mapped("8", two) + "      7             1000\n" + sample("7", one) +
                          sample("8", two) + sample("", two));
    EXPECT_EQ(folder.run("ordwell-import --quiet --binary=app p").out, header + "main,leaf,3\n");
    for (const char* const cut : {"-c -20", "-c -55", "-c -65", "-c -95"}) { // in each part of the last line
        folder.run("head "s + cut + " p >cut");
        EXPECT_NE(failing("--binary=app cut").find("cut off"), std::string::npos) << cut;
    }
    EXPECT_NE(failing("p").find("branches without symbols: name the program with --binary"), std::string::npos);
    folder.write("p", sample("", one));
    EXPECT_NE(failing("--binary=app p").find("--show-mmap-events -F ip,brstack"), std::string::npos);
    folder.write("p", mapped("7", one) + mapped("8", one + 0x100) + sample("", one + 0x100));
    EXPECT_NE(failing("--binary=app p").find("-F pid,ip,brstack"), std::string::npos);
}

TEST_F(Profiles, WhatIsNoneIsToldWithTheWayOut) {
    ASSERT_EQ(
        folder
            .run(
                R"(echo 'int main() { return 0; }' >c.c && clang -fprofile-instr-generate -O1 c.c -o app && LLVM_PROFILE_FILE=p.profraw ./app
        llvm-profdata merge -o p.profdata p.profraw; gcc --coverage c.c -o c && ./c && mv *.gcda p.gcda
        echo 'a b 1' >p.pairs; tar cf p.tar p.pairs; gzip -c p.tar >p.tgz; iconv -t UTF-16 p.pairs >p.utf16; printf '{"a": 1}' >p.json
        printf '<!DOCTYPE html>' >p.html; printf 'PKxxxx' >p.zip; echo 'heap profile: 1: 2' >p.heap; echo '--preferred_order="f"' >p.cmd; valgrind -q --tool=cachegrind --cachegrind-out-file=p.cache ./c; printf '\177ELF\2\1\1\0\0\0\0\0\0\0\0\0\4\0' >p.core)")
            .status,
        0);
    for (const auto& [profile, told] : {std::pair{"p.profraw", "llvm-profdata"},
                                        {"p.profdata", "-fprofile-instr-use"},
                                        {"p.gcda", "callgrind"},
                                        {"app", "--binary"},
                                        {"p.core", "a core"},
                                        {"p.json", "JSON"},
                                        {"p.html", "page"},
                                        {"p.tar", "unpack it"},
                                        {"p.tgz", "unpack it"},
                                        {"p.zip", "unpack it"},
                                        {"p.heap", "CPU profile"},
                                        {"p.cmd", "an order"},
                                        {"p.cache", "--tool=callgrind"},
                                        {"p.utf16", "iconv"}}) {
        EXPECT_NE(failing("-o old "s + profile).find(told), std::string::npos) << profile;
        EXPECT_NE(failing("- <"s + profile).find(told), std::string::npos) << profile;
    }
}

// What --help lists, the manual page and the completion list, too.
TEST_F(Profiles, FormatsAreListed) {
    EXPECT_EQ(folder
                  .run("formats=$(ordwell-import --help | sed -n 's/.*NAME: //p' | tr -d ,); set -- $formats; echo $#; "
                       "for f; do "
                       "grep -q \"^.It Cm $f$\" " ORDWELL_SOURCE
                       "/docs/ordwell-import.1 || echo $f; done; grep -c \"\\\"$formats\\\"\" " ORDWELL_SOURCE
                       "/completions/ordwell-companions")
                  .out,
              "11\n1\n");
}

// Calls among the functions of each; those from one to the other are of neither.
TEST_F(Profiles, AProgramAndItsLibrary) {
    ASSERT_EQ(folder
                  .run("g++ -O1 -fPIC -shared shapes.cpp -Wl,--build-id=0xabcd0123 -o libshapes.so.1 && "
                       "g++ -O1 main.cpp ./libshapes.so.1 -o app && mkdir other && cp app other && mkfifo pipe && "
                       "valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=p ./app && gzip -k p")
                  .status,
              0);
    for (const char* const profile : {"p", "- <p", "- <p.gz", "p.gz"}) {
        const outcome both =
            folder.run("rm -rf d; ordwell-import -o d/ --weighed=w/ --binary=app --binary=libshapes.so.1 "s + profile);
        EXPECT_EQ(both.status, 0) << both.err;
        EXPECT_EQ(folder
                      .run("for b in app libshapes.so.1; do ordwell-import --quiet --binary=$b p | cmp - d/$b.csv; "
                           "ordwell-import --quiet --binary=$b --weighed=x p; cmp x w/$b.csv; done; ls d w")
                      .out,
                  "d:\napp.csv\nlibshapes.so.1.csv\n\nw:\napp.csv\nlibshapes.so.1.csv\n");
    }
    EXPECT_NE(failing("-o n/ --binary=app --binary=/bin/true p").find("/bin/true"), std::string::npos);
    EXPECT_NE(failing("-o n/ --binary=app --binary=other/app p").find("the same base name"), std::string::npos);
    EXPECT_NE(failing("-o n/ --binary=app --binary=libshapes.so.1 pipe").find("a pipe"), std::string::npos);
    folder.run("g++ -O1 -shared -fPIC -Wl,--build-id=none -x c++ /dev/null -o none.so");
    EXPECT_EQ(folder.run("ls n").out, "");
    for (const char* const wrong :
         {"-o n --binary=app --binary=libshapes.so.1 p", "-o n/ p", "--build-id", "--build-id --binary=app p",
          "-o n/ --object=x --binary=app --binary=libshapes.so.1 p"}) {
        EXPECT_EQ(folder.run("ordwell-import "s + wrong).status, 2) << wrong;
    }
    EXPECT_EQ(folder.run("strip libshapes.so.1; ordwell-import --build-id --binary=libshapes.so.1").out, "abcd0123\n");
    EXPECT_NE(failing("--build-id --binary=none.so").find("none.so: no build ID"), std::string::npos);
}

} // namespace
