// Reads a run with everything that belongs to it.
#pragma once

#include <stdexcept>

#include "desk/commands/options.h"
#include "desk/judge/judged_run.h"
#include "desk/model/findings.h"
#include "desk/model/run.h"

namespace desk {

// There is no run to read: the folder is not there, or has no log of the audit. One line that says
// what to do.
class no_run : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws `no_run`. Anything less is a mark in the run.
[[nodiscard]] run load_run(const report_options& options);

// The run that a command shows, judged. It lasts as long as the process: to take a million cells
// apart, only for the kernel to take back the memory next, would be a thirtieth of all the work.
// Throws `no_run`.
[[nodiscard]] const judged_run& load_and_judge(const report_options& options);

// The exit status of a command that reads one run, by --fail-on.
[[nodiscard]] int status_of(const judged_run& of, const report_options& options);

// The logs alone. Throws `no_run`.
[[nodiscard]] log_set load_logs(const report_options& options);

}  // namespace desk
