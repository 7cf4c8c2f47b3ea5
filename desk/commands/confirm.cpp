#include "desk/commands/commands.h"
#include "desk/commands/series.h"
#include "desk/show/series.h"

namespace desk {

int confirm_command(const report_options& options, std::ostream& out) {
  const series runs = load_series(options, out);
  show_confirm(runs, {options.is_short, options.shows_all}, standard_output(), out);
  return status_of(runs, options.when, counted_runs::all);
}

}  // namespace desk
