// A message on one line.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace command_line {

// Marks and controls of writing direction, which let a name reorder the line around it.
inline constexpr std::array<std::string_view, 12> direction_marks = {
    "\u061c", "\u200e", "\u200f", "\u202a", "\u202b", "\u202c",
    "\u202d", "\u202e", "\u2066", "\u2067", "\u2068", "\u2069"};

// How many bytes the first character of a text has; 1 if it is no valid UTF-8.
[[nodiscard]] constexpr std::size_t length_of_character(std::string_view text) {
  const auto byte = [text](std::size_t at) -> unsigned {
    return static_cast<unsigned char>(text[at]);
  };
  const unsigned lead = byte(0);
  if (lead < 0xc2 || lead > 0xf4) return 1;
  const std::size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  if (length > text.size()) return 1;
  for (std::size_t at = 1; at < length; ++at)
    if ((byte(at) & 0xc0U) != 0x80) return 1;
  const bool is_too_long = (lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xf0 && byte(1) < 0x90);
  const bool has_no_code = (lead == 0xed && byte(1) > 0x9f) || (lead == 0xf4 && byte(1) > 0x8f);
  return is_too_long || has_no_code ? 1 : length;
}

// True for a character, or a byte that is none, that would control a terminal instead of being
// shown.
[[nodiscard]] constexpr bool is_control(std::string_view character) {
  // Those of ISO 8859 some terminals take from UTF-8, and others as a single byte.
  const auto is_of_iso8859 = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xe0U) == 0x80;
  };
  const unsigned first = static_cast<unsigned char>(character.front());
  if (character.size() == 1)
    return first < 0x20 || first == 0x7f || is_of_iso8859(character.front());
  if (first == 0xc2) return is_of_iso8859(character[1]);
  return std::find(direction_marks.begin(), direction_marks.end(), character) !=
         direction_marks.end();
}

// The text with its control characters written as "\x0a", those of the writing direction too. Any
// thread.
inline std::string one_line(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string line;
  while (!text.empty()) {
    const std::string_view character = text.substr(0, length_of_character(text));
    text.remove_prefix(character.size());
    if (!is_control(character)) {
      line += character;
      continue;
    }
    for (const char each : character) {
      const unsigned byte = static_cast<unsigned char>(each);
      line.append("\\x").append({digits[byte >> 4U], digits[byte & 0xfU]});
    }
  }
  return line;
}

}  // namespace command_line
