#include "desk/commands/commands.h"

namespace desk {

int run_command(const report_options& options, std::ostream& out) {
  switch (options.of) {
    case command::help:
      out << options.help;
      break;
    case command::version:
      out << "tessel-report " TESSEL_VERSION "\n";
      break;
    case command::summary:
      return summary_command(options, out);
    case command::bundle:
      return bundle_command(options, out);
    case command::coverage:
      return coverage_command(options, out);
    case command::explain:
      return explain_command(options, out);
    case command::runs:
      return runs_command(options, out);
    case command::diff:
      return diff_command(options, out);
    case command::confirm:
      return confirm_command(options, out);
    case command::history:
      return history_command(options, out);
    case command::merge:
      return merge_command(options, out);
    case command::json:
    case command::junit:
    case command::sarif:
    case command::prometheus:
    case command::nagios:
    case command::html:
      return format_command(options);
  }
  return status_nothing_found;
}

}  // namespace desk
