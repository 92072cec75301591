// The whole road with real profilers and linkers, on the sample program of tests/sample: profile, import, order, export,
// relink, and look with nm whether the functions stand in that order.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

// A folder with the sample's objects and program, and shell functions for the tests.
class Relink : public testing::Test {
protected:
    void SetUp() override {
        folder.run("cp " ORDWELL_SOURCE "/tests/sample/* .");
        folder.write("functions", R"(
            # compile COMPILER FLAGS...: the objects main.o and shapes.o
            compile() { for source in main shapes; do "$@" -c $source.cpp || exit; done; }
            # falls ORDER BINARY OBJECT...: how many functions of the order that the objects define stand behind their
            # successor, and how many there are; a name of several definitions counts at its lowest address
            falls() {
                order=$1 binary=$2; shift 2
                nm "$@" | awk 'NF > 1 && $(NF - 1) ~ /^[tTwW]$/ { print $NF }' | sort -u >defined
                nm -n "$binary" | awk '$2 ~ /^[tTwW]$/ && !seen[$3]++ { print $3, "x" $1 }' >addresses
                sed 's/^--preferred_order="//; s/"$//' "$order" | awk '
                    FILENAME == "defined" { defined[$1] = 1; next }
                    FILENAME == "addresses" { address[$1] = $2; next }
                    $1 in defined && $1 in address { ++count; falls += address[$1] < last; last = address[$1] }
                    END { print falls + 0, count }' defined addresses -
            }
        )");
    }
    outcome run(const std::string& command) const { return folder.run(". ./functions\n" + command); }
    scratch_folder folder;
};

const std::string expected_calls = // all that main does, in names of the C++ sources
    "main,_ZL6helperi,40\nmain,_Z14work_elsewherei,40\nmain,_Z5twiceIdET_S0_,40\nmain,_Z9recursivei,1\n"
    "_ZL6helperi,_Z5twiceIiET_S0_,40\n";

// Every line of `lines` is one of `text`.
testing::AssertionResult has_lines(const std::string& text, const std::string& lines) {
    for (std::size_t start = 0; start < lines.size();) {
        const std::size_t end = lines.find('\n', start) + 1;
        if (("\n" + text).find("\n" + lines.substr(start, end - start)) == std::string::npos) {
            return testing::AssertionFailure() << "no line " << lines.substr(start, end - start) << " in\n" << text;
        }
        start = end;
    }
    return testing::AssertionSuccess();
}

TEST_F(Relink, LinkersPlaceTheFunctions) {
    run(R"(compile g++ -O2 -ffunction-sections && g++ main.o shapes.o -o app && ar rc all.a main.o shapes.o
        valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=app.prof ./app >expected
        ordwell-import --quiet --binary=app -o app.csv app.prof && ordwell -o app.cmd app.csv
        sort app.csv >app.sorted)");
    EXPECT_TRUE(has_lines(folder.read("app.csv"), expected_calls + "_ZL8by_valuePKvS0_,_ZL8by_valuePKvS0_,5\n"));
    for (const char* const linker : {"lld", "gold", "ld"}) {
        for (const char* const objects : {"--objects=main.o --objects=shapes.o", "--objects=all.a", ""}) {
            for (const char* const kind : {"", "-no-pie"}) {
                const outcome ran = run("option=$(ordwell-export --linker="s + linker + " " + objects +
                                        " -o order app.cmd 2>&1 | sed -n 's/.*link with //p')\n"
                                        "g++ " +
                                        kind +
                                        " $option -Wl,--gc-sections main.o shapes.o -o new && "
                                        "./new | cmp - expected && falls app.cmd new main.o shapes.o");
                EXPECT_EQ(ran.out + ran.err, "0 12\n") << linker << " " << objects << " " << kind;
            }
        }
        // The ordered program can be recorded again.
        EXPECT_EQ(run("valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=p ./new >said && "
                      "ordwell-import --quiet --binary=new p | sed s/D1/D2/ | sort | diff - app.sorted")
                      .out,
                  "")
            << linker;
    }
    // Shared libraries, too.
    run("compile g++ -O2 -fPIC -ffunction-sections; ordwell-export --quiet --linker=ld -o order app.cmd");
    EXPECT_EQ(run("g++ -shared -Wl,-T,order main.o shapes.o -o new.so && falls app.cmd new.so main.o shapes.o")
                  .out.substr(0, 2),
              "0 ");
}

