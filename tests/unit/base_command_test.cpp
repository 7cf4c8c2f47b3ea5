#include "base/command.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/logs.h"
#include "base/text.h"
#include "base/worker.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using command_test = router_test;

TEST_F(command_test, the_result_is_what_the_command_wrote_on_standard_output) {
  open_logs();
  struct row {
    const char* why;
    const char* cmd;
    std::string expected;
  };
  const std::array rows = {
      row{"a line", "echo one", "one\n"},
      row{"nothing", "true", ""},
      row{"no line end is added", "printf one", "one"},
      row{"several commands", "echo one; echo two", "one\ntwo\n"},
      row{"quotes are the shell's", "echo 'a  b' \"c  $((1 + 1))\"", "a  b c  2\n"},
      row{"the exit status is never looked at", "echo partly; exit 3", "partly\n"},
      row{"nor is that of a command that fails at once", "false", ""},
      row{"killed by a signal", "echo before; kill -KILL $$; echo after", "before\n"},
      row{"reading standard input finds its end", "cat; echo end", "end\n"},
      row{"standard input is /dev/null", "readlink /proc/self/fd/0", "/dev/null\n"},
      row{"a redirection of its own", "echo one >/opt/nos/one; cat /opt/nos/one", "one\n"},
      row{"an empty command line", "", ""},
      row{"a NUL byte", "printf 'a\\000b'", std::string("a\0b", 3)},
      row{"bytes that are not text", "printf '\\377\\376'", "\xff\xfe"},
      row{"carriage returns stay", "printf 'a\\r\\n'", "a\r\n"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(execute(filled_line(each.cmd)), each.expected);
  }
  EXPECT_EQ(st().exception, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(command_test, without_a_time_limit_a_command_stays_in_the_session_of_its_host) {
  open_logs();
  const std::string own = std::to_string(::getsid(0)) + "\n";
  EXPECT_EQ(execute("cut -d ' ' -f 6 /proc/$$/stat"), own);
  st().command_timeout = std::chrono::seconds(60);
  EXPECT_EQ(execute("test $$ = $(cut -d ' ' -f 6 /proc/$$/stat) && echo own"), "own\n");
}

TEST_F(command_test, a_command_that_takes_too_long_is_ended_and_what_it_printed_counts) {
  open_logs();
  st().command_timeout = std::chrono::seconds(1);
  const auto began = std::chrono::steady_clock::now();
  const std::string said = error_output_of([] {
    EXPECT_EQ(execute({"echo {}; sleep 60", {{filling::address, "192.0.0.4", "0/0/CPU0"}}}),
              "192.0.0.4\n");
    EXPECT_EQ(execute("echo one"), "one\n");
  });
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
  EXPECT_EQ(said,
            "tessel: 0/0/CPU0: not ended after 1 s, so the audit ended it and uses what it has "
            "printed: echo 192.0.0.4; sleep 60\n");
  EXPECT_EQ(st().exception, 0);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(command_test, a_time_limit_works_where_nobody_reads_standard_error) {
  open_logs();
  EXPECT_EQ(status_in_child([] {
              ::alarm(60);
              std::array<int, 2> ends{};
              if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return 1;
              while (::write(ends[1], "x", 1) == 1) continue;
              ::fcntl(ends[1], F_SETFL, 0);
              ::dup2(ends[1], STDERR_FILENO);
              st().command_timeout = std::chrono::seconds(1);
              return execute("echo x; sleep 60") == "x\n" ? 7 : 2;
            }),
            7);
}

TEST_F(command_test, a_chip_that_takes_too_long_is_named) {
  open_logs();
  tool("asic_shell_show", "echo part; sleep 60");
  st().nodeinfo.set(ordered_map_of({{"0/1/CPU0", map_of({{"nodeip", "192.0.0.6"}})}}));
  st().command_timeout = std::chrono::seconds(1);
  const std::string said = error_output_of(
      [] { EXPECT_EQ(execute_bcmd("show unit", "3", 4096, "192.0.0.6"), "part\n"); });
  EXPECT_THAT(said, StartsWith("tessel: 0/1/CPU0 NPU 3: not ended after 1 s, "));
}

TEST_F(command_test, what_a_command_has_started_is_ended_with_it) {
  open_logs();
  st().command_timeout = std::chrono::seconds(1);
  const auto is_running = [](std::string_view pid) {
    const std::string state = file_text("/proc/" + std::string(pid) + "/stat");
    return !state.empty() && state.find(") Z ") == state.npos;
  };
  std::string pids;
  error_output_of([&] {
    pids = execute("trap '' TERM HUP INT; sleep 61 & echo $!; sh -c 'echo $$; sleep 62'").as_text();
  });
  const auto lines = split(pids, "\n");
  ASSERT_EQ(lines.size(), 3U) << pids;
  for (int tries = 0; tries < 6000 && (is_running(lines[0]) || is_running(lines[1])); ++tries)
    ::usleep(10'000);
  EXPECT_FALSE(is_running(lines[0]));
  EXPECT_FALSE(is_running(lines[1]));
}

// A tool that cannot end: its child traces it, and keeps it at its end until /tmp/go is there.
const std::string unending = R"(exec perl -e '
  pipe my $ready, my $told or exit 1;
  my $shell = $$;
  if (!fork) {
    my ( $ptrace, $seize, $stop_at_exit ) = ( 101, 0x4206, 0x40 );
    require POSIX;
    POSIX::setsid();
    my $has_it = syscall( $ptrace, $seize, $shell + 0, 0, $stop_at_exit ) == 0;
    syswrite $told, $has_it ? "held\n" : "free\n";
    for ( 1 .. 3000 ) { last if !$has_it || -e "/tmp/go"; select undef, undef, undef, 0.01 }
    POSIX::_exit(0);
  }
  $| = 1;
  print scalar <$ready>;
  sleep 60')";

TEST_F(command_test, a_tool_that_does_not_end_when_it_is_ended_delays_nothing) {
#ifndef __x86_64__
  GTEST_SKIP() << "the number of ptrace is known for x86_64 alone";
#endif
  open_logs();
  const int status = status_in_child([] {
    ::alarm(60);
    st().command_timeout = std::chrono::seconds(5);
    const value printed = execute(filled_line(unending));
    const bool runs = ::waitpid(-1, nullptr, WNOHANG) == 0;
    std::ofstream("/tmp/go") << "go";
    if (printed == "free\n") return 3;
    if (!(printed == "held\n")) return 1;
    return runs && ::waitpid(-1, nullptr, 0) > 0 ? 7 : 2;
  });
  if (status == 3) GTEST_SKIP() << "this machine allows nobody to trace";
  EXPECT_EQ(status, 7);
}

TEST_F(command_test, a_time_limit_works_where_the_host_reaps_its_children) {
  open_logs();
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGCHLD, SIG_IGN);
              st().command_timeout = std::chrono::seconds(1);
              if (execute("echo x") != "x\n") return 1;
              return execute("echo x; sleep 60") == "x\n" ? 7 : 2;
            }),
            7);
}

TEST_F(command_test, an_unknown_command_gives_an_empty_text_and_a_complaint_in_the_debug_log) {
  open_logs();
  EXPECT_EQ(execute("/opt/nos/bin/no_such_tool --all"), "");
  EXPECT_THAT(file_text(LOG_FILE_DEBUG), AllOf(HasSubstr("no_such_tool"), HasSubstr("not found")));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(command_test, output_on_standard_error_goes_to_the_debug_log_only) {
  open_logs();
  const std::string own = error_output_of([] { EXPECT_EQ(execute("echo oops >&2"), ""); });
  EXPECT_EQ(own, "");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "oops\n");
  EXPECT_EQ(execute("echo again >&2; echo out"), "out\n");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "oops\nagain\n") << "behind what is there";
}

