#include "desk/model/findings.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "desk/model/mentions.h"
#include "tests/desk/log_folder.h"

namespace desk {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A folder of logs for one test.
class logs_of_a_test : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "desk_findings.XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder = name;
    for (const char* log :
         {"exception", "inconsistencies", "programming_error", "delay_delete", "bundle_health"})
      write(log, start());
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  static std::string start(const std::string& time = "2026-11-22 11:00:00,000") {
    return time + ": Started Tessel Checker\n";
  }
  static std::string line(const std::string& text) {
    return "2026-11-22 11:00:01,000: " + text + "\n";
  }
  void write(const std::string& log, const std::string& text, const std::string& end = "") const {
    std::ofstream(folder + "/tessel_" + log + ".log" + end, std::ios::binary) << text;
  }
  [[nodiscard]] run last_run(std::size_t back = 0) const {
    run of;
    const log_set logs = read_logs(folder);
    read_findings(of, logs, runs_in(logs), back);
    return of;
  }

  std::string folder;
};

TEST_F(logs_of_a_test, a_finding_has_its_place_and_its_values) {
  write("inconsistencies",
        start() + line("Inconsistency 1:BE1(0x3000004), 0/2/CPU0 GLIF is not "
                       "consistent in DPA_Bundles_l2port:0x14000,Expected:0x14500"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 1U);
  const finding& one = of.findings.front();
  EXPECT_EQ(one.code, "TC-108");
  EXPECT_EQ(one.object, (object_ref{object_kind::bundle, "BE1", "BE1"}));
  EXPECT_EQ(one.node, "0/2/CPU0");
  EXPECT_EQ(one.of, layer::dpa);
  EXPECT_EQ(one.what, field::lif);
  EXPECT_EQ(one.reported, "0x14000");
  EXPECT_EQ(one.known, "0x14500");
  EXPECT_EQ(one.line, 2U);
  EXPECT_EQ(one.number, 1U);
}

// What was looked for, and not found.
TEST_F(logs_of_a_test, a_finding_about_something_missing_has_the_value_that_was_looked_for) {
  const auto known = [&](const std::string& log, const std::string& text) {
    write(log, start() + line(text));
    const run of = last_run();
    std::filesystem::remove(folder + "/tessel_" + log + ".log");
    if (of.findings.size() != 1) return fmt::format("{} findings", of.findings.size());
    EXPECT_EQ(of.findings.front().reported, "");
    return of.findings.front().known;
  };
  EXPECT_EQ(
      known("inconsistencies", "Inconsistency 1: LAG 0x1 not found in BCM for BE1(0x3000004)"),
      "0x1");
  EXPECT_EQ(known("inconsistencies", "Inconsistency 1: 0x2 not found in BCM for BE1(0x3000004)"),
            "0x2");
  EXPECT_EQ(known("inconsistencies",
                  "Inconsistency 1: LAG 0x3 not found in BCM for BE1.1(0x3000014),NPU: 0"),
            "0x3");
  EXPECT_EQ(known("programming_error",
                  "Programming Error 1: SEMA/B entry is not present for glif 0x00014000,BE1(0x30)"),
            "0x00014000");
  EXPECT_EQ(known("programming_error",
                  "Programming Error 1: Not able to find GLIF 0x00014000 to LLIF mapping for BE1"),
            "0x00014000");
  EXPECT_EQ(
      known("programming_error", "Programming Error 1: DPA RIF 0x11 not found in BCM for BE1"),
      "0x11");
}

TEST_F(logs_of_a_test, a_note_of_the_debug_log_is_a_finding_whatever_its_wording) {
  run of;
  of.debug_notes = {
      "DEBUG: Duplicate Key, ignoring cfg  \"interface Bundle-Ether1.200 description it\\'s to "
      "0/1/0/7 encapsulation dot1q 300\"",
      "Data Not Found: Not able to read the RIF of BE1 from diag_lag output"};
  of.object_at(object_kind::member, "BE1", "0/1/0/7");
  read_debug_notes(of);
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[0].code, "TC-901");
  EXPECT_EQ(of.findings[0].object, (object_ref{object_kind::sub_bundle, "BE1", "BE1.200"}));
  EXPECT_EQ(of.findings[1].code, "TC-000");
  EXPECT_EQ(of.findings[1].kind, finding_kind::note);
  EXPECT_EQ(of.findings[1].object.bundle, "BE1");
}

