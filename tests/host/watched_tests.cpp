// Tests of what the host uses to watch an audit.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "early_stop.h"
#include "journal_relay.h"
#include "journal_tail.h"
#include "leftovers.h"
#include "processes.h"
#include "programs.h"
#include "progress.h"
#include "progress_display.h"
#include "standard_error.h"
#include "support_file.h"

namespace {

using namespace tessel_host;
namespace fs = std::filesystem;

class folder_test : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = testing::TempDir() + "/host_watched_" + std::to_string(getpid());
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }
  std::string at(const std::string& name) const { return folder_ + "/" + name; }
  static std::string content_of(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void write(const std::string& file, const std::string& text) {
    std::ofstream(file) << text;
  }
  std::string folder_;
};

TEST_F(folder_test, torn_line_is_dropped_and_nothing_else) {
  struct row {
    const char* why;
    std::string before;
    std::string after;
  };
  const std::string block(65536, 'x');
  const std::vector<row> rows = {
      {"empty", "", ""},
      {"whole lines", "a\nb\n", "a\nb\n"},
      {"a piece", "a\nb", "a\n"},
      {"only a piece", "a", ""},
      {"an empty last line", "a\n\n", "a\n\n"},
      {"a piece as long as a block", "a\n" + block, "a\n"},
      {"a line feed at the end of a block", "a" + block + "\n" + block, "a" + block + "\n"},
      {"a long piece alone", block + block + "x", ""},
  };
  for (const row& each : rows) {
    write(at("log"), each.before);
    EXPECT_TRUE(drop_torn_line(at("log"))) << each.why;
    EXPECT_EQ(content_of(at("log")), each.after) << each.why;
  }
}

TEST_F(folder_test, torn_line_is_dropped_only_from_an_own_file) {
  write(at("file"), "a\nb");
  fs::create_symlink("file", at("link"));
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(drop_torn_line(at("link")));
  EXPECT_FALSE(drop_torn_line(at("fifo")));
  EXPECT_FALSE(drop_torn_line(folder_));
  EXPECT_TRUE(drop_torn_line(at("none"))) << "there is nothing to drop";
  EXPECT_EQ(content_of(at("file")), "a\nb");
}

// A child that does `action` and then waits for a signal. It ends with the test.
pid_t start(const std::function<void()>& action) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  action();
  for (;;) ::pause();
}

void end(pid_t child) {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

bool comes_true(const std::function<bool()>& condition) {
  for (int tries = 0; tries < 12000; ++tries) {
    if (condition()) return true;
    ::usleep(5000);
  }
  return false;
}

TEST(running_below, finds_children_of_children_and_orphans_until_they_end) {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t child = start([] {
    if (::fork() == 0) {
      if (::fork() == 0) {
        for (;;) ::pause();
      }
      ::setsid();
      ::_exit(0);  // its own child becomes an orphan
    }
    if (::fork() == 0) {
      for (;;) ::pause();
    }
  });
  EXPECT_TRUE(comes_true([] { return running_below(::getpid()).size() == 3; }))
      << "the one that has ended does not count";
  // The one that ends may have been counted before the last one was there.
  EXPECT_TRUE(comes_true([] {
    for (const process& one : running_below(::getpid())) send_signal(one, SIGKILL);
    return running_below(::getpid()).empty();
  }));
  while (::waitpid(-1, nullptr, 0) > 0) continue;
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_FALSE(process_of(child));
}

TEST(running_below, finds_a_process_of_which_only_the_first_thread_has_ended) {
  const pid_t child = start([] {
    std::thread([] {
      for (;;) ::pause();
    }).detach();
    ::syscall(SYS_exit, 0);
  });
  EXPECT_TRUE(comes_true([&] { return process_of(child)->state == 'Z'; }));
  const auto found = running_below(::getpid());
  ASSERT_EQ(found.size(), 1U);
  send_signal(found[0], SIGKILL);
  EXPECT_TRUE(comes_true([] { return running_below(::getpid()).empty(); }));
  end(child);
}

TEST(running_below, leaves_out_what_is_spared_with_all_below) {
  const pid_t spared = start([] {
    if (::fork() == 0) {
      for (;;) ::pause();
    }
  });
  const pid_t other = start([] {});
  ASSERT_TRUE(comes_true([] { return running_below(::getpid()).size() == 3; }));
  std::vector<process> children = children_of(::getpid());
  EXPECT_EQ(children.size(), 2U) << "not the children of children";
  std::erase_if(children, [&](const process& one) { return one.id != spared; });
  ASSERT_EQ(children.size(), 1U);
  const auto left = running_below(::getpid(), children);
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].id, other);
  --children[0].began;
  EXPECT_EQ(running_below(::getpid(), children).size(), 3U) << "an earlier process with its id";
  for (const process& one : running_below(::getpid())) send_signal(one, SIGKILL);
  end(spared);
  end(other);
}

