#include "base/logs.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "base/log_file.h"
#include "base/text.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using logs_test = router_test;

constexpr std::size_t limit = 100000;
constexpr const char* fixed_words =
    "Log ERROR: No space left on device/Not able to access file system\n";
const std::string backup = std::string(LOG_FILE_INCONSISTENT) + ".1";

struct channel_row {
  std::string_view name;
  std::string_view file;
};
constexpr std::array<channel_row, 5> channels = {{
    {"exception", LOG_FILE_EXCEPTION},
    {"inconsistent", LOG_FILE_INCONSISTENT},
    {"programming_error", LOG_FILE_PROGRAMMING_ERROR},
    {"delete_pending", LOG_FILE_DELETE_PENDING},
    {"bundle_health", LOG_FILE_BUNDLE_HEALTH},
}};

void set_up_again() {
  st().log_dictionary.clear();
  open_logs();
}

// Fills the file of "inconsistent" so that a line of `room` bytes, its line end included, fills it
// exactly to the limit.
void fill_up_to(std::size_t room) {
  const std::size_t present = file_text(LOG_FILE_INCONSISTENT).size();
  log_file file(std::string(LOG_FILE_INCONSISTENT), file_mode::append);
  file.write(std::string(limit - room - present - 1, 'f') + "\n");
}

// A message whose line is `bytes` long.
std::string message_of(std::size_t bytes, char filler = 'm') {
  return std::string(bytes - sizeof("2026-11-21 07:38:53,123: ") + 1 - 1, filler);
}

TEST_F(logs_test, log_init_opens_five_channels_and_two_plain_files) {
  EXPECT_EQ(output_of([] { EXPECT_EQ(log_init(), SUCCESS); }), "");
  std::set<std::string> names;
  for (const auto& [name, channel] : st().log_dictionary) names.insert(name);
  EXPECT_EQ(names, (std::set<std::string>{"exception", "inconsistent", "programming_error",
                                          "delete_pending", "bundle_health"}));
  for (const channel_row& each : channels) {
    EXPECT_THAT(log_lines(each.file),
                ElementsAre(MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2},"
                                         "[0-9]{3}: Started Tessel Checker")))
        << each.name;
  }
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "");
  EXPECT_EQ(file_text(LOG_FILE_STALE_ENTRIES), "'Started Tessel Checker'\n") << "in quotes";
  EXPECT_EQ(st().exception, 0);
}

TEST_F(logs_test, log_init_removes_the_capture_files_of_a_former_run) {
  write_file("/tmp/tessel_0.log", "old");
  write_file("/tmp/tessel", "old");
  write_file("/tmp/other", "kept");
  open_logs();
  EXPECT_FALSE(file_exists("/tmp/tessel_0.log"));
  EXPECT_FALSE(file_exists("/tmp/tessel"));
  EXPECT_TRUE(file_exists("/tmp/other"));
}

// The clock that the time stamps use; std::time may lag behind it.
std::time_t now() {
  using clock = std::chrono::system_clock;
  return std::chrono::floor<std::chrono::seconds>(clock::now().time_since_epoch()).count();
}

TEST_F(logs_test, the_stamp_is_the_local_time_now) {
  const std::time_t before = now();
  open_logs();
  std::tm when{};
  ASSERT_NE(::strptime(log_lines(LOG_FILE_EXCEPTION)[0].c_str(), "%Y-%m-%d %H:%M:%S", &when),
            nullptr);
  when.tm_isdst = -1;
  const std::time_t stamp = std::mktime(&when);
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, now());
}

TEST_F(logs_test, finding_logs_keep_what_former_runs_wrote_and_the_others_start_empty) {
  for (const channel_row& each : channels) write_file(each.file, "former\n");
  write_file(LOG_FILE_DEBUG, "former\n");
  write_file(LOG_FILE_STALE_ENTRIES, "former\n");
  open_logs();
  for (const channel_row& each : channels) {
    const bool kept = each.name != "bundle_health";
    EXPECT_EQ(log_lines(each.file).size(), kept ? 2U : 1U) << each.name;
  }
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "");
  EXPECT_EQ(file_text(LOG_FILE_STALE_ENTRIES), "former\n'Started Tessel Checker'\n");
}

