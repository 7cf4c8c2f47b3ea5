#include "desk/commands/load.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "desk/commands/commands.h"
#include "desk/judge/judge.h"
#include "desk/model/coverage.h"
#include "tests/desk/log_folder.h"

namespace desk {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string noon = "2026-11-22 12:00:00,000";
const std::string eleven = "2026-11-22 11:00:00,000";

class loaded_run : public log_folder {
 protected:
  void dump(const std::string& label, const std::string& text) const {
    append("debug", "'Start of " + label + " entries...'\n" + text + "\n'End of " + label +
                        " entries...'\n");
  }
  void dump_layers() const {
    dump("TESSELDB", R"({"BE1":{"Data":{"is_l2":1,"lagid":"0x1"}},"hqos":0})");
    dump("BM PI", R"({"BE1":{"ifh":"0x3","mac":"0.0.1","mtu":"9216"}})");
  }
  void dump_parsed_configuration() const {
    dump("Parsed bundle config dump from running config", R"({"BE1":"interface Bundle-Ether1"})");
  }
  void dump_nodes(const std::string& nodes =
                      R"({"0/0/CPU0":{"nodeip":"192.0.0.1","asic":"BCM8868","asic_supported":1,)"
                      R"("dump":1,"nodeid":"0","nodetype":"LC","npu_list":["0"]}})") const {
    dump("VM information", nodes);
  }
  void note_health(const std::string& time) const { append("bundle_health", line(time, "   ")); }
  void fail(const std::string& time, const std::string& text) const {
    append("exception", line(time, text) + "Traceback (most recent call last):\nfailure: x\n");
  }
  // One that found nothing.
  void complete(const std::string& time) const {
    start_all(time);
    for (const char* layer : {"PI", "BME", "DPA", "BCM"})
      append("stale_entries", "'Number of stale entries in " + std::string(layer) + " 0'\n");
    note_health(time);
    dump("BCM", "{}");
    dump_layers();
    dump_nodes();
  }
  [[nodiscard]] run loaded() const {
    report_options options;
    options.logs = folder;
    return load_run(options);
  }
};

TEST_F(loaded_run, is_complete_with_its_last_dump) {
  complete(eleven);
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::complete);
  const object* bundle = of.find(object_kind::bundle, "BE1", "BE1");
  ASSERT_NE(bundle, nullptr);
  EXPECT_TRUE(bundle->is_configured);
  EXPECT_EQ(of.stale, stale_search::done);
}

// The debug log still holds what the run before has left there.
TEST_F(loaded_run, that_ended_while_it_began_its_logs_has_no_snapshot) {
  for (std::size_t logs = 1; logs <= appended.size() + 1; ++logs) {
    for (const char* log : appended) empty(log);
    complete(eleven);
    start(noon, logs);
    const run of = loaded();
    EXPECT_EQ(of.started, noon);
    EXPECT_EQ(of.end, run_end::unknown) << logs;
    EXPECT_FALSE(of.has_snapshot) << logs;
    EXPECT_THAT(of.objects, IsEmpty()) << logs;
    EXPECT_EQ(of.stale, stale_search::unknown) << logs;
    EXPECT_THAT(of.marks, Contains(HasSubstr("tessel_debug.log: "))) << logs;
    const judged_run judged = judge(loaded());
    ASSERT_EQ(judged.causes.size(), 1U);
    EXPECT_THAT(judged.causes[0].title, HasSubstr("the run ended at its start"));
    EXPECT_EQ(exit_status(judged), 3);
  }
}

// The clock was set back behind the start of the first log, and nothing was found.
class run_of_two_times : public loaded_run {
 protected:
  void SetUp() override {
    loaded_run::SetUp();
    complete(eleven);
    write("exception", line(noon, "Started Tessel Checker"));
  }
  // With the command that the run begins with, and perhaps one behind the start of its logs.
  void write_journal(const std::string& began, const std::string& command) const {
    std::ofstream file(folder + "/tessel_journal.jsonl");
    file << R"({"n":1,"event":"run","format":1,"version":"1","time":")" << began << R"(","pid":3}
{"n":2,"event":"start","id":1,"at":0.01,"pid":4,"node":null,"command":"rm /tmp/tessel*"}
)";
    if (!command.empty())
      file << R"({"n":3,"event":"start","id":2,"at":0.02,"pid":5,"node":null,"command":")"
           << command << "\"}\n";
  }
  [[nodiscard]] std::string shown_runs() const {
    report_options options;
    options.logs = folder;
    std::ostringstream out;
    EXPECT_EQ(runs_command(options, out), 0);
    return out.str();
  }
};

