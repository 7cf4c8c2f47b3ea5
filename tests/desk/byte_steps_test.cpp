#include "desk/read/byte_steps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace desk {
namespace {

bool is_blank(char c) {
  return c == ' ';
}

bool is_plain(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte < 0x80 && c != '"' && c != '\\';
}

// As much as a step may read behind the end, and no byte more: AddressSanitizer would see it.
constexpr std::size_t slack = sizeof(some_bytes) - 1;

std::vector<char> with_slack(std::string_view text, char behind) {
  std::vector<char> bytes(text.begin(), text.end());
  bytes.resize(text.size() + slack, behind);
  bytes.shrink_to_fit();
  return bytes;
}

template <class form>
class steps : public testing::Test {
 protected:
  // How far they get, where the end of the text stops them as well.
  static void expect_right(std::string_view text) {
    const auto length = [](auto begin, auto end) { return static_cast<std::size_t>(end - begin); };
    const std::size_t blanks =
        length(text.begin(), std::find_if_not(text.begin(), text.end(), is_blank));
    const std::size_t plain =
        length(text.begin(), std::find_if_not(text.begin(), text.end(), is_plain));
    for (const char behind : {' ', '"', '\xff'}) {
      const std::vector<char> bytes = with_slack(text, behind);
      const char* const end = bytes.data() + text.size();
      const char* const blanks_end = behind_blanks<form>(bytes.data(), end);
      const char* const plain_end = behind_plain<form>(bytes.data(), end);
      ASSERT_EQ(length(bytes.data(), std::min(blanks_end, end)), blanks) << text;
      ASSERT_EQ(length(bytes.data(), std::min(plain_end, end)), plain) << text;
      ASSERT_LE(length(end, std::max({end, blanks_end, plain_end})), slack) << text;
    }
  }
};

#ifdef __SSE2__
using forms = testing::Types<portable_step, sse2_step>;
#else
using forms = testing::Types<portable_step>;
#endif
TYPED_TEST_SUITE(steps, forms);

TYPED_TEST(steps, end_at_any_byte_that_is_marked) {
  for (std::uint32_t marks = 0; marks < 0x10000U; ++marks) {
    some_bytes bytes{};
    int first = sizeof bytes;
    for (int i = sizeof bytes - 1; i >= 0; --i) {
      if ((marks >> static_cast<unsigned>(i) & 1U) == 0) continue;
      bytes[i] = -1;
      first = i;
    }
    ASSERT_EQ(TypeParam::before_marked(bytes), static_cast<std::size_t>(first)) << marks;
  }
}

TYPED_TEST(steps, know_each_byte) {
  for (int byte = 0; byte < 256; ++byte)
    for (std::size_t at = 0; at < 2 * sizeof(some_bytes); ++at)
      for (const char around : {' ', 'x'}) {
        std::string text(2 * sizeof(some_bytes), around);
        text[at] = static_cast<char>(byte);
        this->expect_right(text);
      }
}

TYPED_TEST(steps, end_with_the_text) {
  for (std::size_t length = 0; length < 70; ++length) {
    this->expect_right(std::string(length, ' '));
    this->expect_right(std::string(length, 'x'));
    for (std::size_t at = 0; at < length; ++at) {
      std::string text(length, ' ');
      text[at] = '"';
      this->expect_right(text);
      text.back() = '"';
      this->expect_right(text);
    }
  }
}

TYPED_TEST(steps, are_right_on_any_bytes) {
  std::mt19937 random(1);
  for (int i = 0; i < 20'000; ++i) {
    std::string text(random() % 100, ' ');
    // Mostly such that do not stop it.
    for (char& c : text) {
      const auto kind = random() % 40;
      c = static_cast<char>(kind == 0 ? random() % 256 : kind < 20 ? ' ' : 0x23 + random() % 0x30);
    }
    this->expect_right(text);
  }
}

}  // namespace
}  // namespace desk
