#include "base/cursor.h"

#include <gtest/gtest.h>

namespace tessel {
namespace {

TEST(cursor_test, each_step_takes_what_it_finds_and_nothing_else) {
  cursor at("lag_id =>  0x1\n77");
  EXPECT_FALSE(at.skip("lag_id =") && at.skip("="));
  EXPECT_EQ(at.place(), 8U) << "the first one was there";
  EXPECT_TRUE(at.skip(">"));
  EXPECT_TRUE(at.skip_blank());
  EXPECT_EQ(at.place(), 10U);
  EXPECT_TRUE(at.skip_blanks());
  EXPECT_FALSE(at.skip_blanks());
  EXPECT_EQ(at.digits(), "0");
  EXPECT_EQ(at.word(), "x1");
  EXPECT_EQ(at.word(), "");
  EXPECT_FALSE(at.skip_other_than('\n'));
  EXPECT_TRUE(at.skip_blank());
  EXPECT_TRUE(at.skip_other_than('\n'));
  EXPECT_EQ(at.run([](char c) { return c == '7'; }), "7");
}

TEST(cursor_test, nothing_is_found_at_the_end) {
  for (cursor at : {cursor(""), cursor("a", 1), cursor("a", 7)}) {
    EXPECT_FALSE(at.skip("a"));
    EXPECT_TRUE(at.skip(""));
    EXPECT_FALSE(at.skip_blank());
    EXPECT_FALSE(at.skip_blanks());
    EXPECT_FALSE(at.skip_other_than('a'));
    EXPECT_EQ(at.word(), "");
    EXPECT_EQ(at.digits(), "");
  }
}

}  // namespace
}  // namespace tessel
