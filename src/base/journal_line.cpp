#include "base/journal_line.h"

#include <algorithm>

namespace tessel {

namespace {

constexpr unsigned byte_at(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

// How many bytes a character has that begins so, or 0 if none does.
constexpr std::size_t size_begun_by(unsigned first) {
  if (first < 0x80) return 1;
  if (first < 0xC2) return 0;
  if (first < 0xE0) return 2;
  if (first < 0xF0) return 3;
  return first < 0xF5 ? 4 : 0;
}

// True if the second byte makes a surrogate, a number that is too large, or one that fewer bytes
// can hold.
constexpr bool is_no_character(unsigned first, unsigned second) {
  switch (first) {
    case 0xE0:
      return second < 0xA0;
    case 0xED:
      return second >= 0xA0;
    case 0xF0:
      return second < 0x90;
    case 0xF4:
      return second >= 0x90;
    default:
      return false;
  }
}

// The size of the UTF-8 character at the beginning of `text`, or 0 if there is none.
constexpr std::size_t size_of_first(std::string_view text) {
  const unsigned first = byte_at(text, 0);
  const std::size_t size = size_begun_by(first);
  if (size < 2) return size;
  if (text.size() < size || is_no_character(first, byte_at(text, 1))) return 0;
  for (std::size_t at = 1; at < size; ++at) {
    if ((byte_at(text, at) & 0xC0U) != 0x80) return 0;
  }
  return size;
}

// The control characters of ASCII, and those that UTF-8 writes as two bytes: a terminal may obey
// both.
constexpr bool is_control(std::string_view character) {
  const unsigned first = byte_at(character, 0);
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return character.size() == 2 && first == 0xC2 && byte_at(character, 1) < 0xA0;
}

// A character as it stands in quotes.
class quoted_character {
 public:
  explicit quoted_character(std::string_view character) {
    if (character == "\"" || character == "\\") {
      put("\\");
      put(character);
    } else if (character == "\n") {
      put("\\n");
    } else if (character == "\r") {
      put("\\r");
    } else if (character == "\t") {
      put("\\t");
    } else if (is_control(character)) {
      put_number(byte_at(character, character.size() - 1));
    } else {
      put(character);
    }
  }
  std::string_view text() const { return {bytes_.data(), size_}; }

 private:
  void put(std::string_view part) {
    std::copy(part.begin(), part.end(), bytes_.begin() + size_);
    size_ += part.size();
  }
  void put_number(unsigned code) {
    constexpr std::string_view digits = "0123456789abcdef";
    put("\\u00");
    put(digits.substr(code >> 4U, 1));
    put(digits.substr(code & 0xFU, 1));
  }
  std::array<char, 6> bytes_{};
  std::size_t size_ = 0;
};

}  // namespace

void journal_line::add(std::string_view json) noexcept {
  const std::size_t fitting = std::min(json.size(), bytes_.size() - size_);
  std::copy_n(json.begin(), fitting, bytes_.begin() + size_);
  size_ += fitting;
}

void journal_line::add_quoted(std::string_view text, std::size_t most) noexcept {
  add("\"");
  while (!text.empty()) {
    const std::size_t size = size_of_first(text);
    const quoted_character known(text.substr(0, std::max<std::size_t>(size, 1)));
    const std::string_view shown = size == 0 ? "\\ufffd" : known.text();
    if (shown.size() > most) {
      is_cut_ = true;
      break;
    }
    add(shown);
    most -= shown.size();
    text.remove_prefix(std::max<std::size_t>(size, 1));
  }
  add("\"");
}

}  // namespace tessel
