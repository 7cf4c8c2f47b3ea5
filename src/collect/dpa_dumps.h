// The forwarding abstraction's objects of one node.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// Fetches the five object types from the node at `nodeip` (text) over ssh and hands each to its
// parser; the results stand in `DPA[nodename]`, the ports in `voq_usage`. The standby route
// processor goes without ports. `nodeid` is not used. Returns SUCCESS, or ERROR after logging and
// counting a failure; what was stored before it stays. The node's worker.
int dump_dpa_objects(const value& nodeid, const value& nodeip, const std::string& nodename);

}  // namespace tessel