TEST_F(logs_of_a_test, a_failure_has_a_traceback_and_a_note_has_none) {
  write("exception",
        start() + line("no key '0/1/0/0': get_member_pp_port failed for HundredGigE0/1/0/0") +
            "Traceback (most recent call last):\n  File \"src/x.cpp\", line 1, in y\nfailure: no "
            "key\n" +
            line("INFO: DPA lagport object dont have any bundle data/no bundle member from, "
                 "0/1/CPU0"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[0].kind, finding_kind::failure);
  EXPECT_EQ(of.findings[0].object.name, "0/1/0/0");
  EXPECT_EQ(of.findings[0].text,
            "no key '0/1/0/0': get_member_pp_port failed for HundredGigE0/1/0/0");
  EXPECT_EQ(of.findings[1].kind, finding_kind::note);
  EXPECT_EQ(of.findings[1].node, "0/1/CPU0");
}

TEST_F(logs_of_a_test, the_last_run_counts_unless_another_is_asked_for) {
  const std::string old = line("Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0");
  write("inconsistencies", start("2026-11-21 11:00:00,000") + old + start());
  write("exception", start("2026-11-21 11:00:00,000") + start());
  EXPECT_THAT(starts_of(read_logs(folder)),
              ElementsAre("2026-11-21 11:00:00,000", "2026-11-22 11:00:00,000"));
  EXPECT_THAT(last_run().findings, IsEmpty());
  EXPECT_EQ(last_run(1).findings.size(), 1U);
}

// The last run found no room for a log, so the last start in it and in those behind it is that of
// an older run.
TEST_F(logs_of_a_test, findings_of_an_older_run_are_not_those_of_the_last_one) {
  const std::string old = line("Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0");
  write("exception", start("2026-11-21 11:00:00,000") + start());
  write("inconsistencies", start("2026-11-21 11:00:00,003") + old);
  for (const char* log : {"programming_error", "delay_delete", "bundle_health"})
    write(log, start("2026-11-21 11:00:00,004"));
  EXPECT_EQ(starts_of(read_logs(folder)).size(), 2U);
  const run last = last_run();
  EXPECT_THAT(last.findings, IsEmpty());
  ASSERT_EQ(last.unwritten.size(), 4U);
  EXPECT_EQ(last.unwritten.front(), "tessel_inconsistencies.log");
  const run before = last_run(1);
  EXPECT_EQ(before.findings.size(), 1U);
  EXPECT_EQ(before.started, "2026-11-21 11:00:00,000");
  EXPECT_THAT(before.unwritten, IsEmpty());
}

// In the laboratory a run takes less than a second.
TEST_F(logs_of_a_test, runs_that_follow_at_once_are_not_one) {
  const std::string first = start("2026-11-22 11:00:00,000");
  const std::string second = start("2026-11-22 11:00:00,400");
  for (const char* log : {"exception", "inconsistencies", "programming_error", "delay_delete"})
    write(log, first + second);
  EXPECT_EQ(starts_of(read_logs(folder)).size(), 2U);
}

// Each run writes the log of bundle health anew.
TEST_F(logs_of_a_test, a_log_with_the_last_start_only_is_of_the_last_run) {
  const std::string first = start("2026-11-22 11:00:00,000");
  const std::string second = start("2026-11-22 11:00:00,400");
  for (const char* log : {"exception", "inconsistencies", "programming_error", "delay_delete"})
    write(log, first + second);
  for (const char* time : {"2026-11-22 11:00:00,398", "2026-11-22 11:00:00,400"}) {
    write("bundle_health", start(time) + line("Bundle-Ether7: out of step"));
    EXPECT_EQ(starts_of(read_logs(folder)).size(), 2U) << time;
    EXPECT_EQ(last_run().findings.size(), 1U) << time;
    EXPECT_THAT(last_run().lost_logs, IsEmpty()) << time;
    EXPECT_THAT(last_run(1).findings, IsEmpty()) << time;
  }
}

TEST_F(logs_of_a_test, runs_of_the_same_time_are_not_one) {
  for (const char* log : {"exception", "inconsistencies", "programming_error", "delay_delete"})
    write(log, start() + start());
  EXPECT_EQ(starts_of(read_logs(folder)).size(), 2U);
}

TEST_F(logs_of_a_test, a_log_whose_start_was_rotated_away_is_of_the_run_before_its_first) {
  const std::string old = line("Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0");
  for (const char* log : {"exception", "programming_error", "delay_delete"})
    write(log, start("2026-11-21 11:00:00,000") + start());
  write("inconsistencies", old + start());
  EXPECT_EQ(starts_of(read_logs(folder)).size(), 2U);
  EXPECT_THAT(last_run().findings, IsEmpty());
  EXPECT_EQ(last_run(1).findings.size(), 1U);
}

TEST_F(logs_of_a_test, a_log_that_is_empty_could_not_be_written) {
  write("bundle_health", "");
  EXPECT_THAT(last_run().unwritten, ElementsAre("tessel_bundle_health.log"));
}

TEST_F(logs_of_a_test, a_mac_of_jericho2_is_a_programming_error) {
  write("exception", start() +
                         line("the chip's MAC 535 has no first element: RIF verification "
                              "failed for BE21(0x30000a4) NPU 1,0/1/CPU0") +
                         "Traceback (most recent call last):\nfailure: x\n");
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 1U);
  EXPECT_EQ(of.findings[0].kind, finding_kind::programming);
  EXPECT_EQ(of.findings[0].of, layer::bcm);
  EXPECT_EQ(of.findings[0].what, field::mac);
}

