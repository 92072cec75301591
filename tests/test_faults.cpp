// Hostile machines: input that goes away, full disks, closed streams, exhausted memory, huge rows. Each is tried on the
// built tool.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

const std::string out_of_memory = "ERROR: out of memory\n";

TEST(Faults, UnusualInput) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\ng,h,2\n"));
    const std::string both = order_of("f main h g");
    const std::string cut_off = "error: Error reading call frequency information from a, line 3; remainder of\n   file "
                                "ignored\n";
    const struct {
        const char* command;
        std::string err;
        std::string order;
    } cases[] = {
        {"mkdir d; ordwell d -oo", "error: Invalid CSV input file header line encountered in d; file ignored\n", ""},
        {"ln -s a a; ordwell a -oo; rm a", "error: Error opening input file a\n", ""},
        {"ordwell -oo ''", "error: Error opening input file \n", ""},
        {"ordwell /dev/stdin -oo <a.csv", "", both},
        {"head -c -3 a.csv >a; ordwell a -oo", cut_off, order_of("f main")},
        {"mkfifo p; (cat a.csv; sleep 0.1; printf 'x,'; printf 'y,3\\n') >p & ordwell p -oo", "",
         both + order_of("y x")},
        {"rm -f a; mkfifo a; (head -c -3 a.csv >a; sleep 0.1) & ordwell a -oo; rm a", cut_off, order_of("f main")},
        {"ordwell a.csv -oo 2>&-", "", both},
        {"ordwell a.csv -oo >&-", "", both},
        {"ordwell a.csv -oo </dev/full", "", both},
        {"ordwell a.csv -o/dev/full", "", ""},   // write errors are not reported
        {"cp a.csv o; ordwell o -oo", "", both}, // read before it is written
        {"cp a.csv o; ordwell o no.csv -oo", "error: Error opening input file no.csv\n", both},
    };
    for (const auto& c : cases) {
        const outcome ran = folder.run("rm -f o; "s + c.command + "; s=$?; wait; exit $s");
        EXPECT_EQ(ran.err, c.err) << c.command;
        EXPECT_EQ(folder.read("o"), c.order) << c.command;
    }
}

// An error on standard error that nobody reads must not keep the order file from being written, and a closed stream
// that is named as a file cannot be opened.
TEST(Faults, ClosedStreams) {
    const scratch_folder folder;
    folder.write("b.csv", csv("main,f,1\n"));
    const outcome to_closed = folder.run("ordwell b.csv -o/dev/stdout >&-");
    EXPECT_EQ(to_closed.status, 1);
    EXPECT_EQ(to_closed.err, "fatal error: Error opening output file\n");
    const outcome from_closed = folder.run("ordwell /dev/stdin b.csv -oo <&- && cat o");
    EXPECT_EQ(from_closed.err, "error: Error opening input file /dev/stdin\n");
    EXPECT_EQ(from_closed.out, order_of("f main"));
    folder.write("a.csv", csv("main,f,1\nbad\n"));
    EXPECT_EQ(folder.run("ordwell a.csv gone -oo 2>&-").status, 0);
    EXPECT_EQ(folder.read("o"), order_of("f main"));
    EXPECT_EQ(folder.run("ordwell gone 2>/dev/full").status, 0);
}

#ifndef ORDWELL_SANITIZED // a sanitizer takes the place of preloaded functions, and its memory fits under no limit

const std::string on_faulty_machine = "LD_PRELOAD=" ORDWELL_FAULTY_MACHINE " ";

TEST(Faults, ReadErrorsAndTerminals) {
    const scratch_folder folder;
    const std::string text = csv("main,f,1\ng,h,20\n");
    folder.write("a.csv", text);
    const auto order_at = [&](const std::string& fault) {
        const outcome ran = folder.run(on_faulty_machine + fault + " " ORDWELL_TOOL " a.csv -oo; cat o");
        return ran.out + ran.err;
    };
    const std::size_t size = text.size();
    EXPECT_EQ(order_at("FAIL_READ=" + std::to_string(size)), order_of("f main h g"));
    EXPECT_EQ(order_at("FAIL_READ=" + std::to_string(size - 1)), order_of("f main"));
    EXPECT_EQ(order_at("FAIL_READ=" + std::to_string(size - 2)), order_of("f main")); // behind "g,h,2"
    EXPECT_EQ(order_at("FAIL_READ=26"),
              "error: Invalid CSV input file header line encountered in a.csv; file ignored\n");
    EXPECT_EQ(order_at("LATE_INPUT=1"), order_of("f main h g"));
    folder.write("a.csv", text.substr(0, size - 1));
    EXPECT_EQ(order_at("LATE_INPUT=1"), order_of("f main h g"));
}

