// The forwarding abstraction's (DPA) objects, with one parser per type. A block starts at the
// element line of its type. A field line ends in a type, a name, "=>" and the value:
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
// 0), except for l2intf, where it is normal. One bad block loses the whole type of that node: the
// parser logs and counts the failure and returns ERROR. Called on the node's worker.
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Parses bundles. Maps the handle (hexadecimal text) to "lagid", "members" (by NPU, then by member
// handle), "vlan_domain" (by NPU, hexadecimal text or DEFAULT), "weight" (sum over the members: an
// integer, or decimal text if it does not fit 64 bits), "max_member_count" (decimal text or
// DEFAULT) and "deletePending" (1 or 0).
value parse_lagport_object_DPA(const value& lagport, std::string_view nodename);

// Parses ports. Adds a `memberInfo` for each to `voq_usage`, under its member tail. Returns SUCCESS
// or ERROR; what was added before a failure stays.
int parse_l1port_object_DPA(const value& l1port, std::string_view nodename);

// Parse interface attributes. Each maps the handle to values, all as printed. l2port has "rif",
// "lif", "mac"; l2intf has "vlan_domain", "lif", "is_l2"; l3intf has "rif".
value parse_l2port_object_DPA(const value& l2port, std::string_view nodename);
value parse_l2intf_object_DPA(const value& l2intf, std::string_view nodename);
value parse_l3intf_object_DPA(const value& l3intf, std::string_view nodename);

}  // namespace tessel
