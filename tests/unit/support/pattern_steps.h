// What a search costs, counted in steps, which are the same on every machine: one for each item of
// the pattern that is tried, its end among them, and one for each byte that the search passes.
//
//   EXPECT_EQ(steps_of("a", "b"), 3);  // tried at b and behind it, and b was passed
//   expect_linear(sem_row, {"a key without a payload", "1005", " ", ""});
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tessel {

// The steps of a `findall` of a pattern that matches no empty text, without any of the shortcuts by
// which the library may come to the same matches. Fails the test after so many that no more need
// be counted.
std::uint64_t steps_of(std::string_view expression, std::string_view text);

// A text of any length that nearly matches: the unit again and again between the other two.
struct near_miss {
  const char* why;
  std::string head;
  std::string unit;
  std::string tail;

  // Of `bytes` or a few more.
  std::string text(std::size_t bytes) const;
};

inline constexpr std::size_t mebibyte = std::size_t{1} << 20;

// That a search of a text of twice the length takes no more than twice the steps, up to a
// mebibyte; and that machine code and the interpreter find the same there, without a failure.
void expect_linear(std::string_view expression, const near_miss& shape);

// The same of many short shapes, each made of a few of the pieces. A failure names its seed.
void expect_linear_on_fragments(std::string_view expression,
                                std::span<const std::string_view> pieces, unsigned seeds);

}  // namespace tessel
