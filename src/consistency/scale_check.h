// Compares the size of the configuration with the limits of the router type.
#pragma once

#include <array>
#include <cstdint>

namespace tessel {

// The limits of `router`: main bundles, L2 sub-bundles, L3 sub-bundles; three zeros for an invalid
// router. Throws `failure` for a type without limits. Main thread.
std::array<std::int64_t, 3> get_max_bundle_sub_bundle();

// Logs each exceeded limit as a note and counts it in `exception`; that is not an ERROR. Returns
// ERROR only for a failure, after logging and counting it. Main thread, before the checks start.
int check_bundle_scale();

}  // namespace tessel