TEST_F(logs_of_a_test, numbers_that_were_rotated_away_are_reported) {
  write("inconsistencies", line("Inconsistency 901: BME has no Bundle entry in location 0/1/CPU0"),
        ".1");
  write("inconsistencies", line("Inconsistency 902: BME has no Bundle entry in location 0/2/CPU0"));
  const run of = last_run();
  EXPECT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.counts.at(finding_kind::inconsistency), 902U);
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("1 to 900 were rotated away")));
}

TEST_F(logs_of_a_test, numbers_that_are_missing_behind_those_are_reported_as_well) {
  write("inconsistencies",
        line("Inconsistency 11: BME has no Bundle entry in location 0/1/CPU0") +
            line("Inconsistency 12: BME has no Bundle entry in location 0/1/CPU0"),
        ".1");
  write("inconsistencies",
        line("Inconsistency 15: BME has no Bundle entry in location 0/1/CPU0") +
            line("Inconsistency 16: BME has no Bundle entry in location 0/1/CPU0"));
  const run of = last_run();
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("1 to 10 were rotated away"),
                                    HasSubstr("2 of the messages 11 to 16 are missing as well")));
}

TEST_F(logs_of_a_test, a_run_of_another_version_is_marked) {
  write("inconsistencies", "2026-11-22 11:00:00,000: Started Tessel Checker 2.0\n" +
                               line("Inconsistency 1:BE1 is purple"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 1U);
  EXPECT_EQ(of.findings[0].code, "TC-000");
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("begins with \"Started Tessel Checker 2.0\"")));
  write("inconsistencies", "2026-11-22 10:00:00,000: Started Tessel Checker 2.0\n" + start());
  EXPECT_THAT(last_run().marks, IsEmpty()) << "an older run";
}

TEST_F(logs_of_a_test, a_log_that_is_missing_or_cut_is_a_mark) {
  std::filesystem::remove(folder + "/tessel_exception.log");
  write("programming_error", start() + "2026-11-22 11:00:01,000: Programming Err");
  EXPECT_THAT(last_run().marks,
              ElementsAre(HasSubstr("No such file"), HasSubstr("middle of a line")));
}

TEST_F(logs_of_a_test, a_number_without_a_line_was_not_rotated_away) {
  write("exception", start() +
                         line("the chip's MAC x differs: RIF verification failed for BE1(0x3) "
                              "NPU 0,0/0/CPU0") +
                         "Traceback (most recent call last):\nfailure: x\n");
  write("programming_error",
        start() +
            line("Programming Error 2: DPA RIF 0x1 not found in BCM for BE2(0x3) NPU 0,0/0/CPU0"));
  EXPECT_THAT(last_run().marks, IsEmpty());
}

TEST_F(logs_of_a_test, a_health_line_of_many_bundles_costs_no_more_than_some) {
  std::string names;
  for (int i = 0; i < 20'000; ++i) names += " Bundle-Ether" + std::to_string(i);
  write("bundle_health", start() + line("out of step:" + names) + "   a detail\n");
  const run of = last_run();
  EXPECT_EQ(of.findings.size(), 1000U);
  EXPECT_LE(of.findings[0].text.size(), 4096U);
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("it names 20000 bundles")));
}

TEST_F(logs_of_a_test, health_names_each_bundle) {
  write("bundle_health", start() + line("Bundle-Ether1 and Bundle-Ether22") + "   out of step\n");
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[1].object.bundle, "BE22");
  EXPECT_EQ(of.findings[1].text, "Bundle-Ether1 and Bundle-Ether22\n   out of step");
}

