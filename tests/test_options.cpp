// The option object: matching, values, state, history, traces and the help search. What the tool itself shows of it is
// tested from outside (tests/test_tool.cpp).
#include "DIAG/diag.h"
#include "options/rotated_text.h"
#include "tests/open_options.h"
#include "tests/printed.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

namespace {

/// Restores the tables and settings that tests change. Messages tell where they are raised.
class Options : public testing::Test {
protected:
    void SetUp() override { DIAGNOSTIC::display_ipos_m = true; }
    void TearDown() override {
        DIAGNOSTIC::display_ipos_m = false;
        open_options::parm_type = types_;
        open_options::option_definitions = definitions_;
        open_options::conflicts = {};
        option_obj::next_arg = next_arg_;
        DIAGNOSTIC::wrap_enabled_m = true;
    }
    open_options options;

private:
    decltype(open_options::parm_type) types_ = open_options::parm_type;
    decltype(open_options::option_definitions) definitions_ = open_options::option_definitions;
    const char* (*next_arg_)() = option_obj::next_arg;
};

TEST_F(Options, CountsAndPointsToRejectedText) {
    options.apply("-pdew");
    options.apply("--emit_warnings_as_errors");
    const auto warnings = static_cast<std::size_t>(option_obj::opt_emit_warnings_as_errors);
    EXPECT_EQ(options.state[warnings], 2);
    EXPECT_EQ(options.seen[warnings], 2);
    EXPECT_EQ(options.parsed[warnings], 2);
    const std::pair<id, const char*> spellings[] = {{buffer, "-pdb"},
                                                    {buffer, "--buffer_diagnostics"},
                                                    {static_cast<id>(warnings), "-pdew"},
                                                    {static_cast<id>(warnings), "--emit_warnings_as_errors"}};
    for (const auto& [option, spelling] : spellings) {
        options.apply(spelling);
        EXPECT_STREQ(options.format_of_option(option), spelling);
    }
    EXPECT_EQ(options.process_option(nullptr, nullptr), 1);
    EXPECT_EQ(options.process_option("", nullptr), 1);
    const char* rest = nullptr;
    const char* const argument = "-pdx";
    EXPECT_EQ(options.process_option(argument + 1, &rest), 0);
    EXPECT_EQ(rest, argument + 1); // "p" begins options
    EXPECT_EQ(options.current_option, nullptr);
    EXPECT_EQ(options.process_option(argument + 3, &rest), 0);
    EXPECT_EQ(rest, argument + 2); // "x" begins none
}

TEST_F(Options, KeepsArgumentsAndHistory) {
    options.apply("-oa");
    options.apply("--diag_wrap=off");
    options.apply("-ob");
    options.apply("--diag_wrap=on");
    EXPECT_FALSE(DIAGNOSTIC::wrap_enabled_m); // on does not undo off
    EXPECT_EQ(options.getargcount(order_file), 2U);
    EXPECT_STREQ(options.getstrarg(order_file, 0), "a");
    EXPECT_STREQ(options.getstrarg(order_file, 1), "b");
    EXPECT_EQ(options.getstrarg(order_file, 2), nullptr);
    EXPECT_EQ(options.getnumarg(wrap, 0), 2);
    EXPECT_EQ(options.history_text(), "6=a 6=b 3=on ");
    const char* const list[] = {"x", "b", nullptr};
    EXPECT_TRUE(options.args_match_list(order_file, list));
    EXPECT_FALSE(options.args_match_list(order_file, list + 2));
    EXPECT_FALSE(options.args_match_list(buffer, list));
    EXPECT_STREQ(options.format_of_option(order_file), "-o");

    options.trace = true;
    options.current_file = "a.o";
    open_options copy(options);
    EXPECT_TRUE(std::exchange(copy.trace, false) && std::exchange(options.trace, false));
    EXPECT_TRUE(copy.state == options.state && copy.seen == options.seen && copy.parsed == options.parsed);
    EXPECT_TRUE(copy.form == options.form && copy.current_file == options.current_file);
    EXPECT_STREQ(copy.getstrarg(order_file, 1), "b");
    EXPECT_TRUE(copy.history.empty());
    copy = *&copy;
    copy.clearopt(order_file);
    EXPECT_EQ(copy.state[order_file], 0);
    EXPECT_EQ(copy.seen[order_file], 3);
    EXPECT_EQ(copy.getargcount(order_file), 0U);
    EXPECT_EQ(options.getargcount(order_file), 2U);
    options.clearopt(order_file);
    EXPECT_EQ(options.history_text(), "3=on ");

    open_options::option_definitions[order_file].persistent = true;
    const auto seen = options.seen;
    options.clearopt(order_file);
    EXPECT_EQ(options.seen, seen);
}

TEST_F(Options, ReadsEveryArgumentType) {
    const struct {
        int type;
        const char* first;
        const char* second;
        const char* texts; // after both were set
        long last_number;
    } cases[] = {
        {option_obj::parm_string, "a", "0x10", "0x10 ", 16},
        {option_obj::parm_number, "1", "-9", "-9 ", -9},
        {option_obj::parm_unsigned, "1", "1Fh", "0x1F ", 31},
        {option_obj::parm_oneof, "on", "OFF", "off ", 1},
        {option_obj::parm_string_list, "a", "017", "a 017 ", 15},
        {option_obj::parm_number_list, "1", "17q", "1 15 ", 15},
        {option_obj::parm_oneof, "on", "", "0 ", 0},
        {option_obj::parm_oneof_list, "on", "", "on 0 ", 0},
    };
    for (const auto& c : cases) {
        open_options fresh;
        open_options::parm_type[wrap] = c.type;
        fresh.setarg(wrap, c.first); // sets the option first
        EXPECT_EQ(fresh.state[wrap], 1) << c.type;
        fresh.setopt(wrap, c.second);
        EXPECT_EQ(fresh.state[wrap], 2) << c.type;
        std::string texts;
        for (unsigned int i = 0; i < fresh.getargcount(wrap); ++i) {
            texts += fresh.getstrarg(wrap, i) + std::string(" ");
        }
        EXPECT_EQ(texts, c.texts) << c.type;
        EXPECT_EQ(fresh.getnumarg(wrap, fresh.getargcount(wrap) - 1), c.last_number) << c.type;
        open_options numbered;
        numbered.setopt(wrap, 2L);
        EXPECT_EQ(numbered.getnumarg(wrap, 0), 2) << c.type;
        EXPECT_EQ(open_options(numbered).getnumarg(wrap, 0), 2) << c.type;
    }
}

TEST_F(Options, GroupsByClass) {
    options.setopt(static_cast<option_obj::class_id>(4)); // options 1, 4 and 6
    EXPECT_EQ(options.testclass(static_cast<option_obj::class_id>(4)), 3);
    EXPECT_EQ(options.testclass(static_cast<option_obj::class_id>(5)), 3);
    EXPECT_EQ(options.testclass(static_cast<option_obj::class_id>(6)), 2);
    EXPECT_EQ(options.testclass(option_obj::class_all), 0);
    options.setopt(option_obj::class_all); // has no members
    EXPECT_EQ(options.history_text(), "1= 4= 6= ");
    options.clearopt(static_cast<option_obj::class_id>(6)); // options 1, 2, 4 and 7
    EXPECT_EQ(options.testclass(static_cast<option_obj::class_id>(4)), 1);
    EXPECT_EQ(options.seenclass(static_cast<option_obj::class_id>(6)), 6);
    EXPECT_TRUE(options.isclass(wrap, static_cast<option_obj::class_id>(3)));
    EXPECT_FALSE(options.isclass(wrap, static_cast<option_obj::class_id>(8)));
}

TEST_F(Options, AppliesConflicts) {
    FILE* const messages = DIAGNOSTIC::fp_m = std::tmpfile();
    open_options::conflicts[wrap][order_file] = 2;
    open_options::conflicts[order_file][buffer] = 1;
    options.apply("-pdb");
    options.apply("-oa");
    EXPECT_EQ(options.state[buffer], 0);
    EXPECT_EQ(std::ftell(messages), 0); // the quiet kind
    options.apply("--diag_wrap");
    EXPECT_EQ(options.state[order_file], 0);
    std::rewind(messages);
    char line[200] = "";
    EXPECT_STREQ(std::fgets(line, sizeof line, messages),
                 "optobj:321:warning: option --diag_wrap overrides preceding option -o\n");
    DIAGNOSTIC::fp_m = nullptr;
    std::fclose(messages);
    open_options::conflicts[buffer][wrap] = 3;
    EXPECT_EXIT(options.apply("-pdb"), testing::ExitedWithCode(1),
                "^optobj:310:error: option -pdb conflicts with previous option --diag_wrap\n$");
}

TEST_F(Options, TracesWhatItDoes) {
    options.trace = true;
    EXPECT_EQ(printed([&] {
                  options.apply("--diag_wrap=off");
                  options.apply("-o17q");
                  options.clearopt(wrap);
              }),
              "owl option debug: Parsed option id OPT_DIAG_WRAP/3\n"
              "owl option debug: Set    option id OPT_DIAG_WRAP to state 1\n"
              "owl option debug: Set    option id OPT_DIAG_WRAP arg to value '1' (0 args) (off)\n"
              "owl option debug: Add option id OPT_DIAG_WRAP to history with arg off\n"
              "owl option debug: Parsed option id OPT_PREFERRED_ORDER_FILE/6\n"
              "owl option debug: Set    option id OPT_PREFERRED_ORDER_FILE to state 1\n"
              "owl option debug: Set    option id OPT_PREFERRED_ORDER_FILE arg to value '17q' (0 args)\n"
              "owl option debug: about to parse '17' as signed, radix 8\n"
              "owl option debug: Add option id OPT_PREFERRED_ORDER_FILE to history with arg 17q\n"
              "owl option debug: Clear  option id OPT_DIAG_WRAP to state 0\n");
    EXPECT_TRUE(options.debug_level(0));
}

TEST_F(Options, FindsRadixes) {
    const struct {
        const char* text;
        const char* digits;
        int radix;
    } cases[] = {{"0x1F", "0x1F", 16}, {"017", "017", 8},  {"08", "08", 10}, {"1Fh", "1F", 16}, {"12H", "12", 16},
                 {"17q", "17", 8},     {"19q", "19q", 10}, {"q", "", 8},     {"", "", 10},      {"-5", "-5", 10}};
    for (const auto& c : cases) {
        std::string text = c.text;
        EXPECT_EQ(option_obj::get_radix(text.data()), c.radix) << c.text;
        EXPECT_STREQ(text.c_str(), c.digits) << c.text;
    }
    int error = 0;
    EXPECT_EQ(options.strtol_by_radix("12z", &error), 12);
    EXPECT_EQ(error, 1);
    EXPECT_EQ(options.strtoul_by_radix("0x10", &error), 16U);
    EXPECT_EQ(error, 0);
}

TEST_F(Options, PlacesValues) {
    static const char* next_value = nullptr;
    option_obj::next_arg = [] { return std::exchange(next_value, nullptr); };
    option_obj::arg_range range = {0, INT_MAX};
    constexpr auto number = static_cast<option_obj::parse_option_type>(0);
    constexpr auto glued_text = static_cast<option_obj::parse_option_type>(12);
    const auto parse = [&](const char* rest, option_obj::parse_option_type type) {
        return options.parse_arg(order_file, rest, rotated<"n">, type, &range);
    };
    EXPECT_STREQ(parse("=5", number), "5");
    EXPECT_STREQ(parse("5", option_obj::parse_glued_unsigned), "5");
    next_value = "0x7fffffff";
    EXPECT_STREQ(parse("", number), "0x7fffffff");
    EXPECT_EQ(parse("", glued_text), nullptr);
    for (const int text : {3, 4, 12, 13}) {
        EXPECT_STREQ(parse("=x", static_cast<option_obj::parse_option_type>(text)), "x");
    }
    const std::string missing = ":error: option --preferred_order_file is missing its parameter 'n'\n$";
    const std::string out = ":error: argument to option --preferred_order_file \\(n\\) is out of\n   range";
    const std::tuple<const char*, int, std::string> bad_values[] = {
        {"=", 12, "^optobj:2172" + missing},
        {"=", 0, "^optobj:2033" + missing},
        {"", 3, "^optobj:2206" + missing},
        {"2147483648", 0, "^optobj:2110" + out + "\n$"},
        {"99999999999999999999", 0, "^optobj:2110" + out + "\n$"},
        {"5x", 2, "^optobj:2074" + out + "\n$"},
        {"-1", 11, "^optobj:2069" + out + " \\(must be a non-negative_number\\)\n$"},
        {"-1", 1, "^optobj:2105" + out + " \\(must be a non-negative_number\\)\n$"},
        {"on", 6, "^optobj:2147:fatal error: corruption in option handler\n$"},
    };
    for (const auto& [value, type, message] : bad_values) {
        EXPECT_EXIT(parse(value, static_cast<option_obj::parse_option_type>(type)), testing::ExitedWithCode(1),
                    message);
    }
    range = {0, 4};
    const std::string small = out + " \\(must be a number from 0 to 4\n$";
    EXPECT_EXIT(parse("5", number), testing::ExitedWithCode(1), "^optobj:2116" + small);
    EXPECT_EXIT(parse("5", option_obj::parse_unsigned), testing::ExitedWithCode(1), "^optobj:2080" + small);
}

TEST_F(Options, MatchesChoices) {
    static const option_obj::oneof_item items[] = {{"+new", 1}, {"*old", 2}, {"-secret", 3}, {"+all", 4}, {nullptr, 0}};
    open_options::option_definitions[wrap].oneof_items = items;
    testing::internal::CaptureStderr();
    options.apply("--diag_wrap=OLD");
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "WARNING: argument 'old' to option '--diag_wrap' is deprecated and will be removed in a future release\n");
    EXPECT_EQ(options.getnumarg(wrap, 0), 2);
    options.apply("--diag_wrapsecret");
    EXPECT_STREQ(options.getstrarg(wrap, 0), "secret");
    EXPECT_EXIT(options.apply("--diag_wrap"), testing::ExitedWithCode(1),
                "^optobj:2335:error: bad argument to option --diag_wrap: should be one of\n   \\{new,all\\}\n$");
    EXPECT_EXIT(options.apply("--diag_wrap="), testing::ExitedWithCode(1), "^optobj:2256:error: .*'on,off'\n$");
    long value = 0;
    EXPECT_EXIT(options.parse_oneof(wrap, "=", "", static_cast<option_obj::parse_option_type>(6), &value),
                testing::ExitedWithCode(1), "^optobj:2290:error: option --diag_wrap is missing its parameter ''\n$");
}