TEST_F(command_test, a_command_line_with_a_pipe_is_one_command_and_the_last_stage_counts) {
  tool_prints("plat_nodes_show", "0/RP0/CPU0 ACTIVE\n0/1/CPU0 DOWN\n0/0/CPU0 ACTIVE\n");
  EXPECT_EQ(execute("/opt/nos/bin/plat_nodes_show -v | grep ACTIVE | sort", "nodes"),
            "0/0/CPU0 ACTIVE\n0/RP0/CPU0 ACTIVE\n");
  EXPECT_EQ(file_text("/tmp/tessel_nodes.log"), "0/0/CPU0 ACTIVE\n0/RP0/CPU0 ACTIVE\n");
}

TEST_F(command_test, a_tool_is_found_on_the_path) {
  tool_prints("sw_version_show", "TR-ELM1 processor\n");
  EXPECT_EQ(execute("sw_version_show"), "TR-ELM1 processor\n");
  EXPECT_THAT(calls(), ElementsAre("sw_version_show"));
}

TEST_F(command_test, the_capture_file_stays_and_is_emptied_by_the_next_call_of_its_suffix) {
  EXPECT_EQ(execute("echo a long first answer"), "a long first answer\n");
  EXPECT_EQ(file_text("/tmp/tessel_0.log"), "a long first answer\n") << "0 unless named";
  EXPECT_EQ(execute("echo short"), "short\n");
  EXPECT_EQ(file_text("/tmp/tessel_0.log"), "short\n");
  EXPECT_EQ(execute("echo other", "show_unit_all_A"), "other\n");
  EXPECT_EQ(file_text("/tmp/tessel_show_unit_all_A.log"), "other\n");
}