TEST(send_signal, spares_a_later_process_with_the_id) {
  const pid_t child = start([] {});
  auto other = process_of(child);
  ASSERT_TRUE(other);
  --other->began;
  send_signal(*other, SIGKILL);
  ::usleep(20000);
  EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "it still runs";
  end(child);
}

TEST(is_halted, means_every_thread) {
  const pid_t child = start([] {});
  EXPECT_TRUE(comes_true([&] { return process_of(child)->state == 'S'; }));
  EXPECT_FALSE(is_halted(child));
  ::kill(child, SIGSTOP);
  EXPECT_TRUE(comes_true([&] { return is_halted(child); }));
  ::kill(child, SIGCONT);
  EXPECT_TRUE(comes_true([&] { return !is_halted(child); }));
  end(child);
  EXPECT_TRUE(is_halted(child)) << "nobody is there";
}

// Root's tests have a /var/log of their own.
class early_stop : public folder_test {
 protected:
  void SetUp() override {
    folder_test::SetUp();
    if (::geteuid() != 0) GTEST_SKIP() << "only root has a /var/log of its own here";
  }
  void TearDown() override {
    for (const char* const log : {exceptions, complaints}) fs::remove(log);
    folder_test::TearDown();
  }
  static constexpr const char* exceptions = "/var/log/tessel_exception.log";
  static constexpr const char* complaints = "/var/log/tessel_debug.log";
  static constexpr const char* first = "2026-11-22 15:32:10,554: Started Tessel Checker\n";
  static std::string cause() { return cause_of_early_stop(std::time(nullptr) - 1); }
};

TEST_F(early_stop, points_only_to_a_log_in_which_this_run_has_written) {
  const std::string nowhere = "what it printed above says why";
  EXPECT_EQ(cause(), nowhere);
  write(exceptions, std::string("2026-11-21 00:00:00,000: former\n") + first);
  EXPECT_EQ(cause(), nowhere);
  write(exceptions, std::string(first) + "2026-11-22 15:32:10,560: this\n");
  EXPECT_EQ(cause(), "what it printed above and /var/log/tessel_exception.log say why");
  EXPECT_EQ(cause_of_early_stop(std::time(nullptr) + 100), nowhere) << "of an earlier run";
  fs::remove(exceptions);
  write(at("log"), std::string(first) + "this\n");
  fs::create_symlink(at("log"), exceptions);
  EXPECT_EQ(cause(), nowhere) << "a link";
}

TEST_F(early_stop, quotes_what_the_tool_complains_of_in_one_line) {
  const std::string head =
      "this machine is no router that the audit knows, or not its route processor: ";
  write(complaints, "rm: x\n\nsh: sw_version_show:\x1b not found\nmore\n");
  EXPECT_EQ(cause(), head + "sh: sw_version_show:\\x1b not found");
  write(complaints, "sw_version_show" + std::string(1000, 'x'));
  EXPECT_EQ(cause(), head + "sw_version_show" + std::string(145, 'x'));
}

// Support files -----------------------------------------------------------------------------------

// Packs a file that takes hours, in a child, and sends it a signal as soon as it has begun. Returns
// how it ended.
int end_of_packing(const std::string& folder, int signal) {
  std::ofstream(folder + "/big") << "x";
  fs::resize_file(folder + "/big", std::uintmax_t{64} << 30);
  std::ofstream(folder + "/packed") << "earlier";
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      static_cast<void>(make_support_file(folder + "/packed", "", {folder + "/big"}, {}));
    } catch (const support_error&) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  EXPECT_TRUE(comes_true([&] {
    for (const auto& open : fs::directory_iterator("/proc/" + std::to_string(child) + "/fd")) {
      std::error_code closed;
      if (fs::read_symlink(open.path(), closed) == folder + "/big") return true;
    }
    return false;
  })) << "it has begun";
  ::kill(child, signal);
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

TEST_F(folder_test, support_file_is_given_up_when_a_signal_ends_the_host) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    const int status = end_of_packing(folder_, signal);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2)
        << "nothing of it stays after signal " << signal;
    EXPECT_EQ(content_of(at("packed")), "earlier");
  }
}

