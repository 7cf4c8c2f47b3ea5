// Forwarding objects without values that the audit must read.
#include "lab/faults/sites.h"

namespace lab {
namespace {

bool plant_no_npu(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere), "dpa.member-npu", "absent");
}
bool plant_no_mtu(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere), "dpa.mtu", "absent");
}
bool plant_no_rif(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, anywhere), "dpa.rif", "absent");
}
bool plant_no_l2_lif(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, is_l2), "dpa.l2-glif", "absent");
}
bool plant_no_l3_rif(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, is_l3), "dpa.l3-rif", "absent");
}
bool plant_lost_port(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere, true), "dpa.port", "absent");
}

constexpr fault table[] = {
    {.name = "lagport-garbage",
     .description = "a forwarding object has a member without an NPU",
     .finding = "{}: parse lagport object failed {node}",
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .plant = plant_no_npu},
    {.name = "l1port-no-mtu",
     .description = "a port's forwarding object has no MTU",
     .finding = "{}: parse l1port object failed {node}",
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .plant = plant_no_mtu},
    {.name = "l2port-no-rif",
     .description = "a forwarding object has no router interface set",
     .finding = "{}: parse l2port object failed {node}",
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .plant = plant_no_rif},
    {.name = "l2intf-no-lif",
     .description = "a bundle's l2intf object has no LIF set",
     .finding = "{}: parse l2intf object failed {node}",
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .plant = plant_no_l2_lif},
    {.name = "l3intf-no-rif",
     .description = "a bundle's l3intf object has no router interface set",
     .finding = "{}: parse l3intf object failed {node}",
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency,
     .plant = plant_no_l3_rif},
    {.name = "port-unknown",
     .description = "the forwarding layer does not know a member's port",
     .finding = "{}: get_member_pp_port failed for {}{object}",
     .also = {{"{}: parse_vlan_domain failed", checkpoint::groundwork, phase::parsing}},
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .stops_from = phase::consistency,
     .plant = plant_lost_port},
};

}  // namespace

std::span<const fault> unreadable_object_faults() {
  return table;
}

}  // namespace lab
