#include "desk/show/nagios.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "desk/show/escape.h"
#include "tests/desk/example_runs.h"

namespace desk {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct answer {
  service_state state = service_state::unknown;
  std::string line;
};

answer shown(const judged_run& of) {
  std::ostringstream out;
  answer made;
  made.state = show_nagios(of, out);
  made.line = out.str();
  return made;
}

judged_run run_with_only(finding_kind kind) {
  auto run = run_with_faults();
  std::erase_if(run.causes,
                [&](const cause& each) { return run.of.findings[each.findings[0]].kind != kind; });
  const auto kept = *std::find_if(run.of.findings.begin(), run.of.findings.end(),
                                  [&](const finding& each) { return each.kind == kind; });
  run.of.findings = {kept};
  run.of.counts = {{kind, 1}};
  for (auto& each : run.causes) each.findings = {0};
  run.unexplained.clear();
  return run;
}

TEST(nagios, is_ok_if_all_bundles_agree) {
  const auto [state, line] = shown(healthy_run());
  EXPECT_EQ(state, service_state::ok);
  EXPECT_EQ(line,
            "TESSEL OK - 3 bundles agree | findings=1;;;0 inconsistency=0;;0;0 programming=0;;0;0 "
            "delay_delete=0;0;;0 stale=0;0;;0 health=0;0;;0 failure=0;;;0 note=1;;;0 "
            "bundles_agrees=3;;;0 bundles_differs=0;;;0 bundles_not_judged=0;;;0 "
            "time=12.500s;;;0\n");
}

TEST(nagios, is_critical_for_an_inconsistency_or_a_programming_error) {
  EXPECT_EQ(shown(run_with_only(finding_kind::inconsistency)).state, service_state::critical);
  EXPECT_EQ(shown(run_with_only(finding_kind::programming)).state, service_state::critical);
  const auto [state, line] = shown(run_with_faults());
  EXPECT_EQ(state, service_state::critical);
  EXPECT_THAT(line,
              StartsWith("TESSEL CRITICAL - 3 of 4 bundles differ: BE1: global LIF is 0x14500 "
                         "on 0/2/CPU0, 0x14000 on 3 others; BE2: member"));
}

TEST(nagios, is_a_warning_for_what_is_no_fault_of_a_layer) {
  for (const auto kind : {finding_kind::stale, finding_kind::health, finding_kind::delay_delete})
    EXPECT_EQ(shown(run_with_only(kind)).state, service_state::warning);
  auto run = healthy_run();
  cause why;
  why.title = "more bundles than allowed";
  why.findings = {0};
  run.causes.push_back(why);
  run.unexplained.clear();
  EXPECT_EQ(shown(run).state, service_state::warning) << "a note that is a cause";
}

TEST(nagios, is_critical_for_a_difference_that_the_audit_did_not_report) {
  auto run = run_with_only(finding_kind::inconsistency);
  run.of.findings.clear();
  run.of.counts.clear();
  run.causes[0].findings.clear();
  EXPECT_EQ(shown(run).state, service_state::critical);
  run = run_with_only(finding_kind::delay_delete);
  run.causes[0].differences.resize(1);
  EXPECT_EQ(shown(run).state, service_state::warning) << "the router is about to delete it";
}

TEST(nagios, is_unknown_if_something_was_not_judged) {
  const auto [state, line] = shown(run_not_judged());
  EXPECT_EQ(state, service_state::unknown);
  EXPECT_THAT(line, StartsWith("TESSEL UNKNOWN - 1 of 2 bundles not judged: BE2: DPA on 0/1/CPU0: "
                               "ssh timed out | "));
  auto run = healthy_run();
  run.is_wholly_judged = false;
  EXPECT_EQ(shown(run).state, service_state::unknown);
  run = healthy_run();
  run.of.counts[finding_kind::failure] = 1;
  EXPECT_EQ(shown(run).state, service_state::unknown);
  run = healthy_run();
  run.causes.resize(1);
  EXPECT_EQ(shown(run).state, service_state::unknown) << "a cause without findings: not read";
}

TEST(nagios, is_unknown_for_two_notations_of_one_value) {
  const auto [state, line] = shown(run_with_two_notations());
  EXPECT_EQ(state, service_state::unknown);
  EXPECT_THAT(line, StartsWith("TESSEL UNKNOWN - 1 of 1 bundle not judged: BE1: RIF: "));
  EXPECT_THAT(line, HasSubstr(" findings=1;;;0 inconsistency=0;;0;0 "));
}

TEST(nagios, is_a_warning_for_a_router_over_its_limit_also_where_nothing_was_looked_for_after_it) {
  auto run = run_over_its_limit();
  run.is_wholly_judged = false;
  EXPECT_EQ(shown(run).state, service_state::warning);
  run.of.end = run_end::cut_off;
  EXPECT_EQ(shown(run).state, service_state::unknown);
}

TEST(nagios, is_unknown_if_the_run_did_not_come_to_its_end) {
  const auto [state, line] = shown(run_that_stopped());
  EXPECT_EQ(state, service_state::unknown);
  EXPECT_THAT(line,
              StartsWith("TESSEL UNKNOWN - the audit stopped before its end, no bundle was found: "
                         "The audit stopped: the bundle manager shows no bundle. | "));
  for (const auto end : {run_end::cut_off, run_end::stopped, run_end::unknown}) {
    auto stale = run_with_only(finding_kind::stale);
    stale.of.end = end;
    EXPECT_EQ(shown(stale).state, service_state::unknown);
    auto inconsistent = run_with_only(finding_kind::inconsistency);
    inconsistent.of.end = end;
    EXPECT_EQ(shown(inconsistent).state, service_state::critical);
  }
}

TEST(nagios, counts_findings_whose_text_is_lost) {
  auto run = healthy_run();
  run.of.counts[finding_kind::programming] = 2;
  const auto [state, line] = shown(run);
  EXPECT_EQ(state, service_state::critical);
  EXPECT_THAT(line, HasSubstr(" programming=2;;0;0"));
}

TEST(nagios, is_one_line_of_at_most_1024_bytes_with_whole_performance_data) {
  for (const auto& run : {hostile_run(), large_run(1000, 48)}) {
    const auto line = shown(run).line;
    EXPECT_LE(line.size(), 1024U);
    EXPECT_GT(line.size(), 1000U) << "it shows as much as fits";
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(std::count(line.begin(), line.end(), '|'), 1);
    EXPECT_EQ(utf8(line), line);
    EXPECT_THAT(line, HasSubstr("... | findings="));
    EXPECT_TRUE(line.ends_with(" time=12.500s;;;0\n"));
  }
}

}  // namespace
}  // namespace desk
