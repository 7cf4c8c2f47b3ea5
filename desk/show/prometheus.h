// The view for a textfile collector.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// Writes gauges in Prometheus' text format, each with its help and type and without a time stamp:
//
//     tessel_findings{kind}             of each kind, also of those that do not occur
//     tessel_bundles{verdict}           of each verdict
//     tessel_bundle_findings{bundle}    only of bundles that have some
//     tessel_coverage{layer,state}      how many questions to a layer ended so
//     tessel_run_complete               1 if the audit came to its result table
//     tessel_run_start_time_seconds     if it is known, as are the next two
//     tessel_run_completion_time_seconds
//     tessel_run_seconds
//
// No two samples have the same labels, whatever the names are: a collector would refuse them all.
// A failure to write is left to the stream's state. Any thread.
void show_prometheus(const judged_run& of, std::ostream& out);

}  // namespace desk
