// One line of the journal of a run: JSON text in a buffer of fixed size, made without allocating.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <string_view>

namespace tessel {

// A line of at most this size, with the line ends around it, is written to a pipe as a whole or not
// at all.
constexpr std::size_t longest_journal_line = PIPE_BUF - 2;

// Used by one thread at a time.
class journal_line {
 public:
  // Appends text that is JSON already. What does not fit into the line is dropped: the limits of
  // the quoted texts leave room for everything else.
  void add(std::string_view json) noexcept;
  // Appends `text` in quotes. Quotes, backslashes and control characters are escaped; each byte
  // that is no part of a UTF-8 character becomes \ufffd. A text that takes more than `most` bytes,
  // without its quotes, is cut between two characters, and then the line is cut.
  void add_quoted(std::string_view text, std::size_t most) noexcept;

  bool is_cut() const noexcept { return is_cut_; }
  std::string_view text() const noexcept { return {bytes_.data(), size_}; }

 private:
  std::array<char, longest_journal_line> bytes_{};
  std::size_t size_ = 0;
  bool is_cut_ = false;
};

}  // namespace tessel