TEST_F(Options, WarnsOfLetterCase) {
    testing::internal::CaptureStderr();
    const char* const text = options.current_option = "PDB";
    options.deprecated_case(text + 2, "PDb");
    options.deprecated_case(text + 3, "PDb");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "optobj:2355:warning: Case insensitivity of options has been deprecated; PDB\n"
              "   must be written as PDb in future releases\n");
    options.current_option = nullptr;
}

// The leaves of the matcher have a mind of their own where the tables are replaced.
TEST_F(Options, LeavesStoreWhatTheySay) {
    for (const int type : {1, 2, 3, 4, 5, 6, 7}) {
        open_options::parm_type[wrap] = type;
        open_options fresh;
        fresh.apply("--diag_wrap=on");
        fresh.apply("--diag_wrap=off");
        EXPECT_EQ(fresh.getargcount(wrap), 1U) << type;
        EXPECT_EQ(fresh.getnumarg(wrap, 0), 1) << type;
    }
    open_options::option_definitions[order_file].param_name = rotated<"other">;
    EXPECT_EXIT(options.apply("-o="), testing::ExitedWithCode(1), "is missing its parameter 'filename'\n$");
    static const option_obj::oneof_item items[] = {{"+", 1}, {"+x", 2}, {nullptr, 0}};
    open_options::option_definitions[wrap].oneof_items = items;
    EXPECT_EXIT(options.apply("--diag_wrap=y"), testing::ExitedWithCode(1), "should be one of \\{,x\\}\n$");
    const char* const no_alternatives[] = {"%b", nullptr, nullptr, nullptr, nullptr, nullptr};
    EXPECT_STREQ(option_obj::get_opt_txt("", no_alternatives, "", "", 0), ",-o");
    EXPECT_STREQ(option_obj::get_opt_txt(nullptr, no_alternatives, nullptr, "", 0), "-o");
}

