// Faults of the layers above the chips: the bundle manager, its agents, the interface manager and
// the forwarding objects.
#include <fmt/format.h>

#include "lab/faults/sites.h"

namespace lab {
namespace {

std::string other_lag(const bundle& b) {
  return fmt::format("{:#x}", b.lag + 0x400);
}

bool is_l2(const site& s) {
  return s.b->l2;
}
bool is_l3(const site& s) {
  return !s.b->l2;
}

// True if the NPU of a member serves another one of the bundle, too.
bool shares_npu(const site& s) {
  return std::any_of(s.b->members.begin(), s.b->members.end(), [&](const member& other) {
    return &other != s.m && other.node == s.m->node && other.npu == s.m->npu;
  });
}

// A value that one layer holds of a member or its bundle.
bool hold_of_member(router& r, planted_fault& p, const site& s, const char* field,
                    std::string value) {
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  hold(r, field, p.object, p.node, std::move(value));
  return true;
}

bool hold_of_bundle(router& r, planted_fault& p, const site& s, const char* field,
                    std::string value) {
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold(r, field, p.object, p.node, std::move(value));
  return true;
}

// Bundle manager and interface manager ----------------------------------------------------------

// What one process holds for the whole router is on no node.
bool hold_centrally(router& r, planted_fault& p, const char* field, std::string value) {
  if (r.bundles.empty()) return false;
  note_place(p, {&placed(r.bundles, p), nullptr, nullptr}, name_of(placed(r.bundles, p)));
  hold(r, field, p.object, "", std::move(value));
  return true;
}

bool plant_pi_bundle(router& r, planted_fault& p) {
  return hold_centrally(r, p, "pi.bundle", "absent");
}
bool plant_pi_mac(router& r, planted_fault& p) {
  return hold_centrally(r, p, "pi.mac", "absent");
}
bool plant_pi_mtu(router& r, planted_fault& p) {
  return hold_centrally(r, p, "pi.mtu", "absent");
}

bool plant_pi_member(router& r, planted_fault& p) {
  // A bundle that loses its only member is one without members, and told as such.
  const auto one_of_several = [](const site& s) { return s.b->members.size() > 1; };
  return hold_of_member(r, p, find_site(r, p, one_of_several), "pi.member", "absent");
}

bool plant_pi_no_members(router& r, planted_fault& p) {
  const site s = find_site(
      r, p, [&](const site& one) { return !overridden(r, "pi.extra-member", name_of(*one.b)); });
  if (!s) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  for (const member& m : s.b->members) hold(r, "pi.member", port_tail(m.port), "", "absent");
  return true;
}

bool hold_of_sub(router& r, planted_fault& p, const char* field, std::string value) {
  std::vector<std::pair<const bundle*, const sub_bundle*>> subs;
  for (const bundle& b : r.bundles)
    for (const sub_bundle& s : b.subs) subs.emplace_back(&b, &s);
  if (subs.empty()) return false;
  const auto& [b, sub] = placed(subs, p);
  note_place(p, {b, nullptr, nullptr}, name_of(*sub));
  hold(r, field, p.object, "", std::move(value));
  return true;
}

bool plant_im_sub(router& r, planted_fault& p) {
  return hold_of_sub(r, p, "im.handle", "absent");
}
bool plant_im_handle(router& r, planted_fault& p) {
  return hold_of_sub(r, p, "im.handle", "0xnone");
}

// A line of the listing that speaks of an MTU in front of the one that tells it: the audit's filter
// keeps both, and the first one parts the second from the name.
bool plant_mtu_description(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  for (bundle& b : r.bundles)
    for (member& m : b.members)
      if (port_tail(m.port) == p.object) m.description = "leased line; MTU 1500 beyond";
  return true;
}

// The row has the handle of another object that is there.
bool plant_second_handle(router& r, planted_fault& p) {
  return hold_of_sub(r, p, "im.second-row", "0x30f0004");
}

bool plant_unlisted_port(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere), "interfaces.mtu", "absent");
}

// The agents ------------------------------------------------------------------------------------

bool plant_pd_bundle(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold(r, "pd.bundle", p.object, "", "absent");
  return true;
}

bool plant_pd_row(router& r, planted_fault& p) {
  return hold_of_bundle(r, p, find_site(r, p, anywhere), "pd.row", "absent");
}

bool plant_pd_npu(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  return s && hold_of_member(r, p, s, "pd.npu", std::to_string(s.m->npu + 7));
}

// Of two nodes that tell a value each, the one that is compared first sets what is expected: it may
// be the other one that is named, with what follows from it.
bool on_several_nodes(const site& s) {
  return std::any_of(s.b->members.begin(), s.b->members.end(),
                     [&](const member& other) { return other.node != s.m->node; });
}

