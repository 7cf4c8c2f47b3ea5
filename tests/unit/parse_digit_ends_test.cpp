#include "parse/digit_ends.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/hostile.h"
#include "support/pattern_steps.h"

namespace tessel {
namespace {

digit_ends ends_of(const std::vector<std::string>& texts) {
  digit_ends ends;
  for (std::size_t number = 0; number < texts.size(); ++number) ends.add(texts[number], number);
  return ends;
}

// What a look-up is: the first text in a row that ends in the digits.
std::optional<std::size_t> first_in_a_row(const std::vector<std::string>& texts,
                                          std::string_view digits) {
  const auto found = std::find_if(texts.begin(), texts.end(), [digits](const std::string& text) {
    return text.ends_with(digits);
  });
  if (found == texts.end()) return std::nullopt;
  return static_cast<std::size_t>(found - texts.begin());
}

TEST(digit_ends_test, the_first_text_with_the_end_is_found) {
  const std::vector<std::string> texts = {"11", "1", "21", "5"};
  const digit_ends ends = ends_of(texts);
  EXPECT_EQ(ends.first_of("11"), 0U);
  EXPECT_EQ(ends.first_of("1"), 0U) << "not the equal one, which comes later";
  EXPECT_EQ(ends.first_of("21"), 2U);
  EXPECT_EQ(ends.first_of("2"), std::nullopt);
  EXPECT_EQ(ends.first_of("121"), std::nullopt);
  EXPECT_EQ(ends.first_of("x"), std::nullopt);
}

TEST(digit_ends_test, every_text_has_the_empty_end) {
  EXPECT_EQ(digit_ends().first_of(""), std::nullopt);
  EXPECT_EQ(digit_ends().first_of("1"), std::nullopt);
  const std::vector<std::string> plain = {"1", "2"};
  EXPECT_EQ(ends_of(plain).first_of(""), 0U);
  const std::vector<std::string> with_empty = {"", "2"};
  EXPECT_EQ(ends_of(with_empty).first_of(""), 0U);
  EXPECT_EQ(ends_of(with_empty).first_of("2"), 1U);
}

TEST(digit_ends_test, after_clear_there_is_none) {
  const std::vector<std::string> texts = {"1"};
  digit_ends ends = ends_of(texts);
  ends.clear();
  EXPECT_EQ(ends.first_of("1"), std::nullopt);
}

TEST(digit_ends_test, a_look_up_gives_what_a_search_through_all_texts_gives) {
  constexpr std::array<std::string_view, 9> pieces = {
      "0", "1", "2", "01", "00000000000000000000", "10101010101010101010101", "9", "x", "99"};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<std::string> texts;
    for (unsigned count = 1 + seed % 12; count > 0; --count) {
      texts.push_back(fragments(random, pieces, random() % 6));
    }
    const digit_ends ends = ends_of(texts);
    for (int round = 0; round < 20; ++round) {
      std::string wanted = fragments(random, pieces, random() % 4);
      if (round % 2 == 0) {
        const std::string& text = texts[random() % texts.size()];
        wanted = text.substr(random() % (text.size() + 1));
      }
      ASSERT_EQ(ends.first_of(wanted), first_in_a_row(texts, wanted)) << wanted;
    }
  }
}

// Texts that have so many digits in all.
using shape = std::function<std::vector<std::string>(std::size_t digits)>;

std::vector<std::string> of_length(std::size_t digits, std::size_t length) {
  std::vector<std::string> texts;
  for (std::size_t number = 0; number < digits / length; ++number) {
    const std::string name = std::to_string(number);
    texts.push_back(name + std::string(length - name.size(), '0'));
  }
  return texts;
}

std::uint64_t steps_for(const shape& texts_of, std::size_t digits) {
  const std::vector<std::string> texts = texts_of(digits);
  const digit_ends ends = ends_of(texts);
  for (const std::string& text : texts) EXPECT_TRUE(ends.first_of(text));
  return ends.steps();
}

TEST(digit_ends_test, the_steps_grow_linearly_whatever_the_texts_share) {
  const std::array<shape, 5> shapes = {
      [](std::size_t digits) { return of_length(digits, 21); },
      [](std::size_t digits) { return of_length(digits, 500); },
      [](std::size_t digits) { return std::vector(digits / 30, std::string(30, '7')); },
      [](std::size_t digits) { return std::vector{std::string(digits, '1')}; },
      [](std::size_t digits) {
        std::vector<std::string> texts;
        for (std::size_t length = 1; length * length / 2 < digits; ++length) {
          texts.emplace_back(length, '0');
        }
        return texts;
      },
  };
  for (std::size_t number = 0; number < shapes.size(); ++number) {
    const std::uint64_t few = steps_for(shapes[number], longest_counted / 16);
    const std::uint64_t many = steps_for(shapes[number], longest_counted);
    EXPECT_LE(many, 20 * few) << "shape " << number;
    EXPECT_LE(many, 24 * longest_counted) << "two of each kind for a digit, ten branches at most";
  }
}

}  // namespace
}  // namespace tessel
