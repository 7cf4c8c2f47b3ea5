// The table of nodes: route processors and line cards, each with its own software and chips.
//
// A node record holds nodeid (integer), dump (1 when the node takes part in the run), nodetype,
// nodeip, act_standby ("Active", "Standby", "None"), npu_list (list of unit numbers as text), band,
// asic, asic_supported (1 or 0); on single-node systems also is_active 1, which the snapshot shows
// and nobody else reads. What has no value yet holds DEFAULT.
#pragma once

#include "base/value.h"

namespace tessel {

// Fills `nodeinfo` with every node that a chassis of this router type can hold. Main thread, once
// `router` is known.
void nodeinfo_init();

// Asks the platform which nodes are up and marks those that take part. Returns the map `nodeinfo`,
// or the integer ERROR after logging and counting a failure: one line that cannot be placed ends
// the whole inventory. Main thread, before workers start.
value get_list_of_vms();

}  // namespace tessel
