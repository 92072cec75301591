// The page, Markdown and text of ordwell-report: the page in a real browser, and names of any bytes in all of them.
#include "tests/report_program.h"

namespace {

using nlohmann::json;

// What chromium makes of a page that must not ask the network for anything, nor fail in its own rules.
outcome browse(const scratch_folder& folder) {
    return folder.run(R"(
        chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking \
            --disable-component-update --disable-sync --user-data-dir="$PWD/profile" --enable-logging=stderr \
            --dump-dom "file://$PWD/page.html" >dom 2>log
        grep CONSOLE log; grep -c -e 'http[s]*:' -e '<script' page.html)");
}

std::size_t count_of(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) {
        ++count;
    }
    return count;
}

// This tool against itself: every figure of the text stands on the page, and the map tells what was measured.
TEST(ReportPage, SaysWhatTheTextSays) {
    const scratch_folder folder;
    std::string rows;
    std::vector<std::string> order;
    std::map<std::uint64_t, std::set<std::uint64_t>> functions; // called ones by page
    std::map<std::uint64_t, std::uint64_t> ends;                // of calls by page
    const symbol_map symbols = symbols_of(folder, ORDWELL_TOOL);
    const std::string* last = nullptr;
    for (const auto& [name, places] : symbols) {
        const std::uint64_t start = places.begin()->first;
        if (last != nullptr) {
            const std::uint64_t count = 1 + rows.size() % 977;
            rows += *last + "," + name + "," + std::to_string(count) + "\n";
            const std::uint64_t from = symbols.at(*last).begin()->first;
            ends[from / 4096] += from != start ? count : 0;
            ends[start / 4096] += from != start ? count : 0;
        }
        for (const auto& [address, size] : places) {
            for (std::uint64_t page = address / 4096; page <= (address + size - 1) / 4096; ++page) {
                functions[page].insert(address);
            }
        }
        order.push_back(name);
        last = &name;
    }
    folder.write("calls.csv", csv(rows));
    folder.write("order", order_lines(order));
    folder.run(
        "ordwell-report --calls=calls.csv --order=order --first-run=order --html=page.html --markdown=m " ORDWELL_TOOL
        " " ORDWELL_TOOL " >text");
    EXPECT_EQ(browse(folder).out, "0\n");
    const std::string dom = folder.read("dom");
    const std::string text = folder.read("text");
    const std::string markdown = folder.read("m");
    EXPECT_NE(dom.find("<h1 title="), std::string::npos);
    EXPECT_EQ(dom.substr(dom.find("<h1"), 200).find(">" + text.substr(0, text.find(':')) + "</h1>") ==
                  std::string::npos,
              false);
    EXPECT_EQ(text.substr(0, text.find(':')), markdown.substr(2, markdown.find("**", 2) - 2));
    EXPECT_LE(count_of(markdown, "\n"), 60U);
    std::istringstream lines(text);
    int checked = 0;
    for (std::string line; std::getline(lines, line);) { // a table's line: a title, two blanks, values
        const std::size_t gap = line.find("  ");
        if (gap == std::string::npos || gap == 0 || line.find("->") != std::string::npos) {
            continue;
        }
        EXPECT_NE(dom.find(">" + line.substr(0, gap) + "</th>"), std::string::npos) << line;
        std::istringstream cells(line.substr(gap));
        for (std::string cell; cells >> cell; ++checked) {
            EXPECT_TRUE(cell == "%" || dom.find(">" + cell + "</td>") != std::string::npos ||
                        dom.find(">" + cell + " %</td>") != std::string::npos)
                << line << cell;
        }
    }
    EXPECT_GE(checked, 40);
    for (const auto& [page, starts] : functions) { // twice: the baseline is the same
        char title[200];
        const auto grouped = [](std::uint64_t n) {
            return n < 1000 ? std::to_string(n)
                            : std::to_string(n / 1000) + "," + std::to_string(1000 + n % 1000).substr(1);
        };
        std::snprintf(title, sizeof title, "<title>0x%llx-0x%llx: %s call%s, %s called function",
                      static_cast<unsigned long long>(page * 4096), static_cast<unsigned long long>(page * 4096 + 4095),
                      grouped(ends[page]).c_str(), ends[page] == 1 ? "" : "s", grouped(starts.size()).c_str());
        EXPECT_EQ(count_of(dom, title), 2U) << title;
    }
    EXPECT_EQ(count_of(dom, "<path class=\"f\""), 1U); // the order's part, framed
    EXPECT_GT(count_of(dom, "class=\"dot\""), 20U);
    EXPECT_LT(folder.read("page.html").size(), 1500000U);
}

