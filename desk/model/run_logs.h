// Which start lines of the logs are of the same run, and in which order the runs began.
//
// A run begins its logs one after the other, in the order in which `log_set` has them. It appends
// to the first four, so their order is that of the runs, whatever the clock was set to meanwhile. A
// log loses only its oldest lines: one that still has an older run has all starts behind it. And a
// run with a message from behind its start has begun all its logs. Only where neither says of which
// run a start is, times alone decide: starts of one run follow each other within seconds. Bundle
// health and, behind it, the debug log are begun anew by each run that comes so far.
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
  channel_log health;        // of one run only
  bool has_gone_on = false;  // the last run behind its start, though the logs do not show it
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
  // Where the start that is taken for its own may be that of a run before it.
  std::array<bool, logs_of_a_run> is_guessed{};
};

// The one that began first is the first.
[[nodiscard]] std::vector<run_in_logs> runs_in(const log_set& logs);

// Whether the run may be one with that before it, because neither has begun a log that the other
// has.
[[nodiscard]] bool may_be_one_with_before(const std::vector<run_in_logs>& runs, std::size_t at);

// Why it is not known which starts are the run's, in words; empty if it is known.
[[nodiscard]] std::string doubt_about(const std::vector<run_in_logs>& runs, std::size_t at);

// The same of what is only unusual: that the starts of a run are far apart.
[[nodiscard]] std::string span_of(const run_in_logs& of);

// Whether the run has begun the debug log, as far as the other logs show it. One that ended before
// has left there what an earlier one dumped.
[[nodiscard]] bool has_begun_debug_log(const log_set& logs, const run_in_logs& of);

// Whether a message of the run from behind its start is in the logs, or may have been.
[[nodiscard]] bool may_have_messages(const log_set& logs, const run_in_logs& of);

// Whether the logs show that the run came to the check of bundle health, which is its last one and
// always leaves a line; and whether it may have come there.
[[nodiscard]] bool has_come_to_health(const run_in_logs& of);
[[nodiscard]] bool may_have_come_to_health(const log_set& logs, const run_in_logs& of);

}  // namespace desk
