// Open files, pipes and child processes, as the lab uses them.
#include "lab/base/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "support.h"

namespace {

using namespace lab;

bool is_open(int number) {
  return fcntl(number, F_GETFD) >= 0;
}

// The exit status of a function in a child, as a shell shows it.
int status_in_child(const std::function<int()>& action) {
  int wait_status = 0;
  const pid_t child = start(action);
  EXPECT_EQ(collect(child, wait_status), child);
  return status_of(wait_status);
}

TEST(descriptor, is_closed_once_and_leaves_errno_alone) {
  descriptor first = open_file("/dev/null", O_RDONLY);
  ASSERT_TRUE(first.is_open());
  const int number = first.number();
  EXPECT_EQ(fcntl(number, F_GETFD), FD_CLOEXEC);
  descriptor second = std::move(first);
  EXPECT_FALSE(first.is_open());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(is_open(number));
  errno = ENOSPC;
  second = descriptor{};
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(is_open(number));
  {
    const descriptor third = open_file("/dev/null", O_RDONLY);
    EXPECT_EQ(third.number(), number);
  }
  EXPECT_FALSE(is_open(number));
}

TEST(descriptor, that_cannot_be_opened_leaves_the_cause) {
  errno = 0;
  EXPECT_FALSE(open_file("/nowhere/file", O_RDONLY).is_open());
  EXPECT_EQ(errno, ENOENT);
}

TEST(descriptor, pipes_end_with_their_writers) {
  pipe_ends ends = new_pipe();
  EXPECT_EQ(fcntl(ends.in.number(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(write_all(ends.in.number(), "abcdef"), 6U);
  EXPECT_EQ(read_up_to(ends.out.number(), 2), "ab");
  ends.in.close();
  EXPECT_EQ(read_up_to(ends.out.number(), 100), "cdef");
  EXPECT_EQ(read_up_to(ends.out.number(), 100), "");
  await_end(ends.out.number());
}

TEST(descriptor, failed_pipes_and_reads_have_a_cause) {
  EXPECT_EQ(read_up_to(-1, 1), std::nullopt);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(status_in_child([] {
              const rlimit none{0, 0};
              setrlimit(RLIMIT_NOFILE, &none);
              const bool has_cause = !try_pipe() && errno == EMFILE;
              try {
                new_pipe();
              } catch (const lab_error& failure) {
                return has_cause && std::string{failure.what()} == "pipe: Too many open files" ? 0
                                                                                               : 2;
              }
              return 1;
            }),
            0);
}

TEST(descriptor, reports_how_much_was_written) {
  const lab_test::scratch_folder scratch;
  const std::string file = (scratch.path() / "file").string();
  EXPECT_EQ(status_in_child([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit small{10, 10};
              setrlimit(RLIMIT_FSIZE, &small);
              const descriptor out = open_file(file, O_WRONLY | O_CREAT, 0600);
              return write_all(out.number(), std::string(25, 'x')) == 10 && errno == EFBIG ? 0 : 1;
            }),
            0);
  EXPECT_EQ(lab_test::read_text(file), std::string(10, 'x'));
}

// Both sides receive a signal while they wait for each other.
TEST(descriptor, is_not_interrupted_by_a_signal) {
  struct sigaction harmless {};
  struct sigaction before {};
  harmless.sa_handler = [](int) {};
  sigaction(SIGUSR1, &harmless, &before);
  pipe_ends ends = new_pipe();
  const std::string text(std::size_t{1} << 20, 'x');
  const pid_t reader = getpid();
  const pid_t writer = start([&] {
    for (int i = 0; i < 3; ++i) {
      usleep(20'000);
      kill(reader, SIGUSR1);
    }
    return write_all(ends.in.number(), text) == text.size() ? 0 : 1;
  });
  ends.in.close();
  std::string got = read_up_to(ends.out.number(), 1).value_or("");
  for (int i = 0; i < 3; ++i) {
    usleep(20'000);
    kill(writer, SIGUSR1);
  }
  got += read_up_to(ends.out.number(), text.size()).value_or("");
  EXPECT_EQ(got, text);
  int wait_status = 0;
  EXPECT_EQ(collect(writer, wait_status), writer);
  EXPECT_EQ(status_of(wait_status), 0);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(child, ends_with_its_status_or_signal) {
  EXPECT_EQ(status_in_child([] { return 7; }), 7);
  EXPECT_EQ(status_in_child([]() -> int {
              raise(SIGKILL);
              return 0;
            }),
            128 + SIGKILL);
}

TEST(child, never_returns_into_its_parents_code) {
  EXPECT_EQ(status_in_child([]() -> int {
              const rlimit no_core{0, 0};
              setrlimit(RLIMIT_CORE, &no_core);
              fclose(stderr);
              throw lab_error("thrown in the child");
            }),
            128 + SIGABRT);
}

TEST(child, becomes_a_program) {
  EXPECT_EQ(status_in_child([]() -> int { execute_program({"/bin/sh", "-c", "exit 3"}); }), 3);
  try {
    execute_program({"/nowhere/program", "word"});
    ADD_FAILURE();
  } catch (const lab_error& failure) {
    EXPECT_STREQ(failure.what(), "/nowhere/program: No such file or directory");
  }
}

TEST(child, is_collected_only_once_it_has_ended) {
  pipe_ends go = new_pipe();
  const pid_t child = start([&] {
    go.in.close();
    await_end(go.out.number());
    return 5;
  });
  int wait_status = 0;
  EXPECT_EQ(collect(child, wait_status, WNOHANG), 0);
  go.in.close();
  EXPECT_EQ(collect(child, wait_status), child);
  EXPECT_EQ(status_of(wait_status), 5);
  EXPECT_EQ(collect(child, wait_status), -1);
  EXPECT_EQ(errno, ECHILD);
}

// The parent passes a signal on; it ends the head of the group and every process that is left in
// the group.
TEST(child, leads_a_group_that_ends_with_it) {
  pipe_ends alive = new_pipe();
  const int status = status_in_child([&] {
    alive.out.close();
    const held_back_signals signals;
    const pid_t head = start([&] {
      setpgid(0, 0);
      signals.let_through();
      start([]() -> int {
        signal(SIGTERM, SIG_IGN);
        for (;;) pause();
      });
      kill(getppid(), SIGTERM);
      for (;;) pause();
      return 0;
    });
    const group_end end = wait_for_group(head);
    return end.status == 128 + SIGTERM && end.passed_on == SIGTERM ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  alive.in.close();
  // Held by every process that is left of the group.
  pollfd held{alive.out.number(), POLLIN, 0};
  EXPECT_EQ(poll(&held, 1, 10'000), 1) << "the group outlives its head";
}

}  // namespace
