// The commands of tessel-report, one source each. Each writes to `out` and returns the exit status.
#pragma once

#include <ostream>

#include "desk/commands/options.h"

namespace desk {

// The text for any command. Throws `no_run`.
[[nodiscard]] int run_command(const report_options& options, std::ostream& out);

[[nodiscard]] int summary_command(const report_options& options, std::ostream& out);
[[nodiscard]] int bundle_command(const report_options& options, std::ostream& out);
[[nodiscard]] int coverage_command(const report_options& options, std::ostream& out);
[[nodiscard]] int explain_command(const report_options& options, std::ostream& out);
// The reports of many routers. Throws `output_error` as well.
[[nodiscard]] int merge_command(const report_options& options, std::ostream& out);
// json, junit, sarif, prometheus, nagios, html. Throws `output_error` as well.
[[nodiscard]] int format_command(const report_options& options);
[[nodiscard]] int runs_command(const report_options& options, std::ostream& out);
// Several runs. Throws `store_error` as well.
[[nodiscard]] int diff_command(const report_options& options, std::ostream& out);
[[nodiscard]] int confirm_command(const report_options& options, std::ostream& out);
[[nodiscard]] int history_command(const report_options& options, std::ostream& out);

}  // namespace desk
