// Several runs for the commands that compare them.
#pragma once

#include <iosfwd>
#include <string>

#include "desk/commands/options.h"
#include "desk/judge/series.h"

namespace desk {

// A run by its place: a folder with logs, of which it is the last run or, by "DIR@N", an older one;
// a recorded router; a report in JSON. Throws `no_run`, and `read_error` for a report.
[[nodiscard]] run_record load_record(const std::string& place, const report_options& options);

// The runs of the call, in its order; a note goes out if they are not of one router. Throws
// `no_run`.
[[nodiscard]] series load_series(const report_options& options, std::ostream& out);

// What --fail-on makes of it: 1 if it has such findings, otherwise 3 if something was not judged,
// or 0. `counted` says whether `any` means the last run or all of them.
enum class counted_runs { the_last, all };
[[nodiscard]] int status_of(const series& of, fail_on when, counted_runs counted);

}  // namespace desk
