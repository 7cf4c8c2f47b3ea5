// The consistency pass, the main question of the audit: do the layers agree about every bundle?
//
// Per bundle, the bundle manager (PI) is checked first, on the main thread. Then workers check, on
// every node that takes part, its agent (PD), the forwarding abstraction (DPA) and the chip (BCM):
// first for the bundle, then for its members, then for its sub-bundles. At each of these objects
// the nodes take turns in their order, because the first node that reports a value sets the
// expectation for the others.
#pragma once

#include <string_view>

#include "consistency/views.h"

namespace tessel {

// Checks all bundles in `tesselDb`. Returns SUCCESS, no matter how many inconsistencies it found;
// ERROR, after logging and counting, only for a failure of the loop itself. The bundle level's
// workers are in `pid_list` and may still run on return; the others are joined bundle by bundle.
// Main thread.
int check_bundle_consistency();

// Check one bundle, one of its members or one of its sub-bundles on one node. When a layer
// disagrees, the layers below it are not compared. Each returns SUCCESS or ERROR; failures are
// logged and counted. Called on the worker that walks the nodes of the object.
int check_bundles(const bundle_view& bundle, const node_view& node);
int check_members(std::string_view member, const bundle_view& bundle, const node_view& node);
int check_sub_bundles(std::string_view sub_bdl, const bundle_view& bundle, const node_view& node);

}  // namespace tessel
