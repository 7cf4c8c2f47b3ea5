// Does the configuration stay within what the router type allows?
#pragma once

#include <array>
#include <cstdint>

namespace tessel {

// The limits of `router`: main bundles, L2 sub-bundles, L3 sub-bundles; three zeros for an invalid
// router. Throws `failure` for a type without limits. Main thread.
std::array<std::int64_t, 3> get_max_bundle_sub_bundle();

// Notes and counts (in `exception`) each limit that is exceeded, which is no ERROR. Returns ERROR
// only after logging and counting a failure. Main thread, before the checks start.
int check_bundle_scale();

}  // namespace tessel