TEST_F(command_test, a_capture_is_for_this_user_alone_and_never_goes_through_a_link) {
  open_logs();
  write_file("/var/log/precious", "kept");
  ASSERT_EQ(::symlink("/var/log/precious", "/tmp/tessel_linked.log"), 0);
  EXPECT_EQ(execute("echo one", "linked"), "one\n");
  EXPECT_EQ(file_text("/var/log/precious"), "kept");
  struct stat state {};
  ASSERT_EQ(::lstat("/tmp/tessel_linked.log", &state), 0);
  EXPECT_TRUE(S_ISREG(state.st_mode)) << "the link has given way to a file";
  EXPECT_EQ(state.st_mode & 07777U, 0600U);
  EXPECT_EQ(file_text("/tmp/tessel_linked.log"), "one\n");
}

TEST_F(command_test, what_another_has_opened_under_the_name_gets_no_word_of_the_output) {
  write_file("/tmp/tessel_held.log", "planted");
  const int held = ::open("/tmp/tessel_held.log", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(held, 0);
  EXPECT_EQ(execute("echo secret", "held"), "secret\n");
  std::array<char, 32> seen{};
  EXPECT_EQ(std::string(seen.data(), static_cast<std::size_t>(::read(held, seen.data(), 32))),
            "planted");
  ::close(held);
}

TEST_F(command_test, calls_side_by_side_with_one_suffix_each_get_their_own_output) {
  open_logs();
  // Each command waits until both captures are open.
  ASSERT_EQ(execute("cd /opt/nos && mkfifo a b", "fifos"), "");
  const std::array<const char*, 2> pair = {"cd /opt/nos; echo first; echo >a; cat b >/dev/null",
                                           "cd /opt/nos; echo second; cat a >/dev/null; echo >b"};
  std::array<value, 2> results;
  together(2, [&](int number) {
    const auto at = static_cast<std::size_t>(number);
    results[at] = execute(filled_line(pair[at]), "shared");
  });
  EXPECT_THAT(results, ElementsAre("first\n", "second\n"));
  EXPECT_EQ(st().exception, 0);
}

TEST_F(command_test, the_capture_file_of_rm_is_deleted_by_that_rm) {
  open_logs();
  execute("echo one", "1");
  EXPECT_EQ(execute("rm /tmp/tessel*"), "");
  EXPECT_FALSE(file_exists("/tmp/tessel_1.log"));
  EXPECT_FALSE(file_exists("/tmp/tessel_0.log"));
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(command_test, a_capture_that_is_deleted_while_it_is_written_is_still_read) {
  EXPECT_EQ(execute("echo one; rm /tmp/tessel_*; echo two"), "one\ntwo\n");
}

TEST_F(command_test, an_unwritable_tmp_gives_ERROR_and_one_count_and_one_line) {
  open_logs();
  const read_only_folder none("/tmp");
  const std::string printed_text = output_of([] { EXPECT_EQ(execute("echo one"), ERROR); });
  EXPECT_EQ(printed_text, "");
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("cannot open /tmp/tessel_0.log: Read-only file system: execution failed "
                          "for echo one"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION), Contains("Traceback (most recent call last):"));
}

TEST_F(command_test, a_capture_file_that_cannot_be_opened_is_a_failure) {
  open_logs();
  ::mkdir("/tmp/tessel_taken.log", 0755);
  EXPECT_EQ(execute("touch /opt/nos/ran", "taken"), ERROR);
  EXPECT_EQ(execute("touch /opt/nos/ran", "no/such/folder"), ERROR);
  EXPECT_FALSE(file_exists("/opt/nos/ran"));
  EXPECT_EQ(st().exception, 2);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("Is a directory: execution failed for touch"),
                          HasSubstr("No such file or directory: execution failed for touch")));
}

