#include "consistency/im_handles.h"

#include <array>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/text.h"
#include "support/bundle_world.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using im_handles_test = router_test;
using handle = std::optional<std::string>;

handle looked_up(const std::string& listing, std::string_view sub_bdl) {
  return im_handle_of(std::make_shared<const std::string>(listing), sub_bdl);
}

// The result of searching with the pattern for this one name.
handle searched(const std::string& listing, std::string_view sub_bdl) {
  const pattern row(fill(im_handle_definition, {replace_all(sub_bdl, ".", "\\.")}));
  const matches found = findall(row, listing);
  return found.empty() ? std::nullopt : handle(found.text(0));
}

TEST_F(im_handles_test, the_listings_lines_that_name_a_sub_bundle) {
  struct row {
    std::string why;
    std::string listing;
    std::string sub_bdl;
    handle expected;
  };
  const std::vector<row> rows = {
      {"an ordinary line", "0x3000a60 BE12.100  up\n", "BE12.100", "0x3000a60"},
      {"as printed, zeros and all", "0x03000A60 BE12.100 up", "BE12.100", "0x03000A60"},
      {"the first of several", "0x1 BE1.1 up\n0x2 BE1.1 up\n", "BE1.1", "0x1"},
      {"an empty listing", "", "BE12.100", std::nullopt},
      {"a name that is another's beginning", "0x1 BE1.10 up", "BE1.1", std::nullopt},
      {"a name that is another's end", "0x1 BE11.1 up", "BE1.1", std::nullopt},
      {"a point is a point", "0x1 BE1x1 up", "BE1.1", std::nullopt},
      {"no blank behind the name", "0x1 BE1.1\n", "BE1.1", std::nullopt},
      {"a tab behind the name is not a blank", "0x1 BE1.1\tup", "BE1.1", std::nullopt},
      {"a tab before the name is", "0x1\tBE1.1 up", "BE1.1", "0x1"},
      {"even a line end", "0x1\nBE1.1 up", "BE1.1", "0x1"},
      {"two blanks before the name", "0x1  BE1.1 up", "BE1.1", std::nullopt},
      {"no handle before the name", "up BE1.1 up", "BE1.1", std::nullopt},
      {"a handle without a digit", "0x BE1.1 up", "BE1.1", std::nullopt},
      {"the handle begins at the first 0x of its word", "a0x10x2 BE1.1 up", "BE1.1", "0x10x2"},
      {"any word is a handle", "0xno_ne BE1.1 up", "BE1.1", "0xno_ne"},
      {"names on one line", "0x1 BE1.1 0x2 BE1.2 up", "BE1.2", "0x2"},
      {"a zero byte in front", std::string("\0000x1 BE1.1 ", 11), "BE1.1", "0x1"},
      {"a main bundle is not a sub-bundle", "0x1 BE1 up", "BE1", std::nullopt},
  };
  for (const row& each : rows) {
    EXPECT_EQ(looked_up(each.listing, each.sub_bdl), each.expected) << each.why;
    if (each.sub_bdl.find('.') == std::string::npos) continue;
    EXPECT_EQ(searched(each.listing, each.sub_bdl), each.expected) << each.why;
  }
}

// Torn lines: parts of a match, and parts that are almost right.
constexpr std::array<std::string_view, 30> pieces = {
    "0x",         "0x3000a60", "0x1",    "0X2",    "x",    "_",   "0x10x2", "0x1 BE1.1 ",
    "BE",         "BE1.1",     "BE1.10", "BE11.1", "BE12", ".",   "BE12.1", "BE12.100",
    " BE12.100 ", " BE1.1 ",   "BE01.1", "..",     "1",    "10",  " ",      " ",
    "\n",         "\t",        "\r",     "be1.1",  "up\n", "\xff"};

std::string hostile_text(std::mt19937& random) {
  std::string text = fragments(random, pieces, random() % 60);
  if (random() % 4 == 0) text.insert(random() % (text.size() + 1), 1, '\0');
  return text;
}

// Whole lines, a few of them torn.
std::string listing_of_lines(std::mt19937& random) {
  std::uniform_int_distribution<int> digit(0, 9);
  std::uniform_int_distribution<int> small(0, 2);
  std::string text;
  for (int line = 0; line < 40; ++line) {
    text += "0x0" + std::to_string(digit(random)) + "f BE1" + std::string(small(random) == 0, '2') +
            "." + std::to_string(small(random)) + std::string(small(random) == 0, '0');
    text += small(random) == 0 ? "" : " ";
    text += digit(random) == 0 ? "" : " up\n";
  }
  return text;
}

constexpr std::array<std::string_view, 10> names = {"BE1.1",    "BE1.10", "BE11.1", "BE12.1",
                                                    "BE12.100", "BE01.1", "BE1.0",  "BE1.2",
                                                    "BE12.2",   "BE12.20"};

void expect_equal_to_the_pattern(const std::string& listing, std::size_t& hits) {
  const auto shared = std::make_shared<const std::string>(listing);
  for (const std::string_view sub_bdl : names) {
    const handle expected = searched(listing, sub_bdl);
    hits += expected ? 1 : 0;
    ASSERT_EQ(im_handle_of(shared, sub_bdl), expected) << sub_bdl << " in " << quoted(listing);
  }
}

TEST_F(im_handles_test, look_ups_equal_the_defining_pattern_on_hostile_text) {
  std::size_t hits = 0;
  for (const unsigned seed : {1U, 2U, 3U, std::random_device()()}) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 800 && !HasFatalFailure(); ++round) {
      expect_equal_to_the_pattern(hostile_text(random), hits);
      st().indexes.clear();
    }
  }
  EXPECT_GT(hits, 1000U) << "the text was too hostile to hold anything";
}

TEST_F(im_handles_test, look_ups_equal_the_defining_pattern_on_torn_listings) {
  std::size_t hits = 0;
  for (const unsigned seed : {1U, 2U, 3U, std::random_device()()}) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 100 && !HasFatalFailure(); ++round) {
      expect_equal_to_the_pattern(listing_of_lines(random), hits);
      st().indexes.clear();
    }
  }
  EXPECT_GT(hits, 1000U);
}

TEST_F(im_handles_test, a_listing_without_line_ends_is_searched_in_time_with_its_size) {
  const std::string_view endless[] = {"x", "0x", " ", "BE1.1", "0x1 BE1.2 "};
  for (const std::string_view piece : endless) {
    std::string text;
    while (text.size() < std::size_t{4} << 20) text += piece;
    EXPECT_EQ(looked_up(text + " 0x77 BE1.1 up", "BE1.1"), "0x77") << piece;
  }
  std::string word;
  while (word.size() < std::size_t{4} << 20) word += "0x";
  EXPECT_TRUE(looked_up("y" + word + " BE1.1 up", "BE1.1") == word) << "from its first 0x on";
}

TEST_F(im_handles_test, workers_that_ask_at_once_get_the_same_answer) {
  std::string text;
  for (int number = 0; number < 500; ++number) {
    text += "0x" + std::to_string(1000 + number) + " BE7." + std::to_string(number) + "  up\n";
  }
  const auto listing = std::make_shared<const std::string>(text);
  together(8, [&](int worker) {
    for (int number = worker; number < 500; number += 8) {
      EXPECT_EQ(im_handle_of(listing, "BE7." + std::to_string(number)),
                "0x" + std::to_string(1000 + number));
    }
  });
}

}  // namespace
}  // namespace tessel
