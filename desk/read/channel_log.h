// The finding logs of the audit: their entries, run by run.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace desk {

// One message, as the audit wrote it.
struct log_entry {
  std::string time;  // "2026-11-22 11:01:03,219"
  std::string text;  // without the time; of several lines if a text from a tool had some
  std::string file;  // "tessel_exception.log"
  std::size_t line;  // in that file, from 1
  bool has_trace;    // a traceback followed it: it reports a failure
};

// What one run wrote into one log.
struct log_run {
  std::string started;  // the time of its start line; empty if that line was rotated away
  std::vector<log_entry> entries;
};

struct channel_log {
  std::string name;                // "tessel_exception.log"
  std::vector<log_run> runs;       // the oldest first
  std::vector<std::string> marks;  // what is missing or unreadable, a sentence each
  bool is_read = false;            // the file is there and was read to its end
  bool has_traces = true;          // bundle health has a tool's own lines instead
  std::string other_start;         // start line of the last run, if another version wrote it
};

// Reads a log with its backup NAME.1, which is older. A file that is missing or cannot be read is a
// mark, not a failure. What stands before the first start line is a run without `started`.
[[nodiscard]] channel_log read_channel_log(const std::string& folder, std::string_view name,
                                           bool has_traces = true);

// "2026-11-22 11:01:03,219: " at the start of a line; 0 if it does not start so.
[[nodiscard]] std::size_t length_of_stamp(std::string_view line);

}  // namespace desk