TEST_F(command_test, a_failure_is_counted_before_it_is_logged) {
  // The channels are not open, so the entry waits. The thread that opens them already sees the
  // count.
  const read_only_folder none("/tmp");
  EXPECT_EQ(execute("echo one"), ERROR);
  EXPECT_EQ(st().exception, 1);
  ASSERT_EQ(st().waiting_entries.size(), 1U);
  EXPECT_THAT(st().waiting_entries[0].entry, HasSubstr("execution failed for echo one\nTraceback"));
}

TEST_F(command_test, a_failure_before_the_channels_exist_prints_nothing_and_is_logged_later) {
  {
    const read_only_folder none("/tmp");
    EXPECT_EQ(output_of([] { open_logs(); }), "");
  }
  EXPECT_EQ(st().exception, 1);
  const auto lines = log_lines(LOG_FILE_EXCEPTION);
  ASSERT_GE(lines.size(), 2U);
  EXPECT_THAT(lines[0], EndsWith(": Started Tessel Checker"));
  EXPECT_THAT(lines[1], EndsWith("execution failed for rm /tmp/tessel*"));
  EXPECT_TRUE(st().waiting_entries.empty());
}

TEST_F(command_test, a_process_that_cannot_be_started_is_a_failure) {
  open_logs();
  // Longer than the system allows for one argument.
  EXPECT_EQ(execute(filled_line("echo " + std::string(200'000, 'x'))), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(
      file_text(LOG_FILE_EXCEPTION),
      HasSubstr("cannot start /bin/sh: Argument list too long: execution failed for echo x"));
  EXPECT_EQ(execute("echo next"), "next\n");
}

TEST_F(command_test, descriptors_that_are_used_up_are_a_failure) {
  EXPECT_EQ(status_in_child([] {
              open_logs();
              const rlimit few = {10, 10};
              ::setrlimit(RLIMIT_NOFILE, &few);
              while (::open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
              }
              return execute("echo one") == ERROR && st().exception == 1 ? 7 : 1;
            }),
            7);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("Too many open files: execution failed for echo one")));
}

TEST_F(command_test, megabytes_of_output_are_read_whole) {
  const value output = execute(
      "i=0; while [ $i -lt 40000 ]; do "
      "printf '%0999d\\n' $i; i=$((i + 1)); done");
  ASSERT_EQ(output.as_text().size(), 40'000'000U);
  EXPECT_THAT(output.as_text().substr(0, 1000), EndsWith("0\n"));
  EXPECT_THAT(output.as_text().substr(39'999'000), EndsWith("039999\n"));
}

TEST_F(command_test, three_commands_run_at_once) {
  open_logs();
  // Each command waits for another: run one after the other, they would never end.
  ASSERT_EQ(execute("cd /opt/nos && rm -f a b c && mkfifo a b c"), "");
  const std::array<const char*, 3> ring = {"cd /opt/nos; echo 1 >a; cat c",
                                           "cd /opt/nos; cat a; echo 2 >b",
                                           "cd /opt/nos; cat b; echo 3 >c"};
  std::array<value, 3> results;
  together(3, [&](int number) {
    const auto at = static_cast<std::size_t>(number);
    results[at] = execute(filled_line(ring[at]), filled_line(std::to_string(number)));
  });
  EXPECT_THAT(results, ElementsAre("3\n", "1\n", "2\n"));
}

TEST_F(command_test, hundreds_of_commands_run_at_once_and_none_gets_the_output_of_another) {
  open_logs();
  constexpr int count = 300;
  std::vector<value> results(count);
  worker_list started;
  for (int number = 0; number < count; ++number) {
    started.append(start_worker([&results, number] {
      const std::string word = std::to_string(number);
      results[static_cast<std::size_t>(number)] =
          execute(filled_line("echo " + word + "; echo e >&2"), filled_line(word));
    }));
  }
  started.join_all();
  for (int number = 0; number < count; ++number) {
    EXPECT_EQ(results[static_cast<std::size_t>(number)], std::to_string(number) + "\n");
  }
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(log_lines(LOG_FILE_DEBUG), std::vector<std::string>(count, "e"));
}

TEST_F(command_test, a_command_inherits_no_descriptor_but_its_three_streams) {
  EXPECT_EQ(status_in_child([] {
              // Descriptors that this program inherited at its start do not count.
              ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
              open_logs();
              return execute(
                         "for n in 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do "
                         "test -e /proc/self/fd/$n && echo $n; done") == "0\n1\n2\n"
                         ? 7
                         : 1;
            }),
            7);
}

TEST_F(command_test, commands_that_start_side_by_side_inherit_nothing_of_one_another) {
  EXPECT_EQ(status_in_child([] {
              ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
              open_logs();
              std::atomic<int> strays = 0;
              together(4, [&](int number) {
                const std::string suffix = std::to_string(number);
                for (int round = 0; round < 20; ++round) {
                  const value others = execute(
                      "for n in 3 4 5 6 7 8 9 11 12 13 14 15 16 17 18 19 20 21 22 23; do "
                      "readlink /proc/self/fd/$n; done | grep -v pipe",
                      filled_line(suffix));
                  if (others != "") ++strays;
                }
              });
              return strays == 0 ? 7 : 1;
            }),
            7);
}

TEST_F(command_test, before_the_debug_log_is_open_complaints_go_to_descriptor_0) {
  EXPECT_EQ(status_in_child([] {
              const int kept = ::open("/var/log/zero", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
              ::dup2(kept, STDIN_FILENO);
              return execute("echo oops >&2; echo out; cat") == "out\n" ? 7 : 1;
            }),
            7);
  EXPECT_EQ(file_text("/var/log/zero"), "oops\n");
}

TEST_F(command_test, after_the_debug_log_was_closed_complaints_go_nowhere) {
  open_logs();
  st().dl_fd.close();
  EXPECT_EQ(status_in_child([] {
              const int zero = ::open("/var/log/zero", O_RDWR | O_CREAT | O_CLOEXEC, 0644);
              ::dup2(zero, STDIN_FILENO);
              return execute("echo oops >&2; echo out") == "out\n" ? 7 : 1;
            }),
            7);
  EXPECT_EQ(file_text("/var/log/zero"), "");
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "");
}

TEST_F(command_test, a_debug_log_that_is_closed_meanwhile_still_takes_the_complaints) {
  open_logs();
  ASSERT_EQ(execute("mkfifo /opt/nos/gate /opt/nos/up"), "");
  const auto running = start_worker(
      [] { execute("echo x >/opt/nos/up; cat /opt/nos/gate; echo oops >&2", "late"); });
  EXPECT_EQ(execute("cat /opt/nos/up"), "x\n");
  st().dl_fd.close();
  execute("echo go >/opt/nos/gate");
  running->join();
  EXPECT_EQ(file_text(LOG_FILE_DEBUG), "oops\n");
}

TEST_F(command_test, a_host_that_ignores_SIGCHLD_gets_its_results) {
  EXPECT_EQ(status_in_child([] {
              open_logs();
              ::signal(SIGCHLD, SIG_IGN);
              for (int round = 0; round < 20; ++round) {
                if (!(execute("echo one; exit 1") == "one\n")) return 1;
              }
              return st().exception == 0 ? 7 : 2;
            }),
            7);
}

// A tool that a terminal ended behind the back of its host would look like one that found nothing.
TEST_F(command_test, what_is_told_to_end_ignores_what_its_host_ignores) {
  for (const std::string number : {"1", "2", "3", "15"}) {
    const std::string line = "kill -" + number + " $$; echo survived";
    EXPECT_EQ(execute(filled_line(line)), "") << number;
    EXPECT_EQ(status_in_child([&] {
                open_logs();
                ::signal(std::stoi(number), SIG_IGN);
                return execute(filled_line(line)) == "survived\n" ? 7 : 2;
              }),
              7)
        << number;
  }
}

TEST_F(command_test, a_command_of_a_host_that_ignores_pipes_and_children_does_not) {
  EXPECT_EQ(status_in_child([] {
              open_logs();
              for (const int number : {SIGPIPE, SIGCHLD}) ::signal(number, SIG_IGN);
              if (!(execute("yes | head -n 1") == "y\n")) return 1;
              return execute("kill -PIPE $$; echo survived") == "" ? 7 : 2;
            }),
            7);
}

TEST_F(command_test, a_command_of_a_host_with_blocked_signals_gets_them) {
  EXPECT_EQ(status_in_child([] {
              open_logs();
              sigset_t all;
              ::sigfillset(&all);
              ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
              if (!(execute("echo one") == "one\n")) return 1;
              if (!(execute("kill -TERM $$; echo survived") == "")) return 2;
              return execute("grep SigBlk /proc/self/status") == "SigBlk:\t0000000000000000\n" ? 7
                                                                                               : 3;
            }),
            7);
}

TEST_F(command_test, a_host_without_standard_streams_gets_its_results) {
  for (const std::vector<int>& closed :
       {std::vector{0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}}) {
    SCOPED_TRACE(testing::PrintToString(closed));
    SetUp();
    EXPECT_EQ(status_in_child([&] {
                for (const int stream : closed) ::close(stream);
                if (!(execute("echo early; echo oops >&2") == "early\n")) return 1;
                if (log_init() != SUCCESS) return 2;
                if (!(execute("echo out; echo oops >&2; cat") == "out\n")) return 3;
                return st().exception == 0 ? 7 : 4;
              }),
              7);
    EXPECT_EQ(file_text(LOG_FILE_DEBUG), "oops\n");
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  }
}

TEST_F(command_test, what_the_host_has_left_inheritable_does_not_reach_a_command) {
  open_logs();
  EXPECT_EQ(status_in_child([] {
              const int kept = ::open("/dev/null", O_RDONLY);
              if (::dup2(kept, 57) < 0 || ::dup2(kept, 1000) < 0) return 1;
              const value seen = execute("echo /proc/self/fd/*");
              if (seen != "/proc/self/fd/0 /proc/self/fd/1 /proc/self/fd/2 /proc/self/fd/3\n") {
                return 2;  // the last one is what lists the folder
              }
              return ::fcntl(57, F_GETFD) == 0 && ::fcntl(1000, F_GETFD) == 0 ? 7 : 3;
            }),
            7)
      << "3 would mean that the host has lost them";
}

TEST_F(command_test, execute_bcmd_hands_a_chip_command_to_the_platform_tool) {
  tool("asic_shell_show", "printf '%s|' \"$@\"; echo");
  EXPECT_EQ(execute_bcmd("show unit", "all", "A", DEFAULT, "show_unit"),
            "-c|show unit|-u|all|-n|A|\n");
  EXPECT_TRUE(file_exists("/tmp/tessel_show_unit_all_A.log"));
  EXPECT_EQ(execute_bcmd("dump chg VD 0 10", 3, 4096), "-c|dump chg VD 0 10|-u|3|-n|4096|\n")
      << "numbers are written as they are";
  EXPECT_TRUE(file_exists("/tmp/tessel_1_3_4096.log"));
}

TEST_F(command_test, a_grep_opt_of_DEFAULT_leaves_the_command_without_a_grep) {
  tool_prints("asic_shell_show", "VLAN_DOMAIN=0,\n\nVLAN_DOMAIN=7,\n");
  EXPECT_EQ(execute_bcmd("dump", "0", "0", DEFAULT, "1", DEFAULT),
            "VLAN_DOMAIN=0,\n\nVLAN_DOMAIN=7,\n");
}

TEST_F(command_test, a_grep_opt_may_hold_options_and_further_pipes) {
  tool_prints("asic_shell_show", "VLAN_DOMAIN=0,\n\nVLAN_DOMAIN=7,\n");
  EXPECT_EQ(execute_bcmd("dump", "0", "0", DEFAULT, "1", "DOMAIN=7"), "VLAN_DOMAIN=7,\n");
  EXPECT_EQ(
      execute_bcmd("dump", "0", "0", DEFAULT, "1", "-v -E 'VLAN_DOMAIN=0,' | grep '[^[:space:]]'"),
      "VLAN_DOMAIN=7,\n");
}

TEST_F(command_test, execute_bcmd_never_uses_the_address) {
  tool("asic_shell_show", "printf '%s|' \"$@\"");
  EXPECT_EQ(execute_bcmd("x", 0, 1, "192.0.0.4"), execute_bcmd("x", 0, 1));
}

TEST_F(command_test, a_missing_chip_tool_gives_an_empty_text) {
  open_logs();
  EXPECT_EQ(execute_bcmd("show unit", "all", "A"), "");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(command_test, a_failure_below_execute_bcmd_counts_once) {
  open_logs();
  tool_prints("asic_shell_show", "x");
  const read_only_folder none("/tmp");
  EXPECT_EQ(execute_bcmd("show unit", "all", "A"), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("execution failed for /opt/nos/bin/asic_shell_show -c "
                                    "\"show unit\" -u all -n A")));
}

class unprintable : public record {
 public:
  unprintable() : record(no_fields(), {}) {}
  value fields_as_map() const override { throw failure("not to be printed"); }

 private:
  static const row_keys& no_fields() {
    static const row_keys& fields = *new row_keys{};
    return fields;
  }
};

TEST_F(command_test, a_failure_of_execute_bcmd_itself_names_the_chip_command) {
  open_logs();
  EXPECT_EQ(execute_bcmd("show unit", new_record<unprintable>(), "A"), ERROR);
  EXPECT_EQ(execute_bcmd("show unit", "0", new_record<unprintable>()), ERROR);
  EXPECT_EQ(st().exception, 2);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("not to be printed: execution failed for show unit",
                          "not to be printed: execution failed for show unit"));
  EXPECT_THAT(calls(), IsEmpty());
}

