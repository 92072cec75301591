// Profiles of pprof, gperftools and llvm-bolt, by the profilers themselves and by hand.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string header = "\"caller\",\"callee\",\"weight\"\n";

class Formats : public testing::Test {
protected:
    outcome import(const std::string& arguments) const { return folder.run("ordwell-import --quiet " + arguments); }
    scratch_folder folder;
};

// Parts of a profile.proto: a field with a number, and one with bytes.
std::string varint(std::uint64_t value) {
    std::string bytes;
    for (; value > 127; value >>= 7U) {
        bytes += static_cast<char>(value | 128U);
    }
    return bytes += static_cast<char>(value);
}
std::string field(unsigned int number, std::uint64_t value) {
    return varint(number << 3U) + varint(value);
}
std::string field(unsigned int number, const std::string& bytes) {
    return varint(number << 3U | 2U) + varint(bytes.size()) + bytes;
}

TEST_F(Formats, GoWritesPprof) {
    folder.write("m.go",
                 "package main\nimport (\"os\"; \"runtime/pprof\")\ntype tree struct{ n int }\n//go:noinline\n"
                 "func leaf(n int) int { s := 0; for i := 0; i < n; i++ { s += i * i }; return s }\n//go:noinline\n"
                 "func (t *tree) walk() int { return leaf(t.n) + 1 }\nfunc main() { f, _ := os.Create(\"p\")\n"
                 "pprof.StartCPUProfile(f); t := &tree{3000000}; s := 0\nfor i := 0; i < 300; i++ { s += t.walk() }\n"
                 "pprof.StopCPUProfile(); f.Close(); println(s) }\n");
    ASSERT_EQ(
        folder.run("export GOCACHE=$PWD/cache HOME=$PWD; go build -o app m.go && ./app && gzip -dc p >raw").status, 0);
    // What Go's own tool counts: the lines of samples with their values, and the chains of those that go from 2 to 1.
    const std::string nanoseconds = folder
                                        .run("HOME=$PWD go tool pprof -raw app p | awk '/^Locations/ { exit } $1 ~ "
                                             "/^[0-9]+$/ { print $2 }' | tr -d : | "
                                             "awk '{ s += $1 } END { print s }'")
                                        .out;
    for (const char* const profile : {"p", "raw", "--binary=app p", "- <raw"}) {
        const std::string sum = import(profile + " | awk -F, '$2 == \"main.leaf\" { print }'"s).out;
        EXPECT_TRUE(sum.starts_with("main.(*tree).walk,main.leaf,")) << profile << sum;
    }
    EXPECT_EQ(import("raw | awk -F, '$1 != $2 { s += $3 } END { print s }'").out, nanoseconds);
    EXPECT_EQ(folder.run("ordwell-import --event=allocs p").err,
              "ordwell-import: p: no type of value allocs, but samples, cpu\n");
    for (const char* const size : {"300", "-9", "-200"}) {
        EXPECT_EQ(folder.run("head -c "s + size + " raw >cut; ordwell-import --format=pprof -o rows cut").status, 1)
            << size;
    }
}

// Inlined lines, names without a system name, addresses without lines, and what is damaged.
TEST_F(Formats, PprofByHand) {
    const std::string strings[] = {"", "samples", "f()", "_Z1fv", "g", "", "kept", "/x/app"};
    std::string tables;
    for (const std::string& s : strings) {
        tables += field(6, s);
    }
    const auto function = [](std::uint64_t id, std::uint64_t name, std::uint64_t system_name) {
        return field(5, field(1, id) + field(2, name) + field(3, system_name));
    };
    const auto location = [](std::uint64_t id, std::initializer_list<std::uint64_t> functions) {
        std::string lines = field(1, id);
        for (const std::uint64_t f : functions) {
            lines += field(4, field(1, f));
        }
        return field(4, lines);
    };
    tables += function(1, 2, 3) + function(2, 4, 0) + function(3, 6, 0) + location(1, {3, 1}) + location(2, {2}) +
              location(3, {3});
    const auto sample = [](const std::string& locations, std::int64_t value) {
        return field(2, field(1, locations) + field(2, varint(static_cast<std::uint64_t>(value))));
    };
    const std::string start = field(9, 1) + field(1, field(1, 1));
    folder.write("p", start + sample("\1\2\3", 5) + sample("\1\2", 2) + sample("\2", 0) + tables);
    EXPECT_EQ(import("p").out, header + "g,_Z1fv,7\nkept,kept,5\n");
    // A mapping without a file name may be the binary's; one that no sample needs is not asked.
    folder.write("p", start + sample("\4", 5) + tables + field(4, field(1, 4) + field(2, 1) + field(4, field(1, 3))) +
                          field(3, field(1, 1)) + field(3, field(1, 2) + field(5, 7)));
    EXPECT_EQ(import("--object=other p").out, header + "kept,kept,5\n");
    for (const auto& [bytes, told] :
         {std::pair{start + sample("\1\2", -5) + tables, "negative value"},
          {start + sample("\1\7", 5) + tables, "a location is not in the table"},
          {start + sample("\1\2", 5) + field(5, field(1, 1) + field(2, 99)) + tables, "a string is not in the table"},
          {start + sample("\1\2", 5) + tables.substr(0, tables.size() - 3), "damaged or cut off"}}) {
        folder.write("p", bytes);
        const outcome ran = import("-o old p");
        EXPECT_EQ(ran.status, 1);
        EXPECT_NE(ran.err.find(told), std::string::npos) << ran.err;
    }
}

