// The primitives by which everything is read from the platform's text, one thin layer over the
// regular-expression library, which nobody else sees.
//
// Patterns are byte-wise, `\w`, `\d`, `\s` are the ASCII classes, `.` does not match a line feed,
// the only line end. A text is any bytes: a NUL or invalid UTF-8 in it harms nothing.
//
//   findall(pattern("(\\w+)=(\\d+)"), "a=1 b=2")   // [["a", "1"], ["b", "2"]]
//   split("BE1BE2", "BE")                          // ["", "1", "2"]
//
// All functions may be called from any thread; a `pattern` may be used by several at once.
#pragma once

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

// A compiled pattern. Throws `failure` if `expression` is none.
class pattern {
 public:
  // For a constant: also compiled to machine code. Constants are never destroyed, since workers
  // may outlive main: `static const pattern& row = constant("...")`.
  friend const pattern& constant(std::string_view expression, letter_case letters);
  // For a pattern with a filled-in value, used a few times.
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

// All matches of a `findall`, as views into the text that was searched.
class matches {
 public:
  std::size_t size() const { return parts_.size() / width_; }
  bool empty() const { return parts_.empty(); }
  // The groups of match `at`; of a pattern without a group the whole match as the only part. A
  // group that took no part is an empty text.
  std::span<const std::string_view> operator[](std::size_t at) const {
    return {parts_.data() + at * width_, width_};
  }
  // The first of match `at`: the match or the group of a pattern with at most one group.
  std::string_view text(std::size_t at) const { return parts_[at * width_]; }

 private:
  friend matches findall(const pattern& what, std::string_view subject, here where);
  std::vector<std::string_view> parts_;
  std::size_t width_ = 1;
};

// All non-overlapping matches, left to right. Throws `failure`, never an empty result, if the
// match limit, which grows with the text, or the memory for it is used up.
matches findall(const pattern& what, std::string_view subject, here where = here::current());
// A temporary would leave the views without their text.
template <std::same_as<std::string> Text>
matches findall(const pattern& what, Text&& subject, here where = here::current()) = delete;

// `subject` with every match replaced by `replacement`, taken literally.
std::string sub(const pattern& what, std::string_view replacement, std::string_view subject,
                here where = here::current());

// Cut at each occurrence of the separator; empty pieces stay. Throws `failure` if the separator is
// empty.
std::vector<std::string_view> split(std::string_view subject, std::string_view separator);
// Cut at each match.
std::vector<std::string_view> split(std::string_view subject, const pattern& separator,
                                    here where = here::current());
// Cut at runs of white space; no empty pieces.
std::vector<std::string_view> split_words(std::string_view subject);

// The characters of "\\s" and of "\\w".
inline constexpr std::string_view white_space = " \t\n\r\f\v";
constexpr bool is_white_space(char c) {
  return white_space.find(c) != std::string_view::npos;
}
constexpr bool is_word(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// Without white space at both ends.
std::string_view strip(std::string_view subject);
// Without the characters of `set` at both ends, and at the beginning only.
std::string_view strip_set(std::string_view subject, std::string_view set);
std::string_view strip_set_left(std::string_view subject, std::string_view set);
// The last `count` characters, or all of a shorter text.
std::string_view tail(std::string_view subject, std::size_t count);

// Every occurrence of `what` replaced; an empty `what` occurs nowhere.
std::string replace_all(std::string_view subject, std::string_view what, std::string_view by);

// Each "{}" of `form` replaced by the next value, with no escaping. For patterns, and for command
// lines by way of filled_line, which looks at the values; messages are formatted with fmt.
std::string fill(std::string_view form, std::span<const std::string_view> values);
std::string fill(std::string_view form, std::initializer_list<std::string_view> values);

// The printed quoted form: 'text', or "text" if it holds a single quote and no double one; line
// ends, backslashes, the enclosing quote and bytes that are no printable ASCII as escapes.
std::string quoted(std::string_view text);
// The list text form of texts: ['first', 'second'].
std::string list_text(std::span<const std::string_view> entries);
// The list text form of matches: of those with several groups, tuples ('a', 'b').
std::string list_text(const matches& entries);

}  // namespace tessel