TEST_F(run_of_two_times, is_one_if_its_journal_shows_that_it_has_gone_on) {
  const std::string began = "2026-11-22T11:59:59.900Z";
  write_journal(began, "/opt/nos/bin/sw_version_show");
  const run of = loaded();
  EXPECT_EQ(of.started, noon);
  EXPECT_EQ(of.end, run_end::complete);
  EXPECT_THAT(of.marks, Not(Contains(HasSubstr("of which run"))));
  EXPECT_EQ(shown_runs(), "   1  " + noon + "  the last one\n      its logs began between " +
                              eleven + " and " + noon +
                              ": the clock was set meanwhile, or the disk is slow\n");
  write_journal(began, "rm /tmp/tessel_*");
  EXPECT_EQ(loaded().end, run_end::unknown) << "at its start";
  write_journal("2026-11-22T11:44:00.000Z", "/opt/nos/bin/sw_version_show");
  EXPECT_EQ(loaded().end, run_end::unknown) << "the journal of another run";
}

TEST_F(run_of_two_times, may_be_two_where_nothing_shows_that_it_is_one) {
  EXPECT_EQ(loaded().end, run_end::unknown);
  EXPECT_THAT(loaded().marks, Contains(HasSubstr("it may be one run with the one before it")));
  EXPECT_EQ(shown_runs(), "   1  " + eleven + "\n   2  " + noon +
                              "  the last one\n      it may be one run with the one before it: no "
                              "log has a start of both\n");
}

// The run before stopped behind a note; this one cannot have.
TEST_F(loaded_run, without_a_message_has_not_stopped_behind_its_configuration) {
  start_all(eleven);
  fail(eleven, "x: Consistency check failed");
  dump_layers();
  dump_nodes();
  EXPECT_EQ(loaded().end, run_end::stopped);
  start(noon);
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::unknown);
  EXPECT_THAT(of.objects, IsEmpty());
}

// It came to bundle health and could not begin the debug log behind it.
TEST_F(loaded_run, has_not_stopped_because_its_first_command_failed) {
  start_all(eleven);
  fail(eleven, "x: Consistency check failed");
  dump_layers();
  dump_nodes();
  start(noon);
  fail(noon, "No space left on device: execution failed for rm /tmp/tessel*");
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::unknown);
  EXPECT_THAT(of.objects, IsEmpty());
}

// Its configuration has no banner, which only the console says.
TEST_F(loaded_run, without_a_message_may_have_stopped_before_its_configuration) {
  start_all(eleven);
  dump("TESSELDB", "{}");
  dump_nodes();
  EXPECT_EQ(loaded().end, run_end::stopped);
}

TEST_F(loaded_run, has_its_snapshot_where_other_logs_were_emptied_or_lost) {
  complete(eleven);
  std::filesystem::remove(path_of("bundle_health"));
  EXPECT_TRUE(loaded().has_snapshot);
  complete(noon);
  empty("bundle_health");
  append("inconsistencies",
         line(noon, "Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0"));
  EXPECT_TRUE(loaded().has_snapshot);
}

TEST_F(loaded_run, came_to_its_end_if_the_check_of_bundle_health_failed) {
  complete(eleven);
  start(eleven);
  fail(eleven, "x: Bundle health check failed");
  EXPECT_EQ(loaded().end, run_end::complete);
}

// The disk is slow.
TEST_F(loaded_run, is_complete_though_its_logs_began_one_after_the_other) {
  complete(eleven);
  empty("exception");
  append("exception", line("2026-11-22 10:59:57,000", "Started Tessel Checker"));
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::complete);
  EXPECT_THAT(of.unwritten, IsEmpty());
  EXPECT_THAT(of.objects, Not(IsEmpty()));
}

// Of the log that it filled, it has lost its own start.
TEST_F(loaded_run, that_ended_at_its_start_has_not_the_messages_of_the_one_before) {
  complete(eleven);
  write("inconsistencies",
        line(eleven, "Inconsistency 20: BME has no Bundle entry in location 0/1/CPU0"));
  start(noon, 1);
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::unknown);
  EXPECT_THAT(of.findings, IsEmpty());
  EXPECT_THAT(of.objects, IsEmpty());
}

