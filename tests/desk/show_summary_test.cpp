#include "desk/show/summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string summary_of(const judged_run& of, const summary_options& how) {
  std::ostringstream out;
  terminal plain;
  plain.width = 200;
  show_summary(of, how, plain, out);
  return out.str();
}

judged_run run_with_unmarked_lag() {
  judged_run made = healthy_run();
  finding& one = made.of.findings.emplace_back();
  one.code = "TC-402";
  one.kind = finding_kind::note;
  one.object = {object_kind::entry, "BE1", "LAG 0x8_npu0_node0/0/CPU0"};
  one.log = "tessel_stale_entries.log";
  one.text = "no stale entry: LAG 0x8";
  made.unexplained.push_back(made.of.findings.size() - 1);
  return made;
}

TEST(summary, says_that_the_audit_lists_stale_entries_that_are_none) {
  summary_options how;
  const std::string text = summary_of(run_with_unmarked_lag(), how);
  EXPECT_THAT(text, HasSubstr("1 entry in tessel_stale_entries.log is not stale"));
  EXPECT_THAT(text, HasSubstr(" 0 findings"));
  EXPECT_THAT(text, Not(HasSubstr("LAG 0x8")));
  how.is_short = true;
  EXPECT_THAT(summary_of(run_with_unmarked_lag(), how), Not(HasSubstr("stale")));
  EXPECT_THAT(summary_of(healthy_run(), {}), Not(HasSubstr("stale")));
}

TEST(summary, counts_two_notations_of_one_value_as_no_finding) {
  EXPECT_THAT(summary_of(run_with_two_notations(), {}),
              HasSubstr("1 bundle: 0 agree, 0 differ, 1 not judged. 0 findings.\n"));
}

TEST(summary, counts_a_router_over_its_limit_as_a_finding) {
  EXPECT_THAT(summary_of(run_over_its_limit(), {}),
              HasSubstr("3 bundles: 3 agree, 0 differ, 0 not judged. 1 finding.\n"));
}

TEST(summary, names_the_first_difference_where_the_title_names_its_node) {
  judged_run made = run_with_faults();
  EXPECT_THAT(summary_of(made, {}), Not(HasSubstr("   BE1 global LIF:\n")));
  made.causes[0].object = {object_kind::node, "", "0/2/CPU0"};
  EXPECT_THAT(summary_of(made, {}), HasSubstr("   BE1 global LIF:\n"));
}

TEST(summary, shows_all_messages_that_are_normal_if_all_is_asked_for) {
  summary_options how;
  how.shows_all = true;
  const std::string text = summary_of(run_with_unmarked_lag(), how);
  EXPECT_THAT(text, HasSubstr("Messages without a cause, normal if they are notes:\n"));
  EXPECT_THAT(text, HasSubstr("     TC-611 "));
  EXPECT_THAT(text, HasSubstr("     TC-402 tessel_stale_entries.log no stale entry: LAG 0x8\n"));
  judged_run nothing = healthy_run();
  nothing.unexplained.clear();
  EXPECT_THAT(summary_of(nothing, how), Not(HasSubstr("without a cause")));
}

}  // namespace
}  // namespace desk
