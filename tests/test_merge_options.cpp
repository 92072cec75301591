// History, export and merging of option sets. The tool's own merge tables are empty: tests put theirs in place.
#include "DIAG/diag.h"
#include "tests/open_options.h"
#include "tests/printed.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace {

std::string taken(char* text) {
    std::string result = text == nullptr ? "(null)" : text;
    std::free(text);
    return result;
}

std::string taken(option_obj::option_id* list) {
    std::string result;
    for (const option_obj::option_id* p = list; *p != option_obj::opt_end; ++p) {
        result += std::to_string(*p);
    }
    std::free(list);
    return result;
}

// An object that was given these arguments, which are separated by blanks.
open_options with(const std::string& arguments, const char* file = "<internal>") {
    open_options options;
    std::istringstream words(arguments);
    for (std::string argument; words >> argument;) {
        options.apply(argument.c_str());
    }
    options.current_file = file;
    return options;
}

class MergeOptions : public testing::Test {
protected:
    void SetUp() override { DIAGNOSTIC::display_ipos_m = true; }
    void TearDown() override {
        DIAGNOSTIC::display_ipos_m = false;
        open_options::merge_policy_functions = {};
        open_options::mutex_merge_override_functions = {};
        open_options::merge_conflicts = {};
        open_options::parm_type[wrap] = option_obj::parm_oneof;
        DIAGNOSTIC::wrap_enabled_m = true;
        DIAGNOSTIC::error_count_m = 0;
    }
    // The options after merging `there` into `here` under one policy for all options.
    static std::string print_merged(option_obj::merge_policy policy, const std::string& here,
                                    const std::string& there) {
        open_options::merge_policy_functions.fill(policy);
        open_options mine = with(here);
        open_options others = with(there, "b.o");
        DIAGNOSTIC::wrap_enabled_m = true; // whatever the options did to it
        mine.merge_options(others);
        return taken(mine.print());
    }

    // The same, and what was said.
    static std::string merged(option_obj::merge_policy policy, const std::string& here, const std::string& there) {
        testing::internal::CaptureStderr();
        const std::string options = print_merged(policy, here, there);
        return options + "\n" + testing::internal::GetCapturedStderr();
    }
};

TEST(History, PrintsSettingsInOrder) {
    open_options options = with("-ox");
    options.apply("-pdb");
    options.addfileopt("a.c", "cc");
    options.addfileopt("b.o", "ld");
    options.addfileopt("", "ld");
    options.addfileopt("c.o", "");
    testing::internal::CaptureStderr();
    DIAGNOSTIC::display_ipos_m = options.trace = true;
    EXPECT_EQ(printed([&] { options.addfileopt("d.x", "mystery"); }),
              "owl option debug: Add file 'd.x' to mystery's history\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "optobj:891:warning: No known tool \"mystery\" when adding file to option list.\n");
    DIAGNOSTIC::display_ipos_m = false;
    for (int file_option = option_obj::opt_end; file_option < 50; ++file_option) {
        options.clear_history(
            static_cast<option_obj::option_id>(file_option)); // ignored: none is an option of this tool
    }
    EXPECT_EQ(printed([&] { options.dump_history(); }),
              "--preferred_order_file=x\n--buffer_diagnostics\n--file=a.c\n--file=b.o\n--file=d.x\n");
}

TEST(Export, RendersSettings) {
    open_options options = with("-pdb -oa -ob --diag_wrap=off");
    const std::tuple<id, int, const char*> exports[] = {
        {wrap, 0, "--diag_wrap=off"},
        {order_file, 1, "--preferred_order_file=b"},
        {order_file, 2, "(null)"},
        {order_file, -1, "(null)"},
        {buffer, 5, "--buffer_diagnostics"},
        {option_obj::opt_end, 0, "(null)"},
        {option_obj::opt_disable_pass, 0, "(null)"}, // never set
    };
    for (const auto& [option, index, text] : exports) {
        EXPECT_EQ(taken(options.export_option(option, index)), text) << option << " " << index;
    }
    EXPECT_EQ(taken(options.print()),
              "--buffer_diagnostics --diag_wrap=off --preferred_order_file=a --preferred_order_file=b");
    options.setarg(wrap, 0L);
    EXPECT_EQ(taken(options.export_option(wrap, 0)), "--diag_wrap");
    options.setarg(wrap, 9L);
    EXPECT_EQ(taken(options.export_option(wrap, 0)), "--diag_wrap=error");
    options.clearopt(buffer);
    EXPECT_EQ(taken(options.export_option(buffer, 0)), "(null)");
    const char* const lists[] = {"01234567", "036", "36"}; // all, touched or set, set
    for (int type = 0; type < 3; ++type) {
        EXPECT_EQ(taken(options.export_option_list(static_cast<option_obj::export_option_list_type>(type))),
                  lists[type]);
    }
    const auto class_of = [](int number) { return static_cast<option_obj::class_id>(number); };
    EXPECT_EQ(taken(options.export_option_class(option_obj::export_all, class_of(4))), "146");
    EXPECT_EQ(taken(options.export_option_class(option_obj::export_set, class_of(4))), "6");
    EXPECT_EQ(taken(options.export_option_class(option_obj::export_all, class_of(8))), "");
    const std::vector<option_obj::optlist> pairs = {{order_file, "--preferred_order_file=a"},
                                                    {order_file, "--preferred_order_file=b"}};
    EXPECT_EQ(options.export_option_pairs(option_obj::export_set, class_of(4)), pairs);
    std::string classes; // of each option and of numbers that no option has
    for (const int number : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 46, 47}) {
        for (const auto member : options.class_list_for_option(static_cast<id>(number))) {
            classes += std::to_string(member);
        }
        classes += ",";
    }
    EXPECT_EQ(classes, "0,04567,067,0123,04567,0,045,06,,0,0,,");
}

