// The chip tables that the checks work on by key. Two print styles:
//
//   EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=0x5ea>  {"0": {"1": "1514"}}
//   | 0 | 7 || 0 | 4660 |                                                     {"7": "4660"}
//
// Rows that do not match are ignored. None of these catches its failures (an output that is no
// text): they go up to the NPU's worker. Keys and values are texts as printed, unless named.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Earlier chips: core to port to MTU, decimal text.
value parse_member_mtu(const value& member_mtu);

// Jericho2: LAG id to core to bundle port, decimal texts. A LAG with ports on one core only has no
// entry.
value parse_bdl_pp_port(const value& vis_lag);
// RIF number to MAC, decimal texts.
value parse_bdl_vsi_mac(const value& vsi_mac);
// Port to local LIF, decimal texts.
value parse_lif_entries(const value& lif_entry);
// Core to port to VLAN domain, decimal texts.
value parse_vlan_domain_j2(const value& vlan_domain);
// Core to port to MTU profile, decimal texts.
value get_mtu_profile(const value& mtu_profile);
// Core to profile to MTU, decimal texts: ten indexes of the table make a profile.
value parse_mtu_profiles(const value& all_mtu);

// Earlier chips: looks the port of the member with tail `mem` up in its NPU's raw VLAN domain table
// (on a live standby node too) and enters the domain in the member's `vlan_domain` under the node's
// name: hexadecimal text, or the integer 0 if the table has no row, since rows of domain 0 are
// filtered out. Returns SUCCESS, or ERROR after logging and counting a failure. Main thread.
int parse_vlan_domain(std::string_view mem);

}  // namespace tessel
