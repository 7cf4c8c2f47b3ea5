#include "base/memory_limit.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <atomic>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/command.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::string_view proc = "/tmp/proc";
constexpr std::string_view groups = "/tmp/groups";
constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;

// A system that shows only what a test writes.
class memory_limit_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    std::filesystem::remove_all(proc);
    std::filesystem::remove_all(groups);
  }
  static void show(std::string_view path, std::string_view text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    write_file(path, text);
  }
  static void show_groups(std::string_view lines) { show("/tmp/proc/self/cgroup", lines); }
  static void show_free(std::string_view kibibytes) {
    show("/tmp/proc/meminfo",
         fmt::format("MemTotal: 99 kB\nMemFree: 7 kB\nMemAvailable:   {} kB\n", kibibytes));
  }
  static memory_limit limit() { return read_memory_limit(proc, groups); }
};

TEST_F(memory_limit_test, without_any_limit_there_is_none) {
  EXPECT_EQ(limit().bytes, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(memory_limit_test, the_free_memory_of_the_machine_is_a_limit) {
  show_free("1000");
  EXPECT_EQ(limit().bytes, 1024000U);
  EXPECT_EQ(limit().from, std::string_view("the free memory of the machine"));
}

TEST_F(memory_limit_test, the_group_of_version_2_and_those_around_it_are_limits) {
  show_groups("0::/a/b/c\n");
  show("/tmp/groups/a/b/c/memory.max", "max\n");
  show("/tmp/groups/a/b/memory.max", "5000000\n");
  show("/tmp/groups/a/memory.max", "4000000\n");
  show("/tmp/groups/other/memory.max", "7\n");
  EXPECT_EQ(limit().bytes, 4000000U);
  show("/tmp/groups/a/b/c/memory.max", "3000000\n");
  EXPECT_EQ(limit().bytes, 3000000U);
  EXPECT_EQ(limit().from, std::string_view("the memory limit of the control group"));
}

TEST_F(memory_limit_test, the_group_of_version_1_is_a_limit) {
  show_groups("12:cpu,cpuacct:/x\n4:memory:/a/b\n0::/\n");
  show("/tmp/groups/memory/a/b/memory.limit_in_bytes", "9223372036854771712\n");
  EXPECT_EQ(limit().bytes, 9223372036854771712U) << "no limit, in the words of version 1";
  show("/tmp/groups/memory/a/memory.limit_in_bytes", "6000000\n");
  EXPECT_EQ(limit().bytes, 6000000U);
}

TEST_F(memory_limit_test, the_group_of_version_1_may_have_other_controllers_too) {
  show("/tmp/groups/memory/a/memory.limit_in_bytes", "6000000\n");
  for (const char* line : {"4:memory,pids:/a\n", "4:cpu,memory:/a\n", "4:cpu,memory,pids:/a\n"}) {
    show_groups(line);
    EXPECT_EQ(limit().bytes, 6000000U) << line;
  }
  const auto without = [&](const char* line) {
    show_groups(line);
    return limit().bytes;
  };
  EXPECT_NE(without("4:memory_other,cpu:/a\n"), 6000000U);
}

TEST_F(memory_limit_test, a_container_that_shows_only_its_outermost_group_has_its_limit) {
  show_groups("4:memory:/of/the/machine\n0::/of/the/machine\n");
  show("/tmp/groups/memory/memory.limit_in_bytes", "6000000\n");
  EXPECT_EQ(limit().bytes, 6000000U);
  show("/tmp/groups/memory.max", "5000000\n");
  EXPECT_EQ(limit().bytes, 5000000U);
}

TEST_F(memory_limit_test, what_cannot_be_read_is_no_limit) {
  for (const char* lines : {"", "\n\n", "no colon\n", "4:memory\n", "::::\n", "0::relative\n"}) {
    show_groups(lines);
    show("/tmp/proc/meminfo", "MemAvailable: many kB\n");
    show("/tmp/groups/memory.max", "18446744073709551616\n");
    EXPECT_EQ(limit().bytes, std::numeric_limits<std::uint64_t>::max()) << lines;
  }
  show_groups("0::/" + std::string(5000, 'x') + "\n");
  EXPECT_EQ(limit().bytes, std::numeric_limits<std::uint64_t>::max());
}

TEST_F(memory_limit_test, the_least_of_all_counts) {
  show_groups("0::/\n");
  show("/tmp/groups/memory.max", "5000000\n");
  show_free("4000");
  EXPECT_EQ(limit().bytes, 4096000U);
  EXPECT_EQ(
      status_in_child([] {
        const rlimit own{std::uint64_t{1} << 60, RLIM_INFINITY};  // more than a sanitizer maps
        if (::setrlimit(RLIMIT_AS, &own) != 0) return 1;
        if (limit().bytes != 4096000U) return 2;
        std::filesystem::remove_all(proc);
        std::filesystem::remove_all(groups);
        const memory_limit found = limit();
        return found.bytes == own.rlim_cur && found.from == std::string_view("RLIMIT_AS") ? 7 : 3;
      }),
      7);
}

TEST_F(memory_limit_test, this_machine_has_a_limit) {
  EXPECT_GT(read_memory_limit().bytes, mebibyte);
  EXPECT_LT(read_memory_limit().bytes, std::uint64_t{1} << 60);
}

TEST_F(memory_limit_test, texts_take_half_of_the_memory_and_no_byte_more) {
  text_account account;
  account.set_limit({200, "RLIMIT_AS"});
  const text_share first(account, 60, "/tmp/a");
  {
    const text_share second(account, 40, "/tmp/b");
    EXPECT_EQ(account.held(), 100U);
    EXPECT_EQ(failure_of([&] { const text_share more(account, 1, "/tmp/c"); }),
              "cannot hold /tmp/c: it has 1 bytes, at most 0 bytes are left in the half of "
              "RLIMIT_AS that outputs may take; give the audit more memory");
    EXPECT_EQ(account.held(), 100U);
  }
  EXPECT_EQ(account.held(), 60U);
  EXPECT_THAT(failure_of([&] { const text_share more(account, UINT64_MAX, "/tmp/c"); }),
              HasSubstr("it has 18446744073709551615 bytes, at most 40 bytes"));
  text_share moved(account, 40, "/tmp/b");
  const text_share owner(std::move(moved));
  EXPECT_EQ(account.held(), 100U);
}

TEST_F(memory_limit_test, threads_together_never_hold_more_than_may_be) {
  text_account account;
  account.set_limit({2000, "RLIMIT_AS"});
  std::atomic<std::uint64_t> most = 0;
  std::atomic<int> refused = 0;
  together(8, [&](int thread) {
    for (int turn = 0; turn < 2000; ++turn) {
      try {
        const text_share share(account, static_cast<std::uint64_t>(100 + 60 * thread), "a text");
        std::uint64_t seen = account.held();
        for (std::uint64_t before = most;
             before < seen && !most.compare_exchange_weak(before, seen);) {
        }
      } catch (const failure&) {
        ++refused;
      }
    }
  });
  EXPECT_EQ(account.held(), 0U);
  EXPECT_LE(most, 1000U);
}

TEST_F(memory_limit_test, a_text_is_held_as_long_as_one_of_its_values) {
  text_account& texts = st().texts;
  const std::string output(1000, 'x');
  tool_prints("cfg_render", output);
  value first = execute("cfg_render", "a");
  EXPECT_EQ(first, output);
  EXPECT_EQ(texts.held(), 1000U);
  value second = first;
  first = value();
  EXPECT_EQ(texts.held(), 1000U);
  const auto shared = second.as_shared_text();
  second = value();
  EXPECT_EQ(texts.held(), 1000U) << "an index uses the text itself";
}

TEST_F(memory_limit_test, a_text_that_died_is_held_no_more) {
  tool_prints("cfg_render", std::string(1000, 'x'));
  for (int time = 0; time < 3; ++time) EXPECT_TRUE(execute("cfg_render", "a").is_text());
  EXPECT_EQ(st().texts.held(), 0U);
}

TEST_F(memory_limit_test, an_output_that_does_not_fit_is_a_counted_failure_with_both_numbers) {
  open_logs();
  st().texts.set_limit({8 * mebibyte, "RLIMIT_AS"});
  tool("cfg_render", "truncate -s 1G /tmp/tessel_huge.log");  // takes no room on the disk
  EXPECT_EQ(execute("cfg_render", "huge"), ERROR);
  EXPECT_EQ(st().exception, 1);
  EXPECT_EQ(st().texts.held(), 0U);
  EXPECT_THAT(
      messages(LOG_FILE_EXCEPTION),
      ElementsAre(
          "cannot hold /tmp/tessel_huge.log: it has 1073741824 bytes, at most 4194304 bytes "
          "are left in the half of RLIMIT_AS that outputs may take; give the audit more "
          "memory: execution failed for cfg_render"));
}

TEST_F(memory_limit_test, what_is_refused_is_not_read) {
  open_logs();
  st().texts.set_limit({2000, "RLIMIT_AS"});
  tool_prints("cfg_render", std::string(600, 'x'));
  const value first = execute("cfg_render", "first");
  EXPECT_TRUE(first.is_text());
  EXPECT_EQ(execute("cfg_render", "second"), ERROR);
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("it has 600 bytes, at most 400 bytes are left")));
}

TEST_F(memory_limit_test, a_copy_is_held_beside_its_text) {
  text_account& texts = st().texts;
  const std::string output(1000, 'x');
  const value copy = held_copy(texts, output, "the copy");
  EXPECT_EQ(copy, output);
  EXPECT_EQ(texts.held(), 1000U);
  texts.set_limit({3000, "RLIMIT_AS"});
  EXPECT_THAT([&] { held_copy(texts, output, "the copy"); },
              testing::ThrowsMessage<failure>(
                  "cannot hold the copy: it has 1000 bytes, at most 500 bytes are left in the half "
                  "of RLIMIT_AS that outputs may take; give the audit more memory"));
  EXPECT_EQ(texts.held(), 1000U);
}

}  // namespace
}  // namespace tessel
