// Sentences that several formats share, made of raw texts: the format escapes them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "desk/judge/judged_run.h"

namespace desk {

inline constexpr const char* sentence_for_stale =
    "Stale entries were not looked for: the audit does that only in a run without findings and "
    "notes.";

// "1 bundle", "3 bundles".
[[nodiscard]] std::string counted(std::size_t number, std::string_view one, std::string_view many);

// "DPA of 0/1/CPU0, NPU 0". Any thread, as all of these.
[[nodiscard]] std::string place_of(const coverage& answer);

// "DPA of 0/1/CPU0: failed: ssh timed out".
[[nodiscard]] std::string sentence_for(const coverage& answer);

// "3 of 16 bundles differ, 1 not judged".
[[nodiscard]] std::string sentence_for_bundles(const judged_run& of);

// Empty if the run came to its result table, otherwise "the audit stopped before its end".
[[nodiscard]] std::string_view sentence_for(run_end end);

}  // namespace desk
