#include "desk/model/numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace desk {

std::optional<std::uint64_t> number_in(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return {};
  return number;
}

std::int16_t npu_in(std::string_view text) {
  const auto number = text.starts_with("0x") ? std::nullopt : number_in(text);
  if (!number || *number > std::numeric_limits<std::int16_t>::max()) return -1;
  return static_cast<std::int16_t>(*number);
}

std::string_view significant_end(std::string_view system_port) {
  return system_port.substr(std::min(system_port.find_first_not_of("0x"), system_port.size()));
}

std::string_view lag_id_in(std::string_view key) {
  constexpr std::string_view word = "LAG ";
  return key.starts_with(word) ? key.substr(word.size()) : key;
}

std::string compared_form(field what, std::string_view value) {
  if (what == field::mac) {
    std::string digits;
    for (const char c : value)
      if (c != '.' && c != ':')
        digits += c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    return digits;
  }
  const auto number = number_in(value);
  if (!number) return std::string(value);
  std::string digits = fmt::format("{:#x}", *number);
  constexpr std::size_t compared_digits = 4;  // of a global LIF; a shorter one keeps its "x"
  if (what == field::lif && digits.size() > compared_digits)
    digits.erase(0, digits.size() - compared_digits);
  return digits;
}

}  // namespace desk