// Whatever happens on any node may keep two from being compared.
bool is_of_every_node(planted_fault& p) {
  p.node.clear();
  return true;
}

bool plant_pd_lag(router& r, planted_fault& p) {
  const site s = find_site(r, p, on_several_nodes);
  return s && hold_of_bundle(r, p, s, "pd.lag", std::to_string(s.b->lag + 0x400)) &&
         is_of_every_node(p);
}

// Where the standby route processor serves the same ports, without an agent. The first of the two
// sets what is expected.
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

bool plant_pd_member(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere), "pd.member", "absent");
}

// Forwarding objects ----------------------------------------------------------------------------

bool plant_dpa_lag(router& r, planted_fault& p) {
  // The agent of the same node has set the expectation by the time that this object is compared.
  const site s = find_site(r, p, anywhere);
  return s && hold_of_bundle(r, p, s, "dpa.lag", other_lag(*s.b));
}

// On a node without members of the bundle nothing else can fail for the want of the object.
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

// Something that a node's objects hold of a sub-bundle, with hierarchical QoS alone: without it
// sub-bundles are not compared.
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

bool plant_dpa_sub_no_glif(router& r, planted_fault& p) {
  // On every node, as the first that has one sets the expectation.
  const site s = find_site(r, p, [](const site& one) { return !one.b->subs.empty(); });
  if (!s || !r.hqos) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(placed(s.b->subs, p)));
  hold(r, "dpa.l2-glif", p.object, "", "0x00000000");
  return true;
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

// Marked on every node, as the last one compared decides; wrong on one, so that it counts.
bool plant_delay_delete_sub(router& r, planted_fault& p) {
  if (!plant_dpa_sub_lag(r, p)) return false;
  hold(r, "dpa.pending", p.object, "", "0/0/1");
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
  // The l2port object, which the same check reads first, has set the expectation by then.
  const site s = find_site(r, p, is_l3);
  return s && hold_of_bundle(r, p, s, "dpa.l3-rif", fmt::format("{:#x}", s.b->rif + 0x100));
}

// The same number written otherwise; the audit compares it as text.
bool plant_dpa_rif_zeros(router& r, planted_fault& p) {
  const site s = find_site(r, p, is_l3);
  return s && hold_of_bundle(r, p, s, "dpa.l3-rif", fmt::format("0x{:08x}", s.b->rif));
}

bool plant_dpa_l2_glif(router& r, planted_fault& p) {
  // Likewise.
  const site s = find_site(r, p, is_l2);
  return s && hold_of_bundle(r, p, s, "dpa.l2-glif", fmt::format("0x{:08x}", s.b->glif + 0x500));
}

bool plant_dpa_no_glif(router& r, planted_fault& p) {
  // On every node, as the first that has one sets the expectation.
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
  // Marked on every node, as the last one compared decides; wrong on one, so that it counts.
  const site s = find_site(r, p, anywhere, true);
  if (!s) return false;
  hold(r, "dpa.pending", name_of(*s.b), "", "0/0/1");
  return hold_of_bundle(r, p, s, "dpa.lag", other_lag(*s.b));
}

// Objects that cannot be read -------------------------------------------------------------------

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

