// The cost of a search, counted in steps, which are the same on every machine: one for each item of
// the pattern that is tried, including its end, and one for each byte that the search passes.
//
//   EXPECT_EQ(steps_of("a", "b"), 3);  // tried at b and after it, and b was passed
//   expect_linear(sem_row, {"a key without a payload", "1005", " ", ""});
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tessel {

// The steps of a `findall` without the library's shortcuts to the same matches. The pattern must
// not match an empty text. Fails the test at a number of steps that makes further counting
// pointless.
std::uint64_t steps_of(std::string_view expression, std::string_view text);

// A text of any length that nearly matches: `head`, then `unit` repeated, then `tail`.
struct near_miss {
  const char* why;
  std::string head;
  std::string unit;
  std::string tail;

  // A text of `bytes` or slightly more.
  std::string text(std::size_t bytes) const;
};

inline constexpr std::size_t mebibyte = std::size_t{1} << 20;

// Steps are exact whatever the build, and a sanitizer sees the same code on a short text.
#ifdef TESSEL_UNDER_SANITIZER
inline constexpr std::size_t longest_counted = mebibyte / 16;
#else
inline constexpr std::size_t longest_counted = mebibyte;
#endif

// Expects that a text of `longest_counted` takes at most sixteen times the steps of a sixteenth of
// it, and that machine code and the interpreter find the same in it, without a failure.
void expect_linear(std::string_view expression, const near_miss& shape);

// Expects for many short shapes, each made of a few of the pieces, that a text of twice the length
// takes at most twice the steps. A failure shows its seed.
void expect_linear_on_fragments(std::string_view expression,
                                std::span<const std::string_view> pieces, unsigned seeds);

}  // namespace tessel