TEST_F(MergeOptions, DumpsSettings) {
    open_options options = with("-oa -ob");
    EXPECT_EQ(printed([&] { options.dump(0); }), "--preferred_order_file     STRING LIST ARG: a b\n");
    options.clearopt(order_file);
    options.apply("-pdb");
    EXPECT_EQ(printed([&] { options.dump(1); }),
              "--buffer_diagnostics       SEEN      ENABLED   NO ARGS\n"
              "--debug:                   not seen  disabled  STRING LIST ARG: <arg not provided>\n"
              "--debug_options            not seen  disabled  NO ARGS\n"
              "--diag_wrap                not seen  disabled  ENUMERATED ARG: <arg not provided>\n"
              "--disable:                 not seen  disabled  STRING LIST ARG: <arg not provided>\n"
              "--emit_warnings_as_errors  not seen  disabled  NO ARGS\n"
              "--preferred_order_file     SEEN      disabled  STRING LIST ARG: <arg not provided>\n"
              "--toolversion              not seen  disabled  NO ARGS\n");
    open_options without_argument;
    without_argument.setopt_internal(wrap);
    std::string types;
    for (const int type : {-1, 1, 2, 3, 6, 7, 8}) {
        open_options::parm_type[wrap] = type;
        const std::string line = printed([&] { without_argument.dump(0); });
        types += line.substr(27, line.find_first_of(":>") - 27) + ",";
    }
    EXPECT_EQ(types,
              "<UNKNOWN TYPE!?!?,STRING ARG,NUMBER ARG,HEXNUM ARG,NUMBER LIST ARG,ONEOF LIST ARG,<UNKNOWN TYPE!?!?,");
}

TEST_F(MergeOptions, ComparesArguments) {
    using argument = option_obj::an_argument_t;
    const auto argument_of = [](int type, const char* text) {
        open_options::parm_type[wrap] = type;
        open_options options;
        options.setarg(wrap, text);
        argument result;
        options.get_argument(wrap, &result);
        return result;
    };
    const argument nothing;
    const argument minus_one = argument_of(option_obj::parm_number, "-1");
    const argument two = argument_of(option_obj::parm_number, "2");
    const argument large = argument_of(option_obj::parm_unsigned, "0xffffffffffffffff");
    const argument small = argument_of(option_obj::parm_unsigned, "3");
    const argument text = argument_of(option_obj::parm_string, "b");
    EXPECT_TRUE((argument{argument::none, 1L, 0}) == (argument{argument::none, std::string("x"), 2}));
    EXPECT_TRUE(nothing.count == 0 && nothing == argument() && two == two && !(two == minus_one) && !(two == small));
    EXPECT_TRUE(two > minus_one && large > small && text > argument_of(option_obj::parm_string, "a"));
    EXPECT_TRUE(text > nothing && !(nothing > text) && !(nothing > nothing) && !(text > text));
    const argument list = argument_of(option_obj::parm_string_list, "x");
    EXPECT_EQ(list.count, 1U);
    EXPECT_EQ(std::get<std::string>(std::get<std::vector<argument>>(list.value)[0].value), "x");
    EXPECT_DEATH(static_cast<void>(list == list), "type != list");
    EXPECT_DEATH(static_cast<void>(two > text), "types can be compared");
}