constexpr std::string_view marker = "/opt/nos/planted";

// Expects that a call with this value runs nothing, leaves no capture, is counted once, and is
// logged in one line that begins with `head`.
void expect_refused(const std::string& head, const std::function<value()>& call) {
  std::filesystem::remove(marker);
  std::filesystem::resize_file(LOG_FILE_EXCEPTION, 0);
  const std::int64_t before = st().exception;
  EXPECT_EQ(call(), ERROR);
  EXPECT_FALSE(file_exists(marker));
  EXPECT_TRUE(std::filesystem::is_empty("/tmp")) << "no capture";
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_EQ(st().exception, before + 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(AllOf(StartsWith(head), HasSubstr(": execution failed for "))));
}

TEST_F(command_test, a_value_that_would_plant_a_command_is_a_failure_and_nothing_is_run) {
  open_logs();
  tool("ssh", "echo never");
  tool("asic_shell_show", "echo never");
  for (const std::string& text : values_that_plant(marker)) {
    SCOPED_TRACE(text);
    expect_refused("the address of 0/1/CPU0 is ", [&] {
      return execute({"ssh {}", {{filling::address, text, "0/1/CPU0"}}});
    });
    expect_refused("the node name is ", [&] {
      return execute("echo never", {"x_{}", {{filling::node_in_file_name, text}}});
    });
    expect_refused("the NPU of node id 4096 is ",
                   [&] { return execute_bcmd("show unit", text, 4096); });
    expect_refused("the node id is ", [&] { return execute_bcmd("show unit", 0, text); });
    const bool has_nul = text.find('\0') != std::string::npos;
    expect_refused(has_nul ? "a NUL byte would" : "the capture name is ",
                   [&] { return execute_bcmd("show unit", 0, 1, DEFAULT, filled_line(text)); });
  }
}

