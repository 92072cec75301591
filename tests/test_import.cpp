// ordwell-import from outside: profiles in, exact CSV and messages out. Real profilers are in tests/test_relink.cpp.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

using namespace std::string_literals;

/// A scratch folder with the sample program of tests/sample, built on first use.
std::string sample() {
    static const scratch_folder folder;
    static const std::string path = [] {
        const outcome built =
            folder.run("g++ -O2 -ffunction-sections -o sample " ORDWELL_SOURCE "/tests/sample/main.cpp " ORDWELL_SOURCE
                       "/tests/sample/shapes.cpp && ln -s sample link && "
                       "strip -o stripped sample && pwd");
        EXPECT_EQ(built.status, 0) << built.err;
        return built.out.substr(0, built.out.size() - 1);
    }();
    return path;
}

// What ordwell-import makes of one profile: the rows, then the messages.
std::string imported(const std::string& profile, const std::string& options = "") {
    const scratch_folder folder;
    folder.write("p", profile);
    const outcome ran = folder.run("ordwell-import " + options + " p");
    const std::string header = csv("");
    EXPECT_EQ(ran.status, ran.out.empty() ? 1 : 0) << ran.err;
    EXPECT_TRUE(ran.out.empty() || ran.out.starts_with(header)) << ran.out;
    return ran.out.substr(ran.out.empty() ? 0 : header.size()) + ran.err;
}

TEST(Import, ReadsCallgrind) {
    const std::string callgrind = scratch_folder().run("cat " ORDWELL_SOURCE "/tests/sample/callgrind.out").out;
    EXPECT_EQ(imported(callgrind, "--quiet"),
              "main,puts,3\nmain,f,16\nf,g,7\nlonely,lonely,1\nputs,callback,9\ng,f,1\n");
    EXPECT_EQ(imported(callgrind, "--object=app"),
              "main,f,16\nf,g,7\nlonely,lonely,1\ncallback,callback,9\ng,f,1\n"
              "ordwell-import: kept 5 functions and 24 calls\n"
              "ordwell-import: left out 21 calls with a function outside the binary\n");
    EXPECT_EQ(imported(callgrind, "--object /elsewhere/libc.so --quiet"), "puts,puts,21\ng,f,1\n");
    EXPECT_EQ(imported("events: Ir\nfn=main\n1 1\ncfn=_Z1fv'3\ncalls=1 1\n1 1\n", "--quiet"), "main,_Z1fv,1\n");
}

