// The tool from outside: files in, exact bytes out.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string default_warning = "warning: Missing outfile name in command-line. Defaulting to forder.cmd\n";

// What the tool makes of one file: the order file, and what was said.
using result = std::pair<std::string, std::string>;

result order_file(const std::string& bytes) {
    const scratch_folder folder;
    folder.write("a.csv", bytes);
    const outcome ran = folder.run("ordwell -o o a.csv");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "");
    return {folder.read("o"), ran.err};
}

TEST(Tool, ReadsRows) {
    const struct {
        const char* what;
        std::string rows;
        result expected;
    } cases[] = {
        {"the worked example", "main,f,10\nmain,g,5\nf,g,3\ng,h,8\n", {order_of("f main g h"), ""}},
        {"header only", "", {"", ""}},
        {"callee before its caller", "main,f,1\n", {order_of("f main"), ""}},
        {"the last line may lack its line feed", "main,f,1", {order_of("f main"), ""}},
        {"one edge for both directions", "a,b,2\nc,d,3\nb,a,2\n", {order_of("b a d c"), ""}},
        {"a self-call makes a function", "f,f,9\n", {order_of("f"), ""}},
        {"weight 0 makes none", "a,b,0\na,b,-0\n", {"", ""}},
        {"a quoted caller is skipped", "\"main\",f,10\na,b,1\n", {order_of("b a"), ""}},
        {"a quoted callee keeps its quotes", "main,\"f\",10\n", {order_of("\"f\" main"), ""}},
        {"empty names", "a,,5\n,b,5\n", {order_of("b") + "--preferred_order=\"\"\n" + order_of("a"), ""}},
        {"names are bytes", "a\0b,\xff \t,5\n"s, {"--preferred_order=\"\xff \t\"\n--preferred_order=\"a\0b\"\n"s, ""}},
        {"names differ in case and blanks", "f, f,1\nF,f,2\n", {"--preferred_order=\" f\"\n" + order_of("f F"), ""}},
        {"a carriage return ends a weight", "a,b,1\r\n", {order_of("b a"), ""}},
        {"further columns are ignored", "a,b,1,2,3\n", {order_of("b a"), ""}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(order_file(csv(c.rows)), c.expected) << c.what;
    }
}

// Names lie in blocks of 64 KiB and more. Each calls the next, ever less, so the last one comes first.
TEST(Tool, ReadsNamesOfEverySize) {
    std::string rows;
    std::string order;
    std::string last;
    constexpr std::size_t sizes[] = {1, 65528, 8, 65520, 65512, 7, 65529, 600000, 9, 2500000, 262144};
    for (const std::size_t size : sizes) {
        const std::string name = std::string(size, static_cast<char>('a' + order.size() % 26));
        rows += last.empty() ? "" : last + "," + name + "," + std::to_string(1000000000 - rows.size()) + "\n";
        order = order_of(name) + order;
        last = name;
    }
    EXPECT_TRUE(order_file(csv(rows)) == result(order, "")); // without printing megabytes
}

// b is called by a and by c, and merges with the heavier caller first: the order shows which one that was.
TEST(Tool, ReadsWeights) {
    const auto heavier_than = [](const std::string& weight, const std::string& known) {
        const auto [order, err] = order_file(csv("a,b," + weight + "\nc,b," + known + "\n"));
        EXPECT_EQ(err, "");
        EXPECT_TRUE(order == order_of("a b c") || order == order_of("c b a")) << order;
        return order == order_of("c b a"); // c joins the chain b a
    };
    EXPECT_TRUE(heavier_than("007", "6"));
    EXPECT_FALSE(heavier_than("007", "8"));
    EXPECT_TRUE(heavier_than("12abc", "11"));
    EXPECT_TRUE(heavier_than(" \t\v\f\r+12", "11"));
    EXPECT_FALSE(heavier_than("12abc", "13"));
    EXPECT_TRUE(heavier_than("-1", "4294967294"));
    EXPECT_FALSE(heavier_than("-4294967295", "2"));
    EXPECT_TRUE(heavier_than("00000000000000000000004294967295", "4294967294"));
}

TEST(Tool, StopsAFileAtItsFirstBadRow) {
    const std::string start = "error: Error reading ";
    const std::string end = " function specification from a.csv, line 3;\n   remainder of file ignored\n";
    const std::string weight = "error: Error reading call frequency information from a.csv, line 3; remainder\n   of "
                               "file ignored\n";
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {start + "caller" + end, {""}},
        {start + "callee" + end, {"a", "a,", "\r"}},
        {weight, {"a,b", "a,b,", "a,b,x", "a,b,+-5", "a,b,- 5", "a,b,4294967296", "a,b,-4294967296", "a,b,\r"}},
    };
    const std::string more(std::size_t{1} << 17U, '\n'); // than is read at once
    for (const auto& [message, bad_rows] : cases) {
        for (const std::string& row : bad_rows) {
            EXPECT_EQ(order_file(csv("main,f,1\n" + row + "\nx,y,1\n" + more)), (result{order_of("f main"), message}))
                << row;
        }
    }
}

