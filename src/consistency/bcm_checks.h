// The switch chips of one node (BCM) against the records, NPU by NPU. Each check returns SUCCESS or
// ERROR; its findings go to "inconsistent", its failures are logged and counted. `error_string`
// names the object under comparison. Only for nodes whose chip is supported. Called on the worker
// of the object and node.
#pragma once

#include <string_view>

namespace tessel {

// Does the bundle's LAG exist on each NPU? A missing LAG is told per NPU and is no ERROR.
int check_bundles_BCM(std::string_view bundle, std::string_view nodename,
                      std::string_view error_string);

// Is the member in its LAG on each NPU, and does its port's MTU in the chip equal the interface
// manager's? Neither finding is an ERROR.
int check_members_BCM(std::string_view member, std::string_view bundle, std::string_view nodename,
                      std::string_view error_string);

// Does the sub-bundle's LAG exist on each NPU? On the earlier chips the first missing one ends the
// check; on Jericho2 the walk goes on. `error_string` is not used.
int check_sub_bundles_BCM(std::string_view sub, std::string_view bundle, std::string_view nodename,
                          std::string_view error_string);

}  // namespace tessel
