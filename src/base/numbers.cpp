#include "base/numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <optional>
#include <vector>

#include "base/failure.h"
#include "base/text.h"

namespace tessel {

namespace {

// An integer of any length: sign and magnitude, in limbs of 32 bits, lowest first.
class wide_integer {
 public:
  bool negative = false;

  void multiply_add(std::uint32_t factor, std::uint32_t digit) {
    std::uint64_t carry = digit;
    for (std::uint32_t& limb : limbs_) {
      carry += std::uint64_t{limb} * factor;
      limb = static_cast<std::uint32_t>(carry);
      carry >>= 32;
    }
    if (carry != 0) limbs_.push_back(static_cast<std::uint32_t>(carry));
  }

  std::string text(std::uint32_t base) const {
    if (limbs_.empty()) return "0";
    std::string digits;
    for (wide_integer rest = *this; !rest.limbs_.empty();) {
      digits += "0123456789abcdef"[rest.divide(base)];
    }
    std::reverse(digits.begin(), digits.end());
    return digits;
  }

  std::uint64_t low_bits() const {
    std::uint64_t magnitude = limbs_.empty() ? 0 : limbs_[0];
    if (limbs_.size() > 1) magnitude |= std::uint64_t{limbs_[1]} << 32;
    return negative ? 0 - magnitude : magnitude;
  }

  std::optional<wide_int> as_wide() const {
    if (limbs_.size() > 3) return std::nullopt;
    wide_int magnitude = 0;
    for (std::size_t at = limbs_.size(); at-- > 0;) magnitude = magnitude << 32 | limbs_[at];
    return negative ? -magnitude : magnitude;
  }

 private:
  std::uint32_t divide(std::uint32_t base) {
    std::uint64_t rest = 0;
    for (std::size_t at = limbs_.size(); at-- > 0;) {
      rest = rest << 32 | limbs_[at];
      limbs_[at] = static_cast<std::uint32_t>(rest / base);
      rest %= base;
    }
    while (!limbs_.empty() && limbs_.back() == 0) limbs_.pop_back();
    return static_cast<std::uint32_t>(rest);
  }

  std::vector<std::uint32_t> limbs_;
};

// No platform prints longer numbers, and the time to convert one grows with the square of its
// length.
constexpr std::size_t longest_number = 4096;

constexpr std::uint8_t no_digit = 0xff;

// What each character stands for as a hexadecimal digit.
constexpr std::array<std::uint8_t, 256> digit_values = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(no_digit);
  for (std::uint8_t digit = 0; digit < 16; ++digit) {
    values[static_cast<unsigned char>("0123456789abcdef"[digit])] = digit;
    values[static_cast<unsigned char>("0123456789ABCDEF"[digit])] = digit;
  }
  return values;
}();

// The digit, or a number that is not below `base`.
std::uint32_t digit_of(char c) {
  return digit_values[static_cast<unsigned char>(c)];
}

bool has_hex_prefix(std::string_view digits) {
  return digits.size() > 1 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
}

enum class number_base { automatic, decimal, hexadecimal };

std::optional<wide_integer> read_number(std::string_view text, number_base wanted) {
  text = strip(text);
  wide_integer number;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
    number.negative = text[0] == '-';
    text.remove_prefix(1);
  }
  std::uint32_t base = wanted == number_base::hexadecimal ? 16 : 10;
  if (wanted != number_base::decimal && has_hex_prefix(text)) {
    base = 16;
    text.remove_prefix(2);
  } else if (wanted == number_base::automatic && text.size() > 1 && text[0] == '0') {
    base = 8;
  }
  if (text.empty() || text.size() > longest_number) return std::nullopt;
  for (const char c : text) {
    const std::uint32_t digit = digit_of(c);
    if (digit >= base) return std::nullopt;
    number.multiply_add(base, digit);
  }
  return number;
}

// Nearly all numbers are short, without a sign and without blanks around them: these are read and
// written without the arithmetic for any length. Returns nothing for all others.
std::optional<std::int64_t> short_digits(std::string_view digits, std::uint32_t base) {
  constexpr std::size_t most_digits = 15;
  if (digits.empty() || digits.size() > most_digits) return std::nullopt;
  std::int64_t number = 0;
  for (const char c : digits) {
    const std::uint32_t digit = digit_of(c);
    if (digit >= base) return std::nullopt;
    number = number * base + digit;
  }
  return number;
}

// The same in automatic base, except for octal numbers.
std::optional<std::int64_t> short_number(std::string_view text) {
  if (has_hex_prefix(text)) return short_digits(text.substr(2), 16);
  if (text.size() > 1 && text[0] == '0') return std::nullopt;
  return short_digits(text, 10);
}

std::string decimal_text(std::int64_t number) {
  std::array<char, 24> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  return {digits.data(), static_cast<std::size_t>(end - digits.data())};
}