// Names of any bytes are shown, and do nothing else.
TEST_F(ReportProgram, ShowsNamesOfAnyBytes) {
    const std::string odd = "</script><b>&amp;|`*\x1b[2J\xff\xe2\x80\xae";
    folder.write("odd", order_lines({"first", odd, "second"}));
    folder.run(
        "cp p 'p|<b>\x1b'; ordwell-report --calls=calls.csv --order=odd --html=page.html --markdown=m --json=j p "
        "'p|<b>\x1b' >text");
    EXPECT_EQ(browse(folder).out, "0\n");
    const std::string shown = "\\x1b[2J\\xff\\xe2\\x80\\xae";
    EXPECT_NE(folder.read("text").find("  </script><b>&amp;|`*" + shown + " (not there)\n"), std::string::npos);
    EXPECT_NE(folder.read("dom").find("&lt;/script&gt;&lt;b&gt;&amp;amp;|`*" + shown + "</td><td>not there</td>"),
              std::string::npos);
    const std::string markdown = folder.read("m");
    EXPECT_NE(markdown.find("Against p\\|\\<b\\>\\\\x1b:"), std::string::npos) << markdown;
    for (const char* const file : {"text", "m", "page.html"}) {
        EXPECT_EQ(folder.read(file).find('\x1b'), std::string::npos) << file;
    }
    EXPECT_EQ(json::parse(folder.read("j"))["order"]["missing"][0]["name"],
              "</script><b>&amp;|`*\x1b[2J\xef\xbf\xbd\xe2\x80\xae");
}

// The largest page there is: two maps of 3,000 cells, names that are long in HTML, a fault for each function.
TEST(ReportPage, StaysSmall) {
    const scratch_folder folder;
    std::string assembly;
    std::string rows;
    std::string order;
    for (int i = 0; i < 3000; ++i) {
        const std::string name = std::string(180, '&') + std::to_string(i);
        assembly += ".globl \"" + name + "\"\n.type \"" + name + "\",@function\n\"" + name +
                    "\": .skip 4096\n.size \"" + name + "\",4096\n";
        rows += name + "," + std::string(180, '&') + "0," + std::to_string(4294967295U - static_cast<unsigned int>(i)) +
                "\n";
        order.insert(0, order_lines({name, name + "gone"}));
    }
    folder.write("a.s", assembly);
    folder.write("calls.csv", csv(rows));
    folder.write("order", order);
    EXPECT_EQ(
        folder
            .run("as a.s -o a.o && ld -e 0 -Ttext=0xffffffff81000000 a.o -o a && ordwell-report --calls=calls.csv "
                 "--order=order --first-run=order --read-ahead=4 --html=h a a >/dev/null && grep -c '<path "
                 "d=.*title>0x' h")
            .out,
        "6000\n");
    EXPECT_LT(folder.read("h").size(), 1500000U);
}

// What is written where, by table: the files afterwards, with their contents' first word.
TEST_F(ReportProgram, WritesFilesSafely) {
    folder.run("echo old >j; chmod 604 j; echo old >m; ln -s m link; ln p hard; ln -s p soft; mkdir d");
    const std::pair<const char*, const char*> refused[] = {
        {"--json=p", "p"},
        {"--json=hard", "hard"},
        {"--html=soft", "soft"},
        {"--json=d/../order --order=order", "d/../order"},
        {"--markdown=calls.csv", "calls.csv"},
        {"--json=x --html=./x", "x"},
        {"--json=other --candidate=other", "other"},
    };
    folder.run("cp order other; cp p before");
    for (const auto& [options, name] : refused) {
        const outcome ran = folder.run(std::string("ordwell-report --calls=calls.csv ") + options + " p");
        EXPECT_EQ(ran.status, 1) << options;
        EXPECT_TRUE(ran.err.starts_with(std::string("ordwell-report: ") + name + ": is ")) << ran.err;
    }
    EXPECT_EQ(folder.run("cmp p before; cmp order other; cat j m; ls x").out, "old\nold\n");
    // One that cannot be written keeps all from appearing; a full standard output does not.
    EXPECT_EQ(folder.run("ordwell-report --calls=calls.csv --json=j --html=no/page p; echo $?; cat j").out, "1\nold\n");
    EXPECT_EQ(folder
                  .run("ordwell-report --calls=calls.csv --json=j --markdown=link p >/dev/full; echo $?; head -c 1 j; "
                       "head -c 6 m; stat -c %a j; readlink link")
                  .out,
              "1\n{**none604\nm\n");
    EXPECT_EQ(folder.run("ordwell-report --calls=calls.csv --json=- --html=/dev/null p | head -c 1").out, "{");
    EXPECT_EQ(folder.run("ordwell-report --calls=calls.csv --json=/dev/stdout p | tail -n 1").out, "}\n");
    // A link to what is not there yet stays as well, and is no way round; one that leads in a circle is refused.
    EXPECT_EQ(
        folder
            .run(
                "ln -s d/new hanging; ln -s circle circle; cd d; for j in ../hanging ../circle; do ordwell-report "
                "--calls=../calls.csv --json=$j ../p >/dev/null; echo $?; done; readlink ../hanging ../circle; "
                "head -c 1 new; rm new; ordwell-report --calls=../calls.csv --json=../hanging --html=new ../p; echo $?")
            .out,
        "0\n1\nd/new\ncircle\n{1\n");
    EXPECT_EQ(folder.run("ordwell-report --calls=calls.csv --json= p; echo $?").out, "2\n");
}

} // namespace
