#include "desk/judge/series.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "desk/commands/series.h"
#include "desk/judge/judge.h"
#include "desk/judge/record.h"
#include "desk/show/series.h"
#include "example_runs.h"

namespace desk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

known_finding finding_on(const std::string& node, const std::string& values = "0x1, known 0x2") {
  known_finding made;
  made.fingerprint = "TC-104|bundle|BE1|BE1|" + node + "||DPA";
  made.code = "TC-104";
  made.bundle = "BE1";
  made.node = node;
  made.of = layer::dpa;
  made.log = "tessel_inconsistencies.log";
  made.title = "BE1: global LIF on " + node;
  made.values = values;
  made.count = 1;
  return made;
}

run_record run_with(std::vector<known_finding> findings) {
  run_record made;
  made.started = "2026-11-21 10:00:00,000";
  made.origin = "logs";
  made.end = run_end::complete;
  made.is_open = false;
  made.bundles = 1;
  made.known_bundles = {"BE1"};
  made.findings = std::move(findings);
  return made;
}

change change_of_only(std::vector<run_record> runs) {
  const series all = track(std::move(runs));
  EXPECT_EQ(all.findings.size(), 1U);
  return change_of(all.findings.at(0));
}

const known_finding one = finding_on("0/0/CPU0");
const known_finding changed = finding_on("0/0/CPU0", "0x3, known 0x2");

// ---- What becomes of a finding ------------------------------------------------------------------

TEST(series, a_finding_is_new_changed_persisting_or_gone) {
  EXPECT_EQ(change_of_only({run_with({}), run_with({one})}), change::is_new);
  EXPECT_EQ(change_of_only({run_with({one}), run_with({changed})}), change::changed);
  EXPECT_EQ(change_of_only({run_with({one}), run_with({one})}), change::persisting);
  EXPECT_EQ(change_of_only({run_with({one}), run_with({})}), change::gone);
  EXPECT_EQ(change_of_only({run_with({one}), run_with({}), run_with({one})}), change::back);
  EXPECT_EQ(change_of_only({run_with({one}), run_with({}), run_with({})}), change::gone);
}

TEST(series, a_finding_of_another_node_is_another_one) {
  const series all = track({run_with({one}), run_with({finding_on("0/1/CPU0")})});
  ASSERT_EQ(all.findings.size(), 2U);
  EXPECT_EQ(change_of(all.findings[0]), change::is_new);
  EXPECT_EQ(change_of(all.findings[1]), change::gone);
}

TEST(series, what_was_not_judged_is_neither_gone_nor_confirmed) {
  run_record open = run_with({});
  open.open_bundles = {"BE1"};
  EXPECT_EQ(change_of_only({run_with({one}), open}), change::not_judged);
  run_record stopped = run_with({});
  stopped.end = run_end::stopped;
  EXPECT_EQ(change_of_only({run_with({one}), stopped}), change::not_judged);
  run_record older = run_with({});
  older.end = run_end::unknown;
  EXPECT_EQ(change_of_only({run_with({one}), older}), change::not_judged);
  run_record rotated = run_with({});
  rotated.lost_logs = {"tessel_inconsistencies.log"};
  EXPECT_EQ(change_of_only({run_with({one}), rotated}), change::not_judged);
}

TEST(series, another_log_that_is_lost_hides_nothing_of_this_one) {
  run_record rotated = run_with({});
  rotated.lost_logs = {"tessel_stale_entries.log"};
  EXPECT_EQ(change_of_only({run_with({one}), rotated}), change::gone);
}

TEST(series, a_finding_without_a_bundle_is_hidden_by_its_own_node_only) {
  known_finding entry = one;
  entry.bundle.clear();
  run_record away = run_with({});
  away.holes = {{layer::dpa, "0/1/CPU0", ""}};
  EXPECT_EQ(change_of_only({run_with({entry}), away}), change::gone);
  away.holes = {{layer::bcm, "0/0/CPU0", "1"}};
  EXPECT_EQ(change_of_only({run_with({entry}), away}), change::not_judged);
  away.holes = {{layer::config, "", ""}};
  EXPECT_EQ(change_of_only({run_with({entry}), away}), change::not_judged);
}

