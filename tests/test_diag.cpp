// Diagnostics: text layout, severities, counting, the ends of the process, and the user message interface.
#include "DIAG/diag_messages.h"
#include "DIAG/user_msg_api.h"
#include "tests/run_tool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace {

/// Gives what diagnostics print, and restores the settings at the end of a test.
class Diagnostics : public testing::Test {
protected:
    void SetUp() override {
        DIAGNOSTIC::error_count_m = 0;
        for (const DIAG_INFO* row = DIAG_INFO_ENTRY; row->code != 0; ++row) {
            severities_.push_back(row->severity);
        }
    }
    void TearDown() override {
        for (std::size_t i = 0; i < severities_.size(); ++i) {
            DIAG_INFO_ENTRY[i].severity = severities_[i];
        }
        DIAGNOSTIC::wrap_enabled_m = true;
        DIAGNOSTIC::display_code_m = DIAGNOSTIC::display_ipos_m = DIAGNOSTIC::wrap_headers_m = false;
        DIAGNOSTIC::verbose_m = DIAGNOSTIC::advice_m = DIAGNOSTIC::debug_m = DIAGNOSTIC::remarks_m = false;
        DIAGNOSTIC::indent_m = 0;
        DIAGNOSTIC::error_count_m = 0;
    }
    static std::string text_of(const std::function<void()>& action) {
        char* bytes = nullptr;
        std::size_t size = 0;
        DIAGNOSTIC::fp_m = open_memstream(&bytes, &size);
        action();
        std::fclose(std::exchange(DIAGNOSTIC::fp_m, nullptr));
        std::string text(bytes, size);
        std::free(bytes);
        return text;
    }
    static std::string warning(const std::string& message) {
        return text_of([&] { USER_MSG::get_umsg_obj()->warning(0, "%s", message.c_str()); });
    }

private:
    std::vector<dc_SEVERITY> severities_; // of the catalogue's rows before the test
};

