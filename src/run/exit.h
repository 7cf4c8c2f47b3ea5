// The end of every run that got past the platform checks.
#pragma once

namespace tessel {

// Closes the log channels in the order of their names, then the stale-entry and the debug log. A
// failure is printed and counted. Main thread.
void close_fd();

// Writes the run's stores to the debug log as JSON. Lets a failure out. Main thread.
void take_snapshot();

// Removes the capture files, prints the summary if no result table was printed, writes the
// snapshot, closes the logs, and throws `exit_request`, whatever of that failed. Main thread.
[[noreturn]] void exit_handler();

}  // namespace tessel
