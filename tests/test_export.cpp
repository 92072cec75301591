// ordwell-export from outside: order files in, exact linker files and messages out. Real linkers are in
// tests/test_relink.cpp.
#include "tests/run_tool.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

// What is written for an order of these names, then what is said.
std::string exported(const std::string& linker, const std::vector<std::string>& names) {
    const scratch_folder folder;
    std::string order;
    for (const std::string& name : names) {
        order += "--preferred_order=\"" + name + "\"\n";
    }
    folder.write("order", order);
    const outcome ran = folder.run("ordwell-export --linker=" + linker + " order");
    EXPECT_EQ(ran.status, 0) << ran.err;
    return ran.out + ran.err;
}

std::string said(const std::string& option, const char* left_out = nullptr) {
    std::string text;
    if (left_out != nullptr) {
        text =
            "ordwell-export: 1 function with names that this format cannot hold\nordwell-export:   "s + left_out + "\n";
    }
    return text + "ordwell-export: link with " + option + "\n";
}

TEST(Export, WritesEachForm) {
    const std::string lld = "-fuse-ld=lld -Wl,--symbol-ordering-file=FILE";
    EXPECT_EQ(exported("lld", {"f", "a b", "q\"q", "x#"}), "f\na b\nq\"q\nx#\n" + said(lld));
    for (const char* const unholdable : {"", " f", "f ", "#f"}) {
        EXPECT_EQ(exported("lld", {"g", unholdable}), "g\n" + said(lld, unholdable));
    }
    EXPECT_EQ(exported("macho", {"f", "-[A b]", "x#"}), "_f\n-[A b]\n" + said("-Wl,-order_file,FILE", "x#"));
    for (const char* const unholdable : {"x:y", "", " f", "f ", "f\t", "-[A b] "}) {
        EXPECT_EQ(exported("macho", {"g", unholdable}), "_g\n" + said("-Wl,-order_file,FILE", unholdable));
    }
    for (const char* const unholdable : {";f", "", "f "}) {
        EXPECT_EQ(exported("coff", {"f", unholdable}), "f\n" + said("/order:@FILE", unholdable));
    }
    const auto sections = [](const std::string& name) {
        return ".text." + name + "\n.text.hot." + name + "\n.text.startup." + name + "\n.text.exit." + name + "\n";
    };
    const std::string gold = "-fuse-ld=gold -Wl,--section-ordering-file=FILE";
    EXPECT_EQ(exported("gold", {"f", "g*\\"}), sections("f") + sections("g[*]\\\\") + said(gold));
    EXPECT_EQ(exported("gold", {"f", "f.cold", "f.cold.1", "f.coldest"}),
              sections("f") + sections("f.coldest") + "ordwell-export: 2 functions left out, cold parts of others: " +
                  "name the objects with --objects\n" + said(gold));
    // Constructors and destructors lie in the section of their base variant; "C1" may also be part of a name.
    const std::pair<std::string, std::string> variants[] = {{"_ZN1XC1Ei", "_ZN1XC2Ei"},
                                                            {"_ZN1XD1Ev", "_ZN1XD2Ev"},
                                                            {"_ZN2C1C1IiEET_", "_ZN2C1C2IiEET_"},
                                                            {"_Z1fN1a2C1E", ""},
                                                            {"_ZN1XC2IiEET_", ""}};
    for (const auto& [name, base] : variants) {
        EXPECT_TRUE(
            exported("gold", {name})
                .starts_with(".text." + name + "\n" + (base.empty() ? "" : ".text." + base + "\n") + ".text.hot."))
            << name;
    }
    EXPECT_EQ(exported("bolt", {"f", " f", "#f ", ""}),
              "f\n f\n#f \n" + said("-Wl,--emit-relocs, then run llvm-bolt PROGRAM -o PROGRAM.bolt "
                                    "-reorder-functions=user -function-order=FILE",
                                    ""));
    const std::string script = exported("ld", {"f", "a[b"});
    EXPECT_TRUE(script.starts_with("SECTIONS\n{\n  .text :\n  {\n    *(.text.f)\n")) << script;
    EXPECT_NE(script.find("    *(\".text.a?b\")\n"), std::string::npos) << script;
    EXPECT_TRUE(script.ends_with("    *(.text .stub .text.* .gnu.linkonce.t.*)\n  }\n}\nINSERT BEFORE .text;\n" +
                                 said("-Wl,-T,FILE")))
        << script;
}

