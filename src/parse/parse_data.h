// The parse stage: what remains to be parsed once all workers of collection have ended.
#pragma once

namespace tessel {

// Parses the running configuration into `tesselDb`. Returns SUCCESS; ERROR, counted and noted, if
// no bundle with a member is configured. Main thread. Lets a failure of printing out.
int parse_data();

}  // namespace tessel
