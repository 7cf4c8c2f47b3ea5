#include "base/capture_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/command.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

using capture_file_test = router_test;

constexpr std::string_view no_room =
    "cannot be sure of the whole output, no room is left for it in /tmp: ";

std::size_t page() {
  return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// While it lives, /tmp is a file system of so many pages, or of another kind.
class other_tmp {
 public:
  explicit other_tmp(std::size_t pages)
      : other_tmp("tmpfs", fmt::format("size={}", pages * page())) {}
  other_tmp(const char* kind, const std::string& options) {
    if (::mount(kind, "/tmp", kind, 0, options.c_str()) != 0) throw std::runtime_error("no mount");
  }
  ~other_tmp() { ::umount2("/tmp", MNT_DETACH); }
  other_tmp(const other_tmp&) = delete;
  other_tmp& operator=(const other_tmp&) = delete;
};

std::size_t free_pages() {
  struct statvfs state {};
  EXPECT_EQ(::statvfs("/tmp", &state), 0);
  return state.f_bfree * state.f_frsize / page();
}

// A command that prints so many bytes.
filled_line printing(std::size_t bytes) {
  const std::string file = fmt::format("/opt/nos/bytes_{}", bytes);
  if (!file_exists(file)) write_file(file, std::string(bytes, 'x'));
  return filled_line("cat " + file);
}

// True if the command's output is what it printed, false if it is a failure that says why. Anything
// else is what must not be.
bool is_whole(std::size_t bytes, const std::string& suffix, std::string_view cause) {
  const std::int64_t before = st().exception;
  const value output = execute(printing(bytes), filled_line(suffix));
  if (output == std::string(bytes, 'x')) return true;
  EXPECT_EQ(output, ERROR) << "an output of " << bytes << " bytes that is not whole";
  EXPECT_GT(st().exception, before);
  const auto told = messages(LOG_FILE_EXCEPTION);
  EXPECT_THAT(told.empty() ? "" : told.back(), testing::HasSubstr(cause));
  return false;
}

TEST_F(capture_file_test, an_output_that_does_not_fit_is_a_failure_and_never_a_shorter_text) {
  open_logs();
  const other_tmp small(4);
  EXPECT_EQ(execute(printing(20 * page()), "large"), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(fmt::format("{}No space left on device: execution failed for {}", no_room,
                                      printing(20 * page()).text())));
  EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION),
              testing::Contains("Traceback (most recent call last):"));
}

TEST_F(capture_file_test, without_room_for_more_even_a_whole_output_is_a_failure) {
  open_logs();
  const other_tmp small(4);
  EXPECT_EQ(execute(printing(4 * page()), "exactly"), ERROR) << "it could have been longer";
  EXPECT_EQ(free_pages(), 0U);
  EXPECT_EQ(execute("true", "empty"), ERROR) << "it could have been more than nothing";
  EXPECT_EQ(st().exception, 2);
}

// Whole runs go through such sizes in the lab; here each single output does, at every size around
// its own.
TEST_F(capture_file_test, at_no_size_of_tmp_is_an_output_silently_short) {
  open_logs();
  int whole = 0;
  int failed = 0;
  for (std::size_t pages = 1; pages <= 50; ++pages) {
    SCOPED_TRACE(pages);
    const other_tmp small(pages);
    int number = 0;
    for (const std::size_t bytes :
         {std::size_t{100}, 5 * page(), 7 * page() - 1, 20 * page(), std::size_t{0}}) {
      const std::string suffix = std::to_string(number++);
      ++(is_whole(bytes, suffix, "in /tmp: No space left on device") ? whole : failed);
    }
  }
  EXPECT_GT(whole, 100);
  EXPECT_GT(failed, 75);
}

TEST_F(capture_file_test, outputs_side_by_side_are_whole_or_fail) {
  open_logs();
  constexpr int workers = 6;
  constexpr std::size_t bytes = 3 * 4096 + 5;
  for (std::size_t pages = 18; pages <= 30; ++pages) {
    SCOPED_TRACE(pages);
    const other_tmp small(pages);
    std::array<value, workers> results;
    together(workers, [&](int number) {
      results[static_cast<std::size_t>(number)] =
          execute(printing(bytes), filled_line(std::to_string(number)));
    });
    for (const value& each : results) {
      EXPECT_TRUE(each == ERROR || each == std::string(bytes, 'x')) << "silently short";
    }
  }
}

TEST_F(capture_file_test, neighbours_do_not_fail_for_each_others_reservations) {
  open_logs();
  constexpr int workers = 16;
  for (int round = 0; round < 5; ++round) {
    const other_tmp small(workers + 2);
    together(workers, [](int number) {
      EXPECT_EQ(execute("echo one", filled_line(std::to_string(number))), "one\n");
    });
  }
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

TEST_F(capture_file_test, what_was_reserved_is_given_back_at_once) {
  open_logs();
  const other_tmp small(20);
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, page(), 3 * page() - 1}) {
    const std::size_t before = free_pages();
    EXPECT_TRUE(is_whole(bytes, std::to_string(bytes), ""));
    EXPECT_EQ(before - free_pages(), (bytes + page() - 1) / page());
    struct stat state {};
    ASSERT_EQ(::stat(fmt::format("/tmp/tessel_{}.log", bytes).c_str(), &state), 0);
    EXPECT_EQ(static_cast<std::size_t>(state.st_size), bytes);
  }
  EXPECT_THAT(failure_of([] {
                const other_tmp full(1);
                const capture_file file("/tmp/x", open_capture("/tmp/x"));
                file.whole_size();
              }),
              AllOf(StartsWith(no_room), EndsWith("No space left on device")));
}