TEST_F(folder_test, support_file_holds_what_the_doctor_says) {
  const auto made = make_support_file(at("packed"), "", {}, {}, [] { return "ok   machine\n"; });
  const auto without = make_support_file(at("packed"), "", {}, {});
  EXPECT_EQ(made.files, without.files + 1);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
  EXPECT_EQ(fs::file_size(at("packed")), without.bytes) << "one replaces another";
}

// Progress ----------------------------------------------------------------------------------------

TEST(read_event, takes_the_lines_of_a_journal) {
  const auto start = read_event(
      R"({"n":7,"event":"start","id":3,"at":1.250000,"pid":4712,"node":"0/3/CPU0","npu":"2",)"
      R"("command":"a \"b\" \\d, \"id\":9,\u001b\n"})");
  ASSERT_TRUE(start);
  EXPECT_EQ(start->kind, journal_event_kind::start);
  EXPECT_EQ(start->number, 7U);
  EXPECT_EQ(start->id, 3U);
  EXPECT_EQ(start->shell, 4712);
  EXPECT_EQ(start->at, 1.25);
  EXPECT_EQ(start->node, "0/3/CPU0");
  EXPECT_EQ(start->npu, "2");
  EXPECT_EQ(start->command, R"(a "b" \d, "id":9,? )");
  const auto end =
      read_event(R"({"n":8,"event":"end","id":3,"at":2.5,"pid":null,"node":null,"command":"x",)"
                 R"("seconds":0.75,"signal":9,"bytes":5,"timeout":true})");
  ASSERT_TRUE(end);
  EXPECT_EQ(end->kind, journal_event_kind::end);
  EXPECT_EQ(end->shell, 0);
  EXPECT_EQ(end->seconds, 0.75);
  EXPECT_EQ(end->node, "");
  EXPECT_TRUE(end->timed_out);
  for (const char* const other : {"", "x", "{}", R"({"n":1,"event":"start")"})
    EXPECT_FALSE(read_event(other)) << other;
}

TEST_F(folder_test, journal_is_handed_over_in_whole_lines) {
  const std::string long_line(100000, 'x');
  write(at("journal"), "former\na\nb");
  journal_tail tail(::open(at("journal").c_str(), O_RDONLY | O_CLOEXEC), 7, false);
  std::vector<std::string> lines;
  const auto take = [&] {
    tail.take_lines([&](std::string_view line) { lines.emplace_back(line); });
    return std::exchange(lines, {});
  };
  EXPECT_EQ(take(), std::vector<std::string>{"a"});
  EXPECT_EQ(take(), std::vector<std::string>{});
  std::ofstream(at("journal"), std::ios::app) << "c\n" << long_line << "\n\nrest";
  EXPECT_EQ(take(), (std::vector<std::string>{"bc", long_line, ""}));
}

journal_event command(journal_event_kind kind, std::uint64_t number, std::uint64_t id, double time,
                      const std::string& node = "", const std::string& npu = "") {
  journal_event event;
  event.kind = kind;
  event.number = number;
  event.id = id;
  event.shell = ::getpid();
  event.at = event.seconds = time;
  event.node = node;
  event.npu = npu;
  event.command = "/opt/nos/bin/tool of " + std::to_string(id);
  return event;
}

TEST(progress, counts_commands_and_names_the_one_that_runs_longest) {
  constexpr auto start = journal_event_kind::start;
  constexpr auto end = journal_event_kind::end;
  progress seen;
  EXPECT_EQ(seen.present(0), "0 commands running, 0 of 0 done, 0 s");
  seen.take(command(start, 2, 1, 0.5));
  EXPECT_EQ(seen.present(2), "1 command running, 0 of 1 done, 2 s; slowest: tool of 1, 1 s");
  EXPECT_EQ(seen.places(), "");
  seen.take(command(start, 3, 2, 1, "0/3/CPU0", "2"));
  seen.take(command(start, 4, 3, 1.5, "0/3/CPU0"));
  seen.take(command(start, 5, 4, 1.5, "0/RP0/CPU0"));
  seen.take(command(end, 6, 1, 0.7));
  EXPECT_EQ(seen.present(13.9),
            "3 commands running on 2 nodes, 1 of 4 done, 13 s; slowest: 0/3/CPU0 NPU 2 tool of 2, "
            "12 s");
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 0/1, 0/3/CPU0: 0/1, 0/RP0/CPU0: 0/1");
  seen.take(command(end, 7, 3, 3, "0/3/CPU0"));
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 0/1, 0/RP0/CPU0: 0/1");
  EXPECT_EQ(seen.summary(14), "2 commands done, 14 s, 2 running; slowest: 0/3/CPU0 tool of 3, 3 s");
  journal_event finished;
  finished.kind = journal_event_kind::finished;
  finished.number = 8;
  seen.take(finished);
  EXPECT_EQ(seen.summary(15), "4 commands done, 15 s; slowest: 0/3/CPU0 tool of 3, 3 s");
}

