// The parse stage: parses what is left once all workers of collection have ended.
#pragma once

namespace tessel {

// Parses the running configuration into `tesselDb`. Returns SUCCESS; ERROR, counted and noted, if
// no bundle with a member is configured. Throws `failure` if printing fails. Main thread.
int parse_data();

}  // namespace tessel
