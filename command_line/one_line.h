// A message on one line.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace command_line {

// Marks and controls of writing direction, which let a name reorder the line around it.
inline constexpr std::array<std::string_view, 12> direction_marks = {
    "\u061c", "\u200e", "\u200f", "\u202a", "\u202b", "\u202c",
    "\u202d", "\u202e", "\u2066", "\u2067", "\u2068", "\u2069"};

// How many bytes at the beginning of a text would control a terminal instead of being shown.
[[nodiscard]] constexpr std::size_t length_of_control(std::string_view text) {
  constexpr unsigned first_printable = 0x20;
  constexpr unsigned delete_character = 0x7f;
  const unsigned byte = static_cast<unsigned char>(text.front());
  if (byte < first_printable || byte == delete_character) return 1;
  if (byte < delete_character) return 0;
  // The controls of ISO 8859, which some terminals take from UTF-8, too.
  constexpr unsigned last_control = 0x9f;
  if (text.size() > 1 && text[0] == '\xc2' && static_cast<unsigned char>(text[1]) <= last_control)
    return 2;
  for (const std::string_view mark : direction_marks)
    if (text.starts_with(mark)) return mark.size();
  return 0;
}

// The text with its control characters written as "\x0a", those of the writing direction too. Any
// thread.
inline std::string one_line(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string line;
  std::size_t escaped = 0;  // of the bytes from here on
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (escaped == 0) escaped = length_of_control(text.substr(at));
    if (escaped == 0) {
      line += text[at];
      continue;
    }
    const unsigned byte = static_cast<unsigned char>(text[at]);
    line.append("\\x").append({digits[byte >> 4U], digits[byte & 0xfU]});
    --escaped;
  }
  return line;
}

}  // namespace command_line
