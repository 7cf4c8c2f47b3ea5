#include <ostream>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/show/escape.h"
#include "desk/show/html.h"
#include "desk/show/json.h"
#include "desk/show/junit.h"
#include "desk/show/nagios.h"
#include "desk/show/output.h"
#include "desk/show/prometheus.h"
#include "desk/show/sarif.h"

namespace desk {

namespace {

// A plug-in's statuses replace the report's own.
int nagios_command(const report_options& options) {
  service_state state = service_state::unknown;
  try {
    const judged_run& judged = load_and_judge(options);
    write_output(options.output, [&](std::ostream& out) { state = show_nagios(judged, out); });
  } catch (const no_run& error) {
    write_output(options.output, [&](std::ostream& out) {
      out << "TESSEL UNKNOWN - " << nagios_text(error.what()) << '\n';
    });
  }
  return static_cast<int>(state);
}

}  // namespace

int format_command(const report_options& options) {
  if (options.of == command::nagios) return nagios_command(options);
  const judged_run& judged = load_and_judge(options);
  write_output(options.output, [&](std::ostream& out) {
    if (options.of == command::json) show_json(judged, out);
    if (options.of == command::junit) show_junit(judged, out);
    if (options.of == command::sarif) show_sarif(judged, out);
    if (options.of == command::prometheus) show_prometheus(judged, out);
    if (options.of == command::html) show_html(judged, out);
  });
  return status_of(judged, options);
}

}  // namespace desk
