// The stale entry check: finds entries that no check referred to, whose "Visited" mark is still 0.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// The definition of a stale mark in the printed form of a store. A mark that is the last entry of
// its map is none.
inline constexpr std::string_view stale_mark_definition = R"(.Visited.:\s0,)";

// True if the printed form of `obj` has a stale mark. Prints only a store that has the word in
// other places than as a key, or has records. Throws `failure` if a record cannot be printed. Any
// thread.
bool shows_stale_mark(const value& obj);

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