TEST(series, a_finding_that_the_run_before_did_not_judge_is_compared_with_the_one_before_that) {
  run_record open = run_with({});
  open.open_bundles = {"BE1"};
  EXPECT_EQ(change_of_only({run_with({one}), open, run_with({one})}), change::persisting);
  const series all = track({open, run_with({one})});
  EXPECT_EQ(change_of(all.findings[0]), change::is_new);
  EXPECT_TRUE(may_be_older(all.findings[0]));
  EXPECT_FALSE(may_be_older(track({run_with({}), run_with({one})}).findings[0]));
}

TEST(series, only_what_is_in_all_runs_is_confirmed) {
  EXPECT_TRUE(is_confirmed(track({run_with({one}), run_with({changed})}).findings[0]));
  EXPECT_FALSE(is_confirmed(track({run_with({one}), run_with({})}).findings[0]));
}

// ---- Records ------------------------------------------------------------------------------------

TEST(record, messages_of_one_fingerprint_are_one_finding) {
  judged_run run = run_with_faults();
  const std::size_t before = record_of(run).findings.size();
  finding again = run.of.findings.front();
  again.reported = "another value";
  run.of.findings.push_back(again);
  const run_record record = record_of(run);
  ASSERT_EQ(record.findings.size(), before);
  bool is_found = false;
  for (const known_finding& each : record.findings)
    if (each.fingerprint == fingerprint(again)) {
      is_found = true;
      EXPECT_EQ(each.count, 2U);
      EXPECT_THAT(each.values, HasSubstr("another value"));
    }
  EXPECT_TRUE(is_found);
}

TEST(record, a_value_without_one_that_was_known_stands_alone) {
  run of;
  finding& short_lif = of.findings.emplace_back();
  short_lif.code = "TC-109";
  short_lif.reported = "0x1";
  EXPECT_EQ(record_of(judge(std::move(of))).findings.front().values, "0x1");
}

TEST(record, the_order_of_messages_does_not_count) {
  judged_run run = run_with_faults();
  run.causes.clear();
  finding again = run.of.findings.front();
  again.reported = "another value";
  run.of.findings.push_back(again);
  const series both = [&] {
    run_record first = record_of(run);
    std::swap(run.of.findings.front(), run.of.findings.back());
    return track({first, record_of(run)});
  }();
  for (const tracked_finding& each : both.findings)
    EXPECT_EQ(change_of(each), change::persisting) << each.latest.fingerprint;
}

TEST(record, a_difference_without_a_message_is_a_finding_too) {
  judged_run run = run_with_faults();
  ASSERT_FALSE(run.causes.empty());
  const std::size_t messages = run.causes.front().findings.size();
  ASSERT_FALSE(run.causes.front().differences.empty());
  for (const std::size_t index : run.causes.front().findings) run.unexplained.push_back(index);
  run.causes.front().findings.clear();
  ASSERT_NE(messages, 0U);
  const run_record record = record_of(run);
  ASSERT_FALSE(record.findings.empty());
  EXPECT_EQ(record.findings.front().code, "");
  EXPECT_EQ(record.findings.front().count, 0U);
  EXPECT_FALSE(record.findings.front().is_doubt);
  EXPECT_THAT(record.findings.front().values, Not(IsEmpty()));
}

TEST(record, a_normal_note_is_no_finding) {
  const run_record record = record_of(healthy_run());
  EXPECT_THAT(record.findings, IsEmpty());
  EXPECT_FALSE(record.is_open);
}

TEST(record, a_node_that_was_not_read_keeps_a_run_open) {
  const run_record record = record_of(run_not_judged());
  EXPECT_TRUE(record.is_open);
  EXPECT_THAT(record.holes, Not(IsEmpty()));
  EXPECT_TRUE(record_of(run_that_stopped()).is_open);
}

