#include "hygiene/bundle_health.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "support/command_line.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr std::string_view head =
    "------------------------------------------------------\n"
    "Process            Node          Result\n"
    "------------------------------------------------------\n";
constexpr std::string_view title = "Bundle Health Check.....................";
// The cleaned form of an empty report.
constexpr std::string_view three_blanks = "   ";

class bundle_health_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }

  // Runs the phase and returns its result; `logged` has what it logged.
  int check() {
    int result = -1;
    EXPECT_EQ(output_of([&] { result = check_bundle_health(); }), title);
    return result;
  }

  // The health log after its start line, without the time stamp.
  static std::string logged() {
    const std::string text = file_text(LOG_FILE_BUNDLE_HEALTH);
    constexpr std::size_t stamp = sizeof("2026-11-21 07:38:53,123: ") - 1;
    return text.substr(text.find('\n') + 1 + stamp);
  }
};

// --- The report as it is cleaned

struct row {
  const char* why;
  std::string report;
  std::string expected;
  int count;
};

TEST_F(bundle_health_test, an_empty_report_gives_three_blanks_alone) {
  for (const char* report : {"", "\n", "\n\n\n\n", "  \t\r\n ", "----\n", "--\n\n--"}) {
    EXPECT_THAT(parse_bundle_health(report), Pair(three_blanks, 0)) << report;
  }
}

TEST_F(bundle_health_test, a_report_of_one_process_that_is_well_gives_three_blanks_alone) {
  EXPECT_THAT(parse_bundle_health(std::string(head) + "lagmgr_distrib  0/RP0/CPU0  OK\n"),
              Pair(three_blanks, 0));
}

TEST_F(bundle_health_test, bundle_lines_stand_at_the_margin_and_details_behind_three_blanks) {
  const std::array rows = {
      row{"a bundle and its details",
          "   Bundle-Ether12\n         not distributing\n\n\n         2 of 2 members\n",
          "   \nBundle-Ether12\n   not distributing\n   2 of 2 members", 1},
      row{"two bundles", "Bundle-Ether1\n a\n\nBundle-Ether2\n b",
          "   \nBundle-Ether1\n   a\nBundle-Ether2\n   b", 2},
      row{"a line that names two bundles counts twice", "Bundle-Ether1 and Bundle-Ether2 differ",
          "   \nBundle-Ether1 and Bundle-Ether2 differ", 2},
      row{"a bundle anywhere in its line", "\t  see Bundle-Ether1", "   \nsee Bundle-Ether1", 1},
      row{"another case is not a bundle", "bundle-ether1\nBundle Ether1",
          "   \n   bundle-ether1\n   Bundle Ether1", 0},
      row{"a rule cuts two words together", "Bundle--Ether1 Bundle-----Ether2",
          "   \n   BundleEther1 BundleEther2", 0},
      row{"a single hyphen stays", "a-b - c--d---e", "   \n   a-b - cde", 0},
      row{"a run of line ends becomes one", "a\n\nb\n\n\n\nc\nd", "   \n   a\n   b\n   c\n   d", 0},
      row{"line ends that a rule kept apart meet", "a\n----\n----\nb", "   \n   a\n   b", 0},
      row{"blanks keep line ends apart", "a\n \n \nb", "   \n   a\n   \n   \n   b", 0},
      row{"white space of all kinds in front goes, behind it stays", "x\n \t\r\v\fa \t \n b ",
          "   \n   x\n   a \t \n   b", 0},
      row{"bytes that are not text", std::string("Bundle-Ether1\0\xff\n\xc3", 17),
          std::string("   \nBundle-Ether1\0\xff\n   \xc3", 24), 1},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_THAT(parse_bundle_health(each.report), Pair(each.expected, each.count));
  }
}

TEST_F(bundle_health_test, the_table_head_and_its_first_row_are_taken_away) {
  const std::string table(head);
  const std::array rows = {
      row{"the second row stays", table + "lagmgr 0/RP0/CPU0 OK\nlagmgr 0/RP1/CPU0 OK\n",
          "   \n   lagmgr 0/RP1/CPU0 OK", 0},
      row{"details behind it stay", table + "lagmgr 0/RP0/CPU0 OK\n\nBundle-Ether1\n  bad\n",
          "   \nBundle-Ether1\n   bad", 1},
      row{"each head goes", table + "a b c\n" + table + "d e f\n", std::string(three_blanks), 0},
      row{"the row ends at what no cell holds", table + "lagmgr 0/RP0/CPU0 FAILED (2)\nx\n",
          "   \n   (2)\n   x", 0},
      row{"a head without a row stays", table, "   \n   Process            Node          Result",
          0},
      row{"another order of columns is not a head", "Node Process Result\nlagmgr 0/RP0/CPU0 OK\n",
          "   \n   Node Process Result\n   lagmgr 0/RP0/CPU0 OK", 0},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_THAT(parse_bundle_health(each.report), Pair(each.expected, each.count));
  }
}

