// The table of nodes: route processors and line cards, each with its own software and chips.
//
// A node record holds nodeid (integer), dump (1 if the node takes part in the run), nodetype,
// nodeip, act_standby ("Active", "Standby", "None"), npu_list (unit numbers as texts), band, asic
// and asic_supported (1 or 0). On single-node systems it also holds is_active 1, which only the
// snapshot shows. A field without a value yet holds DEFAULT.
#pragma once

#include "base/value.h"

namespace tessel {

// Fills `nodeinfo` with every node that a chassis of this router type can hold. Main thread, after
// `router` is known.
void nodeinfo_init();

// Asks the platform which nodes are up and marks those that take part. Returns the map `nodeinfo`,
// or the integer ERROR after logging and counting a failure. A single line that is too short or
// names an unknown node ends the whole inventory. Main thread, before workers start.
value get_list_of_vms();

}  // namespace tessel
