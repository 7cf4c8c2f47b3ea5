// Values that differ between nodes. The first node sets the expectation, so a finding may name
// either node.
#include <fmt/format.h>

#include "lab/faults/sites.h"

namespace lab {
namespace {

// If two nodes report a value each, the one that is compared first sets the expectation: the
// finding and its consequences may name the other one.
bool on_several_nodes(const site& s) {
  return std::any_of(s.b->members.begin(), s.b->members.end(),
                     [&](const member& other) { return other.node != s.m->node; });
}

// The audit compares two nodes: a fault on either may hide the finding.
bool is_of_every_node(planted_fault& p) {
  p.node.clear();
  return true;
}

bool plant_pd_lag(router& r, planted_fault& p) {
  const site s = find_site(r, p, on_several_nodes);
  return s && hold_of_bundle(r, p, s, "pd.lag", std::to_string(s.b->lag + 0x400)) &&
         is_of_every_node(p);
}

// For routers whose standby route processor serves the same ports, without an agent. The first of
// the two sets the expectation.
bool hold_id_beside_standby(router& r, planted_fault& p, bool standby_is_first) {
  const auto shares = [&](const node& n) {
    return n.state == "STANDBY" && port_owner(r, n) != n.name;
  };
  const auto standby = std::find_if(r.nodes.begin(), r.nodes.end(), shares);
  if (standby == r.nodes.end()) return false;
  const site s = find_site(r, p, [&](const site& one) {
    return one.n->name == port_owner(r, *standby) &&
           (standby->name < one.n->name) == standby_is_first;
  });
  return s && hold_of_member(r, p, s, "pd.id", fmt::format("{:#x}", s.m->id + 40)) &&
         is_of_every_node(p);
}

bool plant_pd_member_id(router& r, planted_fault& p) {
  return hold_id_beside_standby(r, p, false);
}
bool plant_pd_member_id_second(router& r, planted_fault& p) {
  return hold_id_beside_standby(r, p, true);
}

// A value of a sub-bundle that differs between nodes: see on_several_nodes.
bool hold_of_sub_on_one_node(router& r, planted_fault& p, const char* field,
                             std::uint32_t sub_bundle::*value, const char* form) {
  const auto has_value = [&](const sub_bundle& one) { return one.*value != 0; };
  const site s = find_site(r, p, [&](const site& one) {
    return on_several_nodes(one) && std::any_of(one.b->subs.begin(), one.b->subs.end(), has_value);
  });
  if (!s || !r.hqos) return false;
  const sub_bundle& sub = *std::find_if(s.b->subs.begin(), s.b->subs.end(), has_value);
  note_place(p, s, name_of(sub));
  hold(r, field, p.object, p.node, fmt::format(fmt::runtime(form), sub.*value + 0x400));
  return is_of_every_node(p);
}

bool plant_dpa_sub_lag(router& r, planted_fault& p) {
  return hold_of_sub_on_one_node(r, p, "dpa.lag", &sub_bundle::lag, "{:#x}");
}
bool plant_dpa_sub_glif(router& r, planted_fault& p) {
  return hold_of_sub_on_one_node(r, p, "dpa.l2-glif", &sub_bundle::glif, "0x{:08x}");
}
bool plant_dpa_sub_rif(router& r, planted_fault& p) {
  return hold_of_sub_on_one_node(r, p, "dpa.l3-rif", &sub_bundle::rif, "{:#x}");
}

bool plant_dpa_glif(router& r, planted_fault& p) {
  const site s =
      find_site(r, p, [](const site& one) { return is_l3(one) && on_several_nodes(one); });
  return s && hold_of_bundle(r, p, s, "dpa.glif", fmt::format("0x{:08x}", s.b->glif + 0x500)) &&
         is_of_every_node(p);
}
bool plant_dpa_rif(router& r, planted_fault& p) {
  const site s =
      find_site(r, p, [](const site& one) { return is_l3(one) && on_several_nodes(one); });
  return s && hold_of_bundle(r, p, s, "dpa.rif", fmt::format("0x{:04x}", s.b->rif + 0x100)) &&
         is_of_every_node(p);
}

// Marked on every node, since the last node compared decides; wrong on one, so that it counts.
bool plant_delay_delete_sub(router& r, planted_fault& p) {
  if (!plant_dpa_sub_lag(r, p)) return false;
  hold(r, "dpa.pending", p.object, "", "0/0/1");
  return true;
}

constexpr fault table[] = {
    {.name = "pd-lag-id",
     .description = "the agent of one node has a bundle under a different LAG id",
     .finding = "Inconsistency {}:{object}({}), {} Lag ID is not consistent in BME:{}, Expected:{}",
     .at = checkpoint::pd_lag,
     .hides = reach::bundle_everywhere,
     .plant = plant_pd_lag},
    {.name = "pd-member-id",
     .description =
         "the agent has a member under a different id than the standby node that is compared next",
     .finding = "Inconsistency {}:{object},{bundle}({}), {} Member ID is not consistent in "
                "DPA_Members:{}, Expected:{}",
     .at = checkpoint::pd_member_id,
     .hides = reach::bundle_everywhere,
     .plant = plant_pd_member_id},
    {.name = "pd-member-id-second",
     .description =
         "the agent has a member under a different id than the standby node compared before it",
     .finding = "Inconsistency {}:{object},{bundle}({}), {} Member ID is not consistent in "
                "BME_Members:{}, Expected:{}",
     .at = checkpoint::pd_member_id,
     .hides = reach::bundle_everywhere,
     .plant = plant_pd_member_id_second},
    {.name = "dpa-glif",
     .description = "a bundle has a different global LIF on one of its nodes",
     .finding = "Inconsistency {}:{object}({}), {} GLIF is not consistent in "
                "DPA_Bundles_l2port:{},Expected:{}",
     .at = checkpoint::dpa_lif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_glif},
    {.name = "dpa-rif",
     .description = "a bundle has a different router interface on one of its nodes",
     .finding = "Inconsistency {}:{object}({}), {} RIF is not consistent in "
                "DPA_Bundles_l2port:{}, Expected:{}",
     .at = checkpoint::dpa_lif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_rif},
    {.name = "dpa-sub-lag-id",
     .description = "a sub-bundle has a different LAG id on one of its nodes",
     .finding = "Inconsistency {}:{object}({}),{} Lag ID is not consistent in DPA_Sub_Bundles:{}, "
                "Expected:{}",
     .at = checkpoint::dpa_sub,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_sub_lag},
    {.name = "delay-delete-sub",
     .description = "an inconsistent sub-bundle is marked for delayed delete",
     .finding = "INFO: Inconsistent object {object}({}),{} is marked for delay delete",
     .at = checkpoint::dpa_sub,
     .hides = reach::bundle_everywhere,
     .plant = plant_delay_delete_sub},
    {.name = "dpa-sub-glif",
     .description = "a sub-bundle has a different global LIF on one of its nodes",
     .finding = "Inconsistency {}:{object}({}),{} GLIF is not consistent in "
                "DPA_Sub_Bundles_l2intf:{},Expected:{}",
     .at = checkpoint::dpa_sub_lif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_sub_glif},
    {.name = "dpa-sub-rif",
     .description = "a sub-bundle has a different router interface on one of its nodes",
     .finding = "Inconsistency {}:{object}({}),{} RIF is not consistent in "
                "DPA_Bundles_l2port:{}, Expected:{}",
     .at = checkpoint::dpa_sub_rif,
     .hides = reach::bundle_everywhere,
     .plant = plant_dpa_sub_rif},
};

}  // namespace

std::span<const fault> between_nodes_faults() {
  return table;
}

}  // namespace lab