TEST_F(Formats, Gperftools) {
    folder.write(
        "c.c",
        "__attribute__((noinline)) void leaf(int n) { for (volatile int i = 0; i < n; ++i) {} }\nvolatile int x;\n"
        "static __attribute__((noinline)) void middle(int n) { leaf(n); ++x; }\n"
        "int main() { for (int i = 0; i < 1000; ++i) middle(300000); }\n");
    ASSERT_EQ(
        folder.run("gcc -O1 -fno-omit-frame-pointer c.c -Wl,--no-as-needed -lprofiler -o app && CPUPROFILE=p ./app")
            .status,
        0);
    const std::string counted = folder.run("google-pprof --text app p 2>said | awk '$6 == \"leaf\" { print $1 }'").out;
    ASSERT_NE(counted, "");
    EXPECT_EQ(import("--binary=app p | grep ,leaf,").out, "middle,leaf," + counted);
    EXPECT_NE(import("p").err.find("addresses alone: name the program with --binary"), std::string::npos);
    for (const char* const size : {"-1000000", "60", "200", "-5"}) {
        EXPECT_NE(
            folder.run("head -c "s + size + " p >cut; [ -s cut ] || head -c 90 p >cut; ordwell-import --binary=app cut")
                .err.find("cut off"),
            std::string::npos)
            << size;
    }
}

TEST_F(Formats, BoltInstrumentsAndReads) {
    ASSERT_EQ(folder
                  .run(R"(cp )" ORDWELL_SOURCE R"(/tests/sample/*.cpp )" ORDWELL_SOURCE
                       R"(/tests/sample/*.h . && PATH=$PATH:/usr/lib/llvm-19/bin
        g++ -O2 -ffunction-sections -Wl,--emit-relocs main.cpp shapes.cpp -o app && llvm-bolt app -instrument -o counting \
        --instrumentation-file="$PWD/p" --runtime-instrumentation-lib=libbolt_rt_instr.a >said 2>&1 && ./counting
        valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=c ./app)")
                  .status,
              0);
    // The calls of the program's own functions are those that callgrind counts; it does not see what has no size.
    EXPECT_EQ(folder
                  .run("calls() { ordwell-import --quiet --binary=app $1 | awk -F, '$1 != $2 && !/_tm_clones/' | sort; "
                       "}; calls c >a; calls p | diff a -; grep -c main,_Z9recursivei a")
                  .out,
              "1\n");
    folder.write("other", "1 f 3 1 g 0 0 1\n");
    EXPECT_NE(import("--binary=app other").err.find("none of the profile's is defined in app"), std::string::npos);
    const struct {
        const char* lines;
        const char* rows; ///< or what is told
    } cases[] = {
        {"1 main 3fb 1 f 0 0 12\n1 f/file.c/1 a 1 main 400 2 12\n", "main,f,12\n"},
        {"1 a\\ b/1 3 1 c\\\\d 0 0 2\n4 f 10 4 table 8 3\n1 go/pkg.F/1 3 1 h@PLT 0 0 4\n",
         "a b,c\\d,2\ngo/pkg.F,h,4\n"},
        {"0 [unknown] 0 1 main 0 0 1\n1 main 3 0 [unknown] 0 0 9\n", "main,main,10\n"},
        {"no_lbr cycles:u:\n1 f a 17\n1 f b 3\n0 [unknown] 4 7\n", "f,f,20\n"},
        {"boltedcollection\n1 main 3fb 1 f 0 0 12\n", "p:1: recorded with a program that llvm-bolt had laid out"},
        {"1 main 3fb 1 f 0 0 12\n1 main 3fb 1 f 0 0\n", "p:2: not a line of fdata"},
    };
    for (const auto& c : cases) {
        folder.write("p", c.lines);
        const outcome ran = import("p");
        EXPECT_EQ(ran.out, ran.status == 0 ? header + c.rows : "") << c.lines;
        EXPECT_NE((ran.out + ran.err).find(c.rows), std::string::npos) << ran.err;
    }
}

} // namespace