TEST_F(logs_test, the_bundle_health_log_of_a_run_that_found_nothing_holds_the_one_start_line) {
  open_logs();
  logger("finding of the run before", "bundle_health");
  set_up_again();
  EXPECT_THAT(log_lines(LOG_FILE_BUNDLE_HEALTH), ElementsAre(EndsWith(": Started Tessel Checker")));
}

TEST_F(logs_test, a_line_goes_to_the_channel_that_it_names) {
  open_logs();
  for (const channel_row& each : channels) logger(each.name, each.name);
  for (const channel_row& each : channels) {
    EXPECT_THAT(messages(each.file), ElementsAre(std::string(each.name)));
  }
}

TEST_F(logs_test, the_five_names_are_the_only_ones) {
  open_logs();
  for (const char* name : {"", "debug", "Exception", "stale", "exceptio", "root"}) {
    EXPECT_EQ(output_of([&] { logger("lost", name); }),
              "Log ERROR: no log channel '" + std::string(name) + "'\n");
  }
  for (const channel_row& each : channels) EXPECT_THAT(messages(each.file), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(logs_test, a_line_for_a_channel_that_is_not_open_yet_waits_for_it) {
  EXPECT_EQ(output_of([] {
              logger("first", "exception");
              logger("other", "inconsistent");
              logger("second", "exception");
            }),
            "");
  open_logs();
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre("first", "second"));
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("other"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION)[0], EndsWith("Started Tessel Checker"));
  set_up_again();
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre("first", "second")) << "written once";
}

TEST_F(logs_test, details_are_the_traceback_of_the_failure_that_is_being_handled) {
  open_logs();
  try {
    throw failure("no key 'lagid'");
  } catch (const std::exception& error) {
    logger(std::string(error.what()) + ": check_lag failed", "exception", true);
    logger("INFO: without details", "exception");
  }
  const auto lines = log_lines(LOG_FILE_EXCEPTION);
  ASSERT_EQ(lines.size(), 6U);
  EXPECT_THAT(lines[1], EndsWith(": no key 'lagid': check_lag failed"));
  EXPECT_EQ(lines[2], "Traceback (most recent call last):");
  EXPECT_THAT(lines[3], StartsWith("  File \""));
  EXPECT_EQ(lines[4], "failure: no key 'lagid'");
  EXPECT_THAT(lines[5], EndsWith(": INFO: without details"));
}

TEST_F(logs_test, without_a_failure_there_are_no_details) {
  open_logs();
  logger("alone", "exception", true);
  EXPECT_EQ(log_lines(LOG_FILE_EXCEPTION).size(), 2U);
}

TEST_F(logs_test, a_channel_writes_what_reaches_its_level) {
  setup_logger("exception", LOG_FILE_EXCEPTION, log_level::error);
  EXPECT_EQ(file_text(LOG_FILE_EXCEPTION), "") << "the start line is of level INFO";
  logger("note", "exception");
  logger("failed", "exception", true);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAre("failed"));
}

TEST_F(logs_test, any_bytes_are_logged_as_they_are) {
  open_logs();
  logger(std::string_view("a\0b\xff\xfe%s{}", 9), "exception");
  EXPECT_TRUE(file_text(LOG_FILE_EXCEPTION).ends_with(std::string(": a\0b\xff\xfe%s{}\n", 12)));
}

TEST_F(logs_test, a_full_disk_at_the_first_channel_prints_the_fixed_words_and_ends_the_run) {
  const full_folder full("/var/log");
  EXPECT_EQ(output_of([] { EXPECT_THROW(log_init(), exit_request); }), fixed_words);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(file_text(LOG_FILE_EXCEPTION), "");
  EXPECT_FALSE(file_exists(LOG_FILE_INCONSISTENT)) << "before anything else has happened";
}

