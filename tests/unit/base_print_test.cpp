#include "base/print.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "base/text.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using print_test = router_test;

// Runs `body` in a child whose standard output is always full.
int status_with_full_output(const std::function<int()>& body) {
  return status_in_child([&] {
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    if (full < 0 || ::dup2(full, STDOUT_FILENO) < 0) return 100;
    return body();
  });
}

TEST_F(print_test, a_text_gets_a_line_end) {
  EXPECT_EQ(output_of([] { print("ERROR: Not able to get router type"); }),
            "ERROR: Not able to get router type\n");
  EXPECT_EQ(output_of([] { print(""); }), "\n");
  EXPECT_EQ(output_of([] { print(std::string_view("a\0b", 3)); }), std::string("a\0b\n", 4));
}

TEST_F(print_test, a_title_is_padded_to_40_characters_and_left_open) {
  EXPECT_EQ(output_of([] { print_title("Dumping Data"); }),
            "Dumping Data............................");
  SetUp();
  EXPECT_EQ(output_of([] { print_title(std::string(40, 'x')); }), std::string(40, 'x'));
  SetUp();
  EXPECT_EQ(output_of([] { print_title(std::string(45, 'x')); }), std::string(45, 'x'))
      << "never cut";
}

TEST_F(print_test, whatever_follows_a_title_is_preceded_by_one_blank) {
  struct row {
    const char* why;
    std::string text;
    std::string expected;
  };
  const std::string title = "Stale Entry Check.......................";
  const std::array rows = {
      row{"the status word", "Done", title + " Done\n"},
      row{"a parser's line", "PARSE-ERROR: lagport", title + " PARSE-ERROR: lagport\n"},
      row{"a text that begins with a line feed", "\nx: Cleanup task failed",
          title + " \nx: Cleanup task failed\n"},
      row{"nothing", "", title + " \n"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_EQ(output_of([&] {
                print_title("Stale Entry Check");
                print(each.text);
                print("next");
              }),
              each.expected + "next\n");
  }
}

TEST_F(print_test, a_title_behind_a_title_is_preceded_by_a_blank_too) {
  EXPECT_EQ(output_of([] {
              print_title("A");
              print_title("B");
              print("Done");
            }),
            "A" + std::string(39, '.') + " B" + std::string(39, '.') + " Done\n");
}

TEST_F(print_test, an_open_line_is_ended_once) {
  EXPECT_EQ(output_of([] {
              end_open_line();
              print_title("A");
              end_open_line();
              end_open_line();
              print("b");
            }),
            "A" + std::string(39, '.') + "\nb\n");
}

TEST_F(print_test, each_call_is_flushed) {
  // Output that was flushed stays, even if the child ends without flushing.
  const std::string text = output_of([] {
    status_in_child([]() -> int {
      print_title("Dumping Data");
      ::_exit(0);
    });
  });
  EXPECT_EQ(text, "Dumping Data............................");
}

TEST_F(print_test, output_that_cannot_be_written_is_a_failure) {
  const std::array<std::function<void()>, 3> writers = {[] { print("Done"); },
                                                        [] { print_title("Dumping Data"); },
                                                        [] {
                                                          st().line_is_open = true;
                                                          end_open_line();
                                                        }};
  for (const auto& write : writers) {
    EXPECT_EQ(status_with_full_output([&] {
                const std::string text = failure_of(write);
                return text.find("standard output: No space left on device") != text.npos ? 7 : 1;
              }),
              7);
  }
}

TEST_F(print_test, after_a_failed_write_nothing_of_it_is_left_to_be_written) {
  EXPECT_EQ(status_with_full_output([] {
              failure_of([] { print("lost"); });
              const int fine = ::open("/var/log/stdout", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
              ::dup2(fine, STDOUT_FILENO);
              print("kept");
              return std::ferror(stdout) == 0 ? 7 : 1;
            }),
            7);
  EXPECT_EQ(file_text("/var/log/stdout"), "kept\n");
}

// A pipe of one page in the place of standard output, for a forked child. It is full at first.
class console_pipe {
 public:
  explicit console_pipe(int flags = 0) {
    if (::pipe2(ends_.data(), O_CLOEXEC | flags) != 0) throw failure("no pipe");
    const int page = ::fcntl(ends_[1], F_SETPIPE_SZ, 1);
    filling_ = std::string(static_cast<std::size_t>(page), 'x');
    if (::write(ends_[1], filling_.data(), filling_.size()) != page) throw failure("not filled");
    if (::dup2(ends_[1], STDOUT_FILENO) < 0) throw failure("no standard output");
    ::close(ends_[1]);
  }

  void close_reader() { ::close(ends_[0]); }

  // What came after the filling. Starts to read after a while, in which the writer must wait.
  std::string read_late(const std::function<void()>& writer) {
    std::string text;
    std::jthread reader([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      text = read_all();
    });
    writer();
    ::close(STDOUT_FILENO);
    reader.join();
    return text.substr(filling_.size());
  }

 private:
  std::string read_all() const {
    std::string text;
    std::array<char, 4096> part{};
    for (;;) {
      const ssize_t count = ::read(ends_[0], part.data(), part.size());
      if (count > 0) {
        text.append(part.data(), static_cast<std::size_t>(count));
      } else if (count == 0) {
        return text;
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
  }

  std::array<int, 2> ends_{};
  std::string filling_;
};

// From here on a signal arrives every few milliseconds on this thread, without SA_RESTART.
void interrupt_often() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval often{{0, 5000}, {0, 5000}};
  ::setitimer(ITIMER_REAL, &often, nullptr);
}

void block_signal(int number) {
  sigset_t own;
  ::sigemptyset(&own);
  ::sigaddset(&own, number);
  ::pthread_sigmask(SIG_BLOCK, &own, nullptr);
}

bool is_pending(int number) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, number) == 1;
}

TEST_F(print_test, a_signal_without_restart_loses_nothing) {
  for (const std::size_t length : {std::size_t{10}, std::size_t{50000}}) {
    EXPECT_EQ(status_in_child([&] {
                console_pipe console;
                const std::string text(length, 'a');
                const std::string seen = console.read_late([&] {
                  interrupt_often();
                  print(text);
                });
                return seen == text + "\n" ? 7 : 1;
              }),
              7);
  }
}

TEST_F(print_test, a_full_pipe_that_does_not_block_is_waited_for) {
  for (const std::size_t length : {std::size_t{10}, std::size_t{50000}}) {
    EXPECT_EQ(status_in_child([&] {
                console_pipe console(O_NONBLOCK);
                const std::string text(length, 'a');
                const std::string seen = console.read_late([&] {
                  interrupt_often();
                  print(text);
                });
                return seen == text + "\n" ? 7 : 1;
              }),
              7);
  }
}

TEST_F(print_test, what_the_host_has_printed_comes_first_even_if_it_must_wait) {
  EXPECT_EQ(status_in_child([] {
              console_pipe console(O_NONBLOCK);
              const std::string seen = console.read_late([] {
                std::fputs("host ", stdout);
                print("audit");
              });
              return seen == "host audit\n" ? 7 : 1;
            }),
            7);
}

TEST_F(print_test, a_stream_of_the_hosts_own_in_the_place_of_standard_output_is_used) {
  EXPECT_EQ(status_in_child([] {
              char* text = nullptr;
              std::size_t length = 0;
              std::FILE* const before = stdout;
              stdout = ::open_memstream(&text, &length);
              print("kept");
              std::FILE* const own = stdout;
              stdout = before;
              std::fclose(own);
              const bool same = std::string(text, length) == "kept\n";
              std::free(text);
              return same ? 7 : 1;
            }),
            7);
}

TEST_F(print_test, a_closed_pipe_is_a_failure_and_ends_no_host) {
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGPIPE, SIG_DFL);
              console_pipe console;
              console.close_reader();
              const std::string text = failure_of([] { print("lost"); });
              return text == "cannot write standard output: Broken pipe" ? 7 : 1;
            }),
            7)
      << "128 and 13 would be the signal's";
}

