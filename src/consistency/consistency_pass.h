// The consistency pass, the main question of the audit: do the layers agree about every bundle?
//
// Per bundle, the bundle manager (PI) is checked first, on the main thread. Then workers check, on
// every node that takes part, its agent (PD), the forwarding abstraction (DPA) and the chip (BCM):
// first for the bundle, then for its members, then for its sub-bundles. At each of these objects
// the nodes take turns in their order, because the first node that reports a value sets the
// expectation for the others.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

// Checks all bundles in `tesselDb`. Returns SUCCESS, no matter how many inconsistencies it found;
// ERROR, after logging and counting, only for a failure of the loop itself. The bundle level's
// workers are in `pid_list` and may still run on return; the others are joined bundle by bundle.
// Main thread.
int check_bundle_consistency();

// Check one bundle, one of its members or one of its sub-bundles on one node. When a layer
// disagrees, the layers below it are not compared. Each returns SUCCESS or ERROR; failures are
// logged and counted. Each call runs on a worker of its own.
int check_bundles(const std::string& bundle, const std::string& nodename);
int check_members(const std::string& member, const std::string& bundle,
                  const std::string& nodename);
int check_sub_bundles(const std::string& sub_bdl, const std::string& bundle,
                      const std::string& nodename);

}  // namespace tessel
