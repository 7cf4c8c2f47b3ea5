// The two highest layers: the bundle manager's own database (PI) with the interface manager's
// text, and the bundle manager's agents (PD).
//
// PI is the reference: it gives the records their handles, MAC and MTUs, with which all lower
// layers are compared. Each check returns SUCCESS or ERROR; its failures are logged and counted.
// `error_string` names the object under comparison.
#pragma once

#include <string_view>

namespace tessel {

// Copies handle, MAC and MTU of the bundle into its record. Main thread.
int check_bundles_PI(std::string_view bundle);

// Gives each sub-bundle of the bundle its handle (hexadecimal text) from the interface manager. A
// sub-bundle that it does not list is a finding and no ERROR. Main thread.
int check_sub_bundles_PI(std::string_view bundle);

// Copies handle and MTU of the member into its record. The member's worker.
int check_members_PI(std::string_view member, std::string_view bundle, std::string_view nodename,
                     std::string_view error_string);

// Compares the agent's LAG id. A standby node is passed over. The bundle's worker.
int check_bundles_PD(std::string_view bundle, std::string_view nodename,
                     std::string_view error_string);

// Compares the agent's NPU and member id. A standby node is passed over. The member's worker.
int check_members_PD(std::string_view member, std::string_view bundle, std::string_view nodename,
                     std::string_view error_string);

}  // namespace tessel
