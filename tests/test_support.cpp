// The support room, the print queue and the banner's build number.
#include "ORDWELL/call_profile.h"
#include "options/banner.h"
#include "options/print_queue.h"
#include "support/debug_switch.h"
#include "support/memory.h"
#include "support/strcase.h"
#include "tests/printed.h"

#include <gtest/gtest.h>

namespace {

// Names whose hashes agree in every step of eight bytes that multiplies by a known odd number and adds the high half of
// the word to the low one: what the first word of a block changes, the second one makes up for. And numbered ones.
TEST(Names, ChosenToCollideAreFoundAsFastAsOthers) {
    std::vector<std::string> families[2];
    for (unsigned int number = 0; number < 16384; ++number) {
        std::string name;
        for (unsigned int block = 0; block < 14; ++block) {
            std::string words = "aaaaaaaaaaaaaaaa";
            for (const std::size_t byte : {7U, 11U, 15U}) {
                words[byte] = (number >> block & 1U) != 0 ? '\xe1' : 'a';
            }
            name += words;
        }
        families[0].push_back(name);
        families[1].push_back("function" + std::to_string(number));
    }
    for (const std::vector<std::string>& names : families) {
        call_profile profile;
        for (const std::string& name : names) {
            profile.find_or_add(name);
        }
        std::size_t probes = 0;
        for (const std::string& name : names) {
            probes += profile.probes(name);
        }
        EXPECT_LT(probes, 4 * names.size()); // at least the bucket and the name itself
    }
}

TEST(Text, ComparesIgnoringCase) {
    EXPECT_EQ(strcaseicmp("Abc", "aBC"), 0);
    EXPECT_LT(strcaseicmp("abc", "abd"), 0);
    EXPECT_EQ(strcaseicmp("ab", "abc"), -'c');
    EXPECT_EQ(strcaseincmp("HELP", "helpme", 4), 0);
    EXPECT_EQ(strcaseincmp("HELP", "helpme", 5), -'m');
    EXPECT_EQ(strcaseincmp("HELP", "other", 0), 0);
    const char* const text = "Output_File";
    EXPECT_EQ(strcaseistr(text, "FILE"), text + 7);
    EXPECT_EQ(strcaseistr(text, ""), text);
    EXPECT_EQ(strcaseistr(text, "files"), nullptr);
}

TEST(MemoryDeath, EndsTheProcessWhenExhausted) {
    const unsigned long too_much = ~0UL / 2;
    EXPECT_EXIT(safemalloc(too_much), testing::ExitedWithCode(1), "ERROR: out of memory\n$");
    EXPECT_EXIT(saferealloc(nullptr, too_much), testing::ExitedWithCode(1), "ERROR: out of memory\n$");
    EXPECT_EXIT(safecalloc(too_much, 2), testing::ExitedWithCode(1), "ERROR: out of memory\n$");
}

TEST(DebugSwitches, HoldLevels) {
    register_option first("debug:test_one");
    const int registered = register_option::num;
    register_option again("debug:test_one");
    EXPECT_EQ(register_option::num, registered);
    EXPECT_TRUE(register_option::is_registered("debug:test_one"));
    EXPECT_FALSE(register_option::is_registered("debug:test"));
    EXPECT_FALSE(static_cast<bool>(first));
    EXPECT_EQ(static_cast<int>(first), 0);
    again = -2;
    EXPECT_TRUE(static_cast<bool>(first));
    EXPECT_EQ(static_cast<int>(first), -2);

    const unsigned int entries = assoc_top;
    process_debug_option("debug", "test_one=3,test_two,test_three=0x10,test_four=0,,test_five=5x");
    EXPECT_EQ(assoc_top, entries + 5); // test_one was there; the empty item set the bare prefix
    EXPECT_EQ(static_cast<int>(first), 3);
    EXPECT_EQ(pass_debug("test_two"), 1);
    EXPECT_EQ(pass_debug("test_three"), 16);
    EXPECT_EQ(pass_debug("test_five"), 5);
    EXPECT_EQ(pass_debug(""), 1);
    process_debug_option("disable", "a=0,b");
    EXPECT_FALSE(pass_disable("a"));
    EXPECT_TRUE(pass_disable("b"));
    EXPECT_FALSE(pass_disable("c"));
    process_debug_option("enable", ("e=7," + std::string(504, 'x') + "," + std::string(505, 'y') + "=9").c_str());
    EXPECT_EQ(pass_enable("e"), 7);
    EXPECT_EQ(pass_enable(std::string(504, 'x').c_str()), 1); // a key of 511 characters
    EXPECT_EQ(pass_enable(std::string(505, 'y').c_str()), 0);
    EXPECT_EQ(pass_enable(""), 9);

    for (int i = 0; i < 250; ++i) { // past two enlargements of the table
        process_debug_option("many", (std::to_string(i * 7919 % 1000) + "=" + std::to_string(i + 1)).c_str());
    }
    for (int i = 0; i < 250; ++i) {
        const assoc_entry* const entry = assoc_find(("many:" + std::to_string(i * 7919 % 1000)).c_str());
        ASSERT_TRUE(entry != nullptr && entry->value == i + 1) << i;
    }
}

TEST(PrintQueue, SortsAndLaysOut) {
    const auto fill = [](int width, sort_method sort) {
        init_queue("Heading:", width, sort);
        queueup("--zeta", "last", 1);
        queueup("-beta", "first of two", 2);
        queueup("--beta", "second of two", 2);
        queueup("--a_rather_long_label", "alone", 2);
    };
    fill(8, sort_by_key);
    EXPECT_EQ(printed([] { print_queue(one_column, sort_long_labels_alone, 0); }),
              "Heading:\n  --a_rather_long_label\n           Alone\n  -beta    First of two\n"
              "  --beta   Second of two\n  --zeta   Last\n");
    fill(8, sort_by_insertion);
    EXPECT_EQ(printed([] { print_queue(one_column, 0, 0); }),
              "Heading:\n  --zeta   Last\n  -beta    First of two\n  --beta   Second of two\n  --a_rath Alone\n");
    fill(8, sort_by_label);
    queueup("--zz", "a description that does not fit half a line", 0);
    EXPECT_EQ(printed([] { print_queue(two_columns, 0, 0); }),
              "Heading:\n  --a_rath Alone                        --beta   Second of two\n"
              "  -beta    First of two                 --zeta   Last\n"
              "  --zz     A description that does not fit half a line                         \n");
    EXPECT_EQ(printed([] { EXPECT_EQ(print_queue(one_column, 0, 0), 0); }), "");
}

TEST(PrintQueue, WrapsText) {
    const std::string a70(70, 'a'); // beside a label, 71 columns are left
    const std::pair<std::string, std::string> cases[] = {
        {"short", "short"},
        {"", ""},
        {a70 + "a b", a70 + "a\n         b"},
        {a70 + " bb c", a70 + "\n         bb c"},
        {a70 + a70, a70 + a70},
        {a70 + a70 + " b", a70 + a70 + "\n         b"},
        {"one\ntwo", "one\n\n         two"},
    };
    for (const auto& [text, wrapped] : cases) {
        EXPECT_EQ(printed([&, &words = text] { fill_text(stdout, words.c_str(), "12345678"); }), wrapped + "\n");
    }
}

TEST(Banner, EncodesTheBuild) {
    EXPECT_EQ(printed([] { print_tool_banner(stdout); }), "Varnel Ordwell" + std::string(26, ' ') + "v8.1.8\n");
    std::string tag;
    for (const char c : std::string("ajKz09-")) {
        tag += build_tag_character(c);
    }
    EXPECT_EQ(tag, "09APQZ%");
    std::string version;
    for (const char c : std::string("0.9-x")) {
        version += build_version_character(c);
    }
    EXPECT_EQ(version, "QAZBC");
    EXPECT_EQ(printed([] { print_branch(stdout, "abcJ"); }), "0129");
    EXPECT_EQ(printed([] { print_branch(stdout, "kYz089-_./"); }), "AOZZQYZ9-_.%");
    EXPECT_EQ(printed([] { print_branch(stdout, "Release-2-MAINb"); }), "ZA-S-ZI1");
    const std::string labelled = printed([] { buildid(stdout, "Build Number "); });
    EXPECT_EQ(labelled, "Build Number " + printed([] { buildid(nullptr, nullptr); }));
    EXPECT_EQ(labelled[13], '1');
}

} // namespace
