#include "report/results.h"

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "base/text.h"
#include "base/worker.h"
#include "support/crew.h"
#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string stars(33, '*');
const std::string last_line = stars + "Done" + stars + "\n";
const std::string log_list =
    "\nLogs:\n\n\n"
    "/var/log/tessel_inconsistencies.log\n"
    "/var/log/tessel_programming_error.log\n"
    "/var/log/tessel_stale_entries.log\n"
    "/var/log/tessel_delay_delete.log\n"
    "/var/log/tessel_bundle_health.log\n"
    "/var/log/tessel_exception.log\n"
    "/var/log/tessel_debug.log\n\n\n";

// The lines "1" to "count", each with `prefix` before the number.
std::string lines(std::string_view prefix, int count) {
  std::string text;
  for (int number = 1; number <= count; ++number) {
    text += std::string(prefix) + std::to_string(number) + "\n";
  }
  return text;
}

// The form in a preview: each line with its own line end and one more.
std::string shown(std::string_view prefix, int from, int to) {
  std::string text;
  for (int number = from; number <= to; ++number) {
    text += std::string(prefix) + std::to_string(number) + "\n\n";
  }
  return text;
}

class results_test : public router_test {
 protected:
  static std::string results() {
    return output_of([] { print_results(); });
  }
  static std::string errors(std::int64_t count) {
    return output_of([count] { print_errors(count); });
  }
};

TEST_F(results_test, a_run_with_no_findings_prints_heading_rows_and_star_line) {
  EXPECT_EQ(results(),
            "\n\nOverall Results:\n\n\n"
            "Inconsistencies             : 0        Stale Entries                : 0\n"
            "BCM Programming Error       : 0        Delete Pending DPA Objects   : 0\n"
            "Info/Error/Module Exception : 0        Bundle Health Status Error   : 0\n" +
                last_line);
  EXPECT_EQ(st().printed_results, 1);
  EXPECT_EQ(last_line.size(), 71U);
}

TEST_F(results_test, each_counter_stands_in_its_place_of_the_table) {
  run_state& run = st();
  run.inconsistent = 11;
  run.staleEntries = 12;
  run.programming_error = 13;
  run.deletePending = 14;
  run.exception = 15;
  run.bdlHealthCheckCount = 16;
  EXPECT_EQ(results(),
            "\n\nOverall Results:\n\n\n"
            "Inconsistencies             : 11       Stale Entries                : 12\n"
            "BCM Programming Error       : 13       Delete Pending DPA Objects   : 14\n"
            "Info/Error/Module Exception : 15       Bundle Health Status Error   : 16\n"
            "\nLogs Preview:\n\n\n"
            "Total Error Count: 81\n"
            "Preview is not available as the number of logs are more\n"
            "Please check the respective log file for the error details\n" +
                log_list + last_line);
}

TEST_F(results_test, info_is_added_to_exception_once) {
  st().exception = 4;
  st().info = 8;
  EXPECT_THAT(results(), HasSubstr("Info/Error/Module Exception : 12 "));
  EXPECT_EQ(st().exception, 12);
  EXPECT_EQ(st().info, 8) << "nothing clears it";
}