// Odd but legal names reach every linker, as far as its form can hold them.
TEST_F(Relink, LinkersTakeOddNames) {
    std::string assembly = ".globl _start\n_start: ret\n";
    for (const std::string name :
         {"plain", "a b", "a*b", "axb", "a?b", "a[b", "a+b-c@d", "(x)", "x;y", "f#", "$dollar"}) {
        assembly +=
            ".section \".text." + name + "\",\"ax\",@progbits\n.globl \"" + name + "\"\n\"" + name + "\": ret\n";
    }
    folder.write("odd.s", assembly);
    // axb stays where it is unless a wildcard reaches for it.
    folder.write("order",
                 order_of("$dollar f# x;y (x) a[b a?b a*b") + "--preferred_order=\"a b\"\n" + order_of("plain"));
    for (const std::string linker : {"lld", "gold", "ld"}) {
        folder.write("linker", linker);
        const outcome ran = run(R"(linker=$(cat linker)
            as odd.s -o odd.o; ordwell-export --quiet --objects=odd.o --linker=$linker -o file order
            case $linker in
            lld) ld.lld --symbol-ordering-file=file odd.o -o odd ;;
            gold) ld.gold --section-ordering-file=file odd.o -o odd ;;
            ld) ld -T file odd.o -o odd ;;
            esac
            nm -n odd | cut -c20- | grep -v -e _start -e '^_' | tr '\n' ',')");
        const bool takes_wildcards = linker == "ld"; // there "a?b" claims a*b, axb and "a b" as well
        const std::string order = takes_wildcards ? "$dollar,f#,x;y,(x)," : "$dollar,f#,x;y,(x),a[b,a?b,a*b,a b,plain,";
        EXPECT_NE(ran.out.find(order), std::string::npos) << linker << ran.out << ran.err;
        EXPECT_TRUE(!takes_wildcards || ran.out.find("plain,a+b-c@d,") != std::string::npos) << ran.out << ran.err;
    }
}

// llvm-bolt lays the linked program out anew, local functions among it.
TEST_F(Relink, BoltPlacesTheFunctions) {
    const outcome ran = run(R"(PATH="$PATH:/usr/lib/llvm-19/bin"
        compile g++ -O2 -ffunction-sections && g++ -Wl,--emit-relocs main.o shapes.o -o app && ./app >expected
        valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=app.prof ./app >said
        ordwell-import --quiet --binary=app -o app.csv app.prof && ordwell -o app.cmd app.csv
        command=$(ordwell-export --linker=bolt -o order app.cmd 2>&1 | sed -n 's/.*then run //p')
        $(echo "$command" | sed "s/PROGRAM/app/g") >said 2>&1 && ./app.bolt | cmp - expected && falls app.cmd app.bolt main.o shapes.o)");
    EXPECT_EQ(ran.out + ran.err, "0 12\n");
}

TEST_F(Relink, OtherSystemsPlaceTheFunctions) {
    folder.write("app.cmd", order_of("third first second"));
    EXPECT_EQ(run(R"(export PATH="$PATH:/usr/lib/llvm-14/bin"
        clang --target=x86_64-apple-macos12 -O1 -fno-inline -c plain.c -o plain.o
        ordwell-export --quiet --linker=macho -o order app.cmd
        ld64.lld -dylib -arch x86_64 -platform_version macos 12.0 12.0 -order_file order plain.o -o plain.dylib
        llvm-nm -n plain.dylib | sed 's/.* //'
        clang --target=x86_64-pc-windows-msvc -O1 -fno-inline -ffunction-sections -c plain.c -o plain.obj
        ordwell-export --quiet --linker=coff -o order app.cmd
        lld-link /dll /noentry /order:@order /export:first /lldmap:map plain.obj /out:plain.dll
        grep -o -E '(first|second|third)$' map)")
                  .out,
              "_third\n_first\n_second\nthird\nfirst\nsecond\n");
}

