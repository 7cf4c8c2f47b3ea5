#include "desk/model/run_logs.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "desk/model/findings.h"
#include "tests/desk/log_folder.h"

namespace desk {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::string noon = "2026-11-22 12:00:00,000";
const std::string eleven = "2026-11-22 11:00:00,000";
const std::string ten = "2026-11-22 10:00:00,000";
const std::string nine = "2026-11-22 09:00:00,000";

class run_logs : public log_folder {
 protected:
  [[nodiscard]] std::vector<std::string> starts() const { return starts_of(read_logs(folder)); }
  [[nodiscard]] run last_run(std::size_t back = 0) const {
    run of;
    const log_set logs = read_logs(folder);
    read_findings(of, logs, runs_in(logs), back);
    return of;
  }
  // A message of the run that began last.
  void find(const std::string& time) const {
    append("inconsistencies",
           line(time, "Inconsistency 1: BME has no Bundle entry in location 0/1/CPU0"));
  }
};

// The clock of the router was set back between two runs.
TEST_F(run_logs, are_in_the_order_in_which_they_stand) {
  start(noon);
  start(ten);
  find(ten);
  EXPECT_THAT(starts(), ElementsAre(noon, ten));
  EXPECT_EQ(last_run().started, ten);
  EXPECT_THAT(last_run().findings, SizeIs(1));
  EXPECT_THAT(last_run().lost_logs, IsEmpty());
  EXPECT_THAT(last_run(1).findings, IsEmpty());
}

TEST_F(run_logs, of_a_clock_that_was_set_back_twice) {
  for (const std::string& time : {eleven, noon, ten, eleven, nine}) start(time);
  EXPECT_THAT(starts(), ElementsAre(eleven, noon, ten, eleven, nine));
}

// A run of which each log has its start at another time.
class run_logs_of_other_times : public run_logs {
 protected:
  void start_at(const std::vector<std::string>& times) const {
    for (std::size_t log = 0; log < times.size(); ++log) {
      const std::string text = line(times[log], "Started Tessel Checker");
      if (log < appended.size()) append(appended.at(log), text);
      if (log >= appended.size()) write("bundle_health", text);
    }
  }
  [[nodiscard]] std::vector<std::string> doubts() const {
    const log_set logs = read_logs(folder);
    const auto runs = runs_in(logs);
    std::vector<std::string> made;
    for (std::size_t i = 0; i < runs.size(); ++i) made.push_back(doubt_about(runs, i));
    return made;
  }
};

// The logs have all starts behind that of the run before, so these cannot be of two runs.
TEST_F(run_logs_of_other_times, are_one_run_where_an_older_one_is_in_all_logs) {
  for (std::size_t set_before = 1; set_before <= appended.size(); ++set_before) {
    for (const char* log : appended) empty(log);
    start(eleven);
    std::vector<std::string> times(set_before, noon);
    times.resize(appended.size() + 1, ten);
    start_at(times);
    find(ten);
    EXPECT_THAT(starts(), ElementsAre(eleven, noon)) << set_before;
    EXPECT_THAT(last_run().findings, SizeIs(1));
    EXPECT_THAT(last_run().marks, IsEmpty());
    EXPECT_THAT(last_run().unwritten, IsEmpty());
    EXPECT_THAT(last_run(1).findings, IsEmpty());
    EXPECT_THAT(doubts(), ElementsAre("", ""));
    start(nine);
    EXPECT_THAT(starts(), ElementsAre(eleven, noon, nine)) << "nor if it is an older one by now";
  }
}

// The first log has lost nothing, but no other run shows that.
TEST_F(run_logs_of_other_times, are_one_run_where_a_message_shows_that_it_has_begun_all) {
  start_at({noon, ten, ten, ten, ten});
  EXPECT_THAT(starts(), ElementsAre(ten, noon));
  EXPECT_THAT(doubts(), ElementsAre("", HasSubstr("may be one run with the one before it")));
  EXPECT_THAT(last_run().marks, Contains(HasSubstr("may be one run")));
  append("exception", line(ten, "no key '0/1/0/0': get_member_pp_port failed for x"));
  EXPECT_THAT(starts(), ElementsAre(noon));
  EXPECT_THAT(last_run().marks, IsEmpty());
  EXPECT_THAT(last_run().unwritten, IsEmpty());
}

TEST_F(run_logs_of_other_times, have_the_report_of_bundle_health_that_was_begun_last) {
  start_at({noon, noon, noon, noon, ten});
  EXPECT_THAT(starts(), ElementsAre(noon));
  EXPECT_THAT(last_run().unwritten, IsEmpty());
  EXPECT_THAT(doubts(),
              ElementsAre("its start in tessel_bundle_health.log may be that of an earlier run"));
  find(ten);
  EXPECT_THAT(starts(), ElementsAre(noon));
  EXPECT_THAT(last_run().unwritten, IsEmpty());
  EXPECT_THAT(doubts(), ElementsAre(""));
}

// One of two has begun the second log, and nothing says which.
TEST_F(run_logs_of_other_times, are_guessed_where_one_of_several_ended_early) {
  start(noon);
  start_at({eleven});
  start_at({ten, nine});
  EXPECT_THAT(starts(), ElementsAre(noon, eleven, ten));
  EXPECT_THAT(doubts(), ElementsAre("", "",
                                    "its start in tessel_inconsistencies.log may be that of an "
                                    "earlier run"));
  EXPECT_THAT(last_run().unwritten, SizeIs(3));
}

// Behind it another one ended early.
TEST_F(run_logs_of_other_times, are_not_guessed_where_a_message_or_the_time_tells) {
  start(noon);
  start_at({eleven});
  append("exception", line(eleven, "no key '0/1/0/0': get_member_pp_port failed for x"));
  start_at({ten});
  append("inconsistencies", line(nine, "Started Tessel Checker"));
  find(nine);
  EXPECT_THAT(last_run().findings, IsEmpty());
  EXPECT_THAT(last_run(1).findings, SizeIs(2));
  EXPECT_THAT(doubts(), ElementsAre("", "", ""));
}

// On a slow disk.
TEST_F(run_logs_of_other_times, are_one_run_though_it_is_an_older_one) {
  const auto slow = [](const std::string& hour) {
    return std::vector<std::string>{hour + ":00:00,000", hour + ":00:20,000", hour + ":00:45,000",
                                    hour + ":01:10,000", hour + ":01:30,000"};
  };
  start_at(slow("2026-11-22 09"));
  start_at(slow("2026-11-22 10"));
  start_at(slow("2026-11-22 11"));
  EXPECT_THAT(starts(), ElementsAre(nine, ten, eleven));
  const log_set logs = read_logs(folder);
  EXPECT_EQ(span_of(runs_in(logs).back()),
            "its logs began between 2026-11-22 11:00:00,000 and 2026-11-22 11:01:30,000: the clock "
            "was set meanwhile, or the disk is slow");
}

// The first ended behind its second log, and the next one began at once.
TEST_F(run_logs_of_other_times, keep_their_starts_though_another_run_follows) {
  start_at({"2026-11-22 10:00:00,000", "2026-11-22 10:00:05,000"});
  find("2026-11-22 10:00:05,100");
  start_at({"2026-11-22 10:00:06,000", "2026-11-22 10:00:11,000", "2026-11-22 10:00:16,000"});
  EXPECT_THAT(starts(), ElementsAre("2026-11-22 10:00:00,000", "2026-11-22 10:00:06,000"));
  EXPECT_THAT(last_run().findings, IsEmpty());
  EXPECT_THAT(last_run(1).findings, SizeIs(1));
}

// A clock that was set back by less than a run takes to begin its logs.
TEST_F(run_logs_of_other_times, are_those_of_the_run_behind_if_the_one_before_has_its_own) {
  start_at({"2026-11-22 10:00:00,000", "2026-11-22 10:00:00,100"});
  start_at({"2026-11-22 10:00:01,000", "2026-11-22 10:00:00,900"});
  find("2026-11-22 10:00:01,000");
  EXPECT_THAT(starts(), SizeIs(2));
  EXPECT_THAT(last_run().findings, SizeIs(1));
}

// Whatever the clock was, where no run ended early.
TEST_F(run_logs_of_other_times, are_told_apart_by_their_order) {
  std::mt19937 random(7);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const auto any_time = [&] {
    return fmt::format("2026-{:02}-{:02} {:02}:{:02}:{:02},{:03}", 1 + below(12), 1 + below(28),
                       below(24), below(60), below(60), below(1000));
  };
  for (int round = 0; round < 20; ++round) {
    for (const char* log : appended) empty(log);
    start("2025-11-22 11:00:00,000");
    std::vector<std::string> first = {"2025-11-22 11:00:00,000"};
    for (std::size_t runs = below(20); runs > 0; --runs) {
      std::vector<std::string> times(appended.size() + 1);
      std::generate(times.begin(), times.end(), any_time);
      first.push_back(times.front());
      start_at(times);
    }
    const log_set logs = read_logs(folder);
    const auto runs = runs_in(logs);
    ASSERT_EQ(starts_of(logs), first);
    for (std::size_t i = 0; i < runs.size(); ++i)
      for (std::size_t log = 0; log < appended.size(); ++log)
        ASSERT_EQ(runs[i].in.at(log), &all_of(logs).at(log)->runs[i]);
  }
}

// Whatever the logs hold: each part of a log is of one run, and the runs keep the log's order.
TEST_F(run_logs_of_other_times, keep_the_order_of_each_log) {
  std::mt19937 random(5);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  for (int round = 0; round < 200; ++round) {
    for (const char* log : appended) {
      std::string text = below(4) == 0 ? line(nine, "a message without its start") : "";
      for (std::size_t starts = below(7); starts > 0; --starts) {
        text += line(
            fmt::format("2026-11-22 1{}:{:02}:0{},{}00", below(2), below(2), below(4), below(10)),
            "Started Tessel Checker");
        if (below(3) == 0) text += line(nine, "Inconsistency 1: BME has no Bundle entry");
      }
      write(log, text);
    }
    const log_set logs = read_logs(folder);
    const auto runs = runs_in(logs);
    for (std::size_t log = 0; log < appended.size(); ++log) {
      std::vector<const log_run*> in_log;
      std::vector<const log_run*> in_runs;
      for (const log_run& one : all_of(logs).at(log)->runs) in_log.push_back(&one);
      for (const run_in_logs& one : runs)
        if (one.in.at(log) != nullptr) in_runs.push_back(one.in.at(log));
      ASSERT_EQ(in_runs, in_log) << "round " << round << ", log " << log;
    }
  }
}

// Each number of logs that a run can have begun when it ended.
TEST_F(run_logs, of_a_run_that_ended_before_it_had_begun_all) {
  for (std::size_t logs = 1; logs <= appended.size(); ++logs) {
    for (const std::string& time : {noon, ten}) {
      for (const char* log : appended) empty(log);
      start(eleven);
      find(eleven);
      append("bundle_health", line(eleven, "Bundle-Ether7: out of step"));
      start(time, logs);
      EXPECT_THAT(starts(), ElementsAre(eleven, time)) << logs;
      const run of = last_run();
      EXPECT_THAT(of.findings, IsEmpty()) << logs;
      ASSERT_THAT(of.unwritten, SizeIs(appended.size() + 1 - logs));
      EXPECT_EQ(of.unwritten.front(), logs < appended.size()
                                          ? std::string("tessel_") + appended.at(logs) + ".log"
                                          : "tessel_bundle_health.log");
    }
  }
}

TEST_F(run_logs, of_early_ends_between_other_runs) {
  start(noon);
  start(ten, 1);
  start(ten.substr(0, 18) + "5,000", 3);
  start(nine);
  EXPECT_THAT(starts(), ElementsAre(noon, ten, ten.substr(0, 18) + "5,000", nine));
  EXPECT_THAT(last_run().unwritten, IsEmpty());
  EXPECT_THAT(last_run(3).lost_logs, IsEmpty());
}

// Of what a log has lost, another one still has the start.
TEST_F(run_logs, whose_oldest_starts_are_gone) {
  start(noon);
  empty("exception");
  start(ten);
  empty("programming_error");
  start(nine);
  EXPECT_THAT(starts(), ElementsAre(noon, ten, nine));
}

// Then the clock was set back, and the last run ended early.
TEST_F(run_logs, end_with_the_last_one_in_the_log_that_is_begun_first) {
  start(noon);
  empty("exception");
  start(ten, 1);
  EXPECT_THAT(starts(), ElementsAre(noon, ten));
  EXPECT_EQ(last_run().unwritten.size(), appended.size());
}

// The disk is slow, and the run ended behind its second log.
TEST_F(run_logs, that_follow_at_once_keep_their_own_starts) {
  append("exception", line("2026-11-22 11:00:00,000", "Started Tessel Checker"));
  append("inconsistencies", line("2026-11-22 11:00:00,900", "Started Tessel Checker"));
  append("exception", line("2026-11-22 11:00:01,000", "Started Tessel Checker"));
  find("2026-11-22 11:00:01,100");
  EXPECT_THAT(starts(), SizeIs(2));
  EXPECT_THAT(last_run().findings, IsEmpty());
  EXPECT_THAT(last_run(1).findings, SizeIs(1));
}

// The disk is slow, or the clock was set meanwhile.
TEST_F(run_logs, that_begin_one_after_the_other_are_of_one_run) {
  const std::string text = "Started Tessel Checker";
  start(ten);
  append("exception", line(eleven, text));
  append("inconsistencies", line("2026-11-22 11:00:03,000", text));
  find("2026-11-22 11:02:00,000");
  append("programming_error", line("2026-11-22 11:00:43,000", text));
  append("delay_delete", line("2026-11-22 11:01:23,000", text));
  write("bundle_health", line("2026-11-22 11:01:26,000", text) +
                             line("2026-11-22 11:02:01,000", "Bundle-Ether7: out of step"));
  EXPECT_THAT(starts(), ElementsAre(ten, eleven));
  EXPECT_THAT(last_run().findings, SizeIs(2));
  EXPECT_THAT(last_run().lost_logs, IsEmpty());
}

// The log that is begun first has lost the run of the other start.
TEST_F(run_logs, that_begin_at_another_time_are_of_another_run) {
  for (const char* other : {"2026-11-22 10:59:57,000", "2026-11-22 11:01:00,001"}) {
    for (const char* log : appended) empty(log);
    append("exception", line(eleven, "Started Tessel Checker"));
    append("inconsistencies", line(other, "Started Tessel Checker"));
    EXPECT_THAT(starts(), ElementsAre(other, eleven));
    EXPECT_EQ(last_run().unwritten.size(), appended.size() - 1);
  }
}

// A run that ended early has not filled a log that it had not begun.
TEST_F(run_logs, without_their_start_are_of_one_that_came_so_far) {
  for (std::size_t log = 1; log < appended.size(); ++log) {
    for (const bool is_last : {false, true}) {
      for (std::size_t begun = 1; begun <= (is_last ? log - 1 : log); ++begun) {
        start(ten);
        write(appended.at(log), line(ten, "its newest message"));
        for (std::size_t i = log + 1; is_last && i < appended.size(); ++i) empty(appended.at(i));
        if (is_last) empty("bundle_health");
        start(eleven, begun);
        EXPECT_THAT(starts(), ElementsAre(ten, eleven));
        EXPECT_THAT(last_run().findings, IsEmpty()) << log << begun << is_last;
        EXPECT_THAT(last_run(1).findings, SizeIs(1)) << log << begun << is_last;
        for (const char* all : appended) empty(all);
      }
    }
  }
}

TEST_F(run_logs, without_their_start_are_not_of_a_run_that_ended_early_behind_them) {
  start(ten);
  write("inconsistencies", line(ten, "its newest message"));
  start(eleven, 1);
  start(noon);
  EXPECT_THAT(starts(), ElementsAre(ten, eleven, noon));
  EXPECT_THAT(last_run(1).findings, IsEmpty());
  EXPECT_THAT(last_run(2).findings, SizeIs(1));
}

// Emptied by somebody: a run that cannot write a log begins none behind it.
TEST_F(run_logs, that_were_emptied_could_be_written) {
  start(noon);
  empty("programming_error");
  EXPECT_THAT(last_run().unwritten, IsEmpty());
  EXPECT_THAT(last_run().lost_logs, ElementsAre("tessel_programming_error.log"));
}

TEST_F(run_logs, show_whether_the_debug_log_was_begun) {
  const auto is_begun = [&] {
    const log_set logs = read_logs(folder);
    return has_begun_debug_log(logs, runs_in(logs).back());
  };
  start(noon);
  EXPECT_TRUE(is_begun());
  start(ten, 4);
  EXPECT_FALSE(is_begun());
  append("exception", line(ten, "Permission denied: execution failed for rm /tmp/tessel*"));
  EXPECT_FALSE(is_begun()) << "the first command of a run comes before its logs";
  find(ten);
  EXPECT_TRUE(is_begun()) << "somebody has emptied the log of bundle health";
}

// A folder of another size than any router has.
TEST_F(run_logs, of_many_runs_are_told_apart_soon) {
  constexpr std::size_t many = 100'000;
  const auto starts_at = [](const std::string& time) {
    std::string text;
    for (std::size_t i = 0; i < many; ++i) text += line(time, "Started Tessel Checker");
    return text;
  };
  append("exception", starts_at(noon));
  append("inconsistencies", starts_at("2026-11-22 12:00:02,500"));
  append("programming_error", starts_at(noon));
  EXPECT_THAT(starts(), SizeIs(many)) << "they may have begun their second log late";
  write("inconsistencies", starts_at(ten));
  EXPECT_THAT(starts(), SizeIs(2 * many)) << "the first log may have lost older ones";
  write("exception", line(eleven, "Started Tessel Checker") + starts_at(noon));
  write("inconsistencies", line(eleven, "Started Tessel Checker") + starts_at(ten));
  EXPECT_THAT(starts(), SizeIs(many + 1));
  append("inconsistencies", line(nine, "Started Tessel Checker"));
  EXPECT_THAT(starts(), SizeIs(2 * many + 2)) << "more than the first log has";
}

}  // namespace
}  // namespace desk