TEST_F(logs_test, whatever_keeps_a_channel_from_opening_gives_the_same_fixed_words) {
  {
    const read_only_folder none("/var/log");
    EXPECT_EQ(output_of([] { EXPECT_THROW(log_init(), exit_request); }), fixed_words);
  }
  ::mkdir(std::string(LOG_FILE_BUNDLE_HEALTH).c_str(), 0755);
  EXPECT_EQ(output_of([] { EXPECT_THROW(log_init(), exit_request); }), fixed_words);
  EXPECT_EQ(output_of([] {
              EXPECT_THROW(setup_logger("exception", "/no/such/folder/log"), exit_request);
            }),
            fixed_words);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(logs_test, a_plain_file_that_cannot_be_opened_fails_log_init) {
  for (const std::string_view path : {LOG_FILE_DEBUG, LOG_FILE_STALE_ENTRIES}) {
    SCOPED_TRACE(path);
    SetUp();
    ::mkdir(std::string(path).c_str(), 0755);
    EXPECT_EQ(output_of([] { EXPECT_EQ(log_init(), ERROR); }),
              "\ncannot open " + std::string(path) + ": Is a directory: Log init failed\n");
    EXPECT_EQ(st().exception, 1);
  }
}

TEST_F(logs_test, a_stale_entry_log_that_cannot_be_written_fails_log_init) {
  ASSERT_EQ(::symlink("/dev/full", std::string(LOG_FILE_STALE_ENTRIES).c_str()), 0);
  EXPECT_EQ(output_of([] { EXPECT_EQ(log_init(), ERROR); }),
            "\ncannot write /var/log/tessel_stale_entries.log: No space left on device: Log init "
            "failed\n");
  EXPECT_EQ(st().exception, 1);
}

TEST_F(logs_test, a_line_that_cannot_be_written_is_reported_and_stops_no_caller) {
  const full_folder full("/var/log");
  write_file(LOG_FILE_EXCEPTION, "");
  const auto channel = std::make_shared<log_channel>(std::string(LOG_FILE_EXCEPTION),
                                                     file_mode::append, 0, log_level::info);
  st().log_dictionary["exception"] = channel;
  EXPECT_EQ(output_of([] { logger("lost", "exception"); }),
            "Log ERROR: cannot write /var/log/tessel_exception.log: No space left on device\n");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(logs_test, a_line_that_can_neither_be_written_nor_reported_stops_no_caller_either) {
  EXPECT_EQ(status_in_child([] {
              const int none = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
              ::dup2(none, STDOUT_FILENO);
              logger("lost", "no such channel");
              return 7;
            }),
            7);
}

TEST_F(logs_test, a_line_that_a_former_run_could_not_finish_swallows_no_entry) {
  write_file(LOG_FILE_INCONSISTENT, "2026-11-21 07:38:53,123: Incons");
  set_up_again();
  logger("a finding", "inconsistent");
  EXPECT_THAT(log_lines(LOG_FILE_INCONSISTENT),
              ElementsAre("2026-11-21 07:38:53,123: Incons", EndsWith(": Started Tessel Checker"),
                          EndsWith(": a finding")));
}

void limit_files(rlim_t bytes) {
  const rlimit most{bytes, RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &most), 0);
}

TEST_F(logs_test, a_line_that_met_a_full_disk_halfway_swallows_no_entry) {
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGXFSZ, SIG_IGN);
              log_channel channel("/tmp/halfway.log", file_mode::append, 0, log_level::info);
              channel.write(log_level::info, std::string(30, 'a') + "\n");
              limit_files(40);
              const std::string entry = std::string(30, 'b') + "\n";
              const std::string cause = failure_of([&] { channel.write(log_level::info, entry); });
              limit_files(40 - 1);
              failure_of([&] { channel.write(log_level::info, entry); });
              limit_files(RLIM_INFINITY);
              channel.write(log_level::info, "an entry\n");
              return cause == "cannot write /tmp/halfway.log: File too large" ? 7 : 1;
            }),
            7);
  EXPECT_EQ(file_text("/tmp/halfway.log"),
            std::string(30, 'a') + "\n" + std::string(9, 'b') + "\nan entry\n");
}

TEST_F(logs_test, a_channel_that_was_closed_is_opened_again_for_a_late_line) {
  open_logs();
  for (const auto& [name, channel] : st().log_dictionary) {
    channel->close();
    channel->close();
  }
  logger("late", "inconsistent");
  logger("late", "bundle_health");
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("late"));
  EXPECT_EQ(log_lines(LOG_FILE_BUNDLE_HEALTH).size(), 2U) << "and is not emptied for it";
}

