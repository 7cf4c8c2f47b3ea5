// The chip tables that the checks use by key. There are two print styles:
//
//   EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=0x5ea>  {"0": {"1": "1514"}}
//   | 0 | 7 || 0 | 4660 |                                                     {"7": "4660"}
//
// Rows that do not match are ignored. Keys and values are texts as printed, unless the function
// says otherwise. No function here catches its own failures (an output that is not a text), except
// `parse_vlan_domain`; the NPU's worker catches them.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Earlier chips: maps core to port to MTU, decimal text.
value parse_member_mtu(const value& member_mtu);

// Jericho2: maps LAG id to core to bundle port, decimal texts. A LAG with ports on only one core
// has no entry.
value parse_bdl_pp_port(const value& vis_lag);
// Maps RIF number to MAC, decimal texts.
value parse_bdl_vsi_mac(const value& vsi_mac);
// Maps port to local LIF, decimal texts.
value parse_lif_entries(const value& lif_entry);
// Maps core to port to VLAN domain, decimal texts.
value parse_vlan_domain_j2(const value& vlan_domain);
// Maps core to port to MTU profile, decimal texts.
value get_mtu_profile(const value& mtu_profile);
// Maps core to profile to MTU, decimal texts. Ten indexes of the table make one profile.
value parse_mtu_profiles(const value& all_mtu);

// Earlier chips: looks up the port of the member with tail `mem` in its NPU's raw VLAN domain
// table, also on a live standby node. Enters the domain in the member's `vlan_domain` under the
// node's name, as hexadecimal text, or as the integer 0 if the table has no row (rows of domain 0
// are filtered out). Returns SUCCESS, or ERROR after logging and counting a failure. Main thread.
int parse_vlan_domain(std::string_view mem);

}  // namespace tessel