// Its preview failed behind the table, so it ended without its last words.
TEST_F(loaded_run, that_came_to_bundle_health_without_a_snapshot_is_not_cut_off) {
  start_all(eleven);
  note_health(eleven);
  dump_parsed_configuration();
  const run of = loaded();
  EXPECT_FALSE(of.has_snapshot);
  EXPECT_EQ(of.end, run_end::unknown);
  EXPECT_THAT(of.marks, Contains(HasSubstr("tessel_debug.log holds no snapshot")));
  EXPECT_THAT(of.covered, Not(Contains(testing::Field(&coverage::reason, HasSubstr("cut off")))));
  const judged_run is = judge(loaded());
  EXPECT_THAT(is.causes, IsEmpty()) << is.causes[0].title;
  EXPECT_EQ(exit_status(is), 3);
}

TEST_F(loaded_run, that_was_killed_during_its_checks_is_cut_off) {
  start_all(eleven);
  dump_parsed_configuration();
  EXPECT_EQ(loaded().end, run_end::cut_off);
  EXPECT_EQ(exit_status(judge(loaded())), 3);
}

// It fails before it keeps the chips' tables, and the run goes on.
TEST_F(loaded_run, comes_to_its_end_behind_a_stale_check_that_failed) {
  start_all(eleven);
  fail(eleven, "no key 'diag_lag': Stale entry verification failed in 0/0/CPU0");
  note_health(eleven);
  dump_layers();
  dump_nodes();
  const run of = loaded();
  EXPECT_EQ(of.end, run_end::complete);
  EXPECT_EQ(of.stale, stale_search::unknown);
  const coverage* chip = coverage_of(of, layer::bcm, "0/0/CPU0", "0");
  ASSERT_NE(chip, nullptr);
  EXPECT_EQ(chip->state, coverage_state::unknown);
  EXPECT_THAT(chip->reason, HasSubstr("the check of stale entries failed"));
}

class run_with_a_plain_dump : public loaded_run {
 protected:
  // With a dump in the form that the audit writes if it cannot write JSON.
  [[nodiscard]] run with_plain(const std::string& label, const std::string& text) const {
    complete(eleven);
    empty("debug");
    fail(eleven, "json print_object failed: no memory");
    const auto put = [&](const std::string& one, const std::string& json) {
      dump(one, one == label ? text : json);
    };
    put("TESSELDB", R"({"BE1":{"Data":{"is_l2":1,"lagid":"0x1"}}})");
    put("BCM", "{}");
    put("DPA", R"({"0/0/CPU0":{"lagport":{"0x3":{"lagid":"0x1"}}}})");
    put("BM PI", R"({"BE1":{"ifh":"0x3","mac":"0.0.1","mtu":"9216"}})");
    if (label == "VM information")
      dump(label, text);
    else
      dump_nodes();
    return loaded();
  }
};

TEST_F(run_with_a_plain_dump, is_complete) {
  for (const char* label : {"TESSELDB", "BCM", "DPA", "BM PI", "VM information"}) {
    const run of = with_plain(label, "{'BE1': {'ifh': '0x3'}}");
    EXPECT_EQ(of.end, run_end::complete) << label;
    EXPECT_THAT(of.marks, Contains(HasSubstr(std::string(label) + " is not understood")));
    EXPECT_NE(exit_status(judge(with_plain(label, "{'BE1': {'ifh': '0x3'}}"))), 0) << label;
  }
}

TEST_F(run_with_a_plain_dump, has_a_hole_in_its_place) {
  const auto state_of = [&](const char* label, layer of, const char* node, const char* npu) {
    const run made = with_plain(label, "{'a': {'b': '0x3'}}");
    const coverage* entry = coverage_of(made, of, node, npu);
    if (entry == nullptr) return coverage_state::read;
    EXPECT_THAT(entry->reason, HasSubstr("in a form that cannot be read")) << label;
    return entry->state;
  };
  constexpr auto not_understood = coverage_state::not_understood;
  EXPECT_EQ(state_of("TESSELDB", layer::config, "", ""), not_understood);
  EXPECT_EQ(state_of("BM PI", layer::pi, "", ""), not_understood);
  EXPECT_EQ(state_of("DPA", layer::dpa, "0/0/CPU0", ""), not_understood);
  EXPECT_EQ(state_of("BCM", layer::bcm, "0/0/CPU0", "0"), not_understood);
  EXPECT_EQ(state_of("VM information", layer::none, "", ""), not_understood);
}

TEST_F(run_with_a_plain_dump, that_began_as_json_was_read_in_part) {
  const run of = with_plain("BM PI",
                            "{\n   \"BE1\":{\n      \"ifh\":\"0x3\",\n      \"m\n"
                            "{'BE1': {'ifh': '0x3'}}");
  const coverage* entry = coverage_of(of, layer::pi, "", "");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->state, coverage_state::partly);
  EXPECT_EQ(of.end, run_end::complete);
}

}  // namespace
}  // namespace desk
