// The forwarding abstraction's (DPA) objects, one parser for each type. A block starts at the
// type's element line; a field line ends in a type, a name, "=>" and the value:
//
//   lagport element 0
//     @dpa_intf_t intf => 0x3000120
//      uint16_t lag_id => 0x1
//     0:dpa_intf_t mifh => 0x60
//     0:uint8_t mbr_npu_id => 0
//
//   {"0x3000120": {"lagid": "0x1", "members": {"0": {"0x60": {"memid": "0x0", "Visited": 0, ...}}},
//                  "vlan_domain": {"0": "0x10"}, "weight": 1, "max_member_count": "64",
//                  "Visited": 0, ..., "deletePending": 0}}
//
// A text without an object is a note (added to `info`) and takes the node out of the run (`dump`
// 0), except for l2intf, where it is normal. One bad block loses the whole type of that node: each
// parser logs and counts its failure and returns ERROR. Called on the node's worker.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Bundles by handle (hexadecimal text): "lagid", "members" (by NPU, then by member handle),
// "vlan_domain" (by NPU, hexadecimal text or DEFAULT), "weight" (sum over the members: an integer,
// or decimal text where 64 bits do not hold it), "max_member_count" (decimal text or DEFAULT),
// "deletePending" (1 or 0).
value parse_lagport_object_DPA(const value& lagport, std::string_view nodename);

// Ports: adds a `memberInfo` to `voq_usage` for each, under its member tail. Returns SUCCESS or
// ERROR; what was added before a failure stays.
int parse_l1port_object_DPA(const value& l1port, std::string_view nodename);

// Interface attributes by handle, handle and values as printed: "rif", "lif", "mac"; "vlan_domain",
// "lif", "is_l2"; "rif".
value parse_l2port_object_DPA(const value& l2port, std::string_view nodename);
value parse_l2intf_object_DPA(const value& l2intf, std::string_view nodename);
value parse_l3intf_object_DPA(const value& l3intf, std::string_view nodename);

}  // namespace tessel
