// What the companions share: files that appear together, outputs that are inputs, empty values.
#include "support/failure.h"
#include "support/output_file.h"
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

TEST(OutputFiles, AppearTogetherOrNotAtAll) {
    const scratch_folder folder;
    folder.run("mkdir gone; echo old >kept; echo old >replaced; chmod 604 replaced; ln -s replaced link");
    {
        output_file kept(folder.path("kept"));
        output_file fresh(folder.path("fresh"));
        output_file lost(folder.path("gone/lost"));
        for (output_file* const file : {&kept, &fresh, &lost}) {
            file->write("new\n");
        }
        folder.run("rm -r gone");
        EXPECT_THROW(finish_together({&kept, &fresh, &lost}), failure);
    }
    {
        output_file link(folder.path("link"));
        output_file other(folder.path("other"));
        link.write("new\n");
        finish_together({&link, &other});
    }
    EXPECT_EQ(folder.run("ls; cat kept replaced other; stat -c %a replaced; readlink link").out,
              "kept\nlink\nother\nreplaced\nold\nnew\n604\nreplaced\n");
}

TEST(OutputFiles, AreNeitherInputsNorEachOther) {
    const scratch_folder folder;
    folder.run("echo >a; ln a hard; ln -s a soft; mkdir d; ln -s ../new d/new; ln -s . here");
    const auto refuses = [&](const char* output, const char* second_output, const char* input) {
        const auto path = [&](const std::string& name) {
            return name.empty() || name.starts_with("/") || name == "-" ? name : folder.path(name);
        };
        try {
            check_outputs({path(output), path(second_output)}, {path(input)});
        } catch (const failure&) {
            return true;
        }
        return false;
    };
    for (const char* const name : {"a", "hard", "soft", "d/../a", "here/a"}) {
        EXPECT_TRUE(refuses(name, "", "a") && refuses("a", "", name) && refuses("x", name, "a")) << name;
        EXPECT_TRUE(refuses("a", name, "")) << name;
    }
    folder.write("program", "\177ELF\2");
    folder.write("archive", "!<arch>\n");
    EXPECT_TRUE(refuses("program", "", "a") && refuses("archive", "", ""));
    EXPECT_TRUE(refuses("new", "here/new", ""));
    EXPECT_FALSE(refuses("new", "d/../old", "a") || refuses("", "", "") ||
                 refuses("/dev/null", "/dev/null", "/dev/null"));
}

TEST(CommandLine, RefusesEmptyValues) {
    const scratch_folder folder;
    folder.write("a", order_of("f"));
    for (const char* const words :
         {"--linker= lld a", "--linker=lld -o '' a", "--linker=lld -o= a a", "--linker=lld ''"}) {
        const outcome refused = folder.run(std::string("ordwell-export ") + words);
        EXPECT_EQ(refused.status, 2) << words;
        EXPECT_NE(refused.err.find(" is empty\n"), std::string::npos) << words << refused.err;
    }
    EXPECT_EQ(folder.run("ordwell-export --quiet --linker=lld -o=b a && ls").out, "a\nb\n");
}

TEST(CommandLine, WritesNoMessagesIntoFiles) {
    const scratch_folder folder;
    folder.write("calls", "f g 1\n");
    for (const std::string closed : {"2>&-", ">&-", ">&- 2>&-", "<&- >&- 2>&-"}) {
        folder.run("ordwell-import -o calls.csv calls " + closed);
        EXPECT_EQ(folder.read("calls.csv"), "\"caller\",\"callee\",\"weight\"\nf,g,1\n") << closed;
        EXPECT_EQ(folder.run("ordwell-import calls " + closed).status, closed == "2>&-" ? 0 : 1) << closed;
    }
}

#ifndef ORDWELL_SANITIZED // a sanitizer takes the place of preloaded functions, and its memory fits under no limit

// Exhausted memory: by a limit, and each allocation of a small run, those of the libraries they use among them.
TEST(Companion, RunsOutOfMemory) {
    const scratch_folder folder;
    folder.run(R"(seq 3000 | sed 's/.*/int f&() { return &; }/' >a.c; echo 'int main() { return 0; }' >>a.c
        gcc -ffunction-sections -c a.c && gcc a.o -o app && ar rc a.a a.o
        seq 2999 | awk '{ print "f" $1, "f" $1 + 1, $1 }' >calls && ordwell-import --quiet -o a.csv calls && ordwell -oa.cmd a.csv)");
    for (const std::string command : {"ordwell-import --quiet --binary=app -o o calls",
                                      "ordwell-export --quiet --linker=gold --objects=a.a -o o a.cmd",
                                      "ordwell-report --calls=a.csv --order=a.cmd --json=o app"}) {
        const std::string message = command.substr(0, command.find(' ')) + ": out of memory\n";
        folder.run(command + "; mv o complete");
        const auto ends_well = [&](const std::string& before) {
            const outcome ran = folder.run("rm -f o; " + before + " " + command + " >/dev/null");
            EXPECT_EQ(ran.status, ran.err.empty() ? 0 : 1) << before << command;
            EXPECT_TRUE(ran.err.empty() ? folder.read("o") == folder.read("complete")
                                        : ran.err == message && folder.run("ls o*").out.empty())
                << before << command << ran.err;
            return ran.err.empty();
        };
        int complete = 0;
        int limit = 4096; // KiB
        const auto limited = [&] { return "ulimit -v " + std::to_string(limit) + "; "; };
        while (limit < 99999 &&
               folder.run(limited() + command.substr(0, command.find(' ')) + " --version").status != 0) {
            limit += 128; // until loader and libraries have what they need
        }
        for (const int end = limit + 24576; limit <= end; limit += complete == 0 ? 128 : 6144) {
            complete += ends_well(limited()) ? 1 : 0;
        }
        EXPECT_GE(complete, 1) << command;
        for (int number = 1; number < 4000; number += 1 + number / 4) {
            ends_well("LD_PRELOAD=" ORDWELL_FAULTY_MACHINE " FAIL_MALLOC=" + std::to_string(number));
        }
    }
}

#endif

} // namespace
