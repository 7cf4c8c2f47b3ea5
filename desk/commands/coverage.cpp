#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/show/coverage_view.h"

namespace desk {

int coverage_command(const report_options& options, std::ostream& out) {
  const judged_run& judged = load_and_judge(options);
  show_coverage(judged, standard_output(), out);
  return status_of(judged, options);
}

}  // namespace desk
