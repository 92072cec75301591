// An order in every build: the projects of tests/build_systems, built by each build system with each linker, as a user's would
// be. What is asked of all of them: without a call graph the link is plain, with one the functions stand in its order, a second
// build does nothing, and a changed row links again and compiles nothing.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

using namespace std::string_literals;

/// How a project is built in the folder "b p", with $linker, and with $fuse and $option as that linker needs them.
struct build_system {
    const char* name;
    const char* set_up;
    const char* build;
    const char* reconfigure; ///< what it needs besides when a call graph has appeared or gone
};

const char* const configure_cmake = "cmake -S . -B b -D Ordwell_DIR=\"" ORDWELL_BUILD "\" -D LINKER=$linker -G ";

const build_system systems[] = {
    {"Ninja", "mkdir r && ln -s r b && configure Ninja", "cmake --build b", ""},
    {"Makefiles", "configure 'Unix Makefiles'", "cmake --build b", ""},
    {"MultiConfig", "configure 'Ninja Multi-Config'", "cmake --build b --config Debug", ""},
    {"Meson", "meson setup b -Dlinker=$linker -Dfuse=$fuse -Dorder_option=$option", "meson compile -C b",
     "meson setup --reconfigure b"},
    {"Make", "mkdir b && cp [!b]* b", "cp -p app.csv b; make -C b LINKER=$linker ORDER_OPTION=\"$fuse $option\"",
     "rm -f b/app.csv"},
    {"Automake", "autoreconf -i && mkdir b && cd b && ../configure --disable-static CFLAGS=-O0 CXXFLAGS=-O0",
     "make -C b LINKER=$linker ORDER_OPTION=\"$fuse $option\"", ""},
};

const std::array<const char*, 3> linkers[] = {
    {"lld", "-fuse-ld=lld", "-Wl,--no-warn-symbol-ordering,--symbol-ordering-file="},
    {"gold", "-fuse-ld=gold", "-Wl,--section-ordering-file="},
    {"ld", "-fuse-ld=bfd", "-Wl,-T,"},
};

// A folder with the sample and shell functions for the tests; the path has a blank where the build system takes one.
class Build : public testing::Test {
protected:
    void SetUp() override {
        folder.write("functions",
                     std::string("configure() { generator=$1; shift; ") + configure_cmake + R"shell("$generator" "$@"; }
            export LD_LIBRARY_PATH=b:b/.libs # libtool's program is there, and what has its name is a script
            app() { find b/ -type f -name app ! -path '*/plain/*' -exec grep -l '^.ELF' {} +; }
            # placed: the functions of the program as they lie, of those that the order names; wanted: as the order has them
            wanted() { cat "$(find b/ -name '*order.cmd' -print -quit)" | sed 's/.*="//; s/"$//' | grep -v gone; }
            placed() { wanted >names; nm -n "$(app)" | awk '{ print $3 }' | grep -F -x -f names; }
            # states: when the program and what it is made of were written
            states() { find b/ "(" -name '*.o' -o -name '*.a' -o -name '*.so' ")" -exec stat -c '%n %y' "{}" + | sort; }
            cd s*
        )shell");
    }
    outcome run(const std::string& command) const { return folder.run(". ./functions\n" + command); }
    void take_sample(const std::string& place) const {
        folder.run("cp -r " ORDWELL_SOURCE "/tests/build_systems '" + place + "'");
    }
    scratch_folder folder;
};

const std::string first_calls = csv("main,_ZL5ofteni,100\n_ZL5ofteni,part_work,100\npart_work,part_low,200\n"
                                    "_ZL5ofteni,_ZL4lasti,100\ngone,main,1\n");
const std::string other_calls = csv("_ZL4lasti,part_low,900\nmain,_ZL5ofteni,100\n_ZL5neveri,part_work,500\n"
                                    "main,part_work,4\n");

class EveryBuild : public Build,
                   public testing::WithParamInterface<std::tuple<build_system, std::array<const char*, 3>>> {};

TEST_P(EveryBuild, FollowsTheCalls) {
    const auto& [system, linker] = GetParam();
    const bool is_cmake = std::string(system.build).starts_with("cmake");
    const std::string place = is_cmake ? "s p" : "sample";
    take_sample(place);
    const std::string shell = std::string("linker=") + linker[0] + " fuse=" + linker[1] + " option=" + linker[2] +
                              "\nbuild() { " + system.build + " >log 2>&1 || { cat log; false; }; }\n";
    const outcome plain =
        run(shell + "(" + system.set_up + ") >log 2>&1 || cat log\nbuild\n\"$(app)\" >before && states");
    ASSERT_EQ(plain.status, 0) << plain.out << plain.err;

    const std::string reconfigure = std::string(system.reconfigure) + " >log 2>&1\n";
    folder.write(place + "/app.csv", first_calls);
    const outcome ordered = run(shell + reconfigure + "build; placed; wanted | diff - names");
    EXPECT_EQ(ordered.out, run("wanted").out) << ordered.err;
    EXPECT_EQ(std::count(ordered.out.begin(), ordered.out.end(), '\n'), 5);
    EXPECT_EQ(run("states").out, plain.out) << "the libraries and objects are compiled once";
    EXPECT_EQ(run("\"$(app)\" | diff - before").out, "") << "it does what it did";

    const std::string seen = run("stat -c %y \"$(app)\"").out;
    EXPECT_EQ(run(shell + "build; stat -c %y \"$(app)\"").out, seen) << "nothing to do";

    folder.write(place + "/app.csv", other_calls);
    const outcome changed = run(shell + "build; placed");
    EXPECT_EQ(changed.out, run("wanted").out) << changed.err;
    EXPECT_NE(changed.out, ordered.out);
    EXPECT_EQ(run("states").out, plain.out);

    const outcome gone = run(shell + "rm app.csv\n" + reconfigure + "build; placed");
    EXPECT_EQ(gone.status, 0) << gone.out;
    EXPECT_NE(gone.out, changed.out) << "linked plainly again";
}

