// Which start lines of the logs are of the same run, and in which order the runs began.
//
// A run begins its logs one after the other, in the order in which `log_set` has them. It appends
// to the first four, so their order is that of the runs, whatever the clock was set to meanwhile.
// Bundle health and, behind it, the debug log are begun anew by each run that comes so far.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "desk/read/channel_log.h"

namespace desk {

// The logs of one folder, each with all its runs.
struct log_set {
  std::string folder;
  channel_log exception;
  channel_log inconsistent;
  channel_log programming;
  channel_log delay_delete;
  channel_log health;  // of one run only
};

[[nodiscard]] log_set read_logs(const std::string& folder);

inline constexpr std::size_t logs_of_a_run = 5;

// In the order in which a run begins them.
[[nodiscard]] std::array<const channel_log*, logs_of_a_run> all_of(const log_set& logs);

// A run in all logs. Nothing where a log lost it, could not be written, or was not begun yet when
// the run ended.
struct run_in_logs {
  std::string started;  // empty if its start was rotated away
  std::array<const log_run*, logs_of_a_run> in{};
};

// The one that began first is the first.
[[nodiscard]] std::vector<run_in_logs> runs_in(const log_set& logs);

// When the runs in the logs started, in the same order.
[[nodiscard]] std::vector<std::string> starts_of(const log_set& logs);

}  // namespace desk
