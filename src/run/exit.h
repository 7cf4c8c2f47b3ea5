// The end of every run that passed the platform checks.
#pragma once

namespace tessel {

// Closes the log channels in the order of their names, then the stale-entry log and the debug log.
// Prints and counts a failure. Main thread.
void close_fd();

// Writes the run's stores to the debug log as JSON. Throws `failure` if writing fails. Main thread.
void take_snapshot();

// Waits for late workers, removes the capture files, prints the summary if no result table was
// printed, writes the snapshot, closes the logs, and throws `exit_request` even if one of these
// steps fails. Main thread.
[[noreturn]] void exit_handler();

}  // namespace tessel
