// Judges a run: what differs, where the odd one is, and what one thing explains many findings.
#pragma once

#include "desk/judge/judged_run.h"

namespace desk {

// Takes a run whose layers, findings and coverage are filled. Does not fail.
[[nodiscard]] judged_run judge(run of);

}  // namespace desk
