#include "desk/read/journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace desk {
namespace {

bool fits(const char* journal_began, const char* logs_began) {
  journal of;
  of.time = journal_began;
  return may_be_of(of, logs_began);
}

TEST(journal, is_of_the_run_whose_logs_begin_with_it) {
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 11:05:00,125"));
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 11:05:10,000"));
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 11:04:59,000")) << "a clock was set";
}

// The logs have the time of the router's zone.
TEST(journal, may_be_of_a_router_in_any_zone) {
  EXPECT_TRUE(fits("2026-11-22T23:59:59.900Z", "2026-11-23 01:00:00,100"));
  EXPECT_TRUE(fits("2026-03-01T00:05:00.000Z", "2026-02-28 14:05:00,100"));
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 16:50:00,125"))
      << "five and three quarters";
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", "2026-11-23 01:05:00,125"));
}

TEST(journal, is_of_another_run_if_its_minutes_are_others) {
  EXPECT_FALSE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 11:05:30,000"));
  EXPECT_FALSE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 11:04:50,000"));
  EXPECT_FALSE(fits("2026-11-22T11:05:00.123Z", "2026-11-22 12:07:00,000"));
  EXPECT_FALSE(fits("2026-11-21T11:05:00.123Z", "2026-11-22 11:05:00,125"));
  EXPECT_FALSE(fits("2026-11-23T11:05:00.123Z", "2026-11-22 11:05:00,125"));
}

TEST(journal, is_believed_if_a_time_is_missing) {
  EXPECT_TRUE(fits("", "2026-11-22 11:05:00,125"));
  EXPECT_TRUE(fits("2026-11-22T11:05:00.123Z", ""));
  EXPECT_TRUE(fits("2026-13-41T11:05:00.123Z", "2026-11-22 11:05:00,125"));
  EXPECT_TRUE(fits("some time ago, in the evening", "2026-11-22 11:05:00,125"));
}

TEST(journal, says_what_it_lacks) {
  const std::string path = testing::TempDir() + "desk_journal." + std::to_string(::getpid());
  const auto marks_of = [&](const std::string& text, bool lacks_lines) {
    std::ofstream(path, std::ios::binary) << text;
    const journal read = read_journal(path);
    EXPECT_EQ(read.lacks_lines, lacks_lines) << text;
    return read.marks;
  };
  const std::string begin = R"({"n":1,"event":"run","time":"2026-11-22T11:05:00.123Z"})"
                            "\n";
  const std::string end = R"({"n":4,"event":"finished","at":1.5})"
                          "\n";
  using testing::ElementsAre;
  using testing::HasSubstr;
  EXPECT_THAT(marks_of("", false), ElementsAre(HasSubstr("it holds no run")));
  EXPECT_THAT(marks_of(begin, false), ElementsAre(HasSubstr("did not come to its end")));
  EXPECT_THAT(marks_of(begin + end, true), ElementsAre(HasSubstr("2 lines are lost")));
  EXPECT_THAT(marks_of(begin + "{\n" + end, true),
              ElementsAre(HasSubstr("2 lines are lost"), HasSubstr("1 lines are cut")));
  std::remove(path.c_str());
}

}  // namespace
}  // namespace desk
