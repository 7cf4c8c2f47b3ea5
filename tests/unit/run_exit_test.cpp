#include "run/exit.h"

#include <fmt/format.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <latch>
#include <memory>
#include <string>
#include <vector>

#include "base/findings.h"
#include "base/logs.h"
#include "base/text.h"
#include "base/worker.h"
#include "report/results.h"
#include "support/crew.h"
#include "support/fake_router.h"
#include "support/hung_disk.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class exit_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }
  static std::string exit_output() {
    return output_of([] { EXPECT_THROW(exit_handler(), exit_request); });
  }
};

std::vector<std::string> snapshot_labels() {
  std::vector<std::string> labels;
  for (const std::string& line : log_lines(LOG_FILE_DEBUG)) {
    if (line.starts_with("'Start of ")) {
      labels.push_back(line.substr(10, line.find(" entries...") - 10));
    }
  }
  return labels;
}

TEST_F(exit_test, after_a_false_collection_with_no_exception_the_operator_sees_a_count_of_0) {
  EXPECT_EQ(exit_output(), "\nTESSEL Stopped: Found 0 info/exceptions/errors\n\n");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG),
            "'Start of TESSELDB entries...'\n{}\n'End of TESSELDB entries...'\n"
            "'Start of DPA entries...'\n{}\n'End of DPA entries...'\n"
            "'Start of BM PI entries...'\n{}\n'End of BM PI entries...'\n"
            "'Start of BM PD entries...'\n{}\n'End of BM PD entries...'\n"
            "'Start of Voq usage entries...'\n{}\n'End of Voq usage entries...'\n"
            "'Start of VM information entries...'\n{}\n'End of VM information entries...'\n");
}

TEST_F(exit_test, with_exceptions_the_summary_has_a_preview_and_two_logs) {
  logger("one", "exception");
  logger("two", "exception");
  ++st().exception;
  ++st().info;
  const std::string output = exit_output();
  EXPECT_THAT(output, StartsWith("\nTESSEL Stopped: Found 2 info/exceptions/errors\n\n"
                                 "\nLogs Preview:\n\n\n"));
  EXPECT_THAT(output, HasSubstr(": one\n\n"));
  EXPECT_THAT(output,
              EndsWith(": two\n\n"
                       "Logs: \n/var/log/tessel_exception.log\n/var/log/tessel_debug.log\n"));
  EXPECT_EQ(st().exception, 2);
}

TEST_F(exit_test, a_summary_of_more_than_ten_has_no_preview) {
  st().exception = 11;
  EXPECT_EQ(exit_output(),
            "\nTESSEL Stopped: Found 11 info/exceptions/errors\n\n"
            "\nLogs Preview:\n\n\nTotal Error Count: 11\n"
            "Preview is not available as the number of logs are more\n"
            "Please check the respective log file for the error details\n"
            "Logs: \n/var/log/tessel_exception.log\n/var/log/tessel_debug.log\n");
}

TEST_F(exit_test, the_summary_behind_a_title_is_preceded_by_one_blank) {
  st().line_is_open = true;
  EXPECT_THAT(exit_output(), StartsWith(" \nTESSEL Stopped: "));
}

TEST_F(exit_test, after_the_result_table_nothing_is_printed) {
  st().printed_results = 1;
  st().exception = 5;
  st().info = 2;
  EXPECT_EQ(exit_output(), "");
  EXPECT_EQ(st().exception, 7) << "info is counted once more, which no output shows";
  EXPECT_THAT(snapshot_labels(), Not(IsEmpty()));
}

TEST_F(exit_test, with_nodeinfo_0_the_snapshot_has_the_number) {
  st().nodeinfo.set(ERROR);
  exit_output();
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), EndsWith("'Start of VM information entries...'\n0\n"
                                                  "'End of VM information entries...'\n"));
}

TEST_F(exit_test, stores_that_hold_texts_are_written_as_texts) {
  st().bdlInfoPI.set("raw \"text\"\n");
  st().bdlInfoPD.set(ERROR);
  st().DPA.get().as_map().set("0/0/CPU0", map_of({{"lagport", ERROR}}));
  exit_output();
  const std::string debug = file_text(LOG_FILE_DEBUG);
  EXPECT_THAT(debug, HasSubstr("'Start of BM PI entries...'\n\"raw \\\"text\\\"\\n\"\n"));
  EXPECT_THAT(debug, HasSubstr("'Start of BM PD entries...'\n0\n"));
  EXPECT_THAT(debug, HasSubstr("{\n   \"0/0/CPU0\":{\n      \"lagport\":0\n   }\n}\n"));
}

TEST_F(exit_test, a_store_without_a_value_is_left_out) {
  st().bdlInfoPI.set(value());
  exit_output();
  EXPECT_THAT(snapshot_labels(),
              ElementsAre("TESSELDB", "DPA", "BM PD", "Voq usage", "VM information"));
}

