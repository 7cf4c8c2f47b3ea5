// The forwarding abstraction (DPA) of one node against the records. Each check returns SUCCESS or
// ERROR; its findings go to "inconsistent", its failures are logged and counted. `error_string`
// names the object under comparison. Called on the worker of the object and node.
#pragma once

#include <string_view>

namespace tessel {

// LAG id, LIF, RIF, MAC and VLAN domains of the bundle, and the weight of its members against the
// limit. A wrong LAG id does not end the check; a wrong LIF, RIF or MAC does. Enters `delPending`
// and `vlan_domain` in the record.
int check_bundles_DPA(std::string_view bundle, std::string_view nodename,
                      std::string_view error_string);

// Member id, and the interface manager's MTU against the forwarding object's.
int check_members_DPA(std::string_view member, std::string_view bundle, std::string_view nodename,
                      std::string_view error_string);

// LAG id, LIF and RIF of the sub-bundle; each difference ends the check. Enters `delPending`.
int check_sub_bundles_DPA(std::string_view sub, std::string_view bundle, std::string_view nodename,
                          std::string_view error_string);

}  // namespace tessel