// One order after the other: a name counts where it first stands.
TEST(Export, JoinsOrders) {
    const scratch_folder folder;
    folder.write("start", order_of("main f main"));
    folder.write("app", order_of("g f h main"));
    folder.write("none", "");
    EXPECT_EQ(folder.run("ordwell-export --linker=lld -o out start app none start; cat out >&2").err,
              "ordwell-export: start gives 2 names\nordwell-export: app gives 2 names\n"
              "ordwell-export: none gives no name of its own\nordwell-export: start gives no name of its own\n" +
                  said("-fuse-ld=lld -Wl,--symbol-ordering-file=out") + "main\nf\ng\nh\n");
}

// An order that would be empty is none.
TEST(Export, NeverWritesNothing) {
    const scratch_folder folder;
    folder.run("printf 'int f() { return 1; } int h() { return 2; }' >a.c; gcc -c a.c");
    folder.write("old", "kept\n");
    folder.write("none", "");
    folder.write("order", order_of("f"));
    folder.write("odd", order_of("#f"));
    folder.write("cold", order_of("f.cold"));
    const std::pair<const char*, const char*> cases[] = {
        {"lld none", "none: no function: give an order file that ordwell made of a profile with calls"},
        {"bolt none none", "none, none: no function: give an order file that ordwell made of a profile with calls"},
        {"lld odd", "odd: the form for lld can hold none of the names"},
        {"ld cold", "cold: nothing but cold parts of functions: name the objects with --objects"},
        {"bolt --objects=a.o odd", "odd: no object defines any of its functions: give the objects of this program"},
        {"gold --objects=a.o order",
         "order: no function lies in a section of its own: compile with -ffunction-sections"},
    };
    for (const auto& [arguments, message] : cases) {
        const outcome ran = folder.run("ordwell-export -o old --linker="s + arguments + "; s=$?; cat old; exit $s");
        EXPECT_EQ(ran.status, 1) << arguments;
        EXPECT_EQ(ran.out + ran.err, "kept\nordwell-export: "s + message + "\n") << arguments;
    }
}

// lld takes symbols and moves sections. Two names of one address, labels and constructors do not count as two functions.
TEST(Export, TellsWhatMovesAlong) {
    const scratch_folder folder;
    folder.write("both.c", "int f() { return 1; } int g() { return 2; }");
    folder.write("alone.s", ".section .text.h,\"ax\"\n.globl h,also\n.type h,@function\nh:\nalso: nop\nlabel: ret\n");
    folder.run(
        "gcc -c both.c; gcc -c alone.s; cp both.o more.o; cp both.o again.o; cp both.o last.o; ar rc all.a both.o");
    folder.write("order", order_of("f h also g label"));
    const std::string link = said("-fuse-ld=lld -Wl,--symbol-ordering-file=FILE");
    const auto told = [&](const std::string& options) {
        return folder.run("ordwell-export --linker=lld " + options + " order 2>&1 >out").out;
    };
    EXPECT_EQ(
        told("--objects=all.a --objects=alone.o"),
        "ordwell-export: 2 functions of 1 object share a section: compile all.a(both.o) with -ffunction-sections\n" +
            link);
    const std::string four = "--objects=both.o --objects=more.o --objects=again.o --objects=last.o";
    EXPECT_EQ(told(four + " --objects=alone.o").substr(16, 88),
              "2 functions of 4 objects share a section: compile both.o, more.o, again.o, ... with -ffu");
    EXPECT_EQ(told("--objects=alone.o"), "ordwell-export: 2 functions of the order in no object\n" + link);
}