std::vector<fault> manager_faults() {
  return {
      {.name = "pi-bundle-missing",
       .description = "the bundle manager does not hold a configured bundle",
       .finding = "Inconsistency {}: BM PI has no entry for {object}",
       .depth = 10,
       .hides = reach::bundle,
       .plant = plant_pi_bundle},
      {.name = "pi-member-missing",
       .description = "the bundle manager does not hold a configured member",
       .finding = "Inconsistency {}: BM PI Member has no entry for {object},{bundle}({}), {node}",
       .depth = 30,
       .plant = plant_pi_member},
      {.name = "pi-no-members",
       .description = "the bundle manager holds a configured bundle without its members",
       .finding = "INFO: No member is added to bundle {object}({})",
       .shown = phase::collecting,
       .depth = 10,
       .hides = reach::bundle,
       .plant = plant_pi_no_members},
      {.name = "pi-no-mac",
       .description = "the bundle manager shows a bundle without a MAC",
       .finding = "ERROR: Not able to find MAC-Address in BM PI for {object}({})",
       .shown = phase::collecting,
       .depth = 10,
       .hides = reach::router,  // the first bundle that lacks one ends the reading
       .deepest = 10,
       .stops_from = phase::consistency,
       .plant = plant_pi_mac},
      {.name = "pi-no-mtu",
       .description = "the bundle manager shows a bundle without an operational MTU",
       .finding = "ERROR: Not able to find Operational MTU in BM PI for {object}({})",
       .shown = phase::collecting,
       .depth = 10,
       .hides = reach::router,
       .deepest = 10,
       .stops_from = phase::consistency,
       .plant = plant_pi_mtu},
      {.name = "im-missing-sub",
       .description = "the interface manager does not list a sub-bundle",
       .finding = "Inconsistency {}:Data for sub-bundle {object} not found in IM database",
       .depth = 20,
       .plant = plant_im_sub},
      {.name = "im-bad-handle",
       .description = "the interface manager lists a sub-bundle with a handle that is no number",
       .finding = "{}: PI sub-bundle verification failed for {bundle}",
       .depth = 20,
       .hides = reach::bundle,
       .plant = plant_im_handle},
      {.name = "im-second-handle",
       .description = "the interface manager lists a sub-bundle under two handles; either may be "
                      "taken for its own",
       .depth = 20,
       .hides = reach::bundle,
       .plant = plant_second_handle},
      {.name = "port-description-mtu",
       .description = "the description of a member's port has the word MTU, which the listing of "
                      "interfaces is searched for",
       .finding = "{}: BM PI verification failed for {object},{bundle}({}), {node}",
       .depth = 31,
       .plant = plant_mtu_description},
      {.name = "port-not-listed",
       .description = "the listing of interfaces lacks a member's port",
       .finding = "{}: BM PI verification failed for {object},{bundle}({}), {node}",
       .depth = 31,
       .plant = plant_unlisted_port},
      {.name = "pd-bundle-missing",
       .description = "the bundle manager's agents do not hold a bundle",
       .finding = "Inconsistency {}: BME has no entry for {object}({}), {node}",
       .also = {{"{}: BME member verification failed for {},{bundle}({}), {}", phase::consistency,
                 45}},
       .depth = 40,
       .hides = reach::bundle_everywhere,
       .plant = plant_pd_bundle},
      {.name = "pd-node-missing",
       .description = "the agent's table of a bundle lacks a node",
       .finding = "Inconsistency {}: BME has no Bundle entry in location {node}",
       .depth = 41,
       .hides = reach::bundle_everywhere,
       .plant = plant_pd_row},
      {.name = "pd-member-missing",
       .description = "the agent of a node does not hold a member",
       .finding = "Inconsistency {}: BME has no entry for {object},{bundle}({}), {node}",
       .depth = 45,
       .plant = plant_pd_member},
      {.name = "pd-npu-differs",
       .description = "the agent has a member on another NPU than the forwarding layer",
       .finding =
           "Inconsistency {}: NPU ID is not consistent in BME for Member {object}, {}, {node}",
       .depth = 46,
       .plant = plant_pd_npu},
  };
}