TEST_F(print_test, the_hosts_own_way_with_a_closed_pipe_stays) {
  static volatile sig_atomic_t caught = 0;
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGPIPE, [](int) { caught = caught + 1; });
              console_pipe console;
              console.close_reader();
              failure_of([] { print("lost"); });
              if (caught != 0 || is_pending(SIGPIPE)) return 1;
              ::raise(SIGPIPE);
              return caught == 1 ? 7 : 2;
            }),
            7)
      << "a handler is not called, and is still there";
  EXPECT_EQ(status_in_child([] {
              block_signal(SIGPIPE);
              console_pipe console;
              console.close_reader();
              failure_of([] { print("lost"); });
              if (is_pending(SIGPIPE)) return 1;
              ::raise(SIGPIPE);
              failure_of([] { print("lost"); });
              return is_pending(SIGPIPE) ? 7 : 2;
            }),
            7)
      << "a host that blocks it keeps what it had waiting, and gets nothing of ours";
}

TEST_F(print_test, a_file_that_may_not_grow_is_a_failure_and_ends_no_host) {
  EXPECT_EQ(status_in_child([] {
              const int file = ::open("/var/log/stdout", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
              ::dup2(file, STDOUT_FILENO);
              const rlimit limit{10, 10};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              const std::string text = failure_of([] { print("0123456789abcdef"); });
              return text == "cannot write standard output: File too large" ? 7 : 1;
            }),
            7)
      << "128 and 25 would be the signal's";
  EXPECT_EQ(file_text("/var/log/stdout"), "0123456789") << "what fits is written";
}

TEST_F(print_test, a_closed_standard_error_ends_no_host_either) {
  EXPECT_EQ(error_output_of([] { print_error("a traceback\n"); }), "a traceback\n");
  EXPECT_EQ(status_in_child([] {
              ::signal(SIGPIPE, SIG_DFL);
              console_pipe console;
              console.close_reader();
              ::dup2(STDOUT_FILENO, STDERR_FILENO);
              print_error("lost");
              return 7;
            }),
            7);
}

// What nobody reads, as standard error of a child that a hang ends. It has room for less than
// PIPE_BUF bytes.
class unread {
 public:
  explicit unread(bool is_socket) {
    ::alarm(60);
    const int made = is_socket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data())
                               : ::pipe2(ends_.data(), O_CLOEXEC);
    if (made != 0 || ::dup2(ends_[1], STDERR_FILENO) < 0) throw failure("no standard error");
    ::fcntl(ends_[1], F_SETFL, O_NONBLOCK);
    const std::string filling(PIPE_BUF, 'x');
    for (ssize_t count = 0; (count = ::write(ends_[1], filling.data(), filling.size())) > 0;)
      filled_ += static_cast<std::size_t>(count);
    ::fcntl(ends_[1], F_SETFL, 0);
  }

  // Makes room for so many bytes.
  void take(std::size_t bytes) {
    std::string taken(bytes, ' ');
    if (::read(ends_[0], taken.data(), bytes) != static_cast<ssize_t>(bytes))
      throw failure("not filled");
    filled_ -= bytes;
  }

  void take_all() {
    rest();
    filled_ = 0;
  }

  // What came behind the filling.
  std::string rest() const {
    std::string text(filled_ + 65536, ' ');
    std::size_t size = 0;
    ::fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    for (ssize_t count = 0; (count = ::read(ends_[0], text.data() + size, text.size() - size)) > 0;)
      size += static_cast<std::size_t>(count);
    return text.substr(filled_, size - filled_);
  }

 private:
  std::array<int, 2> ends_{};
  std::size_t filled_ = 0;
};