TEST(Tool, ChecksTheHeader) {
    const std::string row = "\nmain,f,1\n";
    for (const char* const good :
         {"\"caller\",\"callee\",\"weight\"", "\"caller\",\"callee\", \t\"weight\"",
          "\"caller\",\"callee\",\"weight\"\r", "\"caller\",\"callee\",\"weight\" and, more"}) {
        EXPECT_EQ(order_file(good + row), (result{order_of("f main"), ""})) << good;
    }
    const std::string message = "error: Invalid CSV input file header line encountered in a.csv; file ignored\n";
    for (const char* const bad :
         {"", "\"caller\"", "\"caller\",\"callee\"", "\"caller\",\"callee\",", "\"caller\" ,\"callee\",\"weight\"",
          "\"caller\", \"callee\",\"weight\"", "caller,callee,weight", "\"Caller\",\"callee\",\"weight\"",
          "\"caller\",\"callee\",\"weight\",\"x\"", "main,f,1"}) {
        EXPECT_EQ(order_file(bad + row), (result{"", message})) << bad;
    }
    EXPECT_EQ(order_file(""), (result{"", message}));
}

TEST(Tool, AddsFilesUp) {
    const scratch_folder folder;
    folder.write("a.csv", csv("a,b,2\nc,d,3\n"));
    folder.write("b.csv", csv("b,a,2\n"));
    EXPECT_EQ(folder.run("ordwell b.csv a.csv -o o1; ordwell a.csv -o o2; ordwell a.csv gone.csv a.csv -o o3").err,
              "error: Error opening input file gone.csv\n");
    EXPECT_EQ(folder.read("o1"), order_of("a b d c"));
    EXPECT_EQ(folder.read("o2"), order_of("b a d c"));
    EXPECT_EQ(folder.read("o3"), folder.read("o2")); // all counts doubled
}

TEST(Tool, NamesTheOrderFile) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    for (const char* const options :
         {"-oout a.csv", "-o=out a.csv", "-o out a.csv", "a.csv -o out", "--preferred_order_fileout a.csv",
          "--preferred_order_file=out a.csv", "--preferred_order_file out a.csv", "-o out -o other a.csv"}) {
        const outcome ran = folder.run("rm -f out; ordwell "s + options);
        EXPECT_EQ(folder.read("out"), order_of("f main")) << options;
        EXPECT_EQ(ran.status, 0) << options;
        EXPECT_EQ(ran.err, "") << options;
    }
    EXPECT_FALSE(folder.has("other"));
    EXPECT_EQ(folder.run("ordwell -o -pdb a.csv && cat ./-pdb").out, order_of("f main"));
    for (const char* const options : {"", " -pdew", " --emit_warnings_as_errors"}) { // its severity is fixed
        EXPECT_EQ(folder.run("ordwell a.csv"s + options).err, default_warning);
    }
    EXPECT_EQ(folder.read("forder.cmd"), order_of("f main"));
}

