// The view for a monitoring plug-in.
#pragma once

#include <iosfwd>

namespace desk {

struct judged_run;

// What the plug-in's exit status means to a monitoring system.
enum class service_state { ok = 0, warning = 1, critical = 2, unknown = 3 };

// Writes one line of at most 1024 bytes, where older collectors cut, and returns the state. The
// performance data is always whole; the text before it is shortened if need be.
//
//     critical   an inconsistency, a programming error, or layers that differ without a finding
//     unknown    else, if the run did not come to its result table
//     warning    else, if there is a stale entry, delayed delete or a report of bundle health
//     unknown    else, if something was not read or not judged
//     warning    else, if a note is a cause
//     ok         else; notes that are normal belong to no cause
//
// A failure to write is left to the stream's state. Any thread.
service_state show_nagios(const judged_run& of, std::ostream& out);

}  // namespace desk
