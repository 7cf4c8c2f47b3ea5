// Faults of the forwarding objects on one node.
#include <fmt/format.h>

#include "lab/faults/sites.h"

namespace lab {
namespace {

std::string other_lag(const bundle& b) {
  return fmt::format("{:#x}", b.lag + 0x400);
}

// True if the member shares its NPU with another member of the bundle.
bool shares_npu(const site& s) {
  return std::any_of(s.b->members.begin(), s.b->members.end(), [&](const member& other) {
    return &other != s.m && other.node == s.m->node && other.npu == s.m->npu;
  });
}

bool plant_dpa_lag(router& r, planted_fault& p) {
  // The agent of the same node sets the expectation before this object is compared.
  const site s = find_site(r, p, anywhere);
  return s && hold_of_bundle(r, p, s, "dpa.lag", other_lag(*s.b));
}

// On a node without members of the bundle, nothing else depends on the object.
bool hold_without_members(router& r, planted_fault& p, const char* field) {
  std::vector<site> sites;
  for (const bundle& b : r.bundles)
    for (const node& n : r.nodes)
      if (is_examined(n) && members_on(r, b, n).empty()) sites.push_back({&b, nullptr, &n});
  if (sites.empty()) return false;
  const site& s = placed(sites, p);
  note_place(p, s, name_of(*s.b));
  hold(r, field, p.object, p.node, "absent");
  return true;
}

bool plant_dpa_object(router& r, planted_fault& p) {
  return hold_without_members(r, p, "dpa.object");
}

// The values of a sub-bundle in a node's objects. Needs hierarchical QoS: without it the audit does
// not compare sub-bundles.
bool hold_of_compared_sub(router& r, planted_fault& p, const char* field, std::string value) {
  const site s = find_site(r, p, [](const site& one) { return !one.b->subs.empty(); });
  if (!s || !r.hqos) return false;
  note_place(p, s, name_of(placed(s.b->subs, p)));
  hold(r, field, p.object, p.node, std::move(value));
  return true;
}

bool plant_dpa_sub_object(router& r, planted_fault& p) {
  return hold_of_compared_sub(r, p, "dpa.object", "absent");
}
bool plant_dpa_sub_l2intf(router& r, planted_fault& p) {
  return hold_of_compared_sub(r, p, "dpa.l2intf", "absent");
}

bool plant_dpa_sub_no_glif(router& r, planted_fault& p) {
  // On every node, since the first node that has one sets the expectation.
  const site s = find_site(r, p, [](const site& one) { return !one.b->subs.empty(); });
  if (!s || !r.hqos) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(placed(s.b->subs, p)));
  hold(r, "dpa.l2-glif", p.object, "", "0x00000000");
  return true;
}

bool plant_dpa_mtu(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  return s && hold_of_member(r, p, s, "dpa.mtu", std::to_string(s.m->mtu - 100));
}

bool plant_dpa_member_id(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  return s && hold_of_member(r, p, s, "dpa.member-id", std::to_string(s.m->id + 40));
}

bool plant_dpa_member(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, shares_npu), "dpa.member", "absent");
}

bool plant_dpa_npu(router& r, planted_fault& p) {
  const auto alone = [](const site& s) { return !shares_npu(s); };
  return hold_of_member(r, p, find_site(r, p, alone), "dpa.member", "absent");
}

bool plant_dpa_mac(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  std::string mac = colon_mac(s.b->mac);
  mac.back() = mac.back() == '0' ? '1' : '0';
  return hold_of_bundle(r, p, s, "dpa.mac", mac);
}

bool plant_dpa_l3_rif(router& r, planted_fault& p) {
  // The l2port object, which the same check reads first, sets the expectation.
  const site s = find_site(r, p, is_l3);
  return s && hold_of_bundle(r, p, s, "dpa.l3-rif", fmt::format("{:#x}", s.b->rif + 0x100));
}

// The same number in another notation; the audit compares texts.
bool plant_dpa_rif_zeros(router& r, planted_fault& p) {
  const site s = find_site(r, p, is_l3);
  return s && hold_of_bundle(r, p, s, "dpa.l3-rif", fmt::format("0x{:08x}", s.b->rif));
}

