// ordwell-import --first-run: the order of first execution, by hand and of a program whose order is known by construction.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

class FirstRun : public testing::Test {
protected:
    /// The names of the order that a run writes, or what it says when it fails.
    std::string order_of(const std::string& arguments) const {
        const outcome ran = folder.run("ordwell-import --quiet --first-run=order " + arguments +
                                       " && sed 's/^--preferred_order=\"//; s/\"$//' order | tr '\\n' ' '");
        return ran.out + ran.err;
    }
    scratch_folder folder;
};

TEST_F(FirstRun, ByHand) {
    const std::string head = "# callgrind format\nversion: 1\n";
    // First main calls f and g, f calls h; in the later part g, which nobody calls there, calls k; x and y call each other.
    const std::string parts =
        head + "part: 1\npositions: line\nevents: Ir\nfn=h\n1 1\nfn=main\n1 1\ncfn=f\ncalls=1 1\n1 1\ncfn=g\n"
               "calls=1 1\n1 1\nfn=f\n1 1\ncfn=h\ncalls=1 1\n1 1\n\npart: 2\nfn=x\n1 1\ncfn=y\ncalls=1 1\n1 1\n"
               "fn=y\n1 1\ncfn=x\ncalls=1 1\n1 1\nfn=g\n1 1\ncfn=k\ncalls=1 1\n1 1\n";
    const struct {
        std::string profile;
        const char* order;
    } cases[] = {
        {parts, "main f h g k x y "},
        {head + "part: 1\nfn=f\n1 1\n\npart: 1\nthread: 2\nfn=g\n1 1\n",
         "ordwell-import: p: one part only, which does not tell when functions ran: record with valgrind "
         "--tool=callgrind "
         "--dump-every-bb=2000 --combine-dumps=yes\n"},
        {"app 1 1.5: 1 c: \n\t 11 g+0x3 (/a)\n\t 12 f+0x3 (/a)\n\napp 1 1.6: 1 c: \n\t 13 h+0x3 (/a)\n\t 11 f+0x3 "
         "(/a)\n\n",
         "f g h "},
        {"app 1 1.5: 1 c: 1 f+0x3 (/a)main+0x5(/a)/g+0x0(/a)/P/-/-/0  main+0x1(/a)/h+0x0(/a)/P/-/-/0 \n",
         "main h g f "},
        {"c: \n\t 11 g+0x3 (/a)\n\n",
         "ordwell-import: p: the field time is missing, without which nothing tells when functions "
         "ran: print again with perf script -F time,ip,sym,symoff,dso\n"},
    };
    for (const auto& c : cases) {
        folder.write("p", c.profile);
        EXPECT_EQ(order_of("p"), c.order);
    }
    folder.write("p", parts);
    folder.write("names", "k\r\nf\n\nnew\nf");
    EXPECT_EQ(order_of("--format=names -o rows names"), "k f new ");
    EXPECT_EQ(folder.read("rows"), "\"caller\",\"callee\",\"weight\"\nk,k,1\nf,f,1\nnew,new,1\n");
    for (const auto& [list, told] : {std::pair{"f\n\177ELF\2\n", "2: a control character"},
                                     {"f(int, int)\n--preferred_order=\"f\"\n", "2: a line of an order file"},
                                     {"f\n401000 T f\n", "2: more than a name"}}) {
        folder.write("q", list);
        EXPECT_TRUE(order_of("--format=names q").starts_with("ordwell-import: q:"s + told)) << list;
    }
    folder.write("q", parts + "desc: Trigger: --dump-every-bb=2000\n");
    EXPECT_TRUE(
        folder.run("ordwell-import --first-run=cut q").err.starts_with("ordwell-import: q: the program's end is "));
    EXPECT_TRUE(
        order_of("--format=names p").starts_with("ordwell-import: p: no list of names, but of the format callgrind"));
    for (const auto& [format, profile] : {std::pair{"stacks", "a;b 1\n"},
                                          {"pairs", "a b 1\n"},
                                          {"fdata", "1 a 1 1 b 0 0 1\n"},
                                          {"csv", "\"caller\",\"callee\",\"weight\"\na,b,1\n"}}) {
        folder.write("q", profile);
        const std::string told = order_of("-o rows q");
        EXPECT_TRUE(told.starts_with("ordwell-import: q: the format "s + format +
                                     " does not tell when functions ran: record with"))
            << told;
    }
    EXPECT_EQ(folder.read("order").size(), std::string("--preferred_order=\"\"\n").size() * 3 + 5);
    EXPECT_EQ(folder.run("ordwell-import --first-run=- p").status, 2);
    EXPECT_EQ(folder.run("ordwell-import --first-run=rows -o rows p").status, 1);
}

// Functions that run long enough for a part each, in an order that is not the source's; those that main does not reach by
// then are not in it, and a second profile adds what only it has.
TEST_F(FirstRun, OfAProgramAndThroughLinkers) {
    std::string source = "#include <stdlib.h>\nvolatile int sink;\n";
    std::string calls;
    std::string expected = "main ";
    for (int i = 0; i < 9; ++i) {
        source += "__attribute__((noinline)) void f" + std::to_string(i) +
                  "(void) { for (int n = 0; n < 30000; ++n) sink += n; }\n";
    }
    for (int i = 0; i < 9; ++i) {
        const std::string name = "f" + std::to_string(i * 4 % 9);
        calls += (i < 8 ? name : "if (c > 1) " + name) + "();";
        expected += i < 8 ? name + " " : "";
    }
    folder.write("p.c", source + "int main(int c, char** v) { " + calls + " }\n");
    ASSERT_EQ(folder
                  .run("gcc -O1 -ffunction-sections -c p.c && gcc p.o -o app && for run in one two; do valgrind -q "
                       "--tool=callgrind "
                       "--dump-every-bb=2000 --combine-dumps=yes --callgrind-out-file=$run ./app $arguments; "
                       "arguments=x; done")
                  .status,
              0);
    EXPECT_EQ(order_of("--binary=app one | sed 's/_[a-z_]* //g'"), expected);
    EXPECT_TRUE(folder.run("ordwell-import --first-run=all one").err.ends_with("keep the program's with --binary\n"));
    EXPECT_EQ(order_of("--binary=app one two | sed 's/_[a-z_]* //g'"), expected + "f5 ");
    for (const auto& [linker, option] : {std::pair{"lld", "-Wl,--symbol-ordering-file="},
                                         {"gold", "-Wl,--section-ordering-file="},
                                         {"ld", "-Wl,-T,"}}) {
        EXPECT_EQ(
            folder
                .run(
                    "printf -- '--preferred_order=\"f5\"\\n--preferred_order=\"f4\"\\n' >calls.cmd; ordwell-export --quiet --linker="s +
                    linker + " -o in order calls.cmd && gcc -fuse-ld=" + (linker == "ld"s ? "bfd" : linker) + " p.o " +
                    option + "in -o placed && nm -n placed | sed -n 's/.* T \\(f[0-9]\\)$/\\1/p' | tr '\\n' ' '")
                .out,
            expected.substr(5) + "f5 ")
            << linker;
    }
}

} // namespace
