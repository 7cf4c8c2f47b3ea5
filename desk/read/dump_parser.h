// Follows one dump and hands on each value with the keys that lead to it.
//
// A dump is JSON and mostly plain: the largest has five million short texts, and the report reads
// all of them each time. So a text without escapes is never copied, keys neither, and sixteen bytes
// are looked at in one step.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "desk/read/line_reader.h"
#include "desk/read/snapshot.h"

namespace desk {

// Deeper than any dump; a hostile one must not use up the stack or the memory.
inline constexpr std::size_t deepest = 64;

class dump_parser {
 public:
  dump_parser(byte_source& from, std::string_view label, const dump_taker& taker);

  // Reads one value of JSON and leaves the rest of the file where it is. False if it is none, or is
  // nested too deep; the bytes are taken up to the one that made it none, and that one as well
  // unless it is a single quote. Invalid UTF-8 in a text becomes U+FFFD: a tool may print any byte,
  // and one must not hide the rest. Throws `read_error`.
  [[nodiscard]] bool read();

 private:
  bool fill();
  bool fill_behind(const char*& token);
  void keep_keys();

  [[nodiscard]] int peek();
  [[nodiscard]] int take();
  [[nodiscard]] char next_token();

  bool read_start();
  bool read_value(char first);
  bool read_entry();
  bool read_element();
  bool take_usual_key();
  bool read_key();
  bool read_any_text_value();
  [[nodiscard]] std::optional<std::string_view> plain_text();
  bool read_text(std::string_view& text);
  bool read_odd_text(const char* token, std::string_view& text);
  bool read_escape();
  bool read_escaped_code();
  int take_hex();
  std::string_view take_character();
  bool read_number(char first);
  [[nodiscard]] std::optional<std::string_view> digits_at_hand(char first);
  bool read_digits();
  bool read_fraction();
  bool read_exponent();
  bool read_literal(std::string_view rest);
  bool refuse(char first);

  [[nodiscard]] dump_path path() const { return {keys_.data(), depth_}; }
  bool give(std::string_view text);
  bool open(bool is_map);
  bool close();

  byte_source& from_;
  std::string_view label_;
  const dump_taker& taker_;

  // The bytes at hand, and how far they are read.
  const char* begin_ = nullptr;
  const char* at_ = nullptr;
  const char* end_ = nullptr;

  std::size_t depth_ = 0;
  bool is_empty_ = true;  // the innermost map or list, so far
  std::array<bool, deepest> is_map_{};
  std::array<std::string_view, deepest> keys_{};  // of the bytes at hand, or of `kept_`
  std::array<std::string, deepest> kept_{};
  std::string text_;  // of which not all bytes are in the file as they are, or a number
  std::array<char, 4> kept_character_{};
};

}  // namespace desk
