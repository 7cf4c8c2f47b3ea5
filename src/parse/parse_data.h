// The parse stage: what remains to be parsed once all workers of collection have ended.
#pragma once

namespace tessel {

// Parses the running configuration into `tesselDb`. Returns SUCCESS; ERROR, counted and noted, if
// no bundle with a member is configured. Main thread. Lets a failure of printing out.
int parse_data();

// Fills `voq_usage` from the platform's port listing instead of the forwarding objects. Returns
// SUCCESS or ERROR. No stage of a run calls it. Main thread.
int fill_member_details();

}  // namespace tessel