// Before main(), too: static objects take the first of these allocations. What was buffered for standard error is not
// written behind the message.
TEST(Faults, EachAllocationFails) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    int ended = 0;
    for (int number = 1; number <= 60; ++number) {
        const outcome ran = folder.run(on_faulty_machine + "FAIL_MALLOC=" + std::to_string(number) +
                                       " " ORDWELL_TOOL " -pdb gone a.csv -oo");
        const bool is_complete = ran.status == 0;
        ended += is_complete ? 0 : 1;
        EXPECT_EQ(ran.status, is_complete ? 0 : 1) << number;
        if (!is_complete) {
            EXPECT_TRUE(ran.err.ends_with(out_of_memory)) << number << ran.err;
        }
    }
    EXPECT_GE(ended, 40);
}

TEST(Faults, ExhaustedMemory) {
    const scratch_folder folder;
    folder.run(R"(awk 'BEGIN { print "\"caller\",\"callee\",\"weight\""
        for (i = 0; i < 300000; ++i) printf "function_number_%d,function_number_%d,%d\n", i % 60000, i * 7919 % 60000, 1 + i % 9 }' >a.csv)");
    int ended_by_memory = 0;
    int complete = 0;
    for (int limit = 7; limit <= 40; ++limit) { // MiB, from what the loader and the libraries need on
        const outcome ran = folder.run("rm -f o; ulimit -v " + std::to_string(limit * 1024) + "; ordwell a.csv -oo");
        const bool is_complete = ran.status == 0;
        ++(is_complete ? complete : ended_by_memory);
        EXPECT_EQ(ran.status, is_complete ? 0 : 1) << limit;
        EXPECT_EQ(ran.err, is_complete ? "" : out_of_memory) << limit;
        EXPECT_TRUE(!is_complete || folder.run("wc -l <o").out == "60000\n") << limit;
    }
    EXPECT_GE(ended_by_memory, 10);
    EXPECT_GE(complete, 5);
}

TEST(Faults, SizesBeyondReason) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    const std::pair<const char*, std::string> cases[] = {
        // A row of 100 MiB whose caller has 50 MiB, and the rest of it behind the weight.
        {R"({ head -n 1 a.csv; head -c 52428800 /dev/zero | tr '\0' n; printf ',f,5,'; head -c 52428800 /dev/zero
            printf '\nmain,f,1\n'; } >b.csv; ordwell b.csv -oo && wc -c <o && tail -c 20 o)",
         "52428868\nnnnnnnnnnnnnnnnnnn\"\n"},
        {"ordwell -oo $(yes a.csv | head -n 10000) && cat o", order_of("f main")},
        {"{ head -n 1 a.csv; yes main,f,4294967295 | head -n 1000000; } >b.csv; ordwell b.csv -oo && wc -l <o", "2\n"},
        {"{ head -n 1 a.csv; seq 1000000 | sed 's/.*/hub,f&,1/'; } >b.csv; ordwell b.csv -oo && wc -l <o", "1000001\n"},
        {"{ head -n 1 a.csv; seq 1000000 | sed 's/.*/f&,hub,1/'; } >b.csv; ordwell b.csv -oo && wc -l <o", "1000001\n"},
    };
    for (const auto& [command, expected] : cases) {
        EXPECT_EQ(folder.run(command).out, expected) << command;
    }
}

TEST(Faults, TheBinaryIsHardened) {
    const scratch_folder folder;
    const outcome ran = folder.run("readelf -hldW --dyn-syms " ORDWELL_TOOL " >elf\n"
                                   "grep -c 'Type: .*DYN' elf; grep -c GNU_RELRO elf; grep -c 'FLAGS.*NOW' elf\n"
                                   "grep -o __stack_chk_fail elf | head -n 1; grep -o '__printf_chk' elf | head -n 1\n"
                                   "grep GNU_STACK elf | grep -c RWE");
    EXPECT_EQ(ran.out, "1\n1\n2\n__stack_chk_fail\n__printf_chk\n0\n");
}

#endif

} // namespace