// The lines are a tool's own: none of them is what the audit writes about a failure.
TEST_F(logs_of_a_test, health_goes_on_behind_whatever_the_tool_prints) {
  write("bundle_health", start() + line("Bundle-Ether1") +
                             "Traceback (most recent call last):\nBundle-Ether22 is down\n");
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[1].object.bundle, "BE22");
}

TEST_F(logs_of_a_test, a_stale_entry_names_its_bundle_by_the_lag_id) {
  run of;
  of.has_snapshot = true;
  const auto bundle = of.object_at(object_kind::bundle, "BE7", "BE7");
  of.lag_ids[of.texts.keep("0x1")].push_back(bundle);
  write("stale_entries",
        "'Started Tessel Checker'\n'Number of stale entries in DPA 1'\n'Start of DPA entries...'\n"
        "[\n   {\n      \"Node Description\":\"Lag 0x1_npu0_node0/1/CPU0_mifh0x1ffff00\",\n"
        "      \"Visited\":0,\n      \"memid\":\"0x17\"\n   }\n]\n'End of DPA entries...'\n");
  read_stale_entries(of, folder, 1);
  ASSERT_EQ(of.findings.size(), 1U);
  EXPECT_EQ(of.findings[0].object.bundle, "BE7");
  EXPECT_EQ(of.findings[0].node, "0/1/CPU0");
  EXPECT_EQ(of.findings[0].npu, "0");
  EXPECT_EQ(of.findings[0].of, layer::dpa);
}

TEST_F(logs_of_a_test, a_stale_lag_of_jericho2_names_its_bundle_by_the_number_alone) {
  run of;
  of.has_snapshot = true;
  const auto bundle = of.object_at(object_kind::bundle, "BE7", "BE7");
  of.lag_ids[of.texts.keep("0x55")].push_back(bundle);
  const auto entry = [](const std::string& description) {
    return "   {\n      \"Node Description\":\"" + description + "\",\n      \"Visited\":0\n   }";
  };
  write("stale_entries",
        "'Started Tessel Checker'\n'Number of stale entries in BCM 2'\n'Start of BCM "
        "entries...'\n[\n" +
            entry("0x55_npu0_node4096") + ",\n" + entry("0x55") + "\n]\n'End of BCM entries...'\n");
  read_stale_entries(of, folder, 1);
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[0].object.bundle, "BE7");
  EXPECT_EQ(of.findings[1].object.bundle, "") << "a number of something else";
}

// Each of them stumbled over what its text names, and is about none of it.
TEST_F(logs_of_a_test, the_end_of_a_pass_is_of_no_node_and_no_bundle) {
  write("exception", start() + line("no key 'BE2': Consistency check failed") +
                         line("no key 'x': Stale entry verification failed in 0/1/CPU0") +
                         line("no key 'BE3': get_non_visited_nodes failed in DPA"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 3U);
  for (const finding& one : of.findings) {
    EXPECT_EQ(one.object.bundle, "") << one.text;
    EXPECT_EQ(one.node, "") << one.text;
  }
  EXPECT_EQ(of.findings[2].of, layer::dpa);
}

// What a log has lost must not count as agreement.
TEST_F(logs_of_a_test, a_run_whose_start_was_rotated_away_has_lost_messages) {
  write("exception", line("INFO: No member is added to bundle BE7(0x1)"));
  const run of = last_run();
  EXPECT_THAT(of.cut_logs, ElementsAre("tessel_exception.log"));
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("the start of the run was rotated away")));
}

TEST_F(logs_of_a_test, a_number_that_is_missing_is_a_lost_message) {
  const std::string text =
      ":BE1(0x3000004), 0/2/CPU0 GLIF is not consistent in "
      "DPA_Bundles_l2port:0x14000,Expected:0x14500";
  write("inconsistencies",
        start() + line("Inconsistency 1" + text) + line("Inconsistency 5" + text));
  const run of = last_run();
  EXPECT_THAT(of.cut_logs, ElementsAre("tessel_inconsistencies.log"));
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("3 of 5 messages are missing")));
}