TEST_F(MergeOptions, FollowsEachPolicy) {
    using o = option_obj;
    const std::string off = "--diag_wrap=off\n";
    const std::string on = "--diag_wrap=on\n";
    const std::string incompatible = ":error: option --diag_wrap=on is set in \"b.o\", and is incompatible\n"
                                     "   with the previously seen option --diag_wrap=off\n";
    const struct {
        o::merge_policy policy;
        const char* here;
        const char* there;
        std::string expected;
    } cases[] = {
        {nullptr, "-pdb", "-oa", "--buffer_diagnostics\n"},
        {&o::merge_policy_none, "-pdb", "-oa", "--buffer_diagnostics\n"},
        {&o::merge_policy_main, "-pdb", "-oa", "--buffer_diagnostics\n"},
        {&o::merge_policy_exact, "-pdb --diag_wrap", "-pdb --diag_wrap=on", "--buffer_diagnostics " + on},
        {&o::merge_policy_exact, "-pdb", "",
         "--buffer_diagnostics\noptobj:3560:error: option --buffer_diagnostics was set in previous files, but\n"
         "   not in \"b.o\"\n"},
        {&o::merge_policy_exact, "", "-oa",
         "\noptobj:3568:error: option --preferred_order_file=a is set in \"b.o\", but not in\n   previous files\n"},
        {&o::merge_policy_exact, "--diag_wrap=off", "--diag_wrap=on", off + "optobj:3585" + incompatible},
        {&o::merge_policy_exact_notset, "-pdb", "-oa", "--buffer_diagnostics\n"},
        {&o::merge_policy_exact_notset, "--diag_wrap=off", "--diag_wrap", off + "optobj:3617" + incompatible},
        {&o::merge_policy_or, "-oa", "-pdb -ob -oc",
         "--buffer_diagnostics --preferred_order_file=a --preferred_order_file=b --preferred_order_file=c\n"},
        {&o::merge_policy_and, "-pdb -oa", "-pdb", "--buffer_diagnostics\n"},
        {&o::merge_policy_min, "", "--diag_wrap=off", off},
        {&o::merge_policy_min, "--diag_wrap=off", "", off},
        {&o::merge_policy_min, "--diag_wrap=off", "--diag_wrap=on", on}, // "on" comes first in the list
        {&o::merge_policy_min, "--diag_wrap=on", "--diag_wrap=off", on},
        {&o::merge_policy_max, "--diag_wrap=on", "--diag_wrap=off", off},
        {&o::merge_policy_max, "--diag_wrap=off", "--diag_wrap=on", off},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(merged(c.policy, c.here, c.there), c.expected) << &c - cases;
    }
    EXPECT_EQ(option_obj::merge_policy_main_calls, 8U); // once per option
    open_options one = with("-pdb");
    open_options other = with("-oa");
    for (const auto policy :
         {&o::merge_policy_none, &o::merge_policy_main, &o::merge_policy_exact, &o::merge_policy_exact_notset,
          &o::merge_policy_or, &o::merge_policy_and, &o::merge_policy_min, &o::merge_policy_max}) {
        (one.*policy)(option_obj::opt_end, other);
    }
    one.do_merge_conflicts(option_obj::opt_end, other);
    EXPECT_EQ(taken(one.print()), "--buffer_diagnostics");
    EXPECT_EQ(option_obj::merge_policy_main_calls, 8U);
}

TEST_F(MergeOptions, TakesExtremesOfNumbers) {
    open_options::parm_type[order_file] = option_obj::parm_number;
    EXPECT_EQ(print_merged(&option_obj::merge_policy_min, "-o3", "-o2"), "--preferred_order_file=2");
    EXPECT_EQ(print_merged(&option_obj::merge_policy_min, "-o2", "-o3"), "--preferred_order_file=2");
    EXPECT_EQ(print_merged(&option_obj::merge_policy_max, "-o3", "-o2"), "--preferred_order_file=3");
    EXPECT_EQ(print_merged(&option_obj::merge_policy_max, "-o2", "-o3"), "--preferred_order_file=3");
    open_options::parm_type[order_file] = option_obj::parm_string_list;
    open_options::parm_type[wrap] =
        option_obj::parm_oneof_list; // "on" comes first in the list, "off" has the lower value
    EXPECT_EQ(print_merged(&option_obj::merge_policy_min, "--diag_wrap=on", "--diag_wrap=off"), "--diag_wrap=on");
    EXPECT_EQ(print_merged(&option_obj::merge_policy_max, "--diag_wrap=off", "--diag_wrap=on"), "--diag_wrap=off");
    EXPECT_DEATH(print_merged(&option_obj::merge_policy_max, "-oa", "-ob"), "types can be compared");
}

TEST_F(MergeOptions, OverridesAndSeeds) {
    open_options::mutex_merge_override_functions.fill(
        static_cast<option_obj::merge_override>(&open_options::take_over_buffer));
    EXPECT_EQ(merged(&option_obj::merge_policy_or, "", "-pdb -oa"), "--preferred_order_file=a\n");

    open_options seeded;
    open_options source = with("-pdb -oa -ob --diag_wrap=off");
    open_options::merge_policy_functions = {};
    open_options::merge_policy_functions[order_file] = &option_obj::merge_policy_or;
    open_options::merge_policy_functions[buffer] = &option_obj::merge_policy_none;
    seeded.merge_init(source);
    EXPECT_EQ(taken(seeded.print()), "--preferred_order_file=a"); // its first argument
}

TEST_F(MergeOptions, ReportsConflicts) {
    open_options::merge_conflicts[wrap][order_file] = 3;
    const std::string expected = "--diag_wrap=on\noptobj:268:error: option -o in file \"b.o\" conflicts with previous "
                                 "option\n   --diag_wrap\n";
    EXPECT_EQ(merged(nullptr, "--diag_wrap", "-oa"), expected);
    EXPECT_EQ(merged(nullptr, "-pdb", "-oa"), "--buffer_diagnostics\n");
    open_options::merge_conflicts[wrap][order_file] = 1;
    EXPECT_DEATH(print_merged(nullptr, "--diag_wrap", "-oa"), "conflict kind is 0 or 3");
}

} // namespace
