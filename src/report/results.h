// The end of a run as the operator sees it: the result table and a preview of the findings.
#pragma once

#include <cstdint>

namespace tessel {

// Prints the table and, if anything was counted, the preview. Adds `info` to `exception`. Lets a
// failure out, as print_errors does. Main thread.
void print_results();

// Prints the log lines behind the counters, unless `err_count` findings are too many to preview,
// and after a table the list of log files. Throws `failure` if a log file cannot be read: most
// often a ".1" backup that a counter asks for and that was never made. Main thread.
void print_errors(std::int64_t err_count);

}  // namespace tessel
