// Hostile machines: files that go away, full disks, closed streams, exhausted memory, huge lines.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

TEST(Faults, StandInput) {
    const scratch_folder folder;
    folder.write("a.csv", csv("main,f,1\n"));
    EXPECT_EQ(folder.run("mkdir d; ordwell d -oo").err,
              "error: Invalid CSV input file header line encountered in d; file ignored\n");
}

} // namespace