TEST_F(Diagnostics, WrapsMessages) {
    const struct {
        std::string message;
        std::string expected;
    } cases[] = {
        // after "warning: " 70 columns are left, then 76 on each further line
        {"short", "short\n"},
        {"", "\n"},
        {std::string(69, 'a'), std::string(69, 'a') + "\n"},
        {std::string(60, 'a') + " bcdefghij", std::string(60, 'a') + "\n   bcdefghij\n"}, // fills the line exactly
        {std::string(60, 'a') + " bcdefghi", std::string(60, 'a') + " bcdefghi\n"},       // one less
        {std::string(70, 'a') + " b", std::string(70, 'a') + "\n   b\n"},                 // the break falls at the end
        {std::string(70, 'a') + "   b", std::string(70, 'a') + "\n   b\n"},               // blanks at a break go
        {"aa " + std::string(75, 'b'), "aa\n   " + std::string(75, 'b') + "\n"},
        {"aa " + std::string(80, 'b'), "aa\n   " + std::string(76, 'b') + "\n   bbbb\n"},
        {std::string(75, 'b'), "\n   " + std::string(75, 'b') + "\n"},                         // fits the next line
        {std::string(100, 'b'), std::string(70, 'b') + "\n   " + std::string(30, 'b') + "\n"}, // cut where it stands
        {"one\n   two", "one\n   two\n"},
        {std::string(60, 'a') + " \xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4", // five letters of two bytes each
         std::string(60, 'a') + "\n   \xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(warning(c.message), "warning: " + c.expected) << c.message;
    }
    DIAGNOSTIC::wrap_enabled_m = false;
    EXPECT_EQ(warning(std::string(60, 'a') + " " + std::string(60, 'b')),
              "warning: " + std::string(60, 'a') + " " + std::string(60, 'b') + "\n");
    EXPECT_EQ(warning("one\n   two"), "warning: one\n   two\n");
}

TEST_F(Diagnostics, BuildsHeaders) {
    DIAGNOSTIC::push_debug_mode(true); // so that the fatal rows return
    EXPECT_EQ(text_of([] { DIAG::raise<DIAG::owl_fatal_node_without_content>("ORDWELL/pettis_hansen", 423); }),
              "ORDWELL/pettis_hansen:423:internal fatal error #22002: ()\n");
    EXPECT_EQ(text_of([] { DIAG::raise<DIAG::owl_fatal_add_edge_fail_in_create>("x", 1, "a", "b", 7UL); }),
              "x:1:internal fatal error #22006: (a, b, 7)\n");
    const std::string long_name(51, 'n'); // a header of 81 columns
    EXPECT_EQ(text_of([&] { DIAG::raise<DIAG::owl_fatal_node_without_content>(long_name.c_str(), 423); }),
              long_name + ":423:internal fatal error #22002: \n   ()\n");
    EXPECT_EQ(DIAGNOSTIC::error_count_m, 0);
    DIAGNOSTIC::pop_debug_mode();
    EXPECT_FALSE(DIAGNOSTIC::debug_mode_m);

    DIAGNOSTIC::display_code_m = DIAGNOSTIC::display_ipos_m = true;
    DIAGNOSTIC::push_indent(2);
    DIAGNOSTIC::push_indent(3);
    DIAGNOSTIC::pop_indent();
    EXPECT_EQ(text_of([] { DIAG::raise<DIAG::owl_bad_csv_file_header>("here", 7, "a.csv"); }),
              "  here:7:error #22101-D: Invalid CSV input file header line encountered in\n     a.csv; file ignored\n");
    DIAGNOSTIC::pop_indent();
    EXPECT_EQ(text_of([] { DIAG::raise<DIAG::owl_warn_missing_outfile_name>("here", 7, "o"); }),
              "here:7:warning #22200: Missing outfile name in command-line. Defaulting to o\n");
}

/// Raises diagnostics when nearly all static objects are gone, for it was the first to be made.
struct last_word {
    bool is_asked = false;
    ~last_word() {
        if (is_asked) {
            DIAGNOSTIC::push_indent(1);
            DIAGNOSTIC::push_debug_mode(true);
            DIAG::raise<DIAG::owl_bad_csv_file_header>("here", 7, "a");
            DIAGNOSTIC::pop_debug_mode();
            DIAGNOSTIC::pop_indent();
        }
    }
};
[[gnu::init_priority(101)]] last_word at_the_end;

TEST_F(Diagnostics, OutliveStaticObjects) {
    EXPECT_EXIT((DIAGNOSTIC::push_indent(2), at_the_end.is_asked = true, std::exit(3)), testing::ExitedWithCode(3),
                "^ error: Invalid CSV input file header line encountered in a; file ignored\n$");
}

TEST_F(Diagnostics, CompleteALineBeforeTheNextHeader) {
    DIAG::owl_warn_missing_outfile_name warning(DIAG::owl_warn_missing_outfile_name::row(), "here", 7, "o");
    EXPECT_EQ(text_of([&] {
                  warning.print_header();
                  warning.print_header();
                  warning.flush();
              }),
              "warning: \nwarning: \n");
}

TEST_F(Diagnostics, ShowsUserPositions) {
    const scratch_folder folder;
    const std::string path = folder.path("source");
    folder.write("source", "first\nsecond");
    USER_MSG& user = *USER_MSG::get_umsg_obj();
    const auto error_at = [&](int line, int column, bool approximate) {
        DIAG_SRCINFO_DATA position(path, line, column, approximate);
        return text_of([&] { user.error(&position, "%s", "x"); });
    };
    EXPECT_EQ(error_at(0, 0, false), "\"" + path + "\": error: x\n");
    DIAGNOSTIC::verbose_m = true;
    EXPECT_EQ(error_at(1, 3, false), "\"" + path + "\", line 1: error: x\nfirst\n  ^\n");
    EXPECT_EQ(error_at(2, 0, false), "\"" + path + "\", line 2: error: x\nsecond");
    EXPECT_EQ(error_at(3, 1, false), "\"" + path + "\", line 3: error: x\n");
    EXPECT_EQ(error_at(1, 3, true), "\"" + path + "\", line 1 (approximate): error: x\n");
    std::remove(path.c_str());
    EXPECT_EQ(error_at(1, 3, false), "\"" + path + "\", line 1: error: x\n");
}

TEST_F(Diagnostics, ShowsAndCountsBySeverity) {
    USER_MSG& user = *USER_MSG::get_umsg_obj();
    EXPECT_EQ(text_of([&] {
                  user.remark("r");
                  user.advice("a");
                  user.debug("d");
              }),
              "");
    DIAGNOSTIC::remarks_m = DIAGNOSTIC::advice_m = DIAGNOSTIC::debug_m = true;
    EXPECT_EQ(text_of([&] {
                  user.remark("r");
                  user.advice("a");
                  user.debug("d");
              }),
              "remark: r\nadvice: a\nDIAG/user_msg_api:50:internal debug #99920: (d)\n");
    EXPECT_EQ(user.get_error_count(), 0);
    EXPECT_EQ(text_of([&] {
                  user.error("%d%%", 1);
                  user.warning(3, "w");
                  user.apperror("e");
              }),
              "error: 1%\nwarning: w\nDIAG/user_msg_api:179:internal error #99924: (e)\n");
    EXPECT_EQ(user.get_error_count(), 2);
    DIAGNOSTIC::push_debug_mode(true);
    EXPECT_EQ(text_of([&] {
                  user.fatal("f");
                  user.die("%s.c", "No %s", "foo");
              }),
              "fatal error: f\nDIAG/user_msg_api:217:internal fatal error #99926: (%s.c: No foo)\n");
    DIAGNOSTIC::pop_debug_mode();
}

TEST_F(Diagnostics, ChangesSeverities) {
    const auto severity = [](int code) { return DIAGNOSTIC::get_info(code)->severity; };
    for (const int fixed : {22000, 22002, 22200, 99900, 99923, 99927}) {
        const dc_SEVERITY before = severity(fixed);
        DIAGNOSTIC::override_severity(fixed, dc_REMARK);
        EXPECT_EQ(severity(fixed), before) << fixed;
    }
    for (const dc_SEVERITY refused : {dc_NO_ERROR, dc_ADVICE, dc_DEBUG}) {
        DIAGNOSTIC::override_severity(22100, refused);
        EXPECT_EQ(severity(22100), dc_ERROR);
    }
    DIAGNOSTIC::override_severity("22100,, 2210 1x,99999999999999999999", dc_SUPPRESSED);
    EXPECT_EQ(severity(22100), dc_SUPPRESSED);
    EXPECT_EQ(severity(22101), dc_SUPPRESSED);
    EXPECT_EQ(text_of([] { DIAG::raise<DIAG::owl_bad_csv_file_header>("x", 1, "a.csv"); }), "");
    EXPECT_EQ(DIAGNOSTIC::error_count_m, 0);
    DIAGNOSTIC::override_severity("22100,22101", dc_ERROR);
    DIAGNOSTIC::override_severity(dc_ERROR, dc_WARNING);
    EXPECT_EQ(severity(22101), dc_WARNING);
    EXPECT_EQ(severity(22105), dc_WARNING);
    EXPECT_EQ(severity(6002), dc_WARNING);
    EXPECT_EQ(severity(24010), dc_WARNING);
    EXPECT_EQ(severity(99923), dc_ERROR);
    EXPECT_EQ(severity(99924), dc_ERROR);
    EXPECT_EQ(DIAGNOSTIC::get_info(22102), nullptr);
    EXPECT_EQ(DIAGNOSTIC::get_info(0), nullptr);
}

TEST_F(Diagnostics, CopiesComparesAndDumpsRecords) {
    DIAG_SRCINFO_DATA position("f.c", 12, 3, false);
    DIAG::gadvice advice(DIAG::gadvice::row(), "x", 1,
                         strdup((std::string(60, 'a') + " " + std::string(20, 'b')).c_str()));
    DIAG::gadvice other(DIAG::gadvice::row(), "x", 1, strdup("second"));
    EXPECT_FALSE(advice.is_equal(&other));
    other.free_mem();
    EXPECT_TRUE(advice.is_equal(&other)); // either has no text
    advice.set_src(&position);
    EXPECT_FALSE(advice.is_equal(&other));
    std::unique_ptr<DIAGNOSTIC> copy(advice.alloc());
    EXPECT_TRUE(copy->is_equal(&advice));
    testing::internal::CaptureStdout();
    copy->dump();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Code : 99927\nstd_msg : %s\nvrb_msg : (null)\nFile : f.c\n"
                                                      "Line : 12\nColumn: 3\n(" +
                                                          std::string(60, 'a') + " " + std::string(20, 'b') + ")\n");
    DIAGNOSTIC::advice_m = true;
    char* const wrapped = advice.get_sp_buffer();
    EXPECT_EQ(wrapped, std::string(60, 'a') + "\n          " + std::string(20, 'b'));
    std::free(wrapped);
    advice.free_mem();
}