TEST_F(bundle_health_test, a_report_with_the_word_info_loses_its_blocks_and_keeps_the_table_head) {
  const std::string table = std::string(head) + "lagmgr 0/RP0/CPU0 OK\n";
  const std::string shown =
      "   \n   Process            Node          Result\n   lagmgr 0/RP0/CPU0 OK";
  const std::string block =
      "\nINFO: 2 bundles were left out, all of 1/2\n\n  they have one member\n"
      "\n  no action is needed.\n";
  const std::array rows = {
      row{"one block", table + block, shown, 0},
      row{"two blocks", table + block + block, shown, 0},
      row{"a bundle behind it", table + block + "\n  Bundle-Ether1\n    bad\n",
          shown + "\n   \nBundle-Ether1\n   bad", 1},
      row{"a block of another word goes too", table + "INFO: ok\nERROR: 3 bundles\n  a\n  b\n",
          shown + "\n   INFO: ok", 0},
      row{"the word without a block", table + "INFO: none\n", shown + "\n   INFO: none", 0},
      row{"a block of two lines stays", table + "INFO: 2 bundles\n  a: b\n",
          shown + "\n   INFO: 2 bundles\n   a: b", 0},
      row{"inside of another word", table + "NOINFO:\n", shown + "\n   NOINFO:", 0},
      row{"a bundle in a block is not the text of a cell", "INFO: 1 a\n  Bundle-Ether1\n  b\n",
          "   \n   INFO: 1 a\nBundle-Ether1\n   b", 1},
      row{"in another case it is another word", table + "info: 2 a\n  b\n  c\n",
          "   \n   info: 2 a\n   b\n   c", 0},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_THAT(parse_bundle_health(each.report), Pair(each.expected, each.count));
  }
}

// --- The phase

TEST_F(bundle_health_test, the_tool_is_asked_in_this_line) {
  EXPECT_EQ(command_line_of("0", [this] { check(); }),
            R"(lagmgr_health | grep "-v" "-E" "Checking|checking|Overall result")");
}

TEST_F(bundle_health_test, the_cleaned_report_is_logged_and_its_bundles_are_counted) {
  tool_prints("lagmgr_health",
              std::string(head) +
                  "lagmgr 0/RP0/CPU0 FAILED\n\n   Bundle-Ether1\n      bad\n\n   Bundle-Ether2\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 2);
  EXPECT_EQ(logged(), "   \nBundle-Ether1\n   bad\nBundle-Ether2\n");
  EXPECT_THAT(calls(), ElementsAre("lagmgr_health"));
  EXPECT_EQ(st().inconsistent + st().programming_error + st().exception + st().info, 0)
      << "the count alone reaches the results";
}

TEST_F(bundle_health_test, the_filter_drops_its_lines_before_the_parser_sees_them) {
  tool_prints("lagmgr_health",
              "Checking Bundle-Ether1\nchecking Bundle-Ether2\nOverall result: Bundle-Ether3\n"
              "Bundle-Ether4\nCHECKING Bundle-Ether5\noverall result: Bundle-Ether6\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheck,
            "Bundle-Ether4\nCHECKING Bundle-Ether5\noverall result: Bundle-Ether6\n");
  EXPECT_EQ(st().bdlHealthCheckCount, 3);
}

TEST_F(bundle_health_test,
       a_tool_that_prints_nothing_is_not_a_failure_and_three_blanks_are_logged) {
  tool_prints("lagmgr_health", "");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheck, "");
  EXPECT_EQ(st().bdlHealthCheckCount, 0);
  EXPECT_EQ(logged(), "   \n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_health_test, a_tool_that_is_missing_is_not_a_failure_and_three_blanks_are_logged) {
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(logged(), "   \n");
  EXPECT_EQ(st().exception, 0);
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), HasSubstr("lagmgr_health")) << "what the shell said";
}