TEST(record, a_failure_that_names_nothing_keeps_findings_from_being_gone) {
  known_finding of_node = one;
  of_node.bundle.clear();
  run_record torn = run_with({});
  torn.is_torn = true;
  EXPECT_EQ(change_of_only({run_with({of_node}), torn}), change::not_judged);
  judged_run run = healthy_run();
  finding failed;
  failed.kind = finding_kind::failure;
  failed.code = "TC-753";
  failed.text = "no key 'BE2': Bundle programming verification failed";
  run.of.findings.push_back(failed);
  EXPECT_TRUE(record_of(run).is_torn);
  EXPECT_FALSE(record_of(healthy_run()).is_torn);
}

TEST(record, a_message_in_the_backup_is_of_the_same_log) {
  judged_run run = run_with_faults();
  run.of.findings.front().log = "tessel_inconsistencies.log.1";
  bool is_found = false;
  for (const known_finding& each : record_of(run).findings) {
    EXPECT_NE(each.log, "tessel_inconsistencies.log.1");
    is_found = is_found || each.log == "tessel_inconsistencies.log";
  }
  EXPECT_TRUE(is_found);
}

// ---- Exit status --------------------------------------------------------------------------------

int status(std::vector<run_record> runs, fail_on when, counted_runs counted) {
  return status_of(track(std::move(runs)), when, counted);
}

TEST(status_of_runs, follows_fail_on) {
  constexpr auto last = counted_runs::the_last;
  const std::vector<run_record> persists = {run_with({one}), run_with({one})};
  const std::vector<run_record> appears = {run_with({}), run_with({one})};
  const std::vector<run_record> goes = {run_with({one}), run_with({})};
  EXPECT_EQ(status(persists, fail_on::any, last), 1);
  EXPECT_EQ(status(persists, fail_on::is_new, last), 0);
  EXPECT_EQ(status(persists, fail_on::confirmed, last), 1);
  EXPECT_EQ(status(persists, fail_on::never, last), 0);
  EXPECT_EQ(status(appears, fail_on::any, last), 1);
  EXPECT_EQ(status(appears, fail_on::is_new, last), 1);
  EXPECT_EQ(status(appears, fail_on::confirmed, last), 0);
  EXPECT_EQ(status(goes, fail_on::any, last), 0);
  EXPECT_EQ(status(goes, fail_on::any, counted_runs::all), 1);
  EXPECT_EQ(status(goes, fail_on::confirmed, counted_runs::all), 0);
}

TEST(status_of_runs, is_3_where_something_was_not_judged) {
  run_record open = run_with({});
  open.is_open = true;
  EXPECT_EQ(status({run_with({}), open}, fail_on::any, counted_runs::the_last), 3);
  EXPECT_EQ(status({open, run_with({})}, fail_on::any, counted_runs::the_last), 0);
  EXPECT_EQ(status({open, run_with({})}, fail_on::any, counted_runs::all), 3);
  EXPECT_EQ(status({run_with({}), open}, fail_on::never, counted_runs::the_last), 0);
}

TEST(status_of_runs, a_doubt_is_no_finding) {
  known_finding doubt = one;
  doubt.is_doubt = true;
  run_record run = run_with({doubt});
  run.is_open = true;
  EXPECT_EQ(status({run_with({}), run}, fail_on::is_new, counted_runs::the_last), 3);
}

// ---- Views --------------------------------------------------------------------------------------

std::string diff_of(std::vector<run_record> runs, series_options how = {}) {
  std::ostringstream out;
  show_diff(track(std::move(runs)), how, {}, out);
  return out.str();
}