TEST_F(logs_test, a_line_that_stays_one_byte_below_the_limit_does_not_rotate) {
  open_logs();
  fill_up_to(101);
  logger(message_of(100), "inconsistent");
  EXPECT_EQ(file_text(LOG_FILE_INCONSISTENT).size(), limit - 1);
  EXPECT_FALSE(file_exists(backup));
}

TEST_F(logs_test, a_line_that_would_reach_the_limit_exactly_goes_to_an_empty_file) {
  open_logs();
  fill_up_to(100);
  const std::string before = file_text(LOG_FILE_INCONSISTENT);
  logger(message_of(100), "inconsistent");
  EXPECT_EQ(file_text(backup), before);
  EXPECT_EQ(file_text(LOG_FILE_INCONSISTENT).size(), 100U);
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre(message_of(100)));
}

TEST_F(logs_test, the_traceback_behind_a_line_counts_for_the_limit) {
  open_logs();
  fill_up_to(101);
  try {
    throw failure("no key 'lagid'");
  } catch (const std::exception&) {
    logger(message_of(100), "inconsistent", true);
  }
  EXPECT_TRUE(file_exists(backup)) << "the line alone would have fitted";
  const auto lines = log_lines(LOG_FILE_INCONSISTENT);
  ASSERT_EQ(lines.size(), 4U) << "and stays with its line";
  EXPECT_EQ(lines[1], "Traceback (most recent call last):");
}

TEST_F(logs_test, one_backup_is_kept) {
  open_logs();
  for (const char filler : {'a', 'b', 'c'}) {
    logger(message_of(60000, filler), "inconsistent");
  }
  EXPECT_THAT(messages(backup), ElementsAre(message_of(60000, 'b')));
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre(message_of(60000, 'c')));
  EXPECT_FALSE(file_exists(backup + ".1"));
  EXPECT_FALSE(file_exists(std::string(LOG_FILE_INCONSISTENT) + ".2"));
}

TEST_F(logs_test, after_rotation_the_last_findings_stand_in_the_file_and_its_backup) {
  open_logs();
  constexpr int count = 1500;
  for (int number = 1; number <= count; ++number) {
    logger("Inconsistency " + std::to_string(number) + " " + std::string(80, 'x'), "inconsistent");
    EXPECT_LT(std::filesystem::file_size(LOG_FILE_INCONSISTENT), limit);
  }
  std::vector<std::string> last = messages(backup);
  for (const std::string& line : messages(LOG_FILE_INCONSISTENT)) last.push_back(line);
  ASSERT_GT(last.size(), 1U);
  int expected = count - static_cast<int>(last.size()) + 1;
  for (const std::string& line : last) {
    EXPECT_THAT(line, StartsWith("Inconsistency " + std::to_string(expected++) + " "));
  }
}

TEST_F(logs_test, a_line_longer_than_the_limit_has_the_file_for_itself) {
  open_logs();
  logger("before", "inconsistent");
  logger(message_of(250000), "inconsistent");
  EXPECT_THAT(messages(backup), ElementsAre("before"));
  EXPECT_EQ(file_text(LOG_FILE_INCONSISTENT).size(), 250000U);
  logger("after", "inconsistent");
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("after"));
}

TEST_F(logs_test, a_start_line_that_reaches_the_limit_rotates_too) {
  write_file(LOG_FILE_INCONSISTENT, std::string(limit - 10, 'f') + "\n");
  open_logs();
  EXPECT_EQ(file_text(backup).size(), limit - 9);
  EXPECT_THAT(log_lines(LOG_FILE_INCONSISTENT), ElementsAre(EndsWith("Started Tessel Checker")));
}

TEST_F(logs_test, the_bundle_health_log_does_not_rotate) {
  open_logs();
  for (int round = 0; round < 3; ++round) logger(message_of(60000), "bundle_health");
  EXPECT_GT(file_text(LOG_FILE_BUNDLE_HEALTH).size(), limit);
  EXPECT_FALSE(file_exists(std::string(LOG_FILE_BUNDLE_HEALTH) + ".1"));
}

TEST_F(logs_test, where_the_backup_cannot_be_written_the_file_grows_and_loses_nothing) {
  open_logs();
  ::mkdir(backup.c_str(), 0755);
  EXPECT_EQ(output_of([] {
              for (int round = 0; round < 3; ++round) logger(message_of(60000), "inconsistent");
            }),
            "");
  EXPECT_EQ(messages(LOG_FILE_INCONSISTENT).size(), 3U);
}