TEST_F(Options, IgnoresUnknownIdentifiers) {
    option_obj::next_arg = []() -> const char* {
        ADD_FAILURE() << "took an argument";
        return nullptr;
    };
    for (const int number : {-1, 8, 10, 100}) {
        const auto unknown = static_cast<id>(number);
        const char* const list[] = {"x", nullptr};
        const option_obj::arg_range range = {5, 6};
        long value = 77;
        options.setopt(unknown);
        options.setopt(unknown, 1L);
        options.setopt(unknown, "x");
        options.setopt_internal(unknown);
        options.setarg(unknown, "x");
        options.setarg(unknown, 1L);
        options.clearopt(unknown);
        options.parsed_option(unknown);
        options.register_option_form(unknown, 1);
        options.add_to_history(unknown);
        options.do_conflicts(unknown);
        options.check_numerical_arg(option_obj::parse_unsigned, unknown, "", "1", &range);
        EXPECT_EQ(options.parse_arg(unknown, "", "", option_obj::parse_text, &range), nullptr);
        EXPECT_EQ(options.parse_oneof(unknown, "on", "", option_obj::parse_glued_oneof, &value), 0);
        EXPECT_EQ(value, 77);
        EXPECT_EQ(options.getargcount(unknown), 0U);
        EXPECT_EQ(options.getstrarg(unknown, 0), nullptr);
        EXPECT_EQ(options.getnumarg(unknown, 0), 0);
        EXPECT_FALSE(options.isclass(unknown, option_obj::class_all));
        EXPECT_FALSE(options.args_match_list(unknown, list));
        EXPECT_EQ(options.format_of_option(unknown), nullptr);
        EXPECT_EQ(options.internal_option_string(unknown), nullptr);
        EXPECT_EQ(options.state_of(unknown), 0);
        option_obj::an_argument_t argument = {option_obj::an_argument_t::text, std::string("kept"), 3};
        options.get_argument(unknown, &argument);
        EXPECT_EQ(std::get<std::string>(argument.value), "kept");
    }
    EXPECT_EQ(options.state, open_options().state);
    EXPECT_EQ(options.history_text(), "");
}