bool plant_dpa_l2_glif(router& r, planted_fault& p) {
  // As in plant_dpa_l3_rif.
  const site s = find_site(r, p, is_l2);
  return s && hold_of_bundle(r, p, s, "dpa.l2-glif", fmt::format("0x{:08x}", s.b->glif + 0x500));
}

bool plant_dpa_no_glif(router& r, planted_fault& p) {
  // On every node, since the first node that has one sets the expectation.
  const site s = find_site(r, p, is_l3);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold(r, "dpa.glif", p.object, "", "0x00000000");
  return true;
}

bool plant_dpa_l2port(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, anywhere), "dpa.l2port", "absent");
}
bool plant_dpa_l3intf(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, is_l3), "dpa.l3intf", "absent");
}

bool plant_dpa_l2_domain(router& r, planted_fault& p) {
  const site s = find_site(r, p, is_l2);
  return s && hold_of_bundle(r, p, s, "dpa.l2-vlan-domain",
                             fmt::format("{:#x}", s.b->vlan_domain + 0x300));
}

bool plant_weight(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  return s && hold_of_member(r, p, s, "dpa.weight", std::to_string(s.b->max_members + 1));
}

bool plant_delay_delete(router& r, planted_fault& p) {
  // Marked on every node, since the last node compared decides; wrong on one, so that it counts.
  const site s = find_site(r, p, anywhere, true);
  if (!s) return false;
  hold(r, "dpa.pending", name_of(*s.b), "", "0/0/1");
  return hold_of_bundle(r, p, s, "dpa.lag", other_lag(*s.b));
}

