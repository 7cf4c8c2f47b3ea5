// A message on one line.
#pragma once

#include <string>
#include <string_view>

namespace command_line {

// The text with its control characters written as "\x0a". Any thread.
inline std::string one_line(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  constexpr unsigned first_printable = 0x20;
  constexpr unsigned delete_character = 0x7f;
  std::string line;
  for (const char c : text) {
    const unsigned byte = static_cast<unsigned char>(c);
    if (byte >= first_printable && byte != delete_character)
      line += c;
    else
      line.append("\\x").append({digits[byte >> 4U], digits[byte & 0xfU]});
  }
  return line;
}

}  // namespace command_line