std::vector<fault> forwarding_faults() {
  return {
      {.name = "dpa-object-missing",
       .description = "a node without members has no forwarding object of a bundle",
       .finding = "Inconsistency {}: DPA has no entry for {object}({}), {node}",
       .depth = 50,
       .hides = reach::bundle,
       .plant = plant_dpa_object},
      {.name = "dpa-weight",
       .description = "the members of a bundle weigh more than is allowed",
       .finding =
           "Inconsistency {}: member scale limit exceeded due to weights of members ({}) being "
           "more than allowed ({})",
       .depth = 58,
       .plant = plant_weight},
      {.name = "dpa-lag-id",
       .description = "one node's forwarding object has another LAG id",
       .finding =
           "Inconsistency {}:{object}({}), {node} Lag ID is not consistent in DPA_Bundles:{}, "
           "Expected:{}",
       .depth = 52,
       .plant = plant_dpa_lag},
      {.name = "delay-delete",
       .description = "an inconsistent bundle is marked for delayed delete",
       .finding = "INFO: Inconsistent object {object}({}), {node} is marked for delay delete",
       .depth = 52,
       .plant = plant_delay_delete},
      {.name = "dpa-l2port-missing",
       .description = "a node with members has no l2port object of a bundle",
       .finding = "{}: DPA bundle consistency check failed for {object}({}), {node}",
       .depth = 53,
       .hides = reach::bundle,
       .plant = plant_dpa_l2port},
      {.name = "dpa-no-glif",
       .description = "the forwarding objects of a bundle have no global LIF on any node",
       .finding = "Inconsistency {}:{object}({}), {node} GLIF is not consistent in "
                  "DPA_Bundles_l2port:{},Expected:0xXX{}",
       .depth = 54,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_no_glif},
      {.name = "dpa-mac",
       .description = "the forwarding object of a bundle has another MAC",
       .finding = "Inconsistency {}:{object}({}), {node} MAC is not consistent in "
                  "DPA_Bundles_l2port:{}, Expected:{}",
       .depth = 55,
       .hides = reach::bundle,
       .plant = plant_dpa_mac},
      {.name = "dpa-l3intf-missing",
       .description = "a node with members has no l3intf object of a layer 3 bundle",
       .finding = "{}: DPA bundle consistency check failed for {object}({}), {node}",
       .depth = 56,
       .hides = reach::bundle,
       .plant = plant_dpa_l3intf},
      {.name = "dpa-l3-rif",
       .description = "the layer 3 object of a bundle has another RIF than its layer 2 object",
       .finding = "Inconsistency {}:{object}({}), {node} RIF is not consistent in "
                  "DPA_Bundles_l2port:{}, Expected:{}",
       .depth = 57,
       .hides = reach::bundle,
       .plant = plant_dpa_l3_rif},
      {.name = "dpa-l3-rif-zeros",
       .description = "the layer 3 object of a bundle has its RIF with leading zeros, which the "
                      "audit takes for another one",
       .finding = "Inconsistency {}:{object}({}), {node} RIF is not consistent in "
                  "DPA_Bundles_l2port:{}, Expected:{}",
       .depth = 57,
       .hides = reach::bundle,
       .plant = plant_dpa_rif_zeros},
      {.name = "dpa-l2-glif",
       .description = "the l2intf object of a bundle has another global LIF than its l2port object",
       .finding = "Inconsistency {}:{object}({}), {node} GLIF is not consistent in "
                  "DPA_Bundles_l2port:{},Expected:{}",
       .depth = 57,
       .hides = reach::bundle,
       .plant = plant_dpa_l2_glif},
      {.name = "dpa-l2-vlan-domain",
       .description = "the layer 2 object of a bundle has another VLAN domain",
       .finding = "Inconsistency {}:{object}({}), {node} vlan_domain is not consistent in "
                  "DPA_l2intf:{}, Expected:{}",
       .depth = 58,
       .plant = plant_dpa_l2_domain},
      {.name = "dpa-member-missing",
       .description = "a forwarding object lacks a member beside another one of the same NPU",
       .finding = "Inconsistency {}: DPA has no entry for {object},{bundle}({}), {node}",
       .depth = 58,
       .plant = plant_dpa_member},
      {.name = "dpa-npu-missing",
       .description = "a forwarding object lacks the only member of an NPU",
       .finding = "{}: DPA Member verification failed for {object},{bundle}({}), {node}",
       .also = {{"{}: Bundle programming verification failed", phase::programming, 58}},
       .depth = 58,  // without members, an NPU has no VLAN domain either
       .hides = reach::bundle,
       .stops_from = phase::programming,
       .stops_to = phase::programming,
       .plant = plant_dpa_npu},
      {.name = "dpa-member-id",
       .description = "a member stands in another slot of the forwarding object",
       .finding = "Inconsistency {}:{object},{bundle}({}), {node} Member ID is not consistent in "
                  "DPA_Members:{}, Expected:{}",
       .depth = 61,
       .plant = plant_dpa_member_id},
      {.name = "dpa-mtu",
       .description = "the forwarding object of a port has another MTU than the interface",
       .finding = "Inconsistency {}:{object},{bundle}({}), {node} MTU is not consistent in "
                  "DPA_Members:{}, Expected:{}",
       .depth = 62,
       .plant = plant_dpa_mtu},
      {.name = "dpa-sub-missing",
       .description = "a node has no forwarding object of a sub-bundle",
       .finding = "Inconsistency {}: DPA has no entry for {object}({}),{node}",
       .depth = 65,
       .plant = plant_dpa_sub_object},
      {.name = "dpa-sub-no-glif",
       .description = "the l2intf objects of a sub-bundle have no global LIF on any node",
       .finding = "Inconsistency {}:{object}({}),{} GLIF is not consistent in "
                  "DPA_Sub_Bundles_l2intf:{},Expected:0xXX{}",
       .depth = 66,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_sub_no_glif},
      {.name = "dpa-sub-l2intf-missing",
       .description = "a node with members has no l2intf object of a sub-bundle",
       .finding = "{}: DPA Sub-Bundle verification failed for {object}({}),{node}",
       .depth = 66,
       .plant = plant_dpa_sub_l2intf},
  };
}