TEST_F(exit_test, chip_tables_are_written_only_when_asked_for) {
  st().snapshot = 1;
  exit_output();
  EXPECT_THAT(snapshot_labels(), ElementsAre("TESSELDB", "BCM", "DPA", "BM PI", "BM PD",
                                             "Voq usage", "VM information"));
}

TEST_F(exit_test, with_a_failing_preview_the_snapshot_is_skipped_and_the_logs_stay_open) {
  st().exception = 5;
  const std::string before = file_text(LOG_FILE_EXCEPTION);
  const std::string output = exit_output();
  EXPECT_EQ(output, "\nTESSEL Stopped: Found 5 info/exceptions/errors\n\n\nLogs Preview:\n\n\n");
  EXPECT_EQ(file_text(LOG_FILE_EXCEPTION), before) << "no line in any log";
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "");
  EXPECT_NE(st().dl_fd.get(), nullptr);
  EXPECT_NE(st().stale_fd.get(), nullptr);
  EXPECT_EQ(st().exception, 5);
}

TEST_F(exit_test, capture_files_are_removed_and_others_stay) {
  write_file("/tmp/tessel_one.log", "");
  write_file("/tmp/tessel_0.log", "");
  write_file("/tmp/tessel.log", "");
  exit_output();
  EXPECT_FALSE(file_exists("/tmp/tessel_one.log"));
  EXPECT_FALSE(file_exists("/tmp/tessel_0.log"));
  EXPECT_TRUE(file_exists("/tmp/tessel.log"));
}

TEST_F(exit_test, more_captures_than_fit_on_a_command_line_are_removed) {
  for (int number = 0; number < 12000; ++number) {
    write_file(fmt::format("/tmp/tessel_{:0240}", number), "");
  }
  write_file("/tmp/tessel.log", "");
  std::filesystem::create_directory("/tmp/tessel_folder");
  exit_output();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/tmp"), {}), 2);
  EXPECT_THAT(log_lines(LOG_FILE_DEBUG), Contains(HasSubstr("Argument list too long")));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(exit_test, a_capture_that_cannot_be_removed_is_noted_and_not_counted) {
  write_file("/tmp/tessel_busy.log", "");
  ASSERT_EQ(::mount("/tmp/tessel_busy.log", "/tmp/tessel_busy.log", "", MS_BIND, ""), 0);
  const std::string output = exit_output();
  ::umount2("/tmp/tessel_busy.log", MNT_DETACH);
  EXPECT_THAT(log_lines(LOG_FILE_DEBUG),
              Contains("'1 files of the audit stay in /tmp: Device or resource busy; remove them "
                       "by hand'"));
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(output, "\nTESSEL Stopped: Found 0 info/exceptions/errors\n\n");
}

TEST_F(exit_test, the_logs_are_closed) {
  exit_output();
  EXPECT_EQ(st().dl_fd.get(), nullptr);
  EXPECT_EQ(st().stale_fd.get(), nullptr);
}

TEST_F(exit_test, closing_twice_is_not_a_failure) {
  EXPECT_EQ(output_of([] {
              close_fd();
              close_fd();
            }),
            "");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(exit_test, without_logs_the_run_ends_all_the_same) {
  router_test::SetUp();
  EXPECT_EQ(exit_output(), "\nTESSEL Stopped: Found 0 info/exceptions/errors\n\n");
  EXPECT_EQ(st().exception, 0) << "the missing debug log is not counted";
}

TEST_F(exit_test, a_snapshot_without_a_debug_log_is_a_failure_of_the_caller) {
  close_fd();
  EXPECT_THROW(take_snapshot(), failure);
}

TEST_F(exit_test, a_worker_that_outlives_the_closing_gets_its_line_into_the_file) {
  std::latch closed(1);
  const auto straggler = start_worker([&closed] {
    closed.wait();
    logger("Inconsistency 1: found late", "inconsistent");
  });
  st().pid_list.append(straggler);
  exit_output();
  closed.count_down();
  st().pid_list.join_all();
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("Inconsistency 1: found late"));
}

TEST_F(exit_test, a_worker_whose_disk_hangs_does_not_hold_the_end) {
  auto disk = std::make_unique<hung_disk>(LOG_FILE_INCONSISTENT);
  const auto hung = start_worker([] { inconsistency("Inconsistency {}: found late"); });
  disk->wait_for_a_writer();
  const std::string output =
      output_of([] { EXPECT_NO_THROW(print_results()) << "it holds the lock of the results"; });
  EXPECT_THAT(output, HasSubstr("Inconsistencies             : 1 "));
  EXPECT_EQ(exit_output(), "");
  EXPECT_THAT(snapshot_labels(), Not(IsEmpty()));
  EXPECT_EQ(st().dl_fd.get(), nullptr) << "the other logs are closed";
  disk = nullptr;
  hung->join();
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("Inconsistency 1: found late"));
}