TEST_F(Diagnostics, FatalRowsEndTheProcess) {
    EXPECT_EXIT(DIAG::raise<DIAG::owl_fatal_error_opening_outfile>("x", 1), testing::ExitedWithCode(1),
                "^fatal error: Error opening output file\n$");
    EXPECT_EXIT(USER_MSG::get_umsg_obj()->fatal("f"), testing::ExitedWithCode(1), "^fatal error: f\n$");
    EXPECT_EXIT(USER_MSG::get_umsg_obj()->die("a", "b"), testing::KilledBySignal(SIGABRT), "\\(a: b\\)\n$");
    const auto with_fatal_input_errors = [] {
        DIAGNOSTIC::override_severity(22100, dc_FATAL);
        DIAG::raise<DIAG::owl_nonfatal_error_opening_inputfile>("x", 1, "gone");
    };
    EXPECT_EXIT(with_fatal_input_errors(), testing::ExitedWithCode(1),
                "^fatal error: Error opening input file gone\n$");
    const auto with_warnings_as_errors = [] {
        USER_MSG::get_umsg_obj()->emit_warnings_as_errors();
        USER_MSG::get_umsg_obj()->warning(0, "w%d", 1);
        std::exit(USER_MSG::get_umsg_obj()->get_error_count());
    };
    EXPECT_EXIT(with_warnings_as_errors(), testing::ExitedWithCode(1), "^error: w1\n$");
    const auto with_no_room = [] {
        DIAGNOSTIC::push_indent(76);
        USER_MSG::get_umsg_obj()->error("x");
    };
    EXPECT_DEATH(with_no_room(), "diag_cols > \\(indent \\+ wrap_indent\\)");
}

} // namespace
