// Figures of a run that several formats show.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "desk/judge/judged_run.h"

namespace desk {

// A finding of a summary: something is wrong, and not only noted or not verified. Any thread.
[[nodiscard]] bool counts_as_finding(const finding& one);

// How many findings of a kind there are: those that were read, or the audit's own count if some of
// them are lost. Notes that the audit does not count are none. Any thread.
[[nodiscard]] std::size_t total(const run& of, finding_kind kind);

// How many of them are faults: two notations of one value are none. Any thread.
[[nodiscard]] std::size_t total_of_faults(const run& of, finding_kind kind);

// How many bundles have a verdict. Any thread.
[[nodiscard]] std::size_t total(const judged_run& of, verdict is);

// How long the run took, which only a finished journal knows. Any thread.
[[nodiscard]] std::optional<double> seconds_of(const run& of);

// Milliseconds from 1970 to the start of the run: by the journal, or by the logs, whose times are
// read as UTC because they name no zone. Nothing if neither knows. Any thread.
[[nodiscard]] std::optional<std::int64_t> start_of(const run& of);

// Milliseconds from 1970 to "2026-11-22 11:01:03,219" or "2026-11-22T11:01:03.219Z"; the fraction
// may be missing. Nothing if the text is no such time. Any thread.
[[nodiscard]] std::optional<std::int64_t> epoch_milliseconds(std::string_view time);

}  // namespace desk
