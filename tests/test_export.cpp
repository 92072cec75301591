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
    EXPECT_EQ(exported("macho", {"x:y"}), said("-Wl,-order_file,FILE", "x:y"));
    EXPECT_EQ(exported("coff", {"f", ";f"}), "f\n" + said("/order:@FILE", ";f"));
    const auto sections = [](const std::string& name) {
        return ".text." + name + "\n.text.hot." + name + "\n.text.unlikely." + name + "\n.text.startup." + name +
               "\n.text.exit." + name + "\n";
    };
    const std::string gold = "-fuse-ld=gold -Wl,--section-ordering-file=FILE";
    EXPECT_EQ(exported("gold", {"f", "g*\\", "f.cold"}),
              sections("f") + sections("g[*]\\\\") + said(gold)); // f.cold lies in .text.unlikely.f
    EXPECT_EQ(exported("gold", {"_ZN1XC1Ei"}).substr(0, 32), ".text._ZN1XC1Ei\n.text._ZN1XC2Ei\n");
    const std::string script = exported("ld", {"f", "a[b"});
    EXPECT_TRUE(script.starts_with("SECTIONS\n{\n  .text.ordered :\n  {\n    *(.text.f)\n")) << script;
    EXPECT_NE(script.find("    *(\".text.a?b\")\n"), std::string::npos) << script;
    EXPECT_TRUE(script.ends_with("  }\n}\nINSERT BEFORE .text;\n" + said("-Wl,-T,FILE"))) << script;
}

TEST(Export, SaysWhatIsWrong) {
    const scratch_folder folder;
    folder.write("order", order_of("f g"));
    folder.write("old", "kept\n");
    for (const char* const line : {"f", "--preferred_order=f", "--preferred_order=\"", "--preferred_order=\"f", ""}) {
        folder.write("bad", order_of("f") + line + "\n" + order_of("g"));
        const outcome ran = folder.run("ordwell-export --linker=lld -o old bad; s=$?; cat old; exit $s");
        EXPECT_EQ(ran.status, 1) << line;
        EXPECT_EQ(ran.out + ran.err, "kept\nordwell-export: bad:2: not a line of an order file\n") << line;
    }
    EXPECT_EQ(folder.run("ordwell-export --linker=lld gone").err, "ordwell-export: gone: No such file or directory\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --objects=order order").err,
              "ordwell-export: order: neither an ELF file nor an archive\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --objects=@gone order").err,
              "ordwell-export: gone: No such file or directory\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=ld -o 'a b,c' order").err,
              "ordwell-export: link with -Xlinker -T -Xlinker 'a b,c'\n");
    EXPECT_EQ(folder.run("ordwell-export --linker=lld -o \"it's\" order").err,
              "ordwell-export: link with -fuse-ld=lld '-Wl,--symbol-ordering-file=it'\\''s'\n");
    // Files may be empty, and a function that no object has is counted.
    folder.run(": >none; printf 'int f() { return 1; }' >a.c; gcc -ffunction-sections -c a.c; ar rc a.a a.o");
    EXPECT_EQ(folder.run("ordwell-export --linker=lld --quiet none").out, "");
    folder.write("list", "a.o\na.a");
    EXPECT_EQ(folder.run("ordwell-export --linker=gold --verbose --objects=@list order 2>&1").out,
              ".text.f\nordwell-export: 1 function of the order in no object\nordwell-export:   g\n"
              "ordwell-export: link with -fuse-ld=gold -Wl,--section-ordering-file=FILE\n");
    EXPECT_EQ(folder.run("gcc -c a.c; ordwell-export --linker=gold --objects=a.o order 2>&1 | head -n 2").out,
              "ordwell-export: 1 function of the order in no object\n"
              "ordwell-export: 1 function in sections with others: compile with -ffunction-sections\n");
}

} // namespace
