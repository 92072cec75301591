// What the tests of ordwell-report share: a small program to report on, and what readelf says of any.
#pragma once

#include "tests/run_tool.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <set>
#include <sstream>
#include <vector>

using place = std::pair<std::uint64_t, std::uint64_t>; // address, size

/// What readelf says of a program: the places of each function name.
using symbol_map = std::map<std::string, std::set<place>>;

inline symbol_map symbols_of(const scratch_folder& folder, const std::string& binary) {
    symbol_map symbols;
    std::istringstream lines(folder
                                 .run("readelf -sW " + binary + R"( |
        awk '$4 ~ /^I?FUNC$/ && $7 != "UND" && $3 != 0 { print $2, $3, $8 }')")
                                 .out);
    for (std::string address, size, name; lines >> address >> size >> name;) {
        symbols[name.substr(0, name.find('@'))].insert(
            {std::stoull(address, nullptr, 16), std::stoull(size, nullptr, 0)});
    }
    return symbols;
}

/// The order file that names these functions.
inline std::string order_lines(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += "--preferred_order=\"" + name + "\"\n";
    }
    return text;
}

/// The program p of three functions in the order first, second, third, with an alias of the first, and what orders may
/// wrongly name.
class ReportProgram : public testing::Test {
protected:
    void SetUp() override {
        folder.write("p.c",
                     "#include <stdio.h>\nint third(void);\nint first(void) { return third(); }\n"
                     "int second(void) { return puts(\"x\"); }\nint data = 1;\nint third(void) { return 3; }\n"
                     "int alias(void) __attribute__((alias(\"first\")));\nvoid cold(void) __asm__(\"half.cold\");\n"
                     "void cold(void) {}\nint mangled(int i) __asm__(\"_ZN5space4plusEi\");\n"
                     "int mangled(int i) { return i + 1; }\nint main(void) { return first() + data + second(); }\n");
        folder.write("calls.csv", csv("first,third,6\nalias,second,3\nalias,first,9\nsecond,second,9\n"));
        folder.write("order", order_lines({"second", "first", "alias", "third", "gone", "data", "puts", "half",
                                           "space::plus(int)"}));
        ASSERT_EQ(folder.run(link + " -o p && nm p | grep -q ' T first'").status, 0);
    }
    nlohmann::json report(const std::string& arguments, int status = 0) const {
        const outcome ran = folder.run("ordwell-report --json=j " + arguments);
        EXPECT_EQ(ran.status, status) << ran.err;
        return nlohmann::json::parse(folder.read("j"));
    }
    const std::string link =
        "gcc -O2 -fno-inline -fno-toplevel-reorder -ffunction-sections -Wl,--build-id=0x0123456789abcdef p.c";
    scratch_folder folder;
};
