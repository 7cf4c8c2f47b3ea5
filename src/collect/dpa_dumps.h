// Collection of one node's forwarding abstraction (DPA) objects.
#pragma once

#include <string>

#include "base/value.h"

namespace tessel {

// Fetches the five object types from the node at `nodeip` (text) over ssh and parses each. The
// results go to `DPA[nodename]`, the ports to `voq_usage`. Ports are not fetched from the standby
// route processor. `nodeid` is not used. Returns SUCCESS, or ERROR after logging and counting a
// failure; what was stored before the failure stays. Called on the node's worker.
int dump_dpa_objects(const value& nodeid, const value& nodeip, const std::string& nodename);

}  // namespace tessel