TEST_F(logs_test, a_file_that_others_have_put_in_place_replaces_no_backup) {
  open_logs();
  logger(message_of(60000), "inconsistent");
  std::filesystem::rename(LOG_FILE_INCONSISTENT, backup);
  write_file(LOG_FILE_INCONSISTENT, "");
  logger(message_of(60000, 'b'), "inconsistent");
  EXPECT_THAT(messages(backup), ElementsAre(message_of(60000)));
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre(message_of(60000, 'b')));
}

TEST_F(logs_test, lines_of_many_threads_stay_whole_through_rotations) {
  open_logs();
  constexpr int threads = 6;
  constexpr int each = 150;
  together(threads, [](int number) {
    for (int round = 0; round < each; ++round) {
      logger(std::string(400, static_cast<char>('a' + number)), "inconsistent");
      logger(std::to_string(number), "delete_pending");
    }
  });
  EXPECT_EQ(messages(LOG_FILE_DELETE_PENDING).size(), static_cast<std::size_t>(threads * each));
  EXPECT_TRUE(file_exists(backup));
  for (const std::string& path : {backup, std::string(LOG_FILE_INCONSISTENT)}) {
    for (const std::string& line : messages(path)) EXPECT_EQ(line, std::string(400, line[0]));
    EXPECT_EQ(log_lines(path).size(), messages(path).size()) << "no line without a stamp";
  }
}

TEST_F(logs_test, lines_logged_by_many_threads_while_channels_open_are_all_written) {
  together(5, [](int number) {
    if (number == 0) {
      open_logs();
      return;
    }
    for (int round = 0; round < 100; ++round) logger(std::to_string(number), "inconsistent");
  });
  EXPECT_EQ(messages(LOG_FILE_INCONSISTENT).size(), 400U);
}

TEST_F(logs_test, a_plain_file_takes_whole_writes_of_many_threads) {
  log_file shared("/var/log/shared", file_mode::truncate);
  together(6, [&](int number) {
    for (int round = 0; round < 100; ++round) {
      shared.write(std::string(300, static_cast<char>('a' + number)) + "\n");
    }
  });
  const auto lines = log_lines("/var/log/shared");
  EXPECT_EQ(lines.size(), 600U);
  for (const std::string& line : lines) EXPECT_EQ(line, std::string(300, line[0]));
}

TEST_F(logs_test, a_plain_file_names_path_and_cause_of_a_failure) {
  EXPECT_EQ(failure_of([] { log_file("/no/such/file", file_mode::append); }),
            "cannot open /no/such/file: No such file or directory");
  log_file full("/dev/full", file_mode::append);
  EXPECT_EQ(failure_of([&] { full.write("x"); }),
            "cannot write /dev/full: No space left on device");
}

TEST_F(logs_test, a_log_file_takes_none_of_the_standard_streams_places) {
  EXPECT_EQ(status_in_child([] {
              for (const int stream : {0, 1, 2}) ::close(stream);
              const log_file file("/var/log/file", file_mode::append);
              return file.descriptor() > 2 ? 7 : 1;
            }),
            7);
}

TEST_F(logs_test, who_took_a_plain_file_may_use_it_after_it_was_closed) {
  open_logs();
  const auto taken = st().stale_fd.require();
  st().stale_fd.close();
  taken->write("late\n");
  EXPECT_EQ(log_lines(LOG_FILE_STALE_ENTRIES).back(), "late");
  EXPECT_EQ(st().stale_fd.get(), nullptr);
  EXPECT_TRUE(st().stale_fd.opened_once());
  EXPECT_THAT(failure_of([] { st().stale_fd.require(); }), HasSubstr("not open"));
  st().stale_fd.close();
}

TEST_F(logs_test, a_file_that_was_removed_from_outside_is_made_anew_at_the_limit) {
  open_logs();
  fill_up_to(100);
  std::filesystem::remove(LOG_FILE_INCONSISTENT);
  logger(message_of(100), "inconsistent");
  logger("after", "inconsistent");
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre(message_of(100), "after"));
  EXPECT_FALSE(file_exists(backup));
}

