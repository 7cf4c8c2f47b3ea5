// The operator's view of a finished run: the result table and a preview of the findings.
#pragma once

#include <chrono>
#include <cstdint>

namespace tessel {

// Waits until each worker that was started has begun, so that no finding is lost because it still
// waited for a core; after `patience` it goes on and notes in the debug log how many have not. What
// earlier calls of the run have waited counts, and only the first of them notes. A worker that has
// begun may outlive the run. Main thread.
void wait_for_late_workers(std::chrono::seconds patience = std::chrono::seconds(10));

// Waits for late workers, then prints the table and, if anything was counted, the preview. Adds
// `info` to `exception`. Throws `failure` as `print_errors` does. Main thread.
void print_results();

// Prints the log lines of the counted findings, unless `err_count` is too many for a preview. If
// the table was printed, also prints the list of log files. Throws `failure` if a log file cannot
// be read; most often that is a ".1" backup which a counter implies but which was never made. Main
// thread.
void print_errors(std::int64_t err_count);

}  // namespace tessel