TEST_F(results_test, without_an_inconsistency_no_delete_pending_objects_are_reported) {
  st().deletePending = 2;
  const std::string text = results();
  EXPECT_THAT(text, HasSubstr("Delete Pending DPA Objects   : 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("Logs Preview"))) << "nor do they count among the findings";
  EXPECT_EQ(st().deletePending, 0);
}

TEST_F(results_test, beside_an_inconsistency_delete_pending_objects_count) {
  st().inconsistent = 9;
  st().deletePending = 2;
  const std::string text = results();
  EXPECT_THAT(text, HasSubstr("Delete Pending DPA Objects   : 2\n"));
  EXPECT_THAT(text, HasSubstr("Total Error Count: 11\n"));
}

TEST_F(results_test, ten_findings_are_previewed_and_eleven_are_not) {
  write_file(LOG_FILE_INCONSISTENT, lines("finding ", 30));
  st().inconsistent = 10;
  EXPECT_THAT(results(),
              EndsWith("\nLogs Preview:\n\n\n" + shown("finding ", 21, 30) + log_list + last_line));
  SetUp();
  write_file(LOG_FILE_INCONSISTENT, lines("finding ", 30));
  st().inconsistent = 11;
  EXPECT_THAT(results(), EndsWith("\nLogs Preview:\n\n\nTotal Error Count: 11\n"
                                  "Preview is not available as the number of logs are more\n"
                                  "Please check the respective log file for the error details\n" +
                                  log_list + last_line));
}

TEST_F(results_test, previews_stand_in_a_fixed_order) {
  write_file(LOG_FILE_EXCEPTION, lines("exception ", 3));
  write_file(LOG_FILE_INCONSISTENT, lines("inconsistent ", 3));
  write_file(LOG_FILE_PROGRAMMING_ERROR, lines("programming ", 3));
  write_file(LOG_FILE_BUNDLE_HEALTH, lines("health ", 3));
  st().exception = 1;
  st().inconsistent = 2;
  st().programming_error = 1;
  st().bdlHealthCheckCount = 2;
  EXPECT_EQ(errors(6), "\nLogs Preview:\n\n\n" + shown("exception ", 3, 3) +
                           shown("inconsistent ", 2, 3) + shown("programming ", 3, 3) +
                           shown("health ", 2, 3));
}

TEST_F(results_test, stale_entries_and_delete_pending_objects_have_no_preview) {
  st().staleEntries = 3;
  EXPECT_THAT(results(), EndsWith("\nLogs Preview:\n\n\n" + log_list + last_line));
}

TEST_F(results_test, of_three_findings_of_the_health_check_ten_lines_are_shown) {
  st().bdlHealthCheckCount = 3;
  write_file(LOG_FILE_BUNDLE_HEALTH, lines("health ", 11));
  EXPECT_EQ(errors(3), "\nLogs Preview:\n\n\n" + shown("health ", 2, 11))
      << "the first line is the channel's start line";
  write_file(LOG_FILE_BUNDLE_HEALTH, lines("health ", 12));
  EXPECT_EQ(errors(3), "\nLogs Preview:\n\n\n" + shown("health ", 2, 11) +
                           "\nMore lines of error present in the logs, Check "
                           "/var/log/tessel_bundle_health.log \n");
}

TEST_F(results_test, with_nine_other_findings_one_line_of_the_health_check_is_shown) {
  st().bdlHealthCheckCount = 1;
  write_file(LOG_FILE_BUNDLE_HEALTH, lines("health ", 2));
  EXPECT_EQ(errors(10), "\nLogs Preview:\n\n\n" + shown("health ", 2, 2));
  write_file(LOG_FILE_BUNDLE_HEALTH, lines("health ", 3));
  EXPECT_EQ(errors(10), "\nLogs Preview:\n\n\n" + shown("health ", 2, 2) +
                            "\nMore lines of error present in the logs, Check "
                            "/var/log/tessel_bundle_health.log \n");
}

TEST_F(results_test, more_than_eight_digits_push_the_second_label_to_the_right) {
  st().inconsistent = 99999999;
  EXPECT_THAT(results(), HasSubstr("Inconsistencies             : 99999999 Stale Entries  "));
  SetUp();
  st().inconsistent = 123456789;
  EXPECT_THAT(results(), HasSubstr("Inconsistencies             : 123456789 Stale Entries  "));
}

TEST_F(results_test, without_a_table_no_log_list_is_printed) {
  write_file(LOG_FILE_EXCEPTION, lines("exception ", 5));
  st().exception = 2;
  EXPECT_EQ(errors(2), "\nLogs Preview:\n\n\n" + shown("exception ", 4, 5));
  EXPECT_THAT(errors(11), EndsWith("error details\n"));
}

// Findings that are missing from the log have rotated into its backup. The number of exceptions
// decides how many lines of the backup are shown, whichever log it is.
TEST_F(results_test, older_findings_are_taken_from_the_backup) {
  struct row {
    const char* why;
    std::int64_t exception;
    std::int64_t inconsistent;
    std::string expected;
  };
  const std::array rows = {
      row{"as many as exceptions are over", 6, 5, shown("old ", 2, 4) + shown("new ", 1, 3)},
      row{"no more than there are", 20, 5, shown("old ", 1, 4) + shown("new ", 1, 3)},
      row{"all if none is over", 3, 5, shown("old ", 1, 4) + shown("new ", 1, 3)},
      row{"less the first if exceptions are fewer", 1, 5,
          shown("old ", 3, 4) + shown("new ", 1, 3)},
      row{"none if exceptions are far fewer", 0, 7, shown("old ", 4, 4) + shown("new ", 1, 3)},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    write_file(LOG_FILE_EXCEPTION, lines("exception ", 30));
    write_file(LOG_FILE_INCONSISTENT, lines("new ", 3));
    write_file(std::string(LOG_FILE_INCONSISTENT) + ".1", lines("old ", 4));
    st().exception = each.exception;
    st().inconsistent = each.inconsistent;
    EXPECT_THAT(errors(10), EndsWith(each.expected));
  }
}

TEST_F(results_test, a_file_with_as_many_lines_as_findings_needs_no_backup) {
  write_file(LOG_FILE_INCONSISTENT, lines("new ", 3));
  st().inconsistent = 3;
  EXPECT_EQ(errors(3), "\nLogs Preview:\n\n\n" + shown("new ", 1, 3));
}

TEST_F(results_test, exceptions_are_taken_from_their_own_backup) {
  write_file(LOG_FILE_EXCEPTION, lines("new ", 1));
  write_file(std::string(LOG_FILE_EXCEPTION) + ".1", lines("old ", 9));
  st().exception = 4;
  EXPECT_EQ(errors(4), "\nLogs Preview:\n\n\n" + shown("old ", 7, 9) + shown("new ", 1, 1));
}

TEST_F(results_test, a_last_line_without_a_line_end_is_shown_with_one) {
  write_file(LOG_FILE_INCONSISTENT, "one\ntwo");
  st().inconsistent = 2;
  EXPECT_EQ(errors(2), "\nLogs Preview:\n\n\none\n\ntwo\n");
}

TEST_F(results_test, a_log_that_cannot_be_opened_is_a_failure_where_it_is_read) {
  struct row {
    const char* why;
    std::string_view log;
    counter run_state::*counted;
  };
  for (const row& each :
       {row{"exceptions", LOG_FILE_EXCEPTION, &run_state::exception},
        row{"inconsistencies", LOG_FILE_INCONSISTENT, &run_state::inconsistent},
        row{"programming errors", LOG_FILE_PROGRAMMING_ERROR, &run_state::programming_error},
        row{"health", LOG_FILE_BUNDLE_HEALTH, &run_state::bdlHealthCheckCount}}) {
    SCOPED_TRACE(each.why);
    SetUp();
    st().*each.counted = 2;
    std::string text;
    const std::string output = output_of([&] { text = failure_of([] { print_results(); }); });
    EXPECT_EQ(text, "cannot open " + std::string(each.log) + ": No such file or directory");
    EXPECT_THAT(output, EndsWith("\nLogs Preview:\n\n\n")) << "no star line";
    EXPECT_EQ(st().printed_results, 1);
  }
}

TEST_F(results_test, a_backup_that_was_never_made_is_a_failure) {
  write_file(LOG_FILE_EXCEPTION, lines("exception ", 1));
  st().exception = 2;
  std::string text;
  output_of([&] { text = failure_of([] { print_errors(2); }); });
  EXPECT_EQ(text, "cannot open /var/log/tessel_exception.log.1: No such file or directory");
}

TEST_F(results_test, a_log_that_cannot_be_read_is_named_with_the_cause) {
  std::filesystem::create_directory(LOG_FILE_EXCEPTION);
  st().exception = 2;
  std::string text;
  output_of([&] { text = failure_of([] { print_errors(2); }); });
  EXPECT_EQ(text, "cannot read /var/log/tessel_exception.log: Is a directory");
}

TEST_F(results_test, what_was_printed_behind_a_title_is_preceded_by_one_blank) {
  EXPECT_THAT(output_of([] {
                st().line_is_open = true;
                print_results();
              }),
              StartsWith(" \n\nOverall Results:\n"));
}

TEST_F(results_test, a_late_delete_pending_object_beside_no_inconsistency_is_not_reported) {
  std::atomic<bool> ended = false;
  std::jthread late([&ended] {
    while (!ended) ++st().deletePending;
  });
  for (int round = 0; round < 300; ++round) {
    EXPECT_THAT(results(), HasSubstr("Delete Pending DPA Objects   : 0\n"));
    if (HasFailure()) break;
  }
  ended = true;
}

// --- workers that wait for a core

TEST_F(results_test, the_results_wait_for_a_worker_that_has_not_begun) {
  open_logs();
  busy_core busy;
  std::atomic<bool> core_is_free = false;
  const auto late = start_worker([] {});
  std::jthread elsewhere([&] {
    // Time enough for results that do not wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    core_is_free = true;
    busy.end();
  });
  results();
  EXPECT_TRUE(core_is_free);
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), Not(HasSubstr("had not begun")));
  late->join();
}