TEST_F(logs_test, a_file_that_was_removed_from_outside_is_made_anew_at_the_next_entry) {
  open_logs();
  logger("before", "inconsistent");
  std::filesystem::remove(LOG_FILE_INCONSISTENT);
  logger("after", "inconsistent");
  logger("and on", "inconsistent");
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAre("after", "and on"));
}

TEST_F(logs_test, a_file_that_cannot_be_closed_is_named_with_the_cause) {
  log_file file("/tmp/plain", file_mode::truncate);
  ASSERT_EQ(::close(file.descriptor()), 0);
  EXPECT_EQ(failure_of([&] { file.close(); }), "cannot close /tmp/plain: Bad file descriptor");
  EXPECT_NO_THROW(file.close()) << "once is enough";
  EXPECT_EQ(file.descriptor(), -1);
}

// The text with which a log at this path is refused.
std::string refusal_of(const std::string& path) {
  const std::string to_write = failure_of([&] { log_file(path, file_mode::truncate); });
  EXPECT_EQ(failure_of([&] { log_reader{path}; }), to_write) << "a reader would wait as well";
  return to_write;
}

TEST_F(logs_test, a_log_that_is_no_file_is_refused_before_anything_waits) {
  ASSERT_EQ(::mkfifo("/var/log/fifo", 0644), 0);
  EXPECT_EQ(
      refusal_of("/var/log/fifo"),
      "cannot open /var/log/fifo: it is a FIFO, and the audit keeps its logs in files; remove "
      "it");
  const int unused = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{AF_UNIX, "/var/log/socket"};
  ASSERT_EQ(::bind(unused, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(unused);
  EXPECT_THAT(refusal_of("/var/log/socket"), HasSubstr("it is a socket"));
  ASSERT_EQ(::symlink("fifo", "/var/log/link"), 0);
  EXPECT_THAT(refusal_of("/var/log/link"), HasSubstr("/var/log/link: it is a FIFO"));
}

TEST_F(logs_test, a_FIFO_in_the_place_of_a_log_ends_the_run_as_a_full_disk_does) {
  ASSERT_EQ(::mkfifo(std::string(LOG_FILE_INCONSISTENT).c_str(), 0644), 0);
  EXPECT_EQ(output_of([] { EXPECT_THROW(log_init(), exit_request); }), fixed_words);
  SetUp();
  ASSERT_EQ(::mkfifo(std::string(LOG_FILE_DEBUG).c_str(), 0644), 0);
  EXPECT_THAT(output_of([] { EXPECT_EQ(log_init(), ERROR); }),
              AllOf(StartsWith("\ncannot open /var/log/tessel_debug.log: it is a FIFO"),
                    EndsWith("; remove it: Log init failed\n")));
}

// A log in /var/log that is a link; `spoil` gives somebody else a hand in it.
std::string opened_by_link(const std::function<void()>& spoil) {
  write_file("/tmp/target", "former");
  std::filesystem::remove("/var/log/linked");
  EXPECT_EQ(::symlink("/tmp/target", "/var/log/linked"), 0);
  spoil();
  try {
    log_file("/var/log/linked", file_mode::truncate);
  } catch (const failure& refused) {
    EXPECT_EQ(file_text("/tmp/target"), "former");
    return refused.what();
  }
  return file_text("/tmp/target").empty() ? "emptied" : "kept";
}

TEST_F(logs_test, a_link_that_root_made_is_followed_and_no_other) {
  constexpr uid_t another = 1000;
  const auto refused = AllOf(StartsWith("cannot open /var/log/linked: it is a link that others"),
                             HasSubstr("remove it, or let root own it"));
  EXPECT_EQ(opened_by_link([] {}), "emptied");
  EXPECT_EQ(opened_by_link([] { ::chmod("/var/log", 0775); }), "emptied") << "the group is root";
  EXPECT_THAT(opened_by_link([] { ::chmod("/var/log", 0777); }), refused);
  EXPECT_THAT(opened_by_link([] { ::chmod("/var/log", 01777); }), refused);
  ::chmod("/var/log", 0755);
  EXPECT_THAT(opened_by_link([] {
                std::filesystem::remove("/tmp/target");
                write_file("/tmp/other", "former");
                ::chmod("/tmp", 0777);
                EXPECT_EQ(::symlink("/tmp/other", "/tmp/target"), 0);
              }),
              refused)
      << "a link behind the link";
  ::chmod("/tmp", 0755);
  if (::chown("/var/log", 0, another) != 0) GTEST_SKIP() << "a namespace of one user";
  EXPECT_THAT(opened_by_link([] { ::chmod("/var/log", 0775); }), refused);
  EXPECT_THAT(opened_by_link([] { EXPECT_EQ(::chown("/var/log", another, 0), 0); }), refused);
  EXPECT_EQ(::chown("/var/log", 0, 0), 0);
  ::chmod("/var/log", 0755);
  EXPECT_THAT(opened_by_link([] { EXPECT_EQ(::lchown("/var/log/linked", another, 0), 0); }),
              refused);
}

TEST_F(logs_test, a_log_that_leads_to_a_device_takes_everything_and_keeps_nothing) {
  ASSERT_EQ(::symlink("/dev/null", std::string(LOG_FILE_DEBUG).c_str()), 0);
  ASSERT_EQ(::symlink("/dev/zero", std::string(LOG_FILE_INCONSISTENT).c_str()), 0);
  struct stat before {};
  ASSERT_EQ(::stat("/dev/null", &before), 0);
  open_logs();
  st().dl_fd.require()->write("into nothing");
  logger("into nothing", "inconsistent");
  EXPECT_EQ(log_reader(std::string(LOG_FILE_INCONSISTENT)).text(), "") << "not zeros without end";
  struct stat after {};
  ASSERT_EQ(::stat("/dev/null", &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode) << "only a file gets its permissions";
}

TEST_F(logs_test, a_log_is_opened_so_that_its_writers_and_its_tools_may_wait) {
  const log_file file("/var/log/plain", file_mode::append);
  EXPECT_EQ(::fcntl(file.descriptor(), F_GETFL) & (O_NONBLOCK | O_APPEND), O_APPEND);
}

unsigned permissions_of(std::string_view path) {
  struct stat state {};
  EXPECT_EQ(::stat(std::string(path).c_str(), &state), 0);
  return state.st_mode & 07777U;
}

TEST_F(logs_test, the_debug_log_is_for_its_owner_alone_and_the_others_are_as_usual) {
  write_file(LOG_FILE_DEBUG, "former");
  ::chmod(std::string(LOG_FILE_DEBUG).c_str(), 0644);
  write_file(LOG_FILE_INCONSISTENT, "former\n");
  ::chmod(std::string(LOG_FILE_INCONSISTENT).c_str(), 0664);
  open_logs();
  EXPECT_EQ(permissions_of(LOG_FILE_DEBUG), 0600U);
  EXPECT_EQ(permissions_of(LOG_FILE_INCONSISTENT), 0664U);
  EXPECT_EQ(permissions_of(LOG_FILE_EXCEPTION), 0644U);
  EXPECT_EQ(permissions_of(LOG_FILE_STALE_ENTRIES), 0644U);
}

TEST_F(logs_test, a_log_at_the_limit_of_files_is_a_failure_and_ends_no_host) {
  EXPECT_EQ(status_in_child([] {
              log_file file("/var/log/plain", file_mode::append);
              const rlimit sixty_bytes{60, 60};
              ::setrlimit(RLIMIT_FSIZE, &sixty_bytes);
              const std::string text = failure_of([&] { file.write(std::string(100, 'x')); });
              return text == "cannot write /var/log/plain: File too large" ? 7 : 1;
            }),
            7)
      << "128 and 25 would be the signal's";
}

TEST_F(logs_test, a_note_for_support_is_a_line_of_the_debug_log_or_nothing) {
  EXPECT_EQ(output_of([] { note_for_support("before the log is open"); }), "");
  open_logs();
  note_for_support("12 files");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "'12 files'\n");
  st().dl_fd.open("/dev/full", file_mode::append);
  EXPECT_EQ(output_of([] { note_for_support("lost"); }), "");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(logs_test, log_init_removes_more_captures_than_fit_on_a_command_line) {
  for (int number = 0; number < 12000; ++number) {
    write_file(fmt::format("/tmp/tessel{:0240}", number), "");
  }
  write_file("/tmp/other", "kept");
  open_logs();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/tmp"), {}), 1);
}

}  // namespace
}  // namespace tessel