// Only callers use up the buffers of borrowed texts.
TEST_F(Options, KeepsBorrowedTexts) {
    open_options::parm_type[order_file] = option_obj::parm_number_list;
    open_options::conflicts[buffer][wrap] = 1;
    options.apply("-o5");
    const char* const number = options.getstrarg(order_file, 0);
    const char* const spelling = options.format_of_option(order_file);
    for (int i = 0; i < 20; ++i) {
        options.apply("--diag_wrap");
        options.apply(("-o" + std::to_string(i)).c_str());
        std::free(options.export_option(order_file, 1));
        std::free(options.export_option(wrap, 0));
        options.apply("-pdb"); // clears --diag_wrap without a word
        EXPECT_EQ(options.export_option(wrap, 0), nullptr);
        std::free(options.print());
        printed([&] { options.dump(1); });
        printed([] { option_obj::display_option_help("", 1); });
    }
    std::vector<std::string_view> numbers;
    for (unsigned int i = 1; i <= 14; ++i) {
        numbers.emplace_back(options.getstrarg(order_file, i));
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(numbers[i], std::to_string(i));
    }
    EXPECT_STREQ(number, "5"); // the oldest of 15
    EXPECT_STREQ(spelling, "-o");
}

// Exit handlers run when function-local objects are gone already: what they use must not be among those.
TEST_F(Options, WorksInExitHandlers) {
    const auto use_everything = [] {
        DIAGNOSTIC::fp_m = stderr;
        open_options late;
        late.apply("--diag_wrap=off");
        late.apply("-pdb");
        printed([] { option_obj::display_option_help("", 1); });
        late.addfileopt("f", "nobody");
        std::fprintf(stderr, "%s %s\n", late.getstrarg(wrap, 0), late.format_of_option(buffer));
    };
    EXPECT_EXIT(
        {
            std::atexit(use_everything);
            option_obj::rot13("first use after the handler was registered");
            options.addfileopt("f", "nobody");
            std::exit(3);
        },
        testing::ExitedWithCode(3), "No known tool.*\n.*No known tool.*\noff -pdb\n$");
}