// The audit counts the word, and indents each line without it.
TEST_F(logs_of_a_test, bundle_health_counts_as_the_audit_does) {
  write("bundle_health", start() + line("no Bundle-Ether interface is healthy") +
                             "   some BE2 mention only\nBundle-Ether1 and Bundle-Ether1 again, "
                             "interface-Bundle-Ether2\n   moved from BE9\n");
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 3U);
  EXPECT_EQ(of.findings[0].object, object_ref{});
  EXPECT_THAT(of.findings[0].text, HasSubstr("some BE2 mention only"));
  EXPECT_EQ(of.findings[1].object.bundle, "BE1");
  EXPECT_EQ(of.findings[2].object.bundle, "BE2");
  EXPECT_THAT(of.findings[2].text, HasSubstr("moved from BE9"));
  EXPECT_EQ(of.counts.at(finding_kind::health), 4U);
}

class stale_entries_of_a_test : public logs_of_a_test {
 protected:
  [[nodiscard]] run read(const std::string& text, std::size_t runs = 1) const {
    run of = last_run();
    of.has_snapshot = true;
    write("stale_entries", text);
    read_stale_entries(of, folder, runs);
    return of;
  }
  static std::string counts(const std::string& of_pi) {
    return "'Started Tessel Checker'\n'Number of stale entries in PI " + of_pi +
           "'\n'Number of stale entries in BME 0'\n'Number of stale entries in DPA 0'\n"
           "'Number of stale entries in BCM 0'\n";
  }
};

TEST_F(stale_entries_of_a_test, were_looked_for_if_they_are_counted) {
  const run of = read(counts("0"));
  EXPECT_EQ(of.stale, stale_search::done);
  EXPECT_THAT(of.lost_logs, IsEmpty());
}

TEST_F(stale_entries_of_a_test, are_lost_if_there_are_fewer_than_counted) {
  const run of = read(counts("3"));
  EXPECT_THAT(of.lost_logs, ElementsAre("tessel_stale_entries.log"));
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("lists 0 of 3 stale entries in PI")));
}

TEST_F(stale_entries_of_a_test, are_not_looked_for_behind_a_note) {
  write("exception", start() + line("INFO: No member is added to bundle BE7(0x1)"));
  const run of = read("'Started Tessel Checker'\n");
  EXPECT_EQ(of.stale, stale_search::skipped);
  EXPECT_THAT(of.lost_logs, IsEmpty());
}

TEST_F(stale_entries_of_a_test, are_lost_if_nothing_kept_the_audit_from_counting) {
  EXPECT_THAT(read("'Started Tessel Checker'\n").lost_logs,
              ElementsAre("tessel_stale_entries.log"));
}

// The last run ended early, and somebody may have deleted the log, or that run could not write it.
TEST_F(stale_entries_of_a_test, of_an_unknown_run_blame_no_log) {
  for (const std::string& text : {counts("0"), std::string("'Started Tessel Checker'\n")}) {
    run of = last_run();
    write("stale_entries", text);
    read_stale_entries(of, folder, 2);
    EXPECT_THAT(of.unwritten, IsEmpty());
    EXPECT_EQ(of.stale, stale_search::unknown);
    EXPECT_THAT(of.lost_logs, ElementsAre("tessel_stale_entries.log"));
    EXPECT_THAT(of.marks, ElementsAre(HasSubstr("begun anew, or a run could not write it")));
  }
}

TEST_F(stale_entries_of_a_test, could_not_be_written_if_their_log_has_no_start) {
  run of = last_run();
  write("stale_entries", "");
  read_stale_entries(of, folder, 1);
  EXPECT_THAT(of.unwritten, ElementsAre("tessel_stale_entries.log"));
  const run emptied = read("");
  EXPECT_THAT(emptied.unwritten, IsEmpty()) << "behind its start the run wrote a snapshot";
  EXPECT_THAT(emptied.lost_logs, ElementsAre("tessel_stale_entries.log"));
}

TEST_F(stale_entries_of_a_test, are_lost_if_the_check_of_them_failed) {
  write("exception", start() + line("no key 'x': Stale entry verification failed in 0/1/CPU0") +
                         "Traceback (most recent call last):\nfailure: x\n");
  const run of = read("'Started Tessel Checker'\n");
  EXPECT_EQ(of.stale, stale_search::unknown);
  EXPECT_THAT(of.marks, ElementsAre(HasSubstr("the check of stale entries failed")));
}

