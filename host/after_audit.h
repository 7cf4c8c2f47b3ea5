// The report of an audit, made as soon as it has ended, by tessel-report.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace tessel_host {

struct report_wishes {
  bool shows_summary = false;
  bool checks = false;  // its status becomes the host's
  std::optional<std::string> json;

  [[nodiscard]] bool any() const { return shows_summary || checks || json.has_value(); }
};

// One line: the program is not there, what to do.
class report_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One line: the file for the report in JSON, what is wrong with it, what to do.
class report_file_error : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Sees before an audit whether the report in JSON can be written there, and would not replace the
// journal or what the audit prints. A pipe stays open as long as this process lives, so that its
// reader waits for the report. Throws `report_file_error`.
void check_report_target(const std::string& path, const std::optional<std::string>& journal);

// The report program: beside this program, else on the search path. Throws `report_error` before an
// audit rather than after it.
[[nodiscard]] std::string find_report_program();

inline constexpr int status_not_judged = 3;
inline constexpr int status_not_complete = 4;

// What changes whenever an audit writes its debug log, of which the bundles of a report are read.
class debug_log_state {
 public:
  // As it is now.
  debug_log_state();
  [[nodiscard]] bool is_file() const { return is_there_ && S_ISREG(found_.st_mode); }
  // False if no audit has begun the log between this state and a later one: it is of an earlier
  // audit, or is not there. A device shows no change and counts as written.
  [[nodiscard]] bool was_written_until(const debug_log_state& now) const;

 private:
  struct stat found_ {};
  bool is_there_ = false;
};

// Makes what is wished for, of the run whose logs are in /var/log. `journal` may be empty. Returns
// the exit status of a check: 0, 1 or 3 as tessel-report ends, at least 3 if commands were ended by
// their time limit, 4 if the run has not come to its result table or cannot be read. Calls
// `complain` with a line about what could not be made.
using complainer = void (*)(const std::string& line);
[[nodiscard]] int report_audit(const std::string& program, const report_wishes& wishes,
                               const std::string& journal, std::size_t timed_out,
                               complainer complain);

// True if a report in JSON is of a run that has come to its result table.
[[nodiscard]] bool is_of_complete_run(const std::string& json);

}  // namespace tessel_host