std::string hex_text(std::int64_t number) {
  constexpr unsigned bits_of_digit = 4;
  auto rest = static_cast<std::uint64_t>(number);
  const auto bits = static_cast<unsigned>(std::bit_width(rest | 1));
  std::string text(2 + (bits + bits_of_digit - 1) / bits_of_digit, '0');
  text[1] = 'x';
  for (std::size_t at = text.size(); rest != 0; rest >>= bits_of_digit) {
    text[--at] = "0123456789abcdef"[rest & 0xf];
  }
  return text;
}

std::string signed_text(const wide_integer& number, std::uint32_t base) {
  const std::string digits = number.text(base);
  const bool minus = number.negative && digits != "0";
  return fmt::format("{}{}{}", minus ? "-" : "", base == 16 ? "0x" : "", digits);
}

bool fits_int64(wide_int number) {
  return number == static_cast<std::int64_t>(number);
}

const wide_integer& known(const std::optional<wide_integer>& number, std::string_view text,
                          here where) {
  if (!number) throw failure(fmt::format("{} is no number", brief_text(text)), where);
  return *number;
}

[[noreturn]] void too_large(std::string_view text, here where) {
  throw failure(fmt::format("{} is too large a number", brief_text(text)), where);
}

wide_int fitting_wide(const std::optional<wide_integer>& number, std::string_view text,
                      here where) {
  const auto fits = known(number, text, where).as_wide();
  if (!fits) too_large(text, where);
  return *fits;
}

std::int64_t fitting(const std::optional<wide_integer>& number, std::string_view text, here where) {
  const wide_int wide = fitting_wide(number, text, where);
  if (!fits_int64(wide)) too_large(text, where);
  return static_cast<std::int64_t>(wide);
}

// Plain hexadecimal text of an integer or of a decimal text of any length.
std::string decimal_to_hex(const value& number) {
  if (number.is_integer()) return convert_to_hex(number);
  const std::string_view digits = number.as_text();
  return signed_text(known(read_number(digits, number_base::decimal), digits, here::current()), 16);
}

}  // namespace

value convert_hex_to_int(const value& val) {
  if (!val.is_text()) return val;
  if (const auto number = short_number(val.as_text())) return decimal_text(*number);
  const auto number = read_number(val.as_text(), number_base::automatic);
  return number ? value(signed_text(*number, 10)) : val;
}

std::string hex_of(std::string_view printed, here where) {
  if (const auto number = short_number(printed)) return hex_text(*number);
  auto number = read_number(printed, number_base::automatic);
  if (!number) number = read_number(printed, number_base::decimal);
  if (!number) throw failure(fmt::format("{} is no number", brief_text(printed)), where);
  return signed_text(*number, 16);
}

std::string convert_to_hex(const value& val, here where) {
  if (val.is_integer()) return hex_of(std::to_string(val.as_integer()), where);
  return hex_of(val.as_text(where), where);
}

value convert_object_to_hex(const value& val) {
  value result = make_map();
  for (const auto& [key, inner] : val.as_map().items()) {
    const auto outer = read_number(key, number_base::automatic);
    if (!outer) throw failure(fmt::format("{} is no number", brief_text(key)));
    value converted = make_map();
    for (const auto& [name, number] : inner.as_map().items()) {
      converted.as_map().set(name, decimal_to_hex(number));
    }
    result.as_map().set(signed_text(*outer, 16), converted);
  }
  return result;
}

wide_int to_wide(const value& text, here where) {
  const std::string_view digits = text.as_text(where);
  if (const auto number = short_number(digits)) return *number;
  return fitting_wide(read_number(digits, number_base::automatic), digits, where);
}

wide_int to_wide_decimal(const value& text, here where) {
  if (text.is_integer()) return text.as_integer();
  const std::string_view digits = text.as_text(where);
  if (const auto number = short_digits(digits, 10)) return *number;
  return fitting_wide(read_number(digits, number_base::decimal), digits, where);
}

value number_value(wide_int number) {
  if (fits_int64(number)) return static_cast<std::int64_t>(number);
  return fmt::format("{}", number);
}

std::uint64_t to_low_bits(const value& text, here where) {
  const std::string_view digits = text.as_text(where);
  return known(read_number(digits, number_base::automatic), digits, where).low_bits();
}

std::int64_t to_integer(const value& text, here where) {
  const std::string_view digits = text.as_text(where);
  return fitting(read_number(digits, number_base::automatic), digits, where);
}

std::int64_t to_decimal(const value& text, here where) {
  if (text.is_integer()) return text.as_integer();
  const std::string_view digits = text.as_text(where);
  if (const auto number = short_digits(digits, 10)) return *number;
  return fitting(read_number(digits, number_base::decimal), digits, where);
}

std::int64_t to_hexadecimal(std::string_view text, here where) {
  return fitting(read_number(text, number_base::hexadecimal), text, where);
}

}  // namespace tessel
