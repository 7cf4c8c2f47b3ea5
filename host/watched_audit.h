// An audit in a child process, and the parent that watches it.
//
// The parent survives what ends the audit, so it can end the tools that the audit has started and
// put away what they leave. It starts no thread, and prints nothing that could come between the
// audit's own lines.
#pragma once

#include "audit.h"
#include "processes.h"
#include "progress_display.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace tessel_host {

struct watched_end {
  int wait_status = 0;                   // of the child, as waitpid(2) gives it
  std::optional<std::int32_t> returned;  // what tessel_run returned, if it did
  int stopped_by = 0;                    // the signal that ended audit and tools
  bool is_overdue = false;               // the deadline did
  std::time_t began = 0;
  // If the audit did not come to its end: the captures that stay, and the tools that could not be
  // ended.
  std::vector<std::string> left_captures;
  std::vector<process> left_processes;
};

struct watch_limits {
  std::optional<std::chrono::steady_clock::time_point> deadline;
  bool keeps_captures = false;  // at the deadline, for the caller to remove
};

// Forks. The child runs the audit and ends with its status. The parent returns when the child has
// ended. If it gets SIGHUP, SIGINT, SIGQUIT or SIGTERM meanwhile, it ends the audit and its tools
// within a second, and removes the captures; a signal that was blocked or ignored before the call
// stays so. Children that the caller has already are left alone, as is what they start. Throws
// `std::system_error` if there can be no child. Call it once, before the process has other threads.
//
// Does the same if the audit has not ended at the deadline, but leaves the captures if they are
// wanted. `display` shows the progress meanwhile.
[[nodiscard]] watched_end run_watched(const audit_plan& plan, progress_display& display,
                                      const watch_limits& limits);

// Ends the calling process as the audit ended: by its status or its signal, or with status 4 by its
// deadline.
[[noreturn]] void end_alike(const watched_end& end);

}  // namespace tessel_host