TEST_F(exit_test, refused_threads_are_one_uncounted_line_of_the_debug_log) {
  EXPECT_EQ(status_in_child([] {
              rlimit before{};
              ::getrlimit(RLIMIT_NPROC, &before);
              const rlimit none = {1, before.rlim_max};
              ::setrlimit(RLIMIT_NPROC, &none);
              // The logs stay root's; the limit does not apply to root itself.
              if (::setresuid(65534, 65534, 0) != 0 && errno != EINVAL) return 1;
              start_worker([] {})->join();
              start_worker([] {})->join();
              if (::setresuid(0, 0, 0) != 0 && errno != EINVAL) return 2;
              ::setrlimit(RLIMIT_NPROC, &before);
              const auto refused = figures_of_crew().refused;
              exit_output();
              const std::string line = fmt::format(
                  "'the system refused {} threads: Resource temporarily unavailable; "
                  "their jobs ran on fewer, raise the limit of processes'",
                  refused);
              const auto lines = log_lines(LOG_FILE_DEBUG);
              const auto found = std::count(lines.begin(), lines.end(), line);
              return refused > 0 && found == 1 && st().exception == 0 ? 7 : 3;
            }),
            7);
  SetUp();
  exit_output();
  EXPECT_THAT(log_lines(LOG_FILE_DEBUG), Not(Contains(HasSubstr("the system refused"))));
}

TEST_F(exit_test, no_failure_handler_catches_the_exit_request) {
  bool caught = false;
  try {
    try {
      output_of([] { exit_handler(); });
    } catch (const std::exception&) {
      caught = true;
    }
  } catch (const exit_request&) {
  }
  EXPECT_FALSE(caught);
}

TEST_F(exit_test, info_shown_in_the_table_is_added_once_more_at_the_end_and_not_shown) {
  for (const char* text : {"one", "two", "three"}) logger(text, "exception");
  ++st().exception;
  ++st().info;
  ++st().info;
  EXPECT_THAT(output_of([] { print_results(); }), HasSubstr("Info/Error/Module Exception : 3 "));
  EXPECT_EQ(exit_output(), "");
  EXPECT_EQ(st().exception, 5);
}

TEST_F(exit_test, the_preview_of_an_early_end_counts_the_exceptions_and_has_no_log_list) {
  for (int number = 0; number < 12; ++number) logger("more", "exception");
  st().exception = 12;
  st().inconsistent = 3;
  EXPECT_EQ(st().printed_results, 0);
  const std::string output = exit_output();
  EXPECT_THAT(output, HasSubstr("\nTotal Error Count: 12\n")) << "the exceptions alone";
  EXPECT_THAT(output, Not(HasSubstr("\nLogs:\n"))) << "the list of the result table";
  EXPECT_THAT(output, Not(HasSubstr("tessel_inconsistencies.log")));
}

// The descriptor under which this process has a file open.
int descriptor_of(std::string_view path) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry.path(), gone) == path) {
      return std::stoi(entry.path().filename());
    }
  }
  return -1;
}

TEST_F(exit_test, a_log_that_cannot_be_closed_is_reported_and_counted) {
  for (const std::string_view path :
       {LOG_FILE_BUNDLE_HEALTH, LOG_FILE_STALE_ENTRIES, LOG_FILE_DEBUG}) {
    SCOPED_TRACE(path);
    SetUp();
    // Checked inside `output_of`, because later another file could take the descriptor's number.
    const std::string output = output_of([path] {
      EXPECT_EQ(::close(descriptor_of(path)), 0);
      close_fd();
    });
    EXPECT_EQ(output, "\ncannot close " + std::string(path) +
                          ": Bad file descriptor: Cleanup task failed\n");
    EXPECT_EQ(st().exception, 1);
    EXPECT_EQ(st().dl_fd.get() == nullptr, path == LOG_FILE_DEBUG)
        << "what had not been closed by then stays open";
    logger("late", "bundle_health");
    EXPECT_THAT(messages(LOG_FILE_BUNDLE_HEALTH), ElementsAre("late"));
  }
}

TEST_F(exit_test, a_debug_log_that_a_worker_still_holds_is_closed_by_the_worker) {
  auto held = st().dl_fd.require();
  EXPECT_EQ(output_of([] { close_fd(); }), "");
  EXPECT_EQ(st().dl_fd.get(), nullptr);
  held->write("late\n");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "late\n");
  held = nullptr;
  EXPECT_EQ(descriptor_of(LOG_FILE_DEBUG), -1);
}

TEST_F(exit_test, after_results_that_have_waited_their_time_the_end_waits_no_longer) {
  busy_core busy;
  start_worker([] {});
  st().waited_for_workers = std::chrono::seconds(10);
  st().noted_late_workers = true;
  const auto start = std::chrono::steady_clock::now();
  exit_output();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), Not(HasSubstr("had not begun")));
}

}  // namespace
}  // namespace tessel
