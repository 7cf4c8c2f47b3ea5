// The journal of a run: which commands it ran, how each ended, how much each printed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

struct journal_command {
  std::uint64_t id = 0;
  std::string node;  // empty if it concerns no single one
  std::string npu;
  std::string command;
  bool has_ended = false;
  std::optional<int> status;
  std::optional<int> signal;
  std::optional<std::uint64_t> bytes;
  double seconds = 0;
  bool is_timed_out = false;  // the audit has ended it, because its time was over
  std::string failed;         // why the audit could not run it or use its output
};

// The tool's own call, without the pipe behind it.
[[nodiscard]] std::string shown_call(const journal_command& of);

struct journal {
  std::vector<journal_command> commands;  // in the order of their numbers
  std::string time;                       // when the run began, in UTC
  bool is_finished = false;
  bool lacks_lines = false;        // also of those in the middle
  double seconds = 0;              // up to its last line
  std::vector<std::string> marks;  // what is lost or not understood, a sentence each
};

// Whether the journal can be of the run whose logs begin at `started`, "2026-11-22 11:01:03,219".
// Logs have the router's own time and a journal has UTC, so only what is less than a quarter of an
// hour tells them apart: the log's first line is written within seconds of the journal's. True if
// one of the times is missing or of another form.
[[nodiscard]] bool may_be_of(const journal& of, std::string_view started);

// Reads the journal of one run; a line that is lost, cut or no JSON is a mark. Throws `read_error`
// if the file cannot be read.
[[nodiscard]] journal read_journal(const std::string& path);

}  // namespace desk
