// The command line of tessel-report as a struct.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace desk {

inline constexpr int status_nothing_found = 0;
inline constexpr int status_findings = 1;
inline constexpr int status_wrong_call = 2;
inline constexpr int status_not_judged = 3;

enum class command {
  help,
  version,
  summary,
  bundle,
  coverage,
  explain,
  runs,
  diff,
  confirm,
  history,
  merge,
  json,
  junit,
  sarif,
  prometheus,
  nagios,
  html
};

// How merge shows its result; `by_name` follows the ending of the file that is written.
enum class merge_format { by_name, text, json, html };

// Which findings make a command end with 1.
enum class fail_on { any, is_new, confirmed, never };

struct report_options {
  command of = command::summary;
  std::string logs = "/var/log";
  std::string capture;  // empty: none
  std::string router;   // its name, which the formats show; empty: none
  std::string journal;  // empty: tessel_journal.jsonl in that folder, if there is one
  std::size_t run = 0;  // counted from the oldest, from 1; 0 is the last one
  bool is_short = false;
  bool shows_all = false;
  std::string output;                // empty: standard output
  std::string word;                  // the operand: a bundle, or a code or line to explain
  std::vector<std::string> places;   // the runs that diff, confirm and history take
  std::vector<std::string> reports;  // that merge takes
  merge_format as = merge_format::by_name;
  fail_on when = fail_on::any;
  std::string store;           // of history
  std::size_t newest = 0;      // how many runs of a router a store keeps; 0: all
  bool keeps_nothing = false;  // history only shows
  std::string help;
};

// Reads the words after the program's name. Throws `command_line::usage_error`.
[[nodiscard]] report_options parse_options(const std::vector<std::string>& words);

}  // namespace desk