TEST_F(Relink, ReadsWhatProfilersWrite) {
    // callgrind with addresses: they tell who the nameless ones are.
    run("compile g++ -O2 -ffunction-sections && g++ main.o shapes.o -o app && ln -s app alias");
    EXPECT_TRUE(has_lines(run(R"(
        valgrind -q --tool=callgrind --demangle=no --dump-instr=yes --collect-jumps=yes --callgrind-out-file=p ./app >said
        ordwell-import --quiet --binary=alias p)")
                              .out,
                          expected_calls + "_start,_start,2\n"));
    // Demangled names, with and without addresses, stand for the same functions.
    EXPECT_EQ(run(R"(for instr in no yes; do for demangle in no yes; do
            valgrind -q --tool=callgrind --dump-instr=$instr --demangle=$demangle --callgrind-out-file=p ./app >said
            ordwell-import --quiet --binary=app p | sort >$instr.$demangle
        done; cmp $instr.no $instr.yes && grep -q _Z9recursivei $instr.yes && echo same; done)")
                  .out,
              "same\nsame\n");
    // gcc -pg: arcs and, of what only the C library calls, samples.
    for (const char* const kind : {"-no-pie", "-static", "-pie -fPIE"}) {
        EXPECT_TRUE(has_lines(run("g++ -pg -O2 "s + kind +
                                  " main.cpp shapes.cpp -o pg && ./pg 1 >said && "
                                  "ordwell-import --quiet --binary=pg gmon.out")
                                  .out,
                              "main,_ZL6helperi,40\n_ZL6helperi,_Z5twiceIiET_S0_,40\nmain,_Z9recursivei,3001\n"))
            << kind;
    }
    // clang's call graph profile, from objects and from an archive.
    const outcome objects = run(R"(clang++ -O2 -fprofile-instr-generate main.cpp shapes.cpp -o instrumented
        ./instrumented >said && llvm-profdata merge -o app.profdata default.profraw
        compile clang++ -O2 -fprofile-instr-use=app.profdata && ar rc all.a main.o shapes.o
        ordwell-import --quiet main.o shapes.o >a.csv; ordwell-import --quiet all.a | cmp - a.csv && cat a.csv)");
    EXPECT_TRUE(has_lines(objects.out, "main,qsort,1\nmain,_Z9recursivei,1\n")) << objects.err;
}

TEST_F(Relink, ReadsWhatPerfWrites) {
    run("compile g++ -O2 -fno-omit-frame-pointer -ffunction-sections && g++ main.o shapes.o -o app");
    if (run("perf record -q -e cpu-clock -g -o chains ./app $(seq 40) >said").status != 0) {
        GTEST_SKIP() << "no perf, or not allowed";
    }
    const outcome chains =
        run(R"(perf script --no-demangle -i chains 2>/dev/null | tee text | ordwell-import --quiet --binary=app -
        perf script --no-demangle -i chains -F ip,sym,symoff,dso 2>/dev/null | ordwell-import --quiet --binary=app - >b.csv
        ordwell-import --quiet --binary=app text | cmp - b.csv)");
    // Nearly all of the time goes there, though which of its callers the clock meets is chance.
    EXPECT_NE(chains.out.find(",_Z9recursivei,"), std::string::npos) << chains.out << chains.err;
    EXPECT_EQ(chains.err, "");
    const outcome single = run(R"(perf record -q -e cpu-clock -o single ./app $(seq 40) >said
        perf script --no-demangle -i single 2>/dev/null | ordwell-import --quiet --binary=app - >a.csv
        perf script --no-demangle -i single -F ip,sym,symoff,dso 2>/dev/null | ordwell-import --quiet --binary=app - | cmp - a.csv
        grep -c _Z9recursivei,_Z9recursivei, a.csv)");
    EXPECT_EQ(single.out, "1\n") << single.err;
}

} // namespace
