// Compare one node's forwarding abstraction (DPA) with the records. Each check returns SUCCESS or
// ERROR. Findings go to "inconsistent"; failures are logged and counted. `error_string` names the
// object under comparison. Called on the worker of the object and node.
#pragma once

#include <string_view>

#include "checks/object_name.h"
#include "consistency/views.h"

namespace tessel {

// Compares LAG id, LIF, RIF, MAC and VLAN domains of the bundle, and the weight of its members with
// the limit. A wrong LAG id does not end the check; a wrong LIF, RIF or MAC does. Sets `delPending`
// and `vlan_domain` in the record.
int check_bundles_DPA(const bundle_view& bundle, const node_view& node,
                      const object_name& error_string);

// Compares the member id, and the interface manager's MTU with the forwarding object's.
int check_members_DPA(std::string_view member, const bundle_view& bundle, const node_view& node,
                      const object_name& error_string);

// Compares LAG id, LIF and RIF of the sub-bundle; the first difference ends the check. Sets
// `delPending`.
int check_sub_bundles_DPA(std::string_view sub, const bundle_view& bundle, const node_view& node,
                          const object_name& error_string);

}  // namespace tessel