TEST(Export, SaysWhatIsWrong) {
    const scratch_folder folder;
    folder.write("order", order_of("f g"));
    folder.write("old", "kept\n");
    for (const char* const line : {"f", "--preferred_order=f", "--preferred_order=\"", "--preferred_order=\"f", ""}) {
        folder.write("bad", order_of("f") + line + "\n" + order_of("g"));
        const outcome ran = folder.run("ordwell-export --linker=lld -o old bad; s=$?; cat old; exit $s");
        EXPECT_EQ(ran.status, 1) << line;
        EXPECT_EQ(ran.out + ran.err,
                  "kept\nordwell-export: bad:2: not a line of an order file: give the file that ordwell wrote\n")
            << line;
    }
    EXPECT_EQ(folder.run("ordwell-export --linker=lld gone").err, "ordwell-export: gone: No such file or directory\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --objects=order order").err,
              "ordwell-export: order: neither an ELF file nor an archive\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --objects=@gone order").err,
              "ordwell-export: gone: No such file or directory\n");
    EXPECT_EQ(folder.run("echo >none; ordwell-export --linker=gold --objects=@none order").err,
              "ordwell-export: none: a list of objects that names none\n");
    // What is no object, or not all of one; and what is read is not written.
    folder.run("echo 'int f() { return 1; } int main() { return f(); }' >m.c; gcc -ffunction-sections -c m.c; "
               "gcc m.o -o app; ar rc m.a m.o; cp m.o other.o; ar rcT thin.a other.o; cp order app.cmd; ln order same; "
               "echo m.o >list; echo '#!' >script");
    const std::pair<const char*, const char*> cases[] = {{"--objects=", "app: linked already: "},
                                                         {"--objects=", "script: a script: "},
                                                         {"--objects=", "cut: a damaged ELF file"},
                                                         {"--objects=", "cut.a: a damaged archive"},
                                                         {"-o ", "same: is an input"},
                                                         {"-o ", "m.o: is an input"},
                                                         {"--objects=thin.a -o ", "other.o: is an input"},
                                                         {"-o ", "list: is an input"}};
    for (const std::pair<std::string, std::string> c : cases) {
        const outcome ran = folder.run("head -c -9 m.o >cut; head -c -9 m.a >cut.a; ordwell-export --quiet "
                                       "--linker=lld --objects=@list order " +
                                       c.first + c.second.substr(0, c.second.find(':')));
        EXPECT_TRUE(ran.err.starts_with("ordwell-export: " + c.second)) << ran.err;
    }
    EXPECT_EQ(folder.run("ordwell-export --linker=ld -o 'a b,c' order").err,
              "ordwell-export: link with -Xlinker -T -Xlinker 'a b,c'\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=lld -o \"it's\" order").err,
              "ordwell-export: link with -fuse-ld=lld '-Wl,--symbol-ordering-file=it'\\''s'\n");
    // A function that no object has is counted.
    folder.run("printf 'int f() { return 1; } int h() { return 2; }' >a.c; gcc -ffunction-sections -c a.c; "
               "cp a.o 'a b.o'; ar rc a.a a.o");
    folder.write("list", "a b.o\r\n\na.a"); // a path a line
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --verbose --objects=@list order 2>&1").out,
              ".text.f\nordwell-export: 1 function of the order in no object\nordwell-export:   g\n"
              "ordwell-export: link with -fuse-ld=gold -Wl,--section-ordering-file=FILE\n");
    folder.write("order", order_of("f g k"));
    EXPECT_EQ(folder
                  .run("mv a.o b.o; gcc -Df=k -c a.c\n"
                       "ordwell-export --linker=gold --objects=a.o --objects=b.o order 2>&1 >out | head -n 2")
                  .out,
              "ordwell-export: 1 function of the order in no object\n"
              "ordwell-export: 1 function in sections with others: compile with -ffunction-sections\n");
}

} // namespace
