// The platform's own listing of its ports: the other source of `voq_usage`.
//
// No stage of a run calls it: a run takes the ports from the forwarding objects
// (parse/dpa_objects.h). It is kept since it alone tells a port's system port and VOQ, which the
// forwarding objects lack.
#pragma once

namespace tessel {

// Puts the listing as a list of lines into `voq_usage`. Returns SUCCESS, or ERROR after counting
// and logging a failure. Main thread.
int dump_voq_usage();

// Fetches the listing and puts its ports into `voq_usage`, a `memberInfo` under each port tail.
// Returns SUCCESS or ERROR. Main thread.
int fill_member_details();

}  // namespace tessel