TEST(show_diff, has_a_section_for_each_fate) {
  const known_finding other = finding_on("0/1/CPU0");
  const std::string text = diff_of({run_with({one, other}), run_with({changed})});
  EXPECT_THAT(text, HasSubstr("0 new, 1 changed, 0 persisting, 1 gone, 0 not judged now.\n"));
  EXPECT_THAT(text, HasSubstr("\nChanged:\n  BE1: global LIF on 0/0/CPU0 (1 message: TC-104)\n"
                              "    before: 0x1, known 0x2; now: 0x3, known 0x2\n"));
  EXPECT_THAT(text, HasSubstr("\nGone:\n  BE1: global LIF on 0/1/CPU0 (1 message: TC-104)\n"));
  EXPECT_THAT(text, Not(HasSubstr("New:")));
}

TEST(show_diff, findings_of_one_cause_are_one_line) {
  std::vector<known_finding> sixteen;
  for (int i = 0; i < 16; ++i) {
    sixteen.push_back(finding_on("0/" + std::to_string(i) + "/CPU0"));
    sixteen.back().cause = "0/7/CPU0: nothing was read";
  }
  const std::string text = diff_of({run_with({}), run_with(sixteen)});
  EXPECT_THAT(text, HasSubstr("16 new"));
  EXPECT_THAT(text, HasSubstr("New:\n  0/7/CPU0: nothing was read (16 messages: TC-104)\n"));
}

TEST(show_diff, cuts_a_long_section_and_says_so) {
  std::vector<known_finding> many;
  for (int i = 0; i < 15; ++i) many.push_back(finding_on("0/" + std::to_string(i) + "/CPU0"));
  EXPECT_THAT(diff_of({run_with({}), run_with(many)}),
              HasSubstr("  and 5 more; --all shows everything\n"));
  EXPECT_THAT(diff_of({run_with({}), run_with(many)}, {false, true}), Not(HasSubstr("more;")));
}

TEST(show_diff, control_characters_do_not_reach_the_terminal) {
  known_finding evil = one;
  evil.title = "BE1 \x1b[31m\n\x07";
  run_record run = run_with({evil});
  run.origin = "\x1b]0;x";
  for (const char byte : diff_of({run_with({}), run}, {false, true}))
    EXPECT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= ' ');
}

TEST(show_confirm, marks_in_which_runs_a_finding_moves) {
  run_record open = run_with({});
  open.open_bundles = {"BE1"};
  std::ostringstream out;
  show_confirm(track({run_with({one}), run_with({}), open}), {}, {}, out);
  EXPECT_THAT(out.str(), HasSubstr("0 confirmed, 1 moving.\n"));
  EXPECT_THAT(out.str(), HasSubstr("\n  + - ?  BE1: global LIF on 0/0/CPU0 (1 message: TC-104)\n"));
}

TEST(show_history, tells_a_changed_message_from_one_that_persists) {
  known_finding other = finding_on("0/1/CPU0");
  known_finding was = other;
  was.values = "0x7, known 0x2";
  other.cause = was.cause = "one cause";
  known_finding same = one;
  same.cause = "one cause";
  std::ostringstream out;
  show_history(track({run_with({same, was}), run_with({same, other})}), {}, {}, out);
  EXPECT_THAT(out.str(), HasSubstr("persisting"));
  EXPECT_THAT(out.str(), HasSubstr("changed"));
}

TEST(show_history, shows_first_and_last_sighting) {
  run_record first = run_with({one});
  first.started = "2026-11-19 10:00:00,000";
  run_record second = run_with({});
  second.started = "2026-11-20 10:00:00,000";
  std::ostringstream out;
  show_history(track({first, second, run_with({one})}), {}, {}, out);
  EXPECT_THAT(out.str(), HasSubstr("3 runs, 2026-11-19 10:00:00 to 2026-11-21 10:00:00\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("\nback        2026-11-19 10:00:00 to 2026-11-21 10:00:00, in 2 of 3 runs\n"
                        "  BE1: global LIF on 0/0/CPU0 (1 message: TC-104)\n"));
}

}  // namespace
}  // namespace desk