TEST_F(Options, RotatesTexts) {
    EXPECT_STREQ(option_obj::rot13("%%x-y"), "--k%l");
    EXPECT_STREQ(option_obj::rot13(rotated<"--Zebra 1%a">), "--Zebra 1%a");
    EXPECT_STREQ(rotated<"--diag_wrap">, "%%qvnt_jenc");
    EXPECT_STREQ(option_obj::rot13(nullptr), "");
    const char* const first = option_obj::rot13("n");
    for (const char* const text : {"o", "p", "q", "r"}) {
        option_obj::rot13(text);
    }
    EXPECT_STREQ(first, "a"); // five results live side by side
    option_obj::rot13("s");
    EXPECT_STREQ(first, "f");
}

TEST_F(Options, SearchesTheHelp) {
    option_obj::executable_name = "/usr/local/bin/tool";
    EXPECT_EQ(printed([] { EXPECT_EQ(option_obj::display_option_help("-PD", 1), 1); }),
              "  --buffer_diagnostics,-pdb \n"
              "                          Writes each line of a diagnostic to standard error in\n"
              "                           one piece, so that the lines of tools that run side\n"
              "                           by side do not mix.  Example: --buffer_diagnostics\n"
              "  --emit_warnings_as_errors,-pdew \n"
              "                          Reports free-form warnings as errors.  The warnings\n"
              "                           of the fixed list of messages, such as the one about\n"
              "                           a missing output file name, stay warnings.  Example:\n"
              "                           --emit_warnings_as_errors\n");
    EXPECT_STREQ(option_obj::executable_name, "tool");
    for (const char* const unlisted : {"toolversion", "--toolversion", "--debug", "print the version", "passes"}) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(option_obj::display_option_help(unlisted, 1), 0); }), "") << unlisted;
    }
    EXPECT_NE(printed([] { option_obj::display_option_help("COLUMN 79", 1); }).find("--diag_wrap"), std::string::npos);
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            option_obj::display_option_help("nothing like it", 0);
        },
        testing::ExitedWithCode(0), "^>> Help: No options match the string 'nothing like it'\n$");
}

