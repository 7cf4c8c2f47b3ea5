// What was asked of each node and layer, and what came of it.
#pragma once

#include <ostream>

#include "desk/judge/judged_run.h"
#include "desk/show/terminal.h"

namespace desk {

void show_coverage(const judged_run& of, const terminal& on, std::ostream& out);

// What is lost or not understood of the run's logs, a line each behind an empty one.
void show_marks(const run& of, const terminal& on, std::ostream& out);

}  // namespace desk
