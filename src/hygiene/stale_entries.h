// The stale entry check: finds entries that no check referred to, whose "Visited" mark is still 0.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Reduces `BCM` to the LAG tables. If the run has no finding or note so far, waits for all workers,
// lists the stale entries of each layer in the stale-entry log and counts them. Returns SUCCESS, or
// ERROR after logging and counting a failure. Throws `failure` if `BCM` has no node to name in that
// message. Main thread.
int check_stale_entries();

// Adds each map in `obj`, at any depth, with a mark of 0 to `listRecurrsion[layer]`. Does not enter
// ordered maps, lists and records. Returns SUCCESS, or ERROR after logging and counting a failure,
// which ends only the walk of the map where it occurred. Called on the layer's worker.
int get_non_visited_nodes(const value& obj, std::string_view layer);

}  // namespace tessel