TEST_F(Options, ReportsCorruptTables) {
    options.apply("-pdb");
    const auto status = testing::ExitedWithCode(1);
    EXPECT_EXIT(options.getnumarg(buffer, 0), status,
                "^optobj:1402:fatal error: unhandled option handler \\[1402\\]\n$");
    EXPECT_EXIT(options.getstrarg(buffer, 0), status,
                "^optobj:1488:fatal error: list handler for non-list option \\[1488\\]\n$");
    open_options::parm_type[buffer] = 8;
    EXPECT_EXIT(options.setarg(buffer, "x"), status,
                "^optobj:1195:fatal error: unhandled clause in setarg\\(\\) \\[1195\\]\n$");
    EXPECT_EXIT(options.setarg(buffer, 1L), status,
                "^optobj:1327:fatal error: unhandled clause in setarg\\(\\) \\[1327\\]\n$");
    EXPECT_EXIT(options.setopt(buffer), status,
                "^optobj:1045:fatal error: unhandled clause in add_to_history\\(\\) \\[1045\\]\n$");
    EXPECT_DEATH(open_options{options}, "argument type is 0 to 7");
    options = *&options; // nothing to copy, so nothing to mind
    options.setopt(wrap, 1L);
    open_options::parm_type[wrap] = option_obj::parm_none;
    EXPECT_EQ(options.getargcount(wrap), 0U);
}

} // namespace
