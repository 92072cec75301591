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

// What --help lists, the manual page and the completion list, too.
TEST_F(Profiles, FormatsAreListed) {
    EXPECT_EQ(folder
                  .run("formats=$(ordwell-import --help | sed -n 's/.*NAME: //p' | tr -d ,); set -- $formats; echo $#; "
                       "for f; do "
                       "grep -q \"^.It Cm $f$\" " ORDWELL_SOURCE
                       "/docs/ordwell-import.1 || echo $f; done; grep -c \"\\\"$formats\\\"\" " ORDWELL_SOURCE
                       "/completions/ordwell-companions")
                  .out,
              "7\n1\n");
}

// Calls among the functions of each; those from one to the other are of neither.
TEST_F(Profiles, AProgramAndItsLibrary) {
    ASSERT_EQ(folder
                  .run("g++ -O1 -fPIC -shared shapes.cpp -Wl,--build-id=0xabcd0123 -o libshapes.so.1 && "
                       "g++ -O1 main.cpp ./libshapes.so.1 -o app && mkdir other && cp app other && "
                       "valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=p ./app")
                  .status,
              0);
    for (const char* const profile : {"p"}) {
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
    folder.run("g++ -O1 -shared -fPIC -Wl,--build-id=none -x c++ /dev/null -o none.so");
    EXPECT_EQ(folder.run("ls n").out, "");
    for (const char* const wrong :
         {"-o n --binary=app --binary=libshapes.so.1 p", "-o n/ p", "--build-id", "--build-id --binary=app p",
          "-o n/ --object=x --binary=app --binary=libshapes.so.1 p"}) {
        EXPECT_EQ(folder.run("ordwell-import "s + wrong).status, 2) << wrong;
    }
    EXPECT_EQ(folder.run("ordwell-import --build-id --binary=libshapes.so.1").out, "abcd0123\n");
    EXPECT_NE(failing("--build-id --binary=none.so").find("none.so: no build ID"), std::string::npos);
}

} // namespace
