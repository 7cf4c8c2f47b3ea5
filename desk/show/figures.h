// Figures of a run that several formats show.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "desk/judge/judged_run.h"

namespace desk {

// How many findings of a kind there are: those that were read, or the audit's own count if some of
// them are lost. Any thread.
[[nodiscard]] std::size_t total(const run& of, finding_kind kind);

// How many bundles have a verdict. Any thread.
[[nodiscard]] std::size_t total(const judged_run& of, verdict is);

// Milliseconds from 1970 to a time as logs write it, "2026-11-22 11:01:03,219", read as UTC: logs
// name no zone. Nothing if it is no such time. Any thread.
[[nodiscard]] std::optional<std::int64_t> epoch_milliseconds(std::string_view log_time);

}  // namespace desk