// A full disk cut the dump of the first of three runs off.
TEST_F(stale_entries_of_a_test, are_read_behind_those_of_a_run_that_was_cut_off) {
  const std::string torn = counts("1") + "'Start of PI entries...'\n[\n   {\n      \"Node Descri\n";
  const run of = read(torn + "'Started Tessel Checker'\n" + counts("0"), 3);
  EXPECT_EQ(of.stale, stale_search::done);
  EXPECT_THAT(of.findings, IsEmpty());
  EXPECT_THAT(of.marks, IsEmpty());
  EXPECT_THAT(of.lost_logs, IsEmpty());
  EXPECT_THAT(read(counts("0") + torn, 2).marks,
              ElementsAre(HasSubstr("the dump of PI is cut off"), HasSubstr("lists 0 of 1")));
}

TEST_F(stale_entries_of_a_test, are_read_from_a_log_that_was_begun_anew) {
  EXPECT_EQ(read(counts("0"), 7).stale, stale_search::done);
}

// Notes that are not counted, and failures of the search itself or behind it.
TEST_F(stale_entries_of_a_test, are_looked_for_behind_what_the_audit_does_not_count_before) {
  constexpr const char* both_active =
      "INFO: Both RPs are in active mode & software may be different. Performed TESSEL check on "
      "current node, skipped 0/RP1/CPU0";
  for (const char* text :
       {"0/1/CPU0 is in ADMIN band, not ready yet, skipping TESSEL check on this location",
        both_active, "json print_object failed: no text", "no key 'x': Bundle health check failed",
        "no key 'x': Stale entry verification failed in 0/1/CPU0"}) {
    write("exception", start() + line(text));
    const run of = read("'Started Tessel Checker'\n");
    ASSERT_EQ(of.findings.size(), 1U);
    ASSERT_NE(of.findings[0].code, "TC-000") << text;
    EXPECT_EQ(of.stale, stale_search::unknown) << text;
    EXPECT_THAT(of.lost_logs, ElementsAre("tessel_stale_entries.log")) << text;
  }
}

TEST_F(stale_entries_of_a_test, are_not_kept_by_a_line_of_the_debug_log) {
  run of = last_run();
  of.has_snapshot = true;
  of.debug_notes = {"DEBUG: Duplicate Key, ignoring cfg x"};
  read_debug_notes(of);
  write("stale_entries", "'Started Tessel Checker'\n");
  read_stale_entries(of, folder, 1);
  EXPECT_EQ(of.stale, stale_search::unknown);
  EXPECT_EQ(of.counts[finding_kind::note], 0U);
}

// With hierarchical QoS a sub-bundle has a LAG of its own in the chips.
class lags_in_chips : public logs_of_a_test {
 protected:
  [[nodiscard]] run router() const {
    run of;
    of.has_snapshot = true;
    of.has_hqos = true;
    of.nodes.emplace_back().name = "0/0/CPU0";
    of.nodes.emplace_back().name = "0/1/CPU0";
    const auto bundle = of.object_at(object_kind::bundle, "BE7", "BE7");
    const auto sub = of.object_at(object_kind::sub_bundle, "BE7", "BE7.100");
    of.objects[bundle].is_configured = true;
    of.objects[sub].is_configured = true;
    of.lag_ids[of.texts.keep("0x7")].push_back(bundle);
    of.lag_ids[of.texts.keep("0x8")].push_back(sub);
    of.sub_bundle_lags[{of.texts.keep("0x8"), 1, 0}] = sub;
    return of;
  }
  [[nodiscard]] finding listed(const std::string& layer, const std::string& description) const {
    std::string counts;
    for (const std::string each : {"PI", "BME", "DPA", "BCM"})
      counts += "'Number of stale entries in " + each + (layer == each ? " 1'\n" : " 0'\n");
    write("stale_entries", "'Started Tessel Checker'\n" + counts + "'Start of " + layer +
                               " entries...'\n[\n   {\n      \"Node Description\":\"" +
                               description + "\",\n      \"Visited\":0\n   }\n]\n'End of " + layer +
                               " entries...'\n");
    run of = router();
    read_stale_entries(of, folder, 1);
    EXPECT_EQ(of.stale, stale_search::done);
    const finding& one = of.findings.at(0);
    EXPECT_EQ(of.counts[finding_kind::stale], one.kind == finding_kind::stale ? 1U : 0U);
    return one;
  }
};

TEST_F(lags_in_chips, of_sub_bundles_are_listed_by_the_audit_without_a_fault) {
  for (const char* description : {"LAG 0x8_npu0_node0/1/CPU0", "0x8_npu0_node0/1/CPU0"}) {
    const finding one = listed("BCM", description);
    EXPECT_EQ(one.code, "TC-402") << description;
    EXPECT_EQ(one.kind, finding_kind::note) << description;
    EXPECT_EQ(one.object, (object_ref{object_kind::entry, "BE7", description}));
    EXPECT_EQ(one.node, "0/1/CPU0");
    EXPECT_THAT(one.text, HasSubstr(description));
    EXPECT_THAT(one.text, HasSubstr("BE7.100"));
  }
}