TEST_F(bundle_health_test, a_tool_that_fails_is_heard_all_the_same) {
  tool("lagmgr_health", "echo Bundle-Ether1; echo broken >&2; exit 3");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 1);
  EXPECT_EQ(logged(), "   \nBundle-Ether1\n");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "broken\n");
}

TEST_F(bundle_health_test, a_tool_that_cannot_be_run_is_reported_by_command_and_check) {
  const read_only_folder no_captures("/tmp");
  EXPECT_EQ(check(), ERROR);
  EXPECT_EQ(st().bdlHealthCheck, ERROR);
  EXPECT_EQ(st().bdlHealthCheckCount, 0);
  EXPECT_EQ(st().exception, 2);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(StartsWith("cannot open /tmp/tessel_0.log"),
                          "a text expected, found the integer 0: Bundle health check failed"));
  EXPECT_THAT(messages(LOG_FILE_BUNDLE_HEALTH), IsEmpty());
}

// The filter removes the lines of a check and keeps the empty lines between them.
TEST_F(bundle_health_test, a_report_may_hold_thousands_of_empty_lines) {
  const std::string empty_lines(3000, '\n');
  tool_prints("lagmgr_health", empty_lines + std::string(head) +
                                   "lagmgr_distrib  0/RP0/CPU0  OK\n" + empty_lines +
                                   "  Bundle-Ether7\n    bad\n" + empty_lines);
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 1);
  EXPECT_EQ(logged(), "   \nBundle-Ether7\n   bad\n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_health_test, a_report_of_empty_lines_alone_gives_three_blanks_alone) {
  tool_prints("lagmgr_health", std::string(3000, '\n'));
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 0);
  EXPECT_EQ(logged(), "   \n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_health_test, empty_lines_may_hold_blanks_of_any_number) {
  std::string blanks;
  for (int line = 0; line < 3000; ++line) blanks += " \t\n";
  const std::string table = std::string(head) + "lagmgr 0/RP0/CPU0 OK\n";
  tool_prints("lagmgr_health", blanks + table + "INFO:" + blanks + "!\n  Bundle-Ether7\n" + blanks);
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 1);
  std::string between;
  for (int line = 1; line < 3000; ++line) between += "   \n";
  EXPECT_EQ(logged(),
            "   \n   Process            Node          Result\n   lagmgr 0/RP0/CPU0 OK\n"
            "   INFO: \t\n" +
                between + "   !\nBundle-Ether7\n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_health_test, a_line_may_name_any_number_of_bundles) {
  std::string bundles = "not distributing:";
  for (int number = 1; number <= 600; ++number) bundles += fmt::format(" Bundle-Ether{}", number);
  tool_prints("lagmgr_health", std::string(head) + "lagmgr 0/RP0/CPU0 OK\n   " + bundles + "\n");
  EXPECT_EQ(check(), SUCCESS);
  EXPECT_EQ(st().bdlHealthCheckCount, 600);
  EXPECT_EQ(logged(), "   \n" + bundles + "\n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(bundle_health_test, a_line_of_any_length_is_kept) {
  for (const char* rest : {"", "\nINFO: none"}) {
    SetUp();
    const std::string line(300'000, 'x');
    tool_prints("lagmgr_health", line + rest + "\n");
    EXPECT_EQ(check(), SUCCESS);
    EXPECT_EQ(st().bdlHealthCheckCount, 0);
    EXPECT_EQ(logged(), "   \n   " + line + (*rest == 0 ? "" : "\n   INFO: none") + "\n");
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(bundle_health_test, junk_is_a_report_without_bundles) {
  for (const auto* outputs : {&meaningless_outputs(), &endless_outputs()}) {
    for (const bad_output& each : *outputs) {
      SCOPED_TRACE(each.why);
      SetUp();
      tool_prints("lagmgr_health", each.output.as_text());
      EXPECT_EQ(check(), SUCCESS);
      EXPECT_EQ(st().exception, 0);
      EXPECT_EQ(st().bdlHealthCheckCount, 0);
    }
  }
}

TEST_F(bundle_health_test, a_failure_is_logged_before_it_is_counted) {
  EXPECT_EQ(status_in_child([] {
              if (std::freopen("/dev/full", "w", stdout) == nullptr) return 2;
              const bool logs_first = logs_before_counting([] { check_bundle_health(); });
              return logs_first && st().exception == 1 ? 0 : 1;
            }),
            0);
}

}  // namespace
}  // namespace tessel
