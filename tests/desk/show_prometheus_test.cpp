#include "desk/show/prometheus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string shown(const judged_run& of) {
  std::ostringstream out;
  show_prometheus(of, out);
  return out.str();
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(prometheus, counts_every_kind_and_verdict_also_those_that_do_not_occur) {
  const auto text = shown(healthy_run());
  EXPECT_THAT(text, HasSubstr("# HELP tessel_findings Findings of the audit by kind.\n"
                              "# TYPE tessel_findings gauge\n"
                              "tessel_findings{kind=\"inconsistency\"} 0\n"
                              "tessel_findings{kind=\"programming\"} 0\n"
                              "tessel_findings{kind=\"delay_delete\"} 0\n"
                              "tessel_findings{kind=\"stale\"} 0\n"
                              "tessel_findings{kind=\"health\"} 0\n"
                              "tessel_findings{kind=\"failure\"} 0\n"
                              "tessel_findings{kind=\"note\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("tessel_bundles{verdict=\"agrees\"} 3\n"
                              "tessel_bundles{verdict=\"differs\"} 0\n"
                              "tessel_bundles{verdict=\"not_judged\"} 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("tessel_bundle_findings")));
  EXPECT_THAT(text, HasSubstr("tessel_coverage{layer=\"dpa\",state=\"read\"} 2\n"));
  EXPECT_THAT(text, HasSubstr("tessel_coverage{layer=\"dpa\",state=\"failed\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\ntessel_run_complete 1\n"));
}

TEST(prometheus, names_bundles_with_findings) {
  const auto text = shown(run_with_faults());
  EXPECT_THAT(text, HasSubstr("tessel_bundle_findings{bundle=\"BE1\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("tessel_bundle_findings{bundle=\"BE2\"} 2\n"));
  EXPECT_THAT(text, Not(HasSubstr("bundle=\"BE20\"")));
}

TEST(prometheus, counts_no_note_that_the_audit_did_not_count) {
  auto run = healthy_run();
  finding one = run.of.findings.front();
  one.code = "TC-207";
  one.log = "tessel_debug.log";
  run.of.findings.push_back(one);
  one.code = "TC-603";
  one.log = "tessel_exception.log";
  run.of.findings.push_back(one);
  EXPECT_THAT(shown(run), HasSubstr("tessel_findings{kind=\"note\"} 1\n"));
}

TEST(prometheus, counts_findings_whose_text_is_lost) {
  auto run = healthy_run();
  run.of.counts[finding_kind::inconsistency] = 17;
  EXPECT_THAT(shown(run), HasSubstr("tessel_findings{kind=\"inconsistency\"} 17\n"));
}

TEST(prometheus, counts_two_notations_of_one_value_as_no_finding) {
  EXPECT_THAT(shown(run_with_two_notations()),
              HasSubstr("tessel_findings{kind=\"inconsistency\"} 0\n"));
}

TEST(prometheus, gives_times_only_if_they_are_known) {
  auto run = healthy_run();
  EXPECT_THAT(shown(run), HasSubstr("\ntessel_run_start_time_seconds 1795345263.219\n"));
  EXPECT_THAT(shown(run), HasSubstr("\ntessel_run_completion_time_seconds 1795345275.719\n"));
  EXPECT_THAT(shown(run), HasSubstr("\ntessel_run_seconds 12.500\n"));
  run.of.log_of_commands->is_finished = false;
  EXPECT_THAT(shown(run), HasSubstr("start_time"));
  EXPECT_THAT(shown(run), Not(HasSubstr("completion_time")));
  EXPECT_THAT(shown(run), Not(HasSubstr("tessel_run_seconds")));
  run.of.log_of_commands.reset();
  EXPECT_THAT(shown(run), HasSubstr("\ntessel_run_start_time_seconds 1795345263.219\n"))
      << "by the logs";
  for (const char* time :
       {"", "2026-13-22 11:01:03,219", "2026-11-22 11:01:03,2x9", "2026-11-22",
        "2026-02-30 11:01:03,219", "2026-11-22 24:01:03,219", "2026-11-22x11:01:03,219",
        "2026-11-22 11:01:03,2199", "-026-11-22 11:01:03,219"}) {
    run.of.started = time;
    EXPECT_THAT(shown(run), Not(HasSubstr("start_time"))) << time;
  }
}

TEST(prometheus, says_that_a_run_did_not_come_to_its_end) {
  EXPECT_THAT(shown(run_that_stopped()), HasSubstr("\ntessel_run_complete 0\n"));
}

TEST(prometheus, has_one_sample_for_each_set_of_labels_whatever_the_names_are) {
  auto run = hostile_run();
  run.bundles.push_back(run.bundles.back());
  run.bundles.back().bundle = "BE\xff";
  run.bundles.back().findings = 2;
  run.bundles.push_back(run.bundles.back());
  run.bundles.back().bundle = "BE\xfe";
  std::set<std::string> names;
  for (const auto& line : lines_of(shown(run))) {
    if (line.starts_with("#")) continue;
    EXPECT_THAT(line, testing::MatchesRegex("tessel_[a-z_]+(\\{.*\"\\})? [0-9.]+"));
    EXPECT_TRUE(names.insert(line.substr(0, line.rfind(' '))).second) << line;
  }
  EXPECT_THAT(shown(run), HasSubstr("{bundle=\"BE\xef\xbf\xbd\"} 4\n"));
  EXPECT_THAT(shown(run), HasSubstr("{bundle=\"BEtwo\\nlines"));
  EXPECT_THAT(shown(run), HasSubstr("{bundle=\"BEBE1\\\"quoted' & <b>bold</b>\"} 1\n"));
}

TEST(prometheus, has_no_time_stamp_and_no_end_mark) {
  const auto text = shown(run_with_faults());
  EXPECT_THAT(text, Not(HasSubstr("EOF")));
  EXPECT_TRUE(text.ends_with("\n"));
}

}  // namespace
}  // namespace desk