TEST_F(lags_in_chips, that_nothing_refers_to_are_stale) {
  EXPECT_EQ(listed("BCM", "LAG 0x9_npu0_node0/1/CPU0").code, "TC-401") << "of nobody";
  EXPECT_EQ(listed("BCM", "LAG 0x7_npu0_node0/1/CPU0").code, "TC-401") << "of a bundle";
  EXPECT_EQ(listed("DPA", "Lag 0x8_npu0_node0/1/CPU0").code, "TC-401") << "in another layer";
  EXPECT_EQ(listed("BCM", "LAG 0x8_npu1_node0/1/CPU0").code, "TC-401") << "of another chip";
  EXPECT_EQ(listed("BCM", "LAG 0x8_npu0_node0/0/CPU0").code, "TC-401") << "of another node";
  EXPECT_EQ(listed("BCM", "LAG 0x8_npu0_node0/7/CPU0").code, "TC-401") << "of an unknown node";
}

// The audit weighs no bundle on a node that it left out, nor where its check ended before, nor one
// that is not configured.
TEST_F(logs_of_a_test, a_weight_is_that_of_the_only_place_with_its_numbers) {
  const std::string text =
      "member scale limit exceeded due to weights of members (2) being more than allowed (1)";
  const auto place_of = [&](std::size_t nodes, std::size_t left_out, std::size_t messages) {
    std::string lines = start();
    for (std::size_t i = 1; i <= messages; ++i)
      lines += line("Inconsistency " + std::to_string(i) + ": " + text);
    write("inconsistencies", lines);
    run of;
    const auto bundle = of.object_at(object_kind::bundle, "BE7", "BE7");
    of.objects[bundle].is_configured = true;
    for (std::size_t i = 0; i < nodes; ++i) {
      of.nodes.emplace_back().name = "0/" + std::to_string(i) + "/CPU0";
      of.nodes.back().takes_part = i >= left_out;
      const auto node = static_cast<std::int16_t>(i);
      auto& cells = of.objects[bundle].cells;
      cells.push_back({field::weight, source::lagport, node, no_place, of.texts.keep("2")});
      cells.push_back({field::weight_limit, source::lagport, node, no_place, of.texts.keep("1")});
    }
    const auto unconfigured = of.object_at(object_kind::bundle, "BE6", "BE6");
    of.objects[unconfigured].cells = std::vector<cell>(of.objects[bundle].cells);
    const log_set logs = read_logs(folder);
    read_findings(of, logs, runs_in(logs), 0);
    EXPECT_EQ(of.findings.back().object, (object_ref{object_kind::bundle, "BE7", "BE7"}));
    return of.findings.back().node;
  };
  EXPECT_EQ(place_of(2, 1, 1), "0/1/CPU0");
  EXPECT_EQ(place_of(2, 0, 2), "0/1/CPU0");
  EXPECT_EQ(place_of(2, 0, 1), "");
}

// Where the interface listing lacks a port, its record keeps the MTU of the port object.
TEST_F(logs_of_a_test, a_port_that_was_not_listed_has_the_mtu_of_its_object) {
  write("exception", start() + line("no key '0/0/0/1': BM PI verification failed for "
                                    "0/0/0/1,BE1(0x3), 0/0/CPU0"));
  run of;
  const text_id mtu = of.texts.keep("9216");
  for (const char* name : {"0/0/0/1", "0/0/0/2"}) {
    const auto member = of.object_at(object_kind::member, "BE1", name);
    of.objects[member].cells = {{field::mtu, source::interfaces, no_place, no_place, mtu}};
    of.places[member].node = 0;
  }
  const log_set logs = read_logs(folder);
  read_findings(of, logs, runs_in(logs), 0);
  const auto member = [&](const char* name) { return of.find(object_kind::member, "BE1", name); };
  EXPECT_THAT(member("0/0/0/1")->cells, IsEmpty());
  EXPECT_EQ(member("0/0/0/2")->cells.size(), 1U);
  EXPECT_EQ(of.places.at(static_cast<std::size_t>(member("0/0/0/1") - of.objects.data())).mtu, mtu);
}

