// ordwell-import --weighed from outside: the weights against a second computation in whole numbers of any length.
#include "tests/run_tool.h"

#include <boost/multiprecision/cpp_int.hpp>
#include <gtest/gtest.h>

#include <map>
#include <random>

namespace {

using namespace std::string_literals;
using boost::multiprecision::cpp_int;

/// A row of the CSV with its whole count.
struct row {
    std::string caller;
    std::string callee;
    cpp_int count;
};

const cpp_int most = (cpp_int(1) << 64) - 1;

// The weighed file, computed from the definition with fractions instead of shifts: of several heaviest callers the first.
std::string weighed(const std::vector<row>& rows, const std::map<std::string, cpp_int>& sizes) {
    std::map<std::string, cpp_int> calls;
    std::map<std::string, const row*> heaviest;
    cpp_int largest_count = 0;
    for (const row& r : rows) {
        largest_count = std::max(largest_count, r.count);
        if (r.caller != r.callee) {
            calls[r.callee] += r.count;
            const row*& h = heaviest[r.callee];
            h = h == nullptr || h->count < r.count ? &r : h;
        }
    }
    const auto numerator = [&](const row& r) { return heaviest[r.callee] == &r ? calls[r.callee] * 1024 : r.count; };
    const auto denominator = [&](const row& r) { return sizes.at(r.callee) + 64; };
    cpp_int above = 1; // the power of two above the largest whole quotient
    for (const row& r : rows) {
        while (r.caller != r.callee && numerator(r) / denominator(r) >= above) {
            above *= 2;
        }
    }
    cpp_int divisor = 1;
    while (largest_count / divisor > 4294967295U) {
        divisor *= 2;
    }
    std::string text = "\"caller\",\"callee\",\"weight\" weighed\n";
    for (const row& r : rows) {
        const cpp_int weight = r.caller == r.callee ? cpp_int(r.count / divisor)
                                                    : cpp_int((numerator(r) << 31) / (denominator(r) * above));
        text += r.caller + "," + r.callee + "," + std::max<cpp_int>(weight, 1).str() + "\n";
    }
    return text;
}

TEST(Weighed, FollowsTheFormula) {
    const scratch_folder folder;
    std::mt19937_64 random(20);
    std::map<std::string, cpp_int> sizes;
    std::string assembly;
    for (unsigned int f = 0; f < 14; ++f) {
        const std::string name = "f" + std::to_string(f);
        const std::uint64_t size =
            f < 2 ? std::uint64_t{f} * (UINT64_MAX / 2) : random() >> (f < 8 ? 52U : random() % 64);
        sizes[name] = size;
        assembly += ".globl " + name + "\n.type " + name + ",@function\n" + name + ":\n.size " + name + "," +
                    std::to_string(size) + "\n";
    }
    assembly += ".type g,@function\ng:\n.size g,5\n"; // the larger one counts
    folder.write("more.s", ".type g,@function\ng:\n.size g,70\n");
    sizes["g"] = 70;
    sizes["unknown"] = 0;
    std::vector<std::string> names;
    names.reserve(16);
    for (const auto& [name, size] : sizes) {
        names.push_back(name);
    }
    folder.write("a.s", assembly);
    ASSERT_EQ(folder.run("as a.s -o a.o && as more.s -o more.o && ar rc all.a a.o more.o").status, 0);
    for (unsigned int trial = 0; trial < 40; ++trial) {
        std::vector<row> rows;
        std::string profile;
        const unsigned int shift = trial % 4 == 0 ? 62 : static_cast<unsigned int>(random() % 50); // of 62: ties
        const std::size_t calls = trial < 4 ? 1 : 1 + random() % 120;
        for (std::size_t i = 0; i < calls; ++i) {
            const row r = {names[random() % names.size()], names[random() % names.size()], (random() >> shift) + 1};
            if (r.caller == r.callee || r.count > most) {
                continue; // pairs do not tell what was only executed
            }
            profile += r.caller + " " + r.callee + " " + r.count.str() + "\n";
            const auto known = std::find_if(rows.begin(), rows.end(), [&](const row& old) {
                return old.caller == r.caller && old.callee == r.callee;
            });
            if (known == rows.end()) {
                rows.push_back(r);
            } else {
                known->count = std::min<cpp_int>(known->count + r.count, most);
            }
        }
        const std::uint64_t runs = (random() >> shift) + 1;
        sizes["alone"] = 0;
        rows.push_back({"alone", "alone", runs == 0 ? 1 : runs});
        profile += "alone 0x12 " + rows.back().count.str() + "\n"; // called from who knows where
        folder.write("p", profile);
        const outcome ran = folder.run("ordwell-import --quiet --objects=all.a --weighed=w p && cat w");
        EXPECT_EQ(ran.out + ran.err, weighed(rows, sizes)) << profile;
    }
}

TEST(Weighed, ComesWithTheCallsOrNotAtAll) {
    const scratch_folder folder;
    folder.write("p", "main f 10\ng f 4\nmain g 6\n");
    const std::string plain = csv("main,f,10\ng,f,4\nmain,g,6\n");
    const std::string rows =
        "\"caller\",\"callee\",\"weight\" weighed\nmain,f,1879048192\ng,f,524288\nmain,g,805306368\n";
    EXPECT_EQ(folder.run("ordwell-import --quiet --weighed=w -o c p; cat c w").out, plain + rows);
    EXPECT_EQ(folder.run("rm c; ordwell-import --quiet --weighed=w p; cat w; ls").out, rows + "p\nw\n");
    for (const char* const wrong : {"--weighed=-", "--objects=p", "--weighed="}) {
        EXPECT_EQ(folder.run("ordwell-import "s + wrong + " p").status, 2) << wrong;
    }
    folder.write("none.s", "label:\n");
    folder.run("as none.s -o none.o; ln -s w link");
    for (const char* const failing : {"-o no/c --weighed=new", "-o new --weighed=no/w", "-o w --weighed=./link",
                                      "-o new --weighed=p", "-o new --weighed=w --objects=p",
                                      "-o new --weighed=w --objects=@gone", "-o new --weighed=w --binary=none.o"}) {
        const outcome ran = folder.run("ordwell-import "s + failing + " p");
        EXPECT_EQ(ran.status, 1) << failing;
        EXPECT_NE(ran.err, "") << failing;
        EXPECT_FALSE(folder.has("new")) << failing;
        EXPECT_EQ(folder.read("w"), rows) << failing;
    }
}

// A real program: what the linked one tells of sizes is what its objects tell, and the weights are those of these sizes.
TEST(Weighed, TakesSizesFromProgramsAndObjects) {
    const scratch_folder folder;
    const outcome ran = folder.run(R"(cp )" ORDWELL_SOURCE R"(/tests/sample/* . &&
        g++ -O2 -ffunction-sections -c main.cpp shapes.cpp && g++ main.o shapes.o -o sample &&
        valgrind -q --tool=callgrind --demangle=no --callgrind-out-file=p ./sample >/dev/null &&
        printf 'main.o\nshapes.o\n' >list &&
        ordwell-import --quiet --binary=sample -o c --weighed=w p &&
        ordwell-import --quiet --format=pairs --weighed=again --objects=@list - <<EOF && cmp w again && ordwell -o order w && wc -l <order
$(awk -F, 'NR > 1 && $1 != $2 { print $1, $2, $3 } NR > 1 && $1 == $2 { print $1, "0x1", $3 }' c)
EOF
        awk -F, 'NR > 1 { print $1; print $2 }' c | sort -u | wc -l)");
    EXPECT_EQ(ran.status, 0) << ran.err;
    const std::string half = ran.out.substr(0, ran.out.size() / 2);
    EXPECT_EQ(ran.out, half + half);
    EXPECT_NE(half, "0\n");
}

} // namespace