TEST(Tool, ReportsUnusableCommandLines) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    const std::pair<const char*, const char*> cases[] = {
        {"-o o", "fatal error: No input weighted call graph CSV data file(s) specified\n"},
        {"-", "fatal error: No input weighted call graph CSV data file(s) specified\n"},
        {"a.csv -o no/o", "fatal error: Error opening output file\n"},
        {"a.csv -o", "error: option -o is missing its parameter 'filename'\n"},
        {"a.csv -o ''", "error: option -o is missing its parameter 'filename'\n"},
        {"a.csv -o= o", "error: option -o is missing its parameter 'filename'\n"},
        {"--preferred_order_file", "error: option --preferred_order_file is missing its parameter 'filename'\n"},
        {"a.csv --diag_wrap=", "error: option --diag_wrap is missing its parameter 'on,off'\n"},
        {"--diag_wrap=maybe", "error: bad argument to option --diag_wrap: should be one of {on,off}\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const outcome ran = folder.run("ordwell "s + arguments);
        EXPECT_EQ(ran.status, 1) << arguments;
        EXPECT_EQ(ran.err, message) << arguments;
        EXPECT_FALSE(folder.has("o") || folder.has("forder.cmd")) << arguments;
    }
}

TEST(Tool, IgnoresUnknownOptions) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    const outcome ran = folder.run(
        "ordwell -x -h -pd -pdbx -pdewx -p -- --b --debug:wcg --debug_anything --disable:x --enable:x "
        "--buffer_diagnosticsx --emit_warnings_as_errorsx --toolversionx --diag --preferred_order a.csv -oo");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out + ran.err, "");
    EXPECT_EQ(folder.read("o"), order_of("f main"));
}

TEST(Tool, WrapsDiagnosticsUnlessTold) {
    const scratch_folder folder;
    const std::string wrapped =
        "error: Error opening input file\n   " + std::string(76, 'x') + "\n   " + std::string(14, 'x') + "\n";
    const std::string straight = "error: Error opening input file " + std::string(90, 'x') + "\n";
    const std::string file = " -oo " + std::string(90, 'x');
    for (const char* const option : {"", "--diag_wrap", "--diag_wrap=on", "--diag_wrapON", "-pdb", "-pdew"}) {
        EXPECT_EQ(folder.run("ordwell "s + option + file).err, wrapped) << option;
    }
    for (const char* const option : {"--diag_wrap=off", "--diag_wrapOff", "--diag_wrap=off --diag_wrap=on"}) {
        EXPECT_EQ(folder.run("ordwell "s + option + file).err, straight) << option;
    }
}

TEST(Tool, PrintsItsVersion) {
    const scratch_folder folder;
    const outcome ran = folder.run("ordwell gone.csv --toolversion -o");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");
    const std::string banner = "Varnel Ordwell                          v8.1.8\nBuild Number 1";
    ASSERT_EQ(ran.out.substr(0, banner.size()), banner);
    const std::string build = ran.out.substr(banner.size()); // year, month, day, hour, then fixed texts and the branch
    EXPECT_GE(build[1], 'A');
    EXPECT_LE(build[1], 'L');
    EXPECT_EQ(build.substr(4, 15), "-EMB-YARAY-YAR-");
    EXPECT_EQ(build.back(), '\n');
}

TEST(Tool, PrintsHelpWithoutArguments) {
    const scratch_folder folder;
    const outcome ran = folder.run("ordwell");
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(ran.out, folder.run("cat " ORDWELL_SOURCE "/tests/sample/help.txt").out);
}

TEST(Tool, EndsAtTheErrorLimit) {
    const scratch_folder folder;
    const std::string error = "error: Error opening input file gone\n";
    std::string hundred;
    for (int i = 0; i < 100; ++i) {
        hundred += error;
    }
    const outcome at_limit = folder.run("ordwell -oo $(yes gone | head -n 100)");
    EXPECT_EQ(at_limit.status, 0);
    EXPECT_EQ(at_limit.err, hundred);
    const outcome past_limit = folder.run("ordwell -oo2 $(yes gone | head -n 101)");
    EXPECT_EQ(past_limit.status, 1);
    EXPECT_EQ(past_limit.err, hundred + error + "fatal error: error limit reached; 100 errors detected\n");
    EXPECT_FALSE(folder.has("o2"));
}

} // namespace
