// The journal of a run (docs/JOURNAL.md), read while the audit writes it to a file.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel_host {

enum class journal_event_kind { run, start, end, finished, other };

struct journal_event {
  journal_event_kind kind = journal_event_kind::other;
  std::uint64_t number = 0;  // of the line
  std::uint64_t id = 0;      // of the command
  pid_t shell = 0;           // 0 if there was none
  double at = 0;             // seconds since the run began
  double seconds = 0;        // of the command
  bool timed_out = false;
  std::string node;  // empty if the command asks no single one
  std::string npu;
  std::string command;
};

// Reads a line of the library. Nothing if that is none.
[[nodiscard]] std::optional<journal_event> read_event(std::string_view line);

// One per file. Used by one thread.
class journal_tail {
 public:
  // Reads what follows `from`. Takes over the descriptor, which must be open for reading. Of a file
  // that nobody else reads, what has been read can be given back to the system.
  journal_tail(int descriptor, off_t from, bool is_for_us_alone);
  ~journal_tail();
  journal_tail(const journal_tail&) = delete;
  journal_tail& operator=(const journal_tail&) = delete;

  // Hands over the lines that have been completed since the last call, without their ends.
  void take_lines(const std::function<void(std::string_view)>& take);

 private:
  bool read_more();
  int descriptor_;
  off_t at_;
  bool is_for_us_alone_;
  std::string text_;  // begins with a line
  std::vector<char> block_ = std::vector<char>(65536);
};

}  // namespace tessel_host
