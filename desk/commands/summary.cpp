#include "desk/show/summary.h"

#include "desk/commands/commands.h"
#include "desk/commands/load.h"

namespace desk {

int summary_command(const report_options& options, std::ostream& out) {
  const judged_run& judged = load_and_judge(options);
  show_summary(judged, {options.is_short, options.shows_all}, standard_output(), out);
  return status_of(judged, options);
}

}  // namespace desk
