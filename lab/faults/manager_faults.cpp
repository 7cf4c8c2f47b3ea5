// Faults of the bundle manager, of the interface manager, and of the bundle manager's agents.
#include "lab/faults/sites.h"

namespace lab {
namespace {

// Bundle manager and interface manager ----------------------------------------------------------

// One process manages the whole router: the place has no node.
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
  // A bundle that loses its only member raises a different finding.
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

// A line of the listing that contains "MTU", before the one that shows it: the audit's filter keeps
// both, and the first separates the second from the port's name.
bool plant_mtu_description(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  for (bundle& b : r.bundles)
    for (member& m : b.members)
      if (port_tail(m.port) == p.object) m.description = "leased line; MTU 1500 beyond";
  return true;
}

// The row has the handle of another, existing object.
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

bool plant_pd_member(router& r, planted_fault& p) {
  return hold_of_member(r, p, find_site(r, p, anywhere), "pd.member", "absent");
}

constexpr fault table[] = {
    {.name = "pi-bundle-missing",
     .description = "the bundle manager lacks a configured bundle",
     .finding = "Inconsistency {}: BM PI has no entry for {object}",
     .at = checkpoint::pi_bundle,
     .hides = reach::bundle,
     .plant = plant_pi_bundle},
    {.name = "pi-member-missing",
     .description = "the bundle manager lacks a configured member",
     .finding = "Inconsistency {}: BM PI Member has no entry for {object},{bundle}({}), {node}",
     .at = checkpoint::pi_member,
     .plant = plant_pi_member},
    {.name = "pi-no-members",
     .description = "the bundle manager holds a configured bundle without its members",
     .finding = "INFO: No member is added to bundle {object}({})",
     .at = checkpoint::pi_bundle,
     .shown = phase::collecting,
     .hides = reach::bundle,
     .plant = plant_pi_no_members},
    {.name = "pi-no-mac",
     .description = "the bundle manager shows a bundle without a MAC",
     .finding = "ERROR: Not able to find MAC-Address in BM PI for {object}({})",
     .at = checkpoint::pi_bundle,
     .shown = phase::collecting,
     .hides = reach::router,  // the reader stops at the first bundle that lacks one
     .deepest = checkpoint::pi_bundle,
     .stops_from = phase::consistency,
     .plant = plant_pi_mac},
    {.name = "pi-no-mtu",
     .description = "the bundle manager shows a bundle without an operational MTU",
     .finding = "ERROR: Not able to find Operational MTU in BM PI for {object}({})",
     .at = checkpoint::pi_bundle,
     .shown = phase::collecting,
     .hides = reach::router,
     .deepest = checkpoint::pi_bundle,
     .stops_from = phase::consistency,
     .plant = plant_pi_mtu},
    {.name = "im-missing-sub",
     .description = "the interface manager omits a sub-bundle",
     .finding = "Inconsistency {}:Data for sub-bundle {object} not found in IM database",
     .at = checkpoint::im_sub,
     .plant = plant_im_sub},
    {.name = "im-bad-handle",
     .description = "the interface manager lists a sub-bundle with a handle that is not a number",
     .finding = "{}: PI sub-bundle verification failed for {bundle}",
     .at = checkpoint::im_sub,
     .hides = reach::bundle,
     .plant = plant_im_handle},
    {.name = "im-second-handle",
     .description =
         "the interface manager lists a sub-bundle under two handles; the audit may take either",
     .at = checkpoint::im_sub,
     .hides = reach::bundle,
     .plant = plant_second_handle},
    {.name = "port-description-mtu",
     .description = "a member port's description contains the word MTU, which the audit searches "
                    "the interface listing for",
     .finding = "{}: BM PI verification failed for {object},{bundle}({}), {node}",
     .harms = "iface_show",
     .at = checkpoint::port_listing,
     .plant = plant_mtu_description},
    {.name = "port-not-listed",
     .description = "the interface listing omits a member's port",
     .finding = "{}: BM PI verification failed for {object},{bundle}({}), {node}",
     .at = checkpoint::port_listing,
     .plant = plant_unlisted_port},
    {.name = "pd-bundle-missing",
     .description = "the bundle manager's agents lack a bundle",
     .finding = "Inconsistency {}: BME has no entry for {object}({}), {node}",
     .also = {{"{}: BME member verification failed for {},{bundle}({}), {}",
               checkpoint::pd_member}},
     .at = checkpoint::pd_bundle,
     .hides = reach::bundle_everywhere,
     .plant = plant_pd_bundle},
    {.name = "pd-node-missing",
     .description = "the agents' table of a bundle omits a node",
     .finding = "Inconsistency {}: BME has no Bundle entry in location {node}",
     .at = checkpoint::pd_node,
     .hides = reach::bundle_everywhere,
     .plant = plant_pd_row},
    {.name = "pd-member-missing",
     .description = "a node's agent lacks a member",
     .finding = "Inconsistency {}: BME has no entry for {object},{bundle}({}), {node}",
     .at = checkpoint::pd_member,
     .plant = plant_pd_member},
    {.name = "pd-npu-differs",
     .description = "the agent places a member on a different NPU than the forwarding layer does",
     .finding = "Inconsistency {}: NPU ID is not consistent in BME for Member {object}, {}, {node}",
     .at = checkpoint::pd_npu,
     .plant = plant_pd_npu},
};

}  // namespace

std::span<const fault> manager_faults() {
  return table;
}

}  // namespace lab
