// Tests of what the host uses to watch an audit.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "leftovers.h"
#include "processes.h"

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
  for (int tries = 0; tries < 2000; ++tries) {
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
  for (const process& one : running_below(::getpid())) send_signal(one, SIGKILL);
  EXPECT_TRUE(comes_true([] { return running_below(::getpid()).empty(); }));
  while (::waitpid(-1, nullptr, 0) > 0) continue;
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);
  EXPECT_FALSE(process_of(child));
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

}  // namespace
