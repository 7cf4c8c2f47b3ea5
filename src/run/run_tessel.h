// The run driver.
#pragma once

#include "base/value.h"

namespace tessel {

// Runs the phases of the audit in their order. Returns ERROR if the run stopped before anything was
// collected. A run that got further ends with `exit_request`; a failure that no phase absorbed
// comes out as it is. Throws `failure` if `my_node_id` is no integer. Main thread, once per state.
int run_tessel_with(const value& my_node_id);

}  // namespace tessel