TEST(progress, does_not_wait_for_an_end_that_was_lost) {
  progress seen;
  auto gone = command(journal_event_kind::start, 2, 1, 0);
  gone.shell = start([] {});
  end(gone.shell);
  seen.take(gone);
  seen.take(command(journal_event_kind::start, 3, 2, 0));
  EXPECT_EQ(seen.running(), 2U);
  seen.take(command(journal_event_kind::start, 5, 3, 0));
  EXPECT_EQ(seen.running(), 2U) << "the shell that has ended is gone";
}

TEST(progress, counts_a_command_once_of_which_a_line_was_lost) {
  constexpr auto begins = journal_event_kind::start;
  constexpr auto ends = journal_event_kind::end;
  progress seen;
  seen.take(command(begins, 2, 1, 0, "0/3/CPU0", "2"));
  seen.take(command(ends, 4, 2, 1, "0/3/CPU0", "2"));
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 1/2") << "its start was lost";
  EXPECT_EQ(seen.drawn(0, 24), "1 running, 1/2 done, 0 s");
  auto gone = command(begins, 5, 3, 0, "0/3/CPU0", "2");
  gone.shell = start([] {});
  end(gone.shell);
  seen.take(gone);
  seen.take(command(begins, 7, 4, 0, "0/3/CPU0", "2"));
  seen.take(command(ends, 8, 3, 1, "0/3/CPU0", "2"));
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 2/4") << "its end comes after that of its shell";
  EXPECT_EQ(seen.drawn(0, 24), "2 running, 2/4 done, 0 s");
}

TEST(progress, shortens_and_escapes_what_it_shows) {
  progress seen;
  auto event = command(journal_event_kind::start, 2, 1, 0, "a\x1b");
  event.command = "\n" + std::string(100, 'x');
  seen.take(event);
  EXPECT_EQ(seen.present(0),
            "1 command running on 1 node, 0 of 1 done, 0 s; slowest: a\\x1b "
            "\\x0a" +
                std::string(53, 'x') + "..., 0 s");
}

TEST(progress, names_only_so_many_places) {
  progress seen;
  for (std::uint64_t id = 1; id <= 10; ++id)
    seen.take(command(journal_event_kind::start, id + 1, id, 0, std::to_string(id % 10)));
  EXPECT_EQ(seen.places(), "1: 0/1, 2: 0/1, 3: 0/1, 4: 0/1, 5: 0/1, 6: 0/1, 7: 0/1, 8: 0/1 +2");
}

TEST(progress, counts_what_is_done_on_each_node_and_chip) {
  constexpr auto begins = journal_event_kind::start;
  constexpr auto ends = journal_event_kind::end;
  progress seen;
  EXPECT_EQ(seen.drawn(0, 79), "0 running, 0/0 done, 0 s");
  for (std::uint64_t id = 1; id <= 3; ++id) {
    seen.take(command(begins, 2 * id, id, 1, "0/3/CPU0", "2"));
    seen.take(command(ends, 2 * id + 1, id, 1, "0/3/CPU0", "2"));
  }
  seen.take(command(begins, 8, 4, 5));
  EXPECT_EQ(seen.drawn(6, 79), "1 running, 3/4 done, 6 s; slowest 1 s: tool of 4");
  EXPECT_EQ(seen.places(), "") << "it asks no node";
  seen.take(command(ends, 9, 4, 1));
  seen.take(command(begins, 10, 5, 3.5, "0/0/CPU0"));
  seen.take(command(begins, 11, 6, 2.5, "0/3/CPU0", "2"));
  seen.take(command(begins, 12, 7, 3, "0/3/CPU0", "2"));
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 3/5, 0/0/CPU0: 0/1");
  // A line of which the end is lost: what has ended meanwhile counts as done.
  auto gone = command(begins, 13, 8, 4, "0/0/CPU0");
  gone.shell = start([] {});
  end(gone.shell);
  seen.take(gone);
  seen.take(command(begins, 15, 9, 4, "0/0/CPU0"));
  EXPECT_EQ(seen.places(), "0/3/CPU0 NPU 2: 3/5, 0/0/CPU0: 1/3");
}

