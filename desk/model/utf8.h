// Characters of UTF-8 in bytes that may be anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace desk {

inline constexpr std::string_view replacement_character = "\xef\xbf\xbd";
inline constexpr std::uint32_t replacement_code = 0xfffd;

struct utf8_character {
  bool is_valid = false;
  std::uint32_t code = replacement_code;
  // Bytes; of an invalid one the lead and what continues it, as far as a lead of its kind asks for.
  std::size_t length = 1;
};

// The first character of a text that is not empty. Valid is what Unicode allows: no overlong form,
// no surrogate, nothing above U+10FFFF.
[[nodiscard]] utf8_character first_character(std::string_view text);

// How many bytes a sequence with this lead has; 1 for ASCII.
[[nodiscard]] constexpr std::size_t length_from_lead(char first) {
  const auto lead = static_cast<unsigned char>(first);
  return lead < 0x80 ? 1 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
}

[[nodiscard]] constexpr bool continues_character(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

// A mark or control of writing direction, which lets a name reorder the line around it. Any thread.
[[nodiscard]] constexpr bool turns_text(std::uint32_t code) {
  return code == 0x61c || code == 0x200e || code == 0x200f || (code >= 0x202a && code <= 0x202e) ||
         (code >= 0x2066 && code <= 0x2069);
}

}  // namespace desk
