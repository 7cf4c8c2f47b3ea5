// Functions for reading the platform's text: a thin layer over the regular-expression library,
// which no other code uses directly.
//
// Patterns work on bytes. `\w`, `\d` and `\s` are the ASCII classes. `.` does not match a line
// feed, which is the only line end. A text may contain any bytes, also NUL or invalid UTF-8.
//
//   findall(pattern("(\\w+)=(\\d+)"), "a=1 b=2")   // [["a", "1"], ["b", "2"]]
//   split("BE1BE2", "BE")                          // ["", "1", "2"]
//
// All functions may be called from any thread. Several threads may use one `pattern` at once.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/here.h"

namespace tessel {

enum class letter_case { kept, ignored };

// A compiled pattern. Throws `failure` if `expression` is not valid.
class pattern {
 public:
  // For a constant pattern; it is also compiled to machine code. Constants are never destroyed,
  // because workers may outlive main: `static const pattern& row = constant("...")`.
  friend const pattern& constant(std::string_view expression, letter_case letters);
  // For a pattern that contains a value and is used only a few times.
  explicit pattern(std::string_view expression, letter_case letters = letter_case::kept);
  ~pattern();
  pattern(const pattern&) = delete;
  pattern& operator=(const pattern&) = delete;

  const std::string& expression() const { return expression_; }

 private:
  friend class matcher;
  std::string expression_;
  void* code_;
};

const pattern& constant(std::string_view expression, letter_case letters = letter_case::kept);

// All matches of a `findall`, as views into the searched text.
class matches {
 public:
  std::size_t size() const { return parts_.size() / width_; }
  bool empty() const { return parts_.empty(); }
  // The groups of match `at`. For a pattern without a group, the only part is the whole match. A
  // group that did not take part is an empty text.
  std::span<const std::string_view> operator[](std::size_t at) const {
    return {parts_.data() + at * width_, width_};
  }
  // The first part of match `at`: the match, or the group of a pattern with one group.
  std::string_view text(std::size_t at) const { return parts_[at * width_]; }

 private:
  friend matches findall(const pattern& what, std::string_view subject, here where);
  std::vector<std::string_view> parts_;
  std::size_t width_ = 1;
};

// All non-overlapping matches, left to right. Throws `failure` if the match limit, which grows with
// the text, or the memory for it is used up; it never returns an empty result instead.
matches findall(const pattern& what, std::string_view subject, here where = here::current());
// Deleted for a temporary, because the views would outlive their text.
template <std::same_as<std::string> Text>
matches findall(const pattern& what, Text&& subject, here where = here::current()) = delete;

// `subject` with every match replaced by `replacement`, taken literally.
std::string sub(const pattern& what, std::string_view replacement, std::string_view subject,
                here where = here::current());

// Splits at each occurrence of the separator; empty pieces stay. Throws `failure` if the separator
// is empty.
std::vector<std::string_view> split(std::string_view subject, std::string_view separator);
// Splits at each match.
std::vector<std::string_view> split(std::string_view subject, const pattern& separator,
                                    here where = here::current());
// Splits at runs of white space; gives no empty pieces.
std::vector<std::string_view> split_words(std::string_view subject);

// The characters of "\\s" and of "\\w".
inline constexpr std::string_view white_space = " \t\n\r\f\v";
constexpr bool is_white_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
inline constexpr std::array<bool, 256> word_characters = [] {
  std::array<bool, 256> belongs{};
  for (const char c : std::string_view("0123456789abcdefghijklmnopqrstuvwxyz"
                                       "ABCDEFGHIJKLMNOPQRSTUVWXYZ_")) {
    belongs[static_cast<unsigned char>(c)] = true;
  }
  return belongs;
}();
constexpr bool is_word(char c) {
  return word_characters[static_cast<unsigned char>(c)];
}

// `subject` without the white space at both ends.
std::string_view strip(std::string_view subject);
// `subject` without the characters of `set` at both ends; at the beginning only.
std::string_view strip_set(std::string_view subject, std::string_view set);
std::string_view strip_set_left(std::string_view subject, std::string_view set);
// The last `count` characters, or the whole text if it is shorter.
std::string_view tail(std::string_view subject, std::size_t count);

// How often `what`, which is not empty, occurs in `subject`, side by side.
std::size_t count_of(std::string_view subject, std::string_view what);

// Replaces every occurrence of `what`; an empty `what` does not occur.
std::string replace_all(std::string_view subject, std::string_view what, std::string_view by);

// All parts, one after the other.
std::string joined(std::initializer_list<std::string_view> parts);

// Replaces each "{}" of `form` with the next value, without escaping. Only for patterns; messages
// are formatted with fmt.
std::string fill(std::string_view form, std::span<const std::string_view> values);
std::string fill(std::string_view form, std::initializer_list<std::string_view> values);

// The printed quoted form: 'text', or "text" if it contains a single quote and no double quote.
// Line ends, backslashes, the enclosing quote and bytes that are not printable ASCII become
// escapes.
std::string quoted(std::string_view text);
// The list text form of texts: ['first', 'second'].
std::string list_text(std::span<const std::string_view> entries);
// The list text form of matches. Matches with several groups become tuples ('a', 'b').
std::string list_text(const matches& entries);

}  // namespace tessel
