// The two highest layers: the bundle manager's own database (PI) with the interface manager's text,
// and the bundle manager's agents (PD).
//
// PI is the reference: it gives the records their handles, MAC and MTUs, and all lower layers are
// compared with these. Each check returns SUCCESS or ERROR; failures are logged and counted.
// `error_string` names the object under comparison.
#pragma once

#include <string_view>

#include "checks/object_name.h"
#include "consistency/views.h"

namespace tessel {

// Copies handle, MAC and MTU of the bundle into its record. Main thread.
int check_bundles_PI(std::string_view bundle);

// Sets each sub-bundle's handle (hexadecimal text) from the interface manager. A sub-bundle that
// the interface manager does not list is a finding, but not an ERROR. Main thread.
int check_sub_bundles_PI(std::string_view bundle);

// Copies handle and MTU of the member into its record. Called on the member's worker.
int check_members_PI(std::string_view member, const bundle_view& bundle, const node_view& node,
                     const object_name& error_string);

// Compares the agent's LAG id. Skips a standby node. Called on the bundle's worker.
int check_bundles_PD(const bundle_view& bundle, const node_view& node,
                     const object_name& error_string);

// Compares the agent's NPU and member id. Skips a standby node. Called on the member's worker.
int check_members_PD(std::string_view member, const bundle_view& bundle, const node_view& node,
                     const object_name& error_string);

}  // namespace tessel