TEST_F(results_test, workers_that_do_not_begin_in_time_are_noted_in_the_debug_log) {
  open_logs();
  busy_core busy;
  start_worker([] {});
  start_worker([] {});
  wait_for_late_workers(std::chrono::seconds(0));
  EXPECT_THAT(file_text(LOG_FILE_DEBUG),
              EndsWith("'2 jobs had not begun 0 seconds after the last check, the results may lack "
                       "what they find'\n"));
}

TEST_F(results_test, all_waits_of_a_run_for_late_workers_have_one_budget_and_one_note) {
  open_logs();
  busy_core busy;
  start_worker([] {});
  const auto start = std::chrono::steady_clock::now();
  for (int call = 0; call < 30; ++call) wait_for_late_workers(std::chrono::seconds(1));
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::seconds(1));
  EXPECT_LT(waited, std::chrono::seconds(20)) << "further waits";
  const std::string log = file_text(LOG_FILE_DEBUG);
  EXPECT_THAT(log, HasSubstr("'1 jobs had not begun 1 seconds after the last check"));
  EXPECT_EQ(log.find("had not begun"), log.rfind("had not begun"));
}

TEST_F(results_test, without_a_debug_log_late_workers_are_not_noted) {
  busy_core busy;
  start_worker([] {});
  wait_for_late_workers(std::chrono::seconds(0));
  EXPECT_EQ(st().exception, 0);
}

}  // namespace
}  // namespace tessel