// A terminal may be wide or narrow.
TEST(progress, fits_one_line_of_a_terminal) {
  progress seen;
  for (std::uint64_t id = 1; id <= 12; ++id) {
    auto event = command(journal_event_kind::start, id + 1, id, static_cast<double>(id) / 100,
                         "0/" + std::to_string(id) + "/CPU0", "0");
    event.command = "/opt/nos/bin/asic_shell_show -u 2 -c lag";
    seen.take(event);
  }
  const std::string head = "12 running, 0/12 done, 20 s";
  const std::string slowest = "; slowest 19 s: 0/1/CPU0 NPU 0 asic_shell_show";
  EXPECT_EQ(seen.drawn(20, 132),
            head + slowest + " -u 2 -c lag; 0/1/CPU0 NPU 0: 0/1, 0/2/CPU0 NPU 0: 0/1 +10");
  EXPECT_EQ(seen.drawn(20, 99), head + slowest + "; 0/1/CPU0 NPU 0: 0/1 +11");
  // Where both have no room they take turns.
  EXPECT_EQ(seen.drawn(20, 79), head + slowest + " -u 2 ");
  EXPECT_EQ(seen.drawn(21, 79),
            "12 running, 0/12 done, 21 s; 0/1/CPU0 NPU 0: 0/1, 0/2/CPU0 NPU 0: 0/1 +10");
  EXPECT_EQ(seen.drawn(23, 79).find("slowest"), std::string::npos);
  EXPECT_NE(seen.drawn(24, 79).find("slowest"), std::string::npos);
  for (std::size_t width = 1; width < 300; ++width)
    for (const double now : {20.0, 21.0}) EXPECT_LE(seen.drawn(now, width).size(), width);
}

// What the functions of a test write to standard error.
class standard_error {
 public:
  explicit standard_error(const std::string& file)
      : before_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ::dup2(descriptor, STDERR_FILENO);
    ::close(descriptor);
  }
  ~standard_error() {
    ::dup2(before_, STDERR_FILENO);
    ::close(before_);
  }
  standard_error(const standard_error&) = delete;
  standard_error& operator=(const standard_error&) = delete;

 private:
  int before_;
};

std::string line_of_start(int number, int id, const std::string& node) {
  return "{\"n\":" + std::to_string(number) + ",\"event\":\"start\",\"id\":" + std::to_string(id) +
         ",\"at\":1.0,\"pid\":1,\"node\":\"" + node + "\",\"command\":\"x\"}\n";
}

TEST_F(folder_test, progress_has_a_line_every_ten_seconds) {
  using namespace std::chrono_literals;
  write(at("journal"), line_of_start(2, 1, "0/1/CPU0"));
  const auto began = std::chrono::steady_clock::now();
  progress_display display(
      progress_way::lines,
      std::make_unique<journal_tail>(::open(at("journal").c_str(), O_RDONLY | O_CLOEXEC), 0, false),
      nullptr, began);
  const auto shown_by = [&](std::chrono::milliseconds time) {
    fs::remove(at("err"));
    const standard_error here(at("err"));
    display.look(began + time);
    return content_of(at("err"));
  };
  EXPECT_EQ(display.pause(began), 10s);
  EXPECT_EQ(shown_by(9999ms), "");
  EXPECT_EQ(display.pause(began + 9999ms), 1ms);
  EXPECT_EQ(shown_by(10000ms),
            "tessel-host: 1 command running on 1 node, 0 of 1 done, 10 s; slowest: 0/1/CPU0 x, "
            "9 s; done by node and chip: 0/1/CPU0: 0/1\n");
  std::ofstream(at("journal"), std::ios::app)
      << line_of_start(3, 2, "0/1/CPU0") << line_of_start(4, 3, "0/2/CPU0");
  EXPECT_EQ(shown_by(19999ms), "");
  EXPECT_EQ(shown_by(20500ms),
            "tessel-host: 3 commands running on 2 nodes, 0 of 3 done, 20 s; slowest: 0/1/CPU0 x, "
            "19 s; done by node and chip: 0/1/CPU0: 0/2, 0/2/CPU0: 0/1\n");
  EXPECT_EQ(shown_by(30499ms), "") << "ten seconds after the last one";
}

// Standard error ----------------------------------------------------------------------------------

