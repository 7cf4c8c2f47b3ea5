// The first screen: verdicts, causes, what to do next.
#pragma once

#include <ostream>

#include "desk/judge/judged_run.h"
#include "desk/show/terminal.h"

namespace desk {

struct summary_options {
  bool is_short = false;   // a line for each cause
  bool shows_all = false;  // every cause, every bundle, every finding's own text
};

void show_summary(const judged_run& of, const summary_options& how, const terminal& on,
                  std::ostream& out);

}  // namespace desk