INSTANTIATE_TEST_SUITE_P(BySystem, EveryBuild, testing::Combine(testing::ValuesIn(systems), testing::ValuesIn(linkers)),
                         [](const auto& of) {
                             return std::get<0>(of.param).name + std::string("_") + std::get<1>(of.param)[0];
                         });

/// The sample as a CMake project, with lines before those of app's order or behind all.
class CMakeBuild : public Build {
protected:
    void SetUp() override {
        Build::SetUp();
        take_sample("s p");
        folder.write("s p/app.csv", first_calls);
        folder.run("mv s*/CMakeLists.txt lists");
    }
    outcome configure(const std::string& before, const std::string& behind = "") const {
        folder.write("before", before + "\n");
        folder.write("behind", behind + "\n");
        return run("sed '/^target_link/r ../before' ../lists | cat - ../behind >CMakeLists.txt\n"
                   "linker=AUTO; configure Ninja 2>&1 | tr -s '\\n ' ' '");
    }
};

TEST_F(CMakeBuild, OrdersWhateverIsLinked) {
    const std::string other = "add_library(o INTERFACE)\ntarget_link_libraries(app PRIVATE o)\n";
    for (const std::string& lines :
         {"target_precompile_headers(app PRIVATE <cstdio>)"s,
          "target_sources(app PRIVATE $<TARGET_OBJECTS:o>)\n"
          "add_library(o OBJECT parts.c)"s,
          other + "target_link_options(o INTERFACE -fuse-ld=gold)",
          other + "target_compile_options(o INTERFACE -flto)\ntarget_link_options(o INTERFACE -flto)"}) {
        const std::string said = configure(lines).out;
        const outcome ran = run("cmake --build b >log || cat log; placed");
        EXPECT_EQ(ran.out, run("wanted").out) << lines << said;
        EXPECT_EQ(std::count(ran.out.begin(), ran.out.end(), '\n'), 5) << lines;
    }
}

TEST_F(CMakeBuild, RecordsAndTests) {
    configure("");
    EXPECT_EQ(
        run("{ cmake --build b --target shared-profile; cmake --build b; cmake --build b --target "
            "app-order-report; } >log 2>&1 || cat log; sort shared.csv; ls b/app-order-report.*; ctest --test-dir b "
            "| grep -c Passed")
            .out,
        csv("shared_work,shared_low,2\n") + "b/app-order-report.html\nb/app-order-report.json\n2\n");
    EXPECT_NE(run("touch app.csv; ctest --test-dir b -V -R app").out.find("app.csv is newer than"), std::string::npos);
    // A command that fails leaves the calls as they are; a bad row, and calls of other programs, are told.
    configure("set_property(TARGET app PROPERTY OUTPUT_NAME gone)\nadd_custom_command(TARGET app POST_BUILD COMMAND rm "
              "gone)");
    EXPECT_NE(run("cmake --build b --target shared-profile").status, 0);
    EXPECT_EQ(run("cat shared.csv").out, csv("shared_work,shared_low,2\n"));
    configure("");
    folder.write("s p/app.csv", first_calls + "main,x\n");
    EXPECT_NE(run("cmake --build b").out.find("s p/app.csv:7: no row: "), std::string::npos);
    folder.write("s p/app.csv", csv("other,calls,1\n"));
    EXPECT_NE(run("cmake --build b 2>&1").out.find("app is linked plainly, for "), std::string::npos);
    EXPECT_NE(run("ctest --test-dir b -R app").out.find("(Failed)"), std::string::npos);
}

TEST_F(CMakeBuild, TellsWhatIsWrong) {
    const std::pair<const char*, const char*> cases[] = {
        {"gone CALLS a", "gone): there is no such target"},
        {"parts CALLS a", "parts): it is of the type static library"},
        {"app CALLS a", "it was called for this target before"},
        {"m CALLS app.csv MINPLACED 5", "m): unknown keyword MINPLACED; the keywords are CALLS, PROFILES"},
        {"m CALLS a COMMAND m", "COMMAND belongs behind TRAIN"},
        {"m CALLS a TRAIN COMMAND", "COMMAND has no value"},
        {"m", "give the call graph with CALLS, or profiles with PROFILES"},
        {"m PROFILES a TRAIN COMMAND m", "TRAIN needs CALLS"},
        {"m CALLS \"a;b\"", "a value with a semicolon"},
        {"m CALLS .", "is a folder: name a file"},
        {"m CALLS a LINKER mold", "LINKER is AUTO, lld, gold or ld, not mold"},
        {"m CALLS a MIN_PLACED 101", "MIN_PLACED is a percentage from 0 to 100, not 101"},
        {"m CALLS a LIBRARIES shared", "LIBRARIES names shared, which is no static or object library"},
    };
    for (const auto& [call, sentence] : cases) {
        const std::string said =
            configure("", "add_library(m MODULE shared.c)\nordwell_order_functions("s + call + ")").out;
        EXPECT_NE(said.find(sentence), std::string::npos) << said;
        EXPECT_NE(said.find("Configuring incomplete"), std::string::npos) << call;
    }
}

} // namespace
