// The platform's own listing of its ports, a second source of `voq_usage`.
//
// No stage of a run calls it: a run takes the ports from the forwarding objects
// (parse/dpa_objects.h). It is kept because only this listing has a port's system port and VOQ.
#pragma once

namespace tessel {

// Stores the listing in `voq_usage` as a list of lines. Returns SUCCESS, or ERROR after counting
// and logging a failure. Main thread.
int dump_voq_usage();

// Fetches the listing and stores its ports in `voq_usage`, a `memberInfo` under each port tail.
// Returns SUCCESS or ERROR. Main thread.
int fill_member_details();

}  // namespace tessel