TEST(Import, ReadsTextFormats) {
    const std::string chains =
        "app 1 2.5:  1 cycles: \n\t 10 f+0x3 (/bin/app)\n\t 11 ab (inlined)\n\t 11 main+0x4 (/bin/app)\n\n";
    const struct {
        std::string profile;
        const char* options;
        const char* expected;
    } cases[] = {
        {"# calls\nmain f 10\n\nf main 2\nmain f 5\nf f 3\nx x 9\na b 0\n", "", "main,f,15\nf,main,2\n"},
        {"main\tf 1\r\n", "", "main,f,1\n"},
        {"f@@V1 g@plt 1\n@odd h@V2 2\n", "", "f,g,1\n@odd,h,2\n"},
        {"a b 18446744073709551615\na b 1\nc d 1\n", "", "a,b,4294967295\nc,d,1\n"},
        {"a b 4294967296\nc d 3\n", "", "a,b,2147483648\nc,d,1\n"},
        {"a b 4294967295\nc d 3\n", "", "a,b,4294967295\nc,d,3\n"},
        {"f(int) g(char) 1\nh i 2\n", "--format=pairs", "h,i,2\n"}, // no more than half of them
        {"main;f;g 17\nmain;f 2\nmain;f;g 1\nlone 4\nr;r;r 6\n", "", "f,g,18\nmain,f,2\nlone,lone,4\nr,r,6\n"},
        {"a;;b 3\n", "", "b,b,3\na,a,3\n"}, // a frame without a name
        {"main;a b;c d 17\n", "", "a b,c d,17\nmain,main,17\n"},
        {chains + chains, "", "main,f,2\n"},
        {chains, "--object=app", "main,f,1\n"},
        {"app 7 8.1: 1 cycles:u:  \n\tff k ([kernel.kallsyms])\n\tfe l ([kernel.kallsyms])\n\t1 f+0x1 (/bin/app)\n"
         "\t2 g+0x1 (/bin/app)\n",
         "--object=app", "f,f,1\ng,g,1\n"},
        {"app 7 8.1: 1 cycles: \n\t1 read (/lib/libc.so.6)\n\t1 f+0x1 (/bin/app)\n\t2 g+0x1 (/bin/app)\n",
         "--object=app", "f,f,1\ng,g,1\n"},
        {"      app 7 8.1: 1 cycles:  10 f+0x3 (/bin/app)\n   add 7 8.2: 1 cycles:  11 f+0x4 (/bin/app)\n", "",
         "f,f,2\n"},
        {"     10 f+0x3 (/bin/app)\n     11 g+0x3 (/bin/app)\n     10 f+0x9 (/bin/app)\n", "", "f,f,2\ng,g,1\n"},
        {" main+0x5/f+0x0/P/-/-/0  f+0x9/f+0x2/M/-/-/0 f+0x9/g+0x0/-/-/-/0 g+0x1/main+0x6/P/-/-/3\n", "",
         "main,f,1\nf,g,1\n"},
        {"app 7 8.1: 1 cycles:  10 g+0x3 (/bin/app)  main+0x5(/bin/app)/a b+0x0(/bin/app)/P/-/-/0 \n", "",
         "main,a b,1\ng,g,1\n"},
        {"app 7 8.1: 1 cycles: \n\t 10 g+0x3 (/bin/app)\n\t 10 h+0x3 (/bin/app)\n main+0x5/f+0x0/P/-/-/0/CALL/- \n\n",
         "", "main,f,1\ng,g,1\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(imported(c.profile, c.options + " --quiet"s), c.expected) << c.profile;
    }
}

// The form that compilers before clang 12 wrote: numbers of symbols instead of relocations.
TEST(Import, ReadsOldCallGraphProfiles) {
    const scratch_folder folder;
    folder.write("a.s", ".globl f\nf: ret\n.globl g\ng: ret\n"
                        ".section .llvm.call-graph-profile,\"eM\",@0x6fff4c02,16\n.long 1, 2\n.quad 4294967298\n"
                        ".long 2, 1\n.quad 2147483649\n");
    const outcome ran =
        folder.run("as a.s -o a.o && readelf -sW a.o | grep -q '1: .* f$' && ordwell-import --quiet a.o");
    EXPECT_EQ(ran.out + ran.err, csv("f,g,2147483649\ng,f,1073741824\n"));
}

TEST(Import, KeepsWhatTheBinaryDefines) {
    const std::string binary = "--quiet --binary=" + sample() + "/";
    const struct {
        std::string profile;
        std::string options;
        std::string expected;
    } cases[] = {
        {"main _Z9recursivei 4\nmain puts 2\nputs _ZL8by_valuePKvS0_ 3\n", binary + "sample",
         "main,_Z9recursivei,4\n_ZL8by_valuePKvS0_,_ZL8by_valuePKvS0_,3\n"},
        {"_Z9recursivei _Z9recursivei 8\nabc _Z9recursivei 2\n", binary + "link", "_Z9recursivei,_Z9recursivei,2\n"},
        {"_Z9recursivei.llvm.77 _ZL6set_upv.lto_priv.3 4\n", binary + "sample", "_Z9recursivei,_ZL6set_upv,4\n"},
        {"main _ZL6helperi 4\n", binary + "sample", "main,_ZL6helperi,4\n"}, // defined twice: one name
        {"app 1 2.5:  1 cycles: \n\t 10 _Z9recursivei+0x3 (/bin/sample)\n\t 11 main+0x4 (/bin/sample)\n\n"
         "app 1 2.6:  1 cycles: \n\t 10 _Z9recursivei+0x3 (/bin/other)\n\t 11 main+0x4 (/bin/sample)\n\n",
         binary + "link", "main,_Z9recursivei,1\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(imported(c.profile, c.options), c.expected) << c.profile;
    }
}

TEST(Import, SaysWhatIsWrong) {
    const std::string program = "ordwell-import: ";
    const std::string advice = "p: the names are demangled, and no linker knows those: name the program with --binary, "
                               "or profile again with --demangle=no "
                               "(valgrind), or print again with --no-demangle (perf script)\n";
    const struct {
        std::string profile;
        std::string options;
        std::string expected;
    } cases[] = {
        {"a b 1\na b\n", "", "p:2: not a line of caller, callee and count\n"},
        {"a b 1\na b 1 c\n", "", "p:2: not a line of caller, callee and count\n"},
        {"a b 18446744073709551616\n", "--format=pairs", "p:1: not a line of caller, callee and count\n"},
        {"a;b 1\na;b\n", "", "p:2: not a line of a stack and its count\n"},
        {"events: Ir\nfn=(1) f\n1 1\ncfn=(2)\n", "", "p:4: a name by a number that was not defined\n"},
        {"events: Ir\n1 1\n", "", "p:2: costs without a function\n"},
        {"events: Ir\nfn=f\ncalls=1 1\n", "", "p:3: calls without a called function\n"},
        {"events: Ir\nfn=f\ncfn=g\ncalls=x 1\n", "", "p:4: a number of calls that is none\n"},
        {"events: Ir\nfn=f\ncfn=g\ncalls=1 1\n", "", "p:4: ends before the costs of the last call\n"},
        {"events: Ir\nnonsense\n", "", "p:2: not a line of the callgrind format\n"},
        {"x 1 2.5: 1 cycles: \n\tnonsense\n", "", "p:2: not a frame of perf script\n"},
        {"\x01\x02\n", "", "p: of no known format: name it with --format\n"},
        {"a b 1\na\0b c 1\n"s, "", "p:2: a zero byte, which no text has: the file is damaged\n"},
        {"", "", "p: empty\n"},
        {"", "--format=pairs", "p: empty\n"},
        {"gmon\1\0\0\0"s, "", "p: gmon.out holds addresses: name the program with --binary\n"},
        {"gmon\1\0\0\0"s, "--binary=" + sample() + "/sample", "p: ends inside a record\n"},
        {"\177ELF", "", "p: neither an ELF file nor an archive\n"},
        {"!<arch>\n", "", "p: no call graph profile: compile with clang -fprofile-use, without -flto\n"},
        {"!<thin>\n", "", "p: no call graph profile: compile with clang -fprofile-use, without -flto\n"},
        {"f(int) g(char) 1\nns::h<int> i 2\n", "--format=pairs", advice},
        {"a b 1\n", "--binary=" + sample() + "/stripped",
         sample() +
             "/stripped: no symbol table: link without -s and strip only the copy that you ship, or give the file with "
             "the separate debug information\n"},
        {"a b 1\n", "--binary=gone", "gone: No such file or directory\n"},
        {"a b 1\n", "--binary=p", "p: neither an ELF file nor an archive\n"},
        {"nil none 7\n", "--binary=" + sample() + "/sample",
         "p: no function was kept; none of the profile's is defined in " + sample() + "/sample\n"},
        {"ob=(1) /bin/x\nfn=(1) f\n1 1\ncfn=(2) g\ncalls=1 1\n1 1\n", "--object=y",
         "p: no function was kept; wanted are those of y, the profile has those of /bin/x: name the object with "
         "--object\n"},
        {"a a 1\n", "", "p: no function was kept; there are no calls in the profile\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(imported(c.profile, c.options), program + c.expected) << c.profile << c.options;
    }
    EXPECT_EQ(imported("a,b c 1\n\"q c 2\nq\"q c 3\n"),
              "q\"q,c,3\nordwell-import: kept 2 functions and 3 calls\n"
              "ordwell-import: left out 3 calls with a name that no row can hold\n"
              "ordwell-import: left out 2 names that are empty, hold a comma or a line feed, or start with a quote\n");
    EXPECT_NE(imported("a b 8589934592\n").find("divided all counts by 4, so that the largest fits 32 bits\n"),
              std::string::npos);
}

TEST(Import, WritesAllOrNothing) {
    const scratch_folder folder;
    folder.write("good", "a b 1\n");
    folder.write("more", "a b 2\nb c 1\n");
    folder.write("bad", "a b\n");
    const std::string rows = csv("a,b,3\nb,c,1\n");
    EXPECT_EQ(folder.run("ordwell-import --quiet good - <more").out, rows);
    EXPECT_EQ(folder.run("umask 027; ordwell-import -o out --quiet good more; cat out; stat -c %a out").out,
              rows + "640\n");
    EXPECT_EQ(folder.run("chmod 604 out; ln -s out link; ordwell-import -o link good bad; echo $?; cat link").out,
              "1\n" + rows);
    EXPECT_EQ(folder.run("ordwell-import -olink --quiet good; cat out; stat -c %a%F link out").out,
              csv("a,b,1\n") + "777symbolic link\n604regular file\n");
    EXPECT_EQ(folder.run("{ echo before; ordwell-import --quiet -o/dev/stdout good; echo after; } >all; cat all").out,
              "before\n" + csv("a,b,1\n") + "after\n");
    EXPECT_EQ(folder.run("mkfifo p; timeout 9 cat p & ordwell-import --quiet -op good; wait; test -p p && rm p").out,
              csv("a,b,1\n"));
    EXPECT_EQ(folder.run("ls").out, "all\nbad\ngood\nlink\nmore\nout\n");
    const outcome full = folder.run("ordwell-import -o/dev/full good");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "ordwell-import: /dev/full: cannot be written: No space left on device\n");
    EXPECT_EQ(folder.run("ordwell-import -ono/out good").err,
              "ordwell-import: no/out: cannot be opened for writing: No such file or directory\n");
    for (const char* const wrong : {"", "--format=x good", "--quite good", "--binary"}) {
        EXPECT_EQ(folder.run("ordwell-import "s + wrong).status, 2) << wrong;
        EXPECT_EQ(folder.run("ordwell-export --linker=lld "s + wrong).status, 2) << wrong;
    }
    EXPECT_EQ(folder.run("ordwell-import -h | grep -c 'help *Print this help and exit$'").out, "1\n");
    EXPECT_EQ(folder.run("ordwell-import --version && ordwell-export --version && ordwell-report --version").out,
              "ordwell-import 8.1.8\nordwell-export 8.1.8\nordwell-report 8.1.8\n");
}

} // namespace
