// Compare one node's switch chips (BCM) with the records, NPU by NPU. Each check returns SUCCESS or
// ERROR. Findings go to "inconsistent"; failures are logged and counted. `error_string` names the
// object under comparison. Only for nodes whose chip is supported. Called on the worker of the
// object and node.
#pragma once

#include <string_view>

#include "checks/object_name.h"
#include "consistency/views.h"

namespace tessel {

// Checks that the bundle's LAG exists on each NPU. A missing LAG is reported per NPU and is not an
// ERROR.
int check_bundles_BCM(const bundle_view& bundle, const node_view& node,
                      const object_name& error_string);

// Checks on each NPU that the member is in its LAG, and that its port's MTU in the chip equals the
// interface manager's. Neither finding is an ERROR.
int check_members_BCM(std::string_view member, const bundle_view& bundle, const node_view& node,
                      const object_name& error_string);

// Checks that the sub-bundle's LAG exists on each NPU. On the earlier chips the first missing LAG
// ends the check; on Jericho2 the check continues. `error_string` is not used.
int check_sub_bundles_BCM(std::string_view sub, const bundle_view& bundle, const node_view& node,
                          const object_name& error_string);

}  // namespace tessel
