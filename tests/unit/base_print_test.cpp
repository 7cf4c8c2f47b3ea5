#include "base/print.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <functional>
#include <set>
#include <string>

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