TEST_F(command_test, a_chip_command_that_would_leave_its_quotes_is_a_failure) {
  open_logs();
  tool("asic_shell_show", "echo never");
  const std::string touch = "touch " + std::string(marker);
  for (const std::string& text :
       {"x\"; " + touch + "; \"", "$(" + touch + ")", "`" + touch + "`", std::string("x\\"),
        std::string("x\n") + touch, std::string("x\0", 2)}) {
    SCOPED_TRACE(text);
    expect_refused("", [&] { return execute_bcmd(filled_line(text), 0, 1); });
  }
}

TEST_F(command_test, a_refused_command_is_logged_in_one_line_with_value_and_line) {
  open_logs();
  EXPECT_EQ(execute({"ssh {} probe", {{filling::address, "a\nb\x1b;", "0/1/CPU0"}}}), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("the address of 0/1/CPU0 is 'a\\nb\\x1b;', and a command line takes only "
                          "[0-9A-Za-z_.:%][0-9A-Za-z_.:%-]*: execution failed for ssh a\\nb\\x1b; "
                          "probe"));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION), Contains("Traceback (most recent call last):"));
}

TEST_F(command_test, a_refused_command_is_counted_before_it_is_logged) {
  EXPECT_TRUE(counts_before_logging([] { execute({"{}", {{filling::npu, "x"}}}); }));
  EXPECT_TRUE(counts_before_logging([] { execute_bcmd("show unit", "x", 1); }));
}

TEST_F(command_test, a_NUL_byte_in_a_command_or_a_suffix_is_a_failure) {
  open_logs();
  expect_refused("a NUL byte", [] { return execute("touch /opt/nos/planted\0x"); });
  expect_refused("a NUL byte", [] { return execute("touch /opt/nos/planted", "a\0b"); });
}

TEST_F(command_test, ERROR_in_place_of_a_text_fails_the_caller_in_turn) {
  const read_only_folder none("/tmp");
  const value output = execute("echo one");
  EXPECT_FALSE(output.truthy());
  EXPECT_THAT(failure_of([&] { output.as_text(); }), HasSubstr("the integer 0"));
}

}  // namespace
}  // namespace tessel