TEST_F(logs_of_a_test, the_node_of_a_message_is_not_that_of_its_reason) {
  write("exception",
        start() + line("no key '0/2/CPU0': is_node_present check failed for 0/1/CPU0 in DPA"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 1U);
  EXPECT_EQ(of.findings[0].code, "TC-733");
  EXPECT_EQ(of.findings[0].node, "0/1/CPU0");
  EXPECT_EQ(of.findings[0].object, (object_ref{object_kind::node, "", "0/1/CPU0"}));
  EXPECT_EQ(of.findings[0].of, layer::dpa);
}

TEST_F(logs_of_a_test, a_port_whose_type_has_a_digit_is_a_member) {
  write("programming_error",
        start() + line("Programming Error 1: BE1(0x3000120) NPU 0,0/0/CPU0 Vlan Domain 0x1 != "
                       "Member Gig25E0_0_0_1 Vlan Domain 0x3"));
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 1U);
  EXPECT_EQ(of.findings[0].code, "TC-202");
  EXPECT_EQ(of.findings[0].object, (object_ref{object_kind::member, "BE1", "0/0/0/1"}));
}

// The audit's table has a zero for what is leaving unless something is inconsistent.
TEST_F(logs_of_a_test, counts_are_those_of_the_table) {
  write("delay_delete",
        start() + line("INFO: Inconsistent object BE1(0x3), 0/0/CPU0 is marked for delay delete"));
  EXPECT_EQ(last_run().findings.size(), 1U);
  EXPECT_EQ(last_run().counts[finding_kind::delay_delete], 0U);
  write("inconsistencies",
        start() + line("Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0"));
  EXPECT_EQ(last_run().counts[finding_kind::delay_delete], 1U);
  // A MAC of Jericho2 is a programming error, and a failure beside it.
  write(
      "exception",
      start() +
          line("the chip's MAC 5 has no first element: RIF verification failed for "
               "BE1(0x3) NPU 0,0/0/CPU0") +
          "Traceback (most recent call last):\nfailure: x\n" +
          line("0/1/CPU0 is in ADMIN band, not ready yet, skipping TESSEL check on this location"));
  EXPECT_EQ(last_run().findings.size(), 4U);
  EXPECT_EQ(last_run().counts[finding_kind::programming], 1U);
  EXPECT_EQ(last_run().counts[finding_kind::failure], 1U);
  EXPECT_EQ(last_run().counts[finding_kind::note], 0U) << "not counted";
}

TEST_F(logs_of_a_test, a_failure_of_a_pass_blames_no_bundle) {
  write("exception", start() +
                         line("no key 'BE2': Bundle consistency check failed for BE1, 0/0/CPU0") +
                         "Traceback (most recent call last):\n" +
                         line("no key 'BE2': Bundle programming verification failed") +
                         "Traceback (most recent call last):\n");
  const run of = last_run();
  ASSERT_EQ(of.findings.size(), 2U);
  EXPECT_EQ(of.findings[0].object.bundle, "BE1");
  EXPECT_EQ(of.findings[0].node, "0/0/CPU0");
  EXPECT_EQ(of.findings[1].object.bundle, "");
}

TEST(mentions, reads_the_objects_of_a_message) {
  run of;
  of.object_at(object_kind::member, "BE3", "0/1/0/0");
  const auto member = mentioned_in(of, "NPU1,NPU0,0/0/0/1/2,BE12(0x3000120), 0/0/CPU0");
  EXPECT_EQ(member.object, (object_ref{object_kind::member, "BE12", "0/0/0/1/2"}));
  EXPECT_EQ(member.node, "0/0/CPU0");
  EXPECT_EQ(member.npu, "1");
  EXPECT_EQ(mentioned_in(of, "BE12.100(0x3000a60),0/RP0/CPU0").object.name, "BE12.100");
  EXPECT_EQ(mentioned_in(of, "no key '0/1/0/0': parse_vlan_domain failed").object.bundle, "BE3");
  of.nodes.emplace_back().name = "0/1/CPU0";
  of.objects[of.object_at(object_kind::member, "BE3", "0/1/0/0")].cells.push_back(
      {field::npu, source::agent, 0, no_place, 0});
  EXPECT_EQ(mentioned_in(of, "no key '0/1/0/0': parse_vlan_domain failed").node, "0/1/CPU0");
  EXPECT_EQ(mentioned_in(of, "TUBE12 and nothing else").object.bundle, "");
}

}  // namespace
}  // namespace desk
