// Turns what the logs say into findings of a run.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "desk/model/run.h"
#include "desk/model/run_logs.h"

namespace desk {

// An entry that the audit lists as stale, because it marks none of its kind.
inline constexpr std::string_view code_of_unmarked = "TC-402";

// The audit adds it to its table. Some notes it only writes, and what stands in its debug log
// alone.
[[nodiscard]] bool is_counted_by_audit(const finding& one);

// Adds the findings of one of the runs in the logs; `back` counts from the last one, which is 0.
// The objects and nodes of the run complete what a message names only in part, so read them before.
void read_findings(run& into, const log_set& logs, const std::vector<run_in_logs>& runs,
                   std::size_t back);

// What the audit noted in its debug log only, if its dumps were read before.
void read_debug_notes(run& into);

// The entries that the last run listed as stale, from the log of stale entries, and whether it
// looked for them. Read all else before; `runs` is how many the other logs have.
void read_stale_entries(run& into, const std::string& folder, std::size_t runs);

}  // namespace desk