// Time for a busy machine, but not for a wait at each page of a long text.
bool is_soon_over(const std::function<void()>& action) {
  const auto began = std::chrono::steady_clock::now();
  action();
  return std::chrono::steady_clock::now() - began < std::chrono::seconds(30);
}

TEST_F(print_test, standard_error_that_nobody_reads_costs_the_text_and_no_time) {
  for (const bool is_socket : {false, true}) {
    for (const std::size_t length : {std::size_t{10}, std::size_t{3000000}}) {
      EXPECT_EQ(status_in_child([&] {
                  const unread err(is_socket);
                  if (!is_soon_over([&] { print_error(std::string(length, 'a')); })) return 1;
                  return err.rest().empty() ? 7 : 2;
                }),
                7)
          << is_socket << length;
    }
  }
}

TEST_F(print_test, standard_error_with_room_for_one_text_takes_one) {
  EXPECT_EQ(status_in_child([] {
              unread err(false);
              err.take(PIPE_BUF);
              const std::string text(PIPE_BUF, 'a');
              const auto print_all = [&] { together(8, [&](int) { print_error(text); }); };
              if (!is_soon_over(print_all)) return 1;
              return err.rest() == text ? 7 : 2;
            }),
            7)
      << "no thread waits where another one has taken the room that it has seen";
}

TEST_F(print_test, standard_error_with_room_takes_a_long_text_as_a_whole) {
  for (const bool is_socket : {false, true}) {
    EXPECT_EQ(status_in_child([&] {
                unread err(is_socket);
                err.take_all();
                const std::string text = std::string(20000, 'a') + std::string(20000, 'b') + "\n";
                print_error(text);
                return err.rest() == text ? 7 : 1;
              }),
              7);
  }
}

TEST_F(print_test, lines_of_many_threads_stay_whole) {
  constexpr int threads = 6;
  constexpr int each = 50;
  const std::string text = output_of([] {
    together(threads, [](int number) {
      for (int round = 0; round < each; ++round) {
        print(std::string(200, static_cast<char>('a' + number)));
      }
    });
  });
  std::size_t lines = 0;
  for (const std::string_view line : split(text, "\n")) {
    if (line.empty()) continue;
    ++lines;
    EXPECT_EQ(line, std::string(200, line[0]));
  }
  EXPECT_EQ(lines, static_cast<std::size_t>(threads * each));
}

TEST_F(print_test, only_the_first_of_many_threads_ends_the_open_line) {
  const std::string text = output_of([] {
    print_title("A");
    together(6, [](int) { print("x"); });
  });
  EXPECT_EQ(text, "A" + std::string(39, '.') + " x\nx\nx\nx\nx\nx\n");
}

}  // namespace
}  // namespace tessel
