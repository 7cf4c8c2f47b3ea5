// The run driver.
#pragma once

#include "base/value.h"

namespace tessel {

// Runs the phases of the audit in order. Returns ERROR if the run stopped before it collected
// anything. A run that gets further ends with `exit_request`; a failure that no phase absorbed is
// thrown unchanged. Throws `failure` if `my_node_id` is not an integer. Main thread, once per
// state.
int run_tessel_with(const value& my_node_id);

}  // namespace tessel
