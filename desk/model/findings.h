// Turns what the logs say into findings of a run.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "desk/model/run.h"
#include "desk/read/channel_log.h"

namespace desk {

// The logs of one folder, each with all its runs.
struct log_set {
  std::string folder;
  channel_log exception;
  channel_log inconsistent;
  channel_log programming;
  channel_log delay_delete;
  channel_log health;  // of the last run only
};

[[nodiscard]] log_set read_logs(const std::string& folder);

// When the runs in the logs started, the oldest first. An empty text: its start was rotated away.
[[nodiscard]] std::vector<std::string> starts_of(const log_set& logs);

// Adds the findings of one run; `back` counts from the last one, which is 0. The objects and nodes
// of the run complete what a message names only in part, so read them before.
void read_findings(run& into, const log_set& logs, std::size_t back);

// What the audit noted in its debug log only, if its dumps were read before.
void read_debug_notes(run& into);

// The entries that the last run listed as stale, from the log of stale entries, and whether it
// looked for them. Read all else before; `runs` is how many the other logs have.
void read_stale_entries(run& into, const std::string& folder, std::size_t runs);

}  // namespace desk