// Runs `body` in a child whose standard error is `descriptor`, which a hang ends.
int status_with_error(int descriptor, const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(60);
    ::dup2(descriptor, STDERR_FILENO);
    ::_exit(body());
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Fills a pipe or a socket and lets its writers wait.
void fill(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
  const std::string filling(4096, 'x');
  while (::write(descriptor, filling.data(), filling.size()) > 0) continue;
  ::fcntl(descriptor, F_SETFL, flags);
}

TEST(write_message, waits_one_second_in_all_for_who_does_not_read) {
  for (const bool is_socket : {false, true}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(is_socket ? ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data())
                        : ::pipe2(ends.data(), O_CLOEXEC),
              0);
    fill(ends[1]);
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(status_with_error(ends[1],
                                [] {
                                  for (int count = 0; count < 90; ++count)
                                    write_message(std::string(10000, 'x'));
                                  write_at_once("x");
                                  return 7;
                                }),
              7);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
    for (const int end : ends) ::close(end);
  }
}

TEST(write_message, loses_its_line_and_not_the_process_where_the_reader_has_gone) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  ::close(ends[0]);
  EXPECT_EQ(status_with_error(ends[1],
                              [] {
                                ::signal(SIGPIPE, SIG_DFL);
                                write_message("lost");
                                write_at_once("lost");
                                return 7;
                              }),
            7)
      << "128 and 13 would be the signal's";
  ::close(ends[1]);
}

TEST(run_in_front, does_not_wait_for_who_leaves_its_complaints_unread) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  fill(ends[1]);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(status_with_error(ends[1],
                              [] {
                                std::string err;
                                const bool has_ended = run_in_front(
                                    {"sh", "-c", "head -c 300000 /dev/zero >&2; exit 3"}, err);
                                write_text(err);
                                return has_ended && err.size() == 300000 ? 7 : 1;
                              }),
            7);
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
  for (const int end : ends) ::close(end);
}

TEST(run_in_front, says_whether_the_program_ended_by_itself) {
  std::string err;
  EXPECT_TRUE(run_in_front({"sh", "-c", "echo why >&2; exit 3"}, err));
  EXPECT_EQ(err, "why\n");
  EXPECT_FALSE(run_in_front({"sh", "-c", "kill -9 $$"}, err));
  EXPECT_EQ(err, "");
  EXPECT_FALSE(run_in_front({"/nowhere/such"}, err));
}

