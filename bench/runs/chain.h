// How long a run must take at least, as long as its commands take what they took.
#pragma once

#include "host/measures.h"
#include "lab/model/router.h"

namespace bench {

// The longest chain of commands of which each needs the one before it:
//   - the commands of the route processor that decide which nodes take part, one after the other;
//   - on each of these nodes, at the same time, the forwarding objects, one after the other, and
//     then, at the same time on each of its chips, the chip's tables, one after the other;
//   - the commands of the later phases.
// Returns the sum of what these commands took, in seconds.
double longest_chain(const measures& run, const lab::router& router);

}  // namespace bench
