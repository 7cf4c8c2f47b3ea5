// Reads a text from left to right, piece by piece: for short blocks that are read so often that a
// search with a pattern costs more than the reading itself.
//
//   cursor at("lag_id =>  0x1\n");
//   at.skip("lag_id") && at.skip_blanks() && at.skip("=>") && at.skip_blanks()   // true
//   at.word()                                                                   // "0x1"
//
// Each step moves forward only if it finds what it wants. Runs are taken whole, as a possessive
// repetition of "\\s", "\\w" or "\\d" takes them. For one thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/text.h"

namespace tessel {

class cursor {
 public:
  explicit cursor(std::string_view text, std::size_t at = 0)
      : text_(text), at_(std::min(at, text.size())) {}

  std::size_t place() const { return at_; }

  // True if the text goes on with `expected`, which is stepped over.
  bool skip(std::string_view expected) {
    if (!text_.substr(at_).starts_with(expected)) return false;
    at_ += expected.size();
    return true;
  }
  // Steps over one blank, or over all that follow; true if there was one.
  bool skip_blank() {
    const bool found = at_ < text_.size() && is_white_space(text_[at_]);
    if (found) ++at_;
    return found;
  }
  // Steps over one character, whatever it is, except for `stop`.
  bool skip_other_than(char stop) {
    const bool found = at_ < text_.size() && text_[at_] != stop;
    if (found) ++at_;
    return found;
  }
  // The next character, which is stepped over; empty at the end of the text.
  std::string_view one() {
    const std::string_view next = text_.substr(at_, 1);
    at_ += next.size();
    return next;
  }
  bool skip_blanks() {
    return !run([](char c) { return is_white_space(c); }).empty();
  }

  // The word or the digits that follow; empty if there are none.
  std::string_view word() {
    return run([](char c) { return is_word(c); });
  }
  std::string_view digits() {
    return run([](char c) { return c >= '0' && c <= '9'; });
  }
  // The longest run of characters that belong to a set.
  template <class Belongs>
  std::string_view run(Belongs belongs) {
    const std::size_t start = at_;
    while (at_ < text_.size() && belongs(text_[at_])) ++at_;
    return text_.substr(start, at_ - start);
  }

 private:
  std::string_view text_;
  std::size_t at_;
};

}  // namespace tessel