constexpr fault table[] = {
    {.name = "dpa-object-missing",
     .description = "a node without members lacks the forwarding object of a bundle",
     .finding = "Inconsistency {}: DPA has no entry for {object}({}), {node}",
     .at = checkpoint::dpa_bundle,
     .hides = reach::bundle,
     .plant = plant_dpa_object},
    {.name = "dpa-weight",
     .description = "the members of a bundle weigh more than the limit allows",
     .finding =
         "Inconsistency {}: member scale limit exceeded due to weights of members ({}) being "
         "more than allowed ({})",
     .at = checkpoint::dpa_bundle,
     .hides = reach::nothing,
     .plant = plant_weight},
    {.name = "dpa-lag-id",
     .description = "one node's forwarding object has a different LAG id",
     .finding = "Inconsistency {}:{object}({}), {node} Lag ID is not consistent in DPA_Bundles:{}, "
                "Expected:{}",
     .at = checkpoint::dpa_lag,
     .plant = plant_dpa_lag},
    {.name = "delay-delete",
     .description = "an inconsistent bundle is marked for delayed delete",
     .finding = "INFO: Inconsistent object {object}({}), {node} is marked for delay delete",
     .at = checkpoint::dpa_lag,
     .plant = plant_delay_delete},
    {.name = "dpa-l2port-missing",
     .description = "a node with members lacks the l2port object of a bundle",
     .finding = "{}: DPA bundle consistency check failed for {object}({}), {node}",
     .at = checkpoint::dpa_l2port,
     .hides = reach::bundle,
     .plant = plant_dpa_l2port},
    {.name = "dpa-no-glif",
     .description = "the forwarding objects of a bundle have no global LIF on any node",
     .finding = "Inconsistency {}:{object}({}), {node} GLIF is not consistent in "
                "DPA_Bundles_l2port:{},Expected:0xXX{}",
     .at = checkpoint::dpa_lif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_no_glif},
    {.name = "dpa-mac",
     .description = "a bundle's forwarding object has a different MAC",
     .finding = "Inconsistency {}:{object}({}), {node} MAC is not consistent in "
                "DPA_Bundles_l2port:{}, Expected:{}",
     .at = checkpoint::dpa_mac,
     .hides = reach::bundle,
     .plant = plant_dpa_mac},
    {.name = "dpa-l3intf-missing",
     .description = "a node with members lacks the l3intf object of a layer 3 bundle",
     .finding = "{}: DPA bundle consistency check failed for {object}({}), {node}",
     .at = checkpoint::dpa_intf,
     .hides = reach::bundle,
     .plant = plant_dpa_l3intf},
    {.name = "dpa-l3-rif",
     .description = "a bundle's layer 3 object has a different RIF from its layer 2 object",
     .finding = "Inconsistency {}:{object}({}), {node} RIF is not consistent in "
                "DPA_Bundles_l2port:{}, Expected:{}",
     .at = checkpoint::dpa_intf_value,
     .hides = reach::bundle,
     .plant = plant_dpa_l3_rif},
    {.name = "dpa-l3-rif-zeros",
     .description = "a bundle's layer 3 object shows its RIF with leading zeros, which the audit "
                    "takes for a different one",
     .finding = "Inconsistency {}:{object}({}), {node} RIF is not consistent in "
                "DPA_Bundles_l2port:{}, Expected:{}",
     .at = checkpoint::dpa_intf_value,
     .hides = reach::bundle,
     .plant = plant_dpa_rif_zeros},
    {.name = "dpa-l2-glif",
     .description = "a bundle's l2intf object has a different global LIF from its l2port object",
     .finding = "Inconsistency {}:{object}({}), {node} GLIF is not consistent in "
                "DPA_Bundles_l2port:{},Expected:{}",
     .at = checkpoint::dpa_intf_value,
     .hides = reach::bundle,
     .plant = plant_dpa_l2_glif},
    {.name = "dpa-l2-vlan-domain",
     .description = "a bundle's layer 2 object has a different VLAN domain",
     .finding = "Inconsistency {}:{object}({}), {node} vlan_domain is not consistent in "
                "DPA_l2intf:{}, Expected:{}",
     .at = checkpoint::dpa_members,
     .plant = plant_dpa_l2_domain},
    {.name = "dpa-member-missing",
     .description = "a forwarding object lacks one of several members of an NPU",
     .finding = "Inconsistency {}: DPA has no entry for {object},{bundle}({}), {node}",
     .at = checkpoint::dpa_members,
     .plant = plant_dpa_member},
    {.name = "dpa-npu-missing",
     .description = "a forwarding object lacks the only member of an NPU",
     .finding = "{}: DPA Member verification failed for {object},{bundle}({}), {node}",
     .also = {{"{}: Bundle programming verification failed", checkpoint::dpa_members,
               phase::programming}},
     .at = checkpoint::dpa_members,  // without members, an NPU has no VLAN domain either
     .hides = reach::bundle,
     .stops_from = phase::programming,
     .stops_to = phase::programming,
     .plant = plant_dpa_npu},
    {.name = "dpa-member-id",
     .description = "a member is in a different slot of the forwarding object",
     .finding = "Inconsistency {}:{object},{bundle}({}), {node} Member ID is not consistent in "
                "DPA_Members:{}, Expected:{}",
     .at = checkpoint::dpa_member_id,
     .plant = plant_dpa_member_id},
    {.name = "dpa-mtu",
     .description = "a port's forwarding object has a different MTU from the interface",
     .finding = "Inconsistency {}:{object},{bundle}({}), {node} MTU is not consistent in "
                "DPA_Members:{}, Expected:{}",
     .at = checkpoint::dpa_mtu,
     .plant = plant_dpa_mtu},
    {.name = "dpa-sub-missing",
     .description = "a node lacks the forwarding object of a sub-bundle",
     .finding = "Inconsistency {}: DPA has no entry for {object}({}),{node}",
     .at = checkpoint::dpa_sub,
     .plant = plant_dpa_sub_object},
    {.name = "dpa-sub-no-glif",
     .description = "the l2intf objects of a sub-bundle have no global LIF on any node",
     .finding = "Inconsistency {}:{object}({}),{} GLIF is not consistent in "
                "DPA_Sub_Bundles_l2intf:{},Expected:0xXX{}",
     .at = checkpoint::dpa_sub_lif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_sub_no_glif},
    {.name = "dpa-sub-l2intf-missing",
     .description = "a node with members lacks the l2intf object of a sub-bundle",
     .finding = "{}: DPA Sub-Bundle verification failed for {object}({}),{node}",
     .at = checkpoint::dpa_sub_lif,
     .plant = plant_dpa_sub_l2intf},
};

}  // namespace

std::span<const fault> forwarding_faults() {
  return table;
}

}  // namespace lab