std::vector<fault> unreadable_object_faults() {
  std::vector<fault> faults{
      {.name = "lagport-garbage",
       .description = "a forwarding object has a member without an NPU",
       .finding = "{}: parse lagport object failed {node}",
       .plant = plant_no_npu},
      {.name = "l1port-no-mtu",
       .description = "the forwarding object of a port has no MTU",
       .finding = "{}: parse l1port object failed {node}",
       .plant = plant_no_mtu},
      {.name = "l2port-no-rif",
       .description = "a forwarding object has no router interface set",
       .finding = "{}: parse l2port object failed {node}",
       .plant = plant_no_rif},
      {.name = "l2intf-no-lif",
       .description = "the l2intf object of a bundle has no LIF set",
       .finding = "{}: parse l2intf object failed {node}",
       .plant = plant_no_l2_lif},
      {.name = "l3intf-no-rif",
       .description = "the l3intf object of a bundle has no router interface set",
       .finding = "{}: parse l3intf object failed {node}",
       .plant = plant_no_l3_rif},
      {.name = "port-unknown",
       .description = "the forwarding layer does not know a member's port",
       .finding = "{}: get_member_pp_port failed for {}{object}",
       .also = {{"{}: parse_vlan_domain failed", phase::parsing}},
       .shown = phase::parsing,
       .plant = plant_lost_port},
  };
  for (fault& one : faults) {
    if (one.shown == phase::consistency) one.shown = phase::collecting;
    one.stops_from = phase::consistency;
  }
  return faults;
}

// Between nodes the first one sets what is expected, so the finding may name either.
std::vector<fault> faults_between_nodes() {
  return {
      {.name = "pd-lag-id",
       .description = "the agents have a bundle under another LAG id on one of its nodes",
       .finding =
           "Inconsistency {}:{object}({}), {} Lag ID is not consistent in BME:{}, Expected:{}",
       .depth = 42,
       .hides = reach::bundle_everywhere,
       .plant = plant_pd_lag},
      {.name = "pd-member-id",
       .description = "the agent has a member under another id than a standby node behind it",
       .finding = "Inconsistency {}:{object},{bundle}({}), {} Member ID is not consistent in "
                  "DPA_Members:{}, Expected:{}",
       .depth = 47,
       .hides = reach::bundle_everywhere,
       .plant = plant_pd_member_id},
      {.name = "pd-member-id-second",
       .description = "the agent has a member under another id than a standby node in front of it",
       .finding = "Inconsistency {}:{object},{bundle}({}), {} Member ID is not consistent in "
                  "BME_Members:{}, Expected:{}",
       .depth = 47,
       .hides = reach::bundle_everywhere,
       .plant = plant_pd_member_id_second},
      {.name = "dpa-glif",
       .description = "a bundle has another global LIF on one of its nodes",
       .finding = "Inconsistency {}:{object}({}), {} GLIF is not consistent in "
                  "DPA_Bundles_l2port:{},Expected:{}",
       .depth = 54,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_glif},
      {.name = "dpa-rif",
       .description = "a bundle has another router interface on one of its nodes",
       .finding = "Inconsistency {}:{object}({}), {} RIF is not consistent in "
                  "DPA_Bundles_l2port:{}, Expected:{}",
       .depth = 54,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_rif},
      {.name = "dpa-sub-lag-id",
       .description = "a sub-bundle has another LAG id on one of its nodes",
       .finding =
           "Inconsistency {}:{object}({}),{} Lag ID is not consistent in DPA_Sub_Bundles:{}, "
           "Expected:{}",
       .depth = 65,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_sub_lag},
      {.name = "delay-delete-sub",
       .description = "an inconsistent sub-bundle is marked for delayed delete",
       .finding = "INFO: Inconsistent object {object}({}),{} is marked for delay delete",
       .depth = 65,
       .hides = reach::bundle_everywhere,
       .plant = plant_delay_delete_sub},
      {.name = "dpa-sub-glif",
       .description = "a sub-bundle has another global LIF on one of its nodes",
       .finding = "Inconsistency {}:{object}({}),{} GLIF is not consistent in "
                  "DPA_Sub_Bundles_l2intf:{},Expected:{}",
       .depth = 66,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_sub_glif},
      {.name = "dpa-sub-rif",
       .description = "a sub-bundle has another router interface on one of its nodes",
       .finding = "Inconsistency {}:{object}({}),{} RIF is not consistent in "
                  "DPA_Bundles_l2port:{}, Expected:{}",
       .depth = 67,
       .hides = reach::bundle_everywhere,
       .plant = plant_dpa_sub_rif},
  };
}

}  // namespace

std::vector<fault> layer_faults() {
  std::vector<fault> all;
  for (auto part :
       {manager_faults, forwarding_faults, faults_between_nodes, unreadable_object_faults})
    for (fault& one : part()) all.push_back(one);
  return all;
}

}  // namespace lab