TEST_F(folder_test, text_is_written_as_it_is) {
  const int file = ::open(at("err").c_str(), O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(status_with_error(file,
                              [] {
                                write_text(std::string(10000, 'x') + "\n");
                                write_text("y");
                                return 0;
                              }),
            0);
  ::close(file);
  EXPECT_EQ(content_of(at("err")), std::string(10000, 'x') + "\ny");
}

TEST_F(folder_test, message_is_one_line_however_long_and_wherever_it_goes) {
  const std::string text = std::string(5000, 'a') + std::string(5000, 'b');
  const int file = ::open(at("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const auto write_two = [&] {
    write_message(text);
    write_message("");
    return 7;
  };
  EXPECT_EQ(status_with_error(file, write_two), 7);
  ::close(file);
  EXPECT_EQ(content_of(at("err")), "tessel-host: " + text + "\ntessel-host: \n");
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  EXPECT_EQ(status_with_error(ends[1], write_two), 7);
  std::string read(65536, ' ');
  read.resize(static_cast<std::size_t>(::read(ends[0], read.data(), read.size())));
  EXPECT_EQ(read, content_of(at("err")));
  for (const int end : ends) ::close(end);
}

// Who reads the journal --------------------------------------------------------------------------

class relay : public folder_test {
 protected:
  void SetUp() override {
    folder_test::SetUp();
    ::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(::pipe2(pipe_.data(), O_CLOEXEC), 0);
    ASSERT_EQ(::fcntl(pipe_[1], F_SETPIPE_SZ, 4096), 4096);
  }
  void TearDown() override {
    for (const int end : pipe_) ::close(end);
    ::signal(SIGPIPE, SIG_DFL);
    folder_test::TearDown();
  }
  std::string taken() const {
    std::string text(65536, '\0');
    const ssize_t count = ::read(pipe_[0], text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
  }
  // True if the relay does not wait for a second each time. A busy machine takes long, too.
  static bool finishes_soon(journal_relay& to, std::chrono::milliseconds pause) {
    const auto began = std::chrono::steady_clock::now();
    for (int count = 0; count < 40; ++count) to.finish(pause);
    return std::chrono::steady_clock::now() - began < std::chrono::seconds(30);
  }
  std::array<int, 2> pipe_{-1, -1};
};

TEST_F(relay, keeps_whole_lines_for_a_slow_reader) {
  const auto to = relay_to(pipe_[1]);
  ASSERT_TRUE(to);
  std::string all;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    const std::string line(1500, letter);
    all += line + "\n";
    to->add(line);
    to->flush();
  }
  std::string read = taken();
  EXPECT_EQ(read.size() % 1501, 0U) << "a pipe takes a line as a whole";
  EXPECT_LT(read.size(), all.size());
  while (read.size() < all.size()) {
    to->flush();
    read += taken();
  }
  EXPECT_EQ(read, all);
}

TEST_F(relay, waits_at_the_end_only_for_a_reader_that_reads) {
  using namespace std::chrono_literals;
  const auto to = relay_to(pipe_[1]);
  for (int count = 0; count < 20; ++count) to->add(std::string(1000, 'x'));
  EXPECT_TRUE(finishes_soon(*to, 20ms)) << "nobody reads";
  const pid_t reader = start([&] {
    ::usleep(50000);
    while (!taken().empty()) ::usleep(1000);
  });
  to->finish(1000ms);
  to->add("last");
  to->finish(1000ms);
  const auto is_empty = [&] {
    int bytes = -1;
    return ::ioctl(pipe_[0], FIONREAD, &bytes) == 0 && bytes == 0;
  };
  EXPECT_TRUE(comes_true(is_empty)) << "the reader has all";
  ::kill(reader, SIGKILL);
  ::waitpid(reader, nullptr, 0);
  to->add("more");
  EXPECT_TRUE(finishes_soon(*to, 20ms));
  EXPECT_EQ(taken(), "more\n");
}

TEST_F(relay, forgets_a_reader_that_has_gone) {
  using namespace std::chrono_literals;
  const auto to = relay_to(pipe_[1]);
  ::close(std::exchange(pipe_[0], -1));
  for (int count = 0; count < 20; ++count) {
    to->add(std::string(1000, 'x'));
    to->flush();
  }
  EXPECT_TRUE(finishes_soon(*to, 1000ms));
}

TEST_F(relay, is_only_to_what_the_library_would_write_to) {
  EXPECT_FALSE(relay_to(-1));
  EXPECT_FALSE(relay_to(pipe_[0])) << "for reading";
  const int folder = ::open(folder_.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_FALSE(relay_to(folder));
  ::close(folder);
  ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
  const int both = ::open(at("fifo").c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_TRUE(relay_to(both));
  ::close(both);
  std::array<int, 2> sockets{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
  {
    const auto to = relay_to(sockets[0]);
    ASSERT_TRUE(to);
    to->add("line");
    to->flush();
  }
  std::array<char, 16> text{};
  EXPECT_EQ(::read(sockets[1], text.data(), text.size()), 5);
  for (const int each : sockets) ::close(each);
}

// The streams of a process: a file, or a terminal whose text comes back.
struct shown {
  std::string out;
  std::string terminal;
  std::string err;
  int status = 0;
};

// Runs the stand-in with a terminal of its own, which `streams`, a redirection of the shell, may
// leave. It works for 0.7 s, or until the terminal has shown the text `awaited`. `starter` is a
// program that starts it.
shown run_on_terminal(const std::string& folder, const std::string& streams,
                      const std::string& options, const std::string& starter,
                      const std::string& awaited) {
  const std::string go = folder + "/go";
  fs::remove(go);
  int terminal = -1;
  const winsize size{24, 200, 0, 0};
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    const std::string line = "exec " + starter + " " + TESSEL_HOST + " --library " +
                             STAND_IN_FOLDER + "/libworking.so " + options + " " + streams;
    if (!awaited.empty()) ::setenv("WORK_UNTIL", go.c_str(), 1);
    ::chdir(folder.c_str()) == 0 && ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    ::_exit(126);
  }
  shown result;
  std::array<char, 4096> block{};
  for (ssize_t count = 0; (count = ::read(terminal, block.data(), block.size())) > 0;) {
    result.terminal.append(block.data(), static_cast<std::size_t>(count));
    if (!awaited.empty() && result.terminal.find(awaited) != std::string::npos)
      std::ofstream(go).flush();
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::close(terminal);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

class progress_test : public folder_test {
 protected:
  shown run(const std::string& streams, const std::string& options = "",
            const std::string& starter = "", const std::string& awaited = "") const {
    shown result = run_on_terminal(folder_, streams, options, starter, awaited);
    EXPECT_EQ(result.status, 0);
    if (fs::exists(at("out"))) result.out = content_of(at("out"));
    if (fs::exists(at("err"))) result.err = content_of(at("err"));
    return result;
  }
};

const std::string audit_output = "Dumping Data.... Done\n";

void expect_last_line(const std::string& text) {
  const std::regex line(
      "tessel-host: 2 commands done, \\d+ s; slowest: 0/3/CPU0 NPU 2 asic_shell_show -u 2, 12 s\n");
  EXPECT_TRUE(std::regex_match(text, line)) << text;
}

TEST_F(progress_test, is_one_redrawn_line_of_a_terminal) {
  for (const char* const option : {"", "--progress", "--journal journal"}) {
    const shown result = run(">out", option, "", "NPU 2: 0/1\x1b[K");
    EXPECT_EQ(result.out, audit_output) << option;
    EXPECT_TRUE(std::regex_search(
        result.terminal, std::regex("\r1 running, 1/2 done, \\d+ s; slowest \\d+ s: 0/3/CPU0 NPU 2 "
                                    "asic_shell_show -u 2; 0/3/CPU0 NPU 2: 0/1\x1b\\[K\r")))
        << option << result.terminal;
    EXPECT_TRUE(result.terminal.ends_with("\r\x1b[K")) << "nothing of it stays";
    EXPECT_LE(std::count(result.terminal.begin(), result.terminal.end(), 'K'), 4 * 60)
        << option << ": four times a second, for as long as a slow machine takes";
  }
  EXPECT_NE(content_of(at("journal")).find("\"finished\""), std::string::npos);
}

TEST_F(progress_test, is_a_last_line_in_a_file) {
  const shown result = run(">out 2>err", "--progress");
  EXPECT_EQ(result.out, audit_output);
  expect_last_line(result.err);
}

TEST_F(progress_test, is_off_where_nobody_asks_or_it_would_garble_the_titles) {
  EXPECT_EQ(run(">out 2>err").err, "") << "a file";
  EXPECT_EQ(run(">out", "--no-progress").terminal, "");
  const std::string garbled = "Dumping Data.... Done\r\n";
  EXPECT_EQ(run("").terminal, garbled) << "the same terminal";
  EXPECT_EQ(run("2>/dev/tty").terminal, garbled) << "the same by another name";
  EXPECT_EQ(
      run("", "--progress").terminal,
      "tessel-host: no progress is shown, because the audit prints to the same terminal; send "
      "its output to a file\r\n" +
          garbled);
}

// The group that the terminal shows is that of perl.
TEST_F(progress_test, is_drawn_only_in_the_foreground) {
  const auto in_other_group = [](const std::string& variable) {
    return "perl -e '" + variable +
           " unless (fork) { setpgrp 0, 0; exec @ARGV; } wait; exit($? >> 8 || $?)' --";
  };
  EXPECT_EQ(run(">out", "--progress", in_other_group("")).terminal, "");
  for (const char* const other : {"0", "1"})
    EXPECT_EQ(run(">out", "--progress",
                  in_other_group("$ENV{TESSEL_FOREGROUND} = \"" + std::string(other) + "\";"))
                  .terminal,
              "")
        << other;
  const std::string drawn = "\r1 running, 1/2 done, ";
  const shown awaited = run(">out", "", in_other_group("$ENV{TESSEL_FOREGROUND} = $$;"), drawn);
  EXPECT_NE(awaited.terminal.find(drawn), std::string::npos)
      << "whoever waits for it is in the foreground";
  EXPECT_NE(run(">out", "", "setsid --wait", drawn).terminal.find(drawn), std::string::npos)
      << "a terminal without jobs";
}

// The journal that the environment asks for is complete all the same.
TEST_F(progress_test, comes_with_every_journal_that_somebody_else_wants) {
  ::setenv("TESSEL_JOURNAL", "9", 1);
  write(at("journal"), "former\n");
  const std::string drawn = "1 running, 1/2 done";
  EXPECT_NE(run(">out 9>>journal", "", "", drawn).terminal.find(drawn), std::string::npos);
  EXPECT_TRUE(content_of(at("journal")).starts_with("former\n{\"n\":1,"));
  const std::string written = content_of(at("journal")).substr(7);
  expect_last_line(run("9>&1 >out 2>err | cat >piped", "--progress").err);
  EXPECT_EQ(content_of(at("piped")), written);
  EXPECT_NE(written.find("\"version\":\"\","), std::string::npos);
  for (const char* const option : {"--progress", "--progress --command-timeout 7"}) {
    ::setenv("TESSEL_JOURNAL", "9 timeout=30", 1);
    run("9>&1 >out 2>err | cat >piped", option);
    const std::string limit = std::string(option).ends_with("7") ? "7" : "30";
    EXPECT_NE(content_of(at("piped")).find("\"version\":\"timeout=" + limit + "\","),
              std::string::npos)
        << content_of(at("piped"));
  }
  ::unsetenv("TESSEL_JOURNAL");
}

}  // namespace