TEST_F(capture_file_test, the_reservation_of_a_failure_is_given_back_too) {
  open_logs();
  const other_tmp small(1);
  const capture_file file("/tmp/x", open_capture("/tmp/x"));
  EXPECT_THROW(file.whole_size(), failure) << "one page is its own, none is beside it";
  EXPECT_EQ(free_pages(), 1U);
}

TEST_F(capture_file_test, a_file_system_without_a_size_has_room) {
  open_logs();
  const other_tmp endless("ramfs", "");
  EXPECT_TRUE(is_whole(100, "a", ""));
  EXPECT_TRUE(is_whole(100 * page(), "b", ""));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
}

// From here on the process has no fallocate, as some file systems have none.
void refuse_fallocate(int cause) {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_fallocate, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(cause)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program = {static_cast<unsigned short>(std::size(rules)), rules};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    throw std::runtime_error("no filter for system calls");
  }
}

TEST_F(capture_file_test, where_nothing_can_be_reserved_free_blocks_are_counted) {
  for (const int cause : {EOPNOTSUPP, ENOSYS, EPERM}) {
    SCOPED_TRACE(cause);
    EXPECT_EQ(status_in_child([&] {
                open_logs();
                const other_tmp small(8);
                refuse_fallocate(cause);
                if (execute(printing(3 * page()), "fits") != std::string(3 * page(), 'x')) return 1;
                if (execute(printing(20 * page()), "large") != ERROR) return 2;
                return st().exception == 1 ? 7 : 3;
              }),
              7);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION).back(),
                StartsWith(std::string(no_room) + "No space left on device: execution failed for"));
  }
}

TEST_F(capture_file_test, a_reservation_that_fails_otherwise_is_a_failure_with_its_cause) {
  for (const auto& [cause, text] :
       {std::pair(EDQUOT, "Disk quota exceeded"), std::pair(EIO, "Input/output error")}) {
    EXPECT_EQ(status_in_child([&, refusal = cause] {
                open_logs();
                refuse_fallocate(refusal);
                return execute("echo one") == ERROR && st().exception == 1 ? 7 : 1;
              }),
              7);
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION).back(), StartsWith(std::string(no_room) + text));
  }
}

// The limits of a process hold for its commands as well.
void limit_files(rlim_t bytes) {
  const rlimit limit{bytes, bytes};
  if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("no limit");
}

// With fallocate, which tells of the limit by a signal, and without.
TEST_F(capture_file_test, a_file_that_may_not_grow_is_a_failure_and_ends_no_host) {
  for (const bool reserves : {true, false}) {
    SCOPED_TRACE(reserves);
    SetUp();
    for (const std::size_t pages : {std::size_t{10}, std::size_t{50}}) printing(pages * page());
    printing(20 * page() - 1);
    EXPECT_EQ(status_in_child([&] {
                open_logs();
                if (!reserves) refuse_fallocate(EOPNOTSUPP);
                limit_files(20 * page());
                if (execute(printing(10 * page()), "fits") != std::string(10 * page(), 'x'))
                  return 1;
                if (execute(printing(50 * page()), "large") != ERROR) return 2;
                if (execute(printing(20 * page() - 1), "almost") != ERROR) return 3;
                return st().exception == 2 ? 7 : 4;
              }),
              7)
        << "128 and 25 would be the signal's";
    EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
                ElementsAre(StartsWith(std::string(no_room) + "File too large: execution failed"),
                            StartsWith(std::string(no_room) + "File too large: execution failed")));
  }
}

bool is_pending(int number) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, number) == 1;
}

TEST_F(capture_file_test, the_hosts_own_way_with_the_signal_stays) {
  static volatile sig_atomic_t caught = 0;
  EXPECT_EQ(status_in_child([] {
              open_logs();
              limit_files(page());
              ::signal(SIGXFSZ, [](int) { caught = caught + 1; });
              if (execute("echo one") != ERROR || caught != 0) return 1;
              ::raise(SIGXFSZ);
              return caught == 1 && !is_pending(SIGXFSZ) ? 7 : 2;
            }),
            7)
      << "a handler is not called, and is still there";
  EXPECT_EQ(status_in_child([] {
              open_logs();
              limit_files(page());
              sigset_t own;
              ::sigemptyset(&own);
              ::sigaddset(&own, SIGXFSZ);
              ::pthread_sigmask(SIG_BLOCK, &own, nullptr);
              if (execute("echo one") != ERROR || is_pending(SIGXFSZ)) return 1;
              ::raise(SIGXFSZ);
              if (execute("echo one") != ERROR || !is_pending(SIGXFSZ)) return 2;
              sigset_t now;
              ::pthread_sigmask(SIG_SETMASK, nullptr, &now);
              return ::sigismember(&now, SIGXFSZ) == 1 ? 7 : 3;
            }),
            7)
      << "a host that blocks it keeps what it had waiting, and gets nothing of ours";
}

TEST_F(capture_file_test, a_capture_that_is_shorter_than_its_size_was_is_a_failure) {
  const capture_file file("/tmp/tessel_x.log", open_capture("/tmp/tessel_x.log"));
  ASSERT_EQ(::write(file.descriptor(), "four", 4), 4);
  EXPECT_EQ(file.whole_size(), 4U);
  EXPECT_EQ(file.read(4), "four");
  EXPECT_EQ(file.read(0), "");
  ASSERT_EQ(::ftruncate(file.descriptor(), 3), 0);
  EXPECT_EQ(failure_of([&] { file.read(4); }),
            "cannot read /tmp/tessel_x.log: it ends after 3 of 4 bytes");
}

}  // namespace
}  // namespace tessel
