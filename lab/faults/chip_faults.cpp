// Faults of the chips: LAGs, members, MTUs, the tables that forward; and what any layer holds
// although nobody refers to it.
#include <fmt/format.h>

#include "lab/faults/sites.h"
#include "lab/render/render.h"

namespace lab {
namespace {

// A port that no bundle has, on the node of a member.
std::string foreign_port(const member& m) {
  return m.port.substr(0, m.port.find('/')) + "/" + "0/0/60";
}

bool has_chip(const site& s) {
  return s.n->npus > 0;
}

void hold_on_npu(router& r, const planted_fault& p, const char* field, const std::string& object,
                 const site& s, std::string value) {
  hold(r, field, object, p.node, std::move(value), static_cast<int>(s.m->npu));
}

// Layers against the chip -----------------------------------------------------------------------

bool plant_chip_lag(router& r, planted_fault& p) {
  // Where the bundle has no member the missing LAG is the whole of the finding. Where the list of
  // chip units tells the NPUs by slot, a route processor in it has none.
  const bool by_slot = r.type == "birch" || r.type == "fir";
  const auto is_read = [&](const node& n) {
    return is_examined(n) && !(by_slot && n.kind == "RP" && n.in_unit_list);
  };
  std::vector<std::pair<site, int>> places;
  for (const bundle& b : r.bundles)
    for (const node& n : r.nodes)
      for (unsigned npu = 0; npu < n.npus; ++npu)
        if (is_read(n) && members_on(r, b, n).empty())
          places.push_back({{&b, nullptr, &n}, static_cast<int>(npu)});
  if (places.empty()) return false;
  const auto& [s, npu] = placed(places, p);
  note_place(p, s, name_of(*s.b));
  hold(r, "chip.lag", p.object, p.node, "absent", npu);
  return true;
}

bool plant_chip_lag_of_member(router& r, planted_fault& p) {
  const site s = find_site(r, p, has_chip);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold_on_npu(r, p, "chip.lag", p.object, s, "absent");
  return true;
}

// Without hierarchical QoS a sub-bundle has no LAG of its own.
bool hold_sub_lag(router& r, planted_fault& p, bool (*is_family)(const site&)) {
  const site s = find_site(r, p, [&](const site& one) {
    return has_chip(one) && !one.b->subs.empty() && is_family(one);
  });
  if (!s || !r.hqos) return false;
  note_place(p, s, name_of(s.b->subs.front()));
  hold_on_npu(r, p, "chip.lag", p.object, s, "absent");
  return true;
}
bool plant_chip_sub_lag(router& r, planted_fault& p) {
  return hold_sub_lag(r, p, on_older_chip);
}
bool plant_jericho2_sub_lag(router& r, planted_fault& p) {
  return hold_sub_lag(r, p, [](const site& one) { return !on_older_chip(one); });
}

bool plant_chip_member(router& r, planted_fault& p) {
  const bundle* first = r.bundles.empty() ? nullptr : &r.bundles.front();
  site s = find_site(r, p, [&](const site& one) { return one.b != first && on_older_chip(one); });
  if (!s) s = find_site(r, p, has_chip);
  if (!s || !has_chip(s)) return false;
  note_place(p, s, port_tail(s.m->port));
  hold_on_npu(r, p, "chip.member", p.object, s, "absent");
  return true;
}

bool plant_chip_mtu(router& r, planted_fault& p) {
  const site s = find_site(r, p, has_chip);
  if (!s) return false;
  const bool older = on_older_chip(s);
  // On an aspen the audit does not come as far as to compare the MTUs of a Jericho2.
  if (!older && r.type == "aspen") return false;
  const unsigned mtu = s.m->mtu - 200;
  note_place(p, s, port_tail(s.m->port));
  hold_on_npu(r, p, "chip.mtu", older ? p.object : name_of(*s.b), s,
              older ? fmt::format("{:#x}", mtu) : std::to_string(mtu));
  return true;
}

// Without the row of core 1 the audit knows no port of the LAG on either core.
bool plant_lag_port(router& r, planted_fault& p) {
  const site s = find_site(r, p, [&](const site& one) {
    return has_chip(one) && !on_older_chip(one) &&
           !is_absent(r, "chip.lag-mtu", "*", one.n->name, static_cast<int>(one.m->npu));
  });
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold_on_npu(r, p, "chip.lag-port", p.object, s, "absent");
  return true;
}

// The chips of a router may give no port a profile; where they do, an aspen's audit fails over it.
bool plant_lag_mtu(router& r, planted_fault& p) {
  const site s =
      find_site(r, p, [](const site& one) { return has_chip(one) && !on_older_chip(one); });
  if (!s || r.type != "aspen") return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  hold(r, "chip.lag-mtu", "*", p.node, "shown");
  return true;
}

bool plant_chip_domain(router& r, planted_fault& p) {
  const site s = find_site(r, p, on_older_chip);
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  hold_on_npu(r, p, "chip.vlan-domain", p.object, s,
              fmt::format("{:#x}", s.b->vlan_domain + 0x200));
  return true;
}

// The exact match -------------------------------------------------------------------------------

// The first sub-bundle that suits, none if the bundle has no such one.
template <typename Suits>
const sub_bundle* first_sub(const bundle& b, Suits suits) {
  const auto found = std::find_if(b.subs.begin(), b.subs.end(), suits);
  return found == b.subs.end() ? nullptr : &*found;
}

const sub_bundle* sub_with_key(const bundle& b) {
  return first_sub(b, [&](const sub_bundle& one) { return !key_of(b, one).digits.empty(); });
}

const sub_bundle* untagged_sub(const bundle& b) {
  return first_sub(b, [](const sub_bundle& one) { return one.encapsulation == "untagged"; });
}

bool hold_sem(router& r, planted_fault& p, std::string value) {
  const site s = find_site(r, p, [](const site& one) {
    return on_older_chip(one) && has_chip(one) && sub_with_key(*one.b) != nullptr;
  });
  if (!s) return false;
  note_place(p, s, name_of(*sub_with_key(*s.b)));
  hold_on_npu(r, p, "chip.sem", p.object, s, std::move(value));
  return true;
}

bool plant_sem(router& r, planted_fault& p) {
  return hold_sem(r, p, "absent");
}
bool plant_sem_garbage(router& r, planted_fault& p) {
  return hold_sem(r, p, "none");
}

// Router interfaces -----------------------------------------------------------------------------

// The audit asks the VSI table only for layer 3 bundles with an untagged sub-bundle.
bool verified_mac(const site& s) {
  return !s.b->l2 && has_untagged(*s.b) && has_chip(s);
}
bool verified_mac_older(const site& s) {
  return verified_mac(s) && on_older_chip(s);
}
bool verified_mac_jericho2(const site& s) {
  return verified_mac(s) && !on_older_chip(s);
}

bool plant_rif(router& r, planted_fault& p) {
  const site s = find_site(r, p, verified_mac);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  // Jericho2 keeps the row of an unused interface and shows a MAC of zeros there.
  hold_on_npu(r, p, "chip.mac", p.object, s, on_older_chip(s) ? "absent" : "0");
  return true;
}

bool plant_rif_row(router& r, planted_fault& p) {
  const site s = find_site(r, p, verified_mac_jericho2);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold_on_npu(r, p, "chip.mac", p.object, s, "absent");
  return true;
}

bool plant_mac(router& r, planted_fault& p, unsigned difference, bool (*fits)(const site&)) {
  const site s = find_site(r, p, fits);
  if (!s) return false;
  const unsigned mac = low_mac_bits(s.b->mac) ^ difference;
  note_place(p, s, name_of(*s.b));
  hold_on_npu(r, p, "chip.mac", p.object, s,
              on_older_chip(s) ? fmt::format("{:#x}", mac) : std::to_string(mac));
  return true;
}

bool plant_low_mac(router& r, planted_fault& p) {
  return plant_mac(r, p, 0x1, verified_mac_older);
}
bool plant_high_mac(router& r, planted_fault& p) {
  return plant_mac(r, p, 0x400, verified_mac_older);
}
bool plant_jericho2_mac(router& r, planted_fault& p) {
  return plant_mac(r, p, 0x1, verified_mac_jericho2);
}

// A line of the VSI table that goes on and on, in front of all others.
bool edit_vsi_line(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, verified_mac_older);
  if (!s) return false;
  constexpr std::size_t too_long = 10000;
  note_place(p, s, name_of(*s.b));
  std::string& table =
      answer_to(c, local_place, chip_command("d IHP_VSI_LOW_CFG_1", s.m->npu, *s.n));
  table.insert(0, "IHP_VSI_LOW_CFG_1.IHP0[0]: <PAD=" + std::string(too_long, '0') +
                      ",ENABLE_ROUTING=0,MY_MAC=0x0>\n");
  return true;
}

// LIFs ------------------------------------------------------------------------------------------

bool hold_untagged(router& r, planted_fault& p, const char* field, std::string value) {
  if (!r.hqos) return false;  // without it nothing tells the audit a sub-bundle's LIF
  const site s = find_site(r, p, [](const site& one) {
    return on_older_chip(one) && has_chip(one) && has_untagged(*one.b);
  });
  if (!s) return false;
  note_place(p, s, name_of(*untagged_sub(*s.b)));
  hold_on_npu(r, p, field, p.object, s, std::move(value));
  return true;
}

bool plant_glif(router& r, planted_fault& p) {
  return hold_untagged(r, p, "chip.glif", "absent");
}
bool plant_lif_garbage(router& r, planted_fault& p) {
  return hold_untagged(r, p, "chip.glif", "0xnone");
}

// The VSI is compared for a layer 3 sub-bundle whose encapsulation gives no key.
bool plant_vsi(router& r, planted_fault& p) {
  if (!r.hqos) return false;
  const auto l3 = [](const sub_bundle& one) { return !one.l2; };
  const site s = find_site(r, p, [&](const site& one) {
    return on_older_chip(one) && has_chip(one) && first_sub(*one.b, l3) != nullptr;
  });
  if (!s) return false;
  const std::string name = name_of(*first_sub(*s.b, l3));
  note_place(p, s, name);
  for (bundle& b : r.bundles)
    for (sub_bundle& sub : b.subs)
      if (name_of(sub) == name) {
        sub.encapsulation = "dot1q any";
        hold_on_npu(r, p, "chip.vsi", name, s, std::to_string(sub.rif + 0x100));
      }
  return true;
}

// What nobody refers to -------------------------------------------------------------------------

bool hold_foreign_port(router& r, planted_fault& p, const char* field, const site& s,
                       bool central) {
  if (!s) return false;
  note_place(p, central ? site{s.b, nullptr, nullptr} : s, name_of(*s.b));
  hold(r, field, p.object, p.node, foreign_port(*s.m));
  return true;
}

// Not beside a bundle that another fault leaves without members: it would have one again.
bool plant_stale_pi(router& r, planted_fault& p) {
  const auto whole = [&](const site& s) {
    return !is_absent(r, "pi.member", port_tail(s.m->port));
  };
  return hold_foreign_port(r, p, "pi.extra-member", find_site(r, p, whole), true);
}
bool plant_stale_pd(router& r, planted_fault& p) {
  return hold_foreign_port(r, p, "pd.extra-member", find_site(r, p, anywhere), false);
}
bool plant_stale_dpa(router& r, planted_fault& p) {
  return hold_foreign_port(r, p, "dpa.extra-member", find_site(r, p, anywhere), false);
}

bool plant_stale_chip(router& r, planted_fault& p) {
  const site s = find_site(r, p, has_chip);
  if (!s) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  hold_on_npu(r, p, "chip.extra-lag", "*", s, "999");
  return true;
}

bool plant_health_info(router& r, planted_fault&) {
  r.health = r.health == "errors" || r.health == "mixed" ? "mixed" : "info";
  return true;
}

bool plant_health_errors(router& r, planted_fault&) {
  if (r.bundles.empty()) return false;
  r.health = r.health == "info" || r.health == "mixed" ? "mixed" : "errors";
  return true;
}

bool plant_health_mixed(router& r, planted_fault&) {
  if (r.bundles.empty()) return false;
  r.health = "mixed";
  return true;
}

// A line of the report that goes on and on.
bool edit_health_line(capture& c, const router&, planted_fault&) {
  constexpr std::size_t too_long = 10000;
  answer_to(c, local_place, "lagmgr_health").append("   note " + std::string(too_long, 'x') + "\n");
  return true;
}

std::vector<fault> compared_faults() {
  return {
      {.name = "chip-lag-missing",
       .description = "a chip without members of a bundle does not have its LAG",
       .finding = "Inconsistency {}: {} not found in BCM for {}{object}({}), {node}",
       .depth = 70,
       .plant = plant_chip_lag},
      {.name = "chip-lag-lost",
       .description = "a chip with members of a bundle does not have its LAG",
       .finding = "Inconsistency {}: {} not found in BCM for {}{object}({}), {node}",
       .also = {{"{}: BCM member verification failed for {}{bundle}({}), {node}",
                 phase::consistency, 71}},
       .depth = 70,
       .hides = reach::bundle,
       .plant = plant_chip_lag_of_member},
      {.name = "chip-sub-lag-missing",
       .description = "an older chip does not have the LAG of a sub-bundle",
       .finding = "Inconsistency {}: {} not found in BCM for {object}({}), NPU {}, {node},NPU: {}",
       .depth = 70,
       .plant = plant_chip_sub_lag},
      {.name = "chip-sub-lag-jericho2",
       .description = "a Jericho2 chip does not have the LAG of a sub-bundle",
       .finding = "Inconsistency {}: {} not found in BCM for {object}({}), NPU {}, {node}",
       .depth = 70,
       .plant = plant_jericho2_sub_lag},
      {.name = "chip-member-missing",
       .description = "a chip's LAG lacks a member",
       .finding = "Inconsistency {}: Member ID not found in BCM for {object}, {}{bundle}({}), "
                  "{node} ,NPU: {}",
       .depth = 71,
       .plant = plant_chip_member},
      {.name = "chip-mtu",
       .description = "a chip has another MTU for a member's port",
       .finding = "Inconsistency {}: MTU verification failed for {object}, {}{bundle}({}), {node} "
                  ",NPU: {}",
       .depth = 72,
       .plant = plant_chip_mtu},
      {.name = "lag-port-missing",
       .description = "a Jericho2 chip lists the port of a LAG on one core alone",
       .finding = "{}: BCM member verification failed for {}{object}({}), {node}",
       .depth = 72,
       .plant = plant_lag_port},
      {.name = "aspen-lag-mtu",
       .description =
           "an aspen's Jericho2 chips give their ports MTU profiles, which no member can "
           "be compared with",
       .finding = "{}: BCM member verification failed for {}, {node}",
       .depth = 72,
       .hides = reach::nothing,
       .plant = plant_lag_mtu},
  };
}

std::vector<fault> table_faults() {
  std::vector<fault> faults{
      {.name = "vlan-domain-member",
       .description = "a chip has another VLAN domain for a member's port",
       .finding = "Programming Error {}: {bundle}({}) NPU {},{node} Vlan Domain {} != Member {} "
                  "Vlan Domain {}",
       .depth = 80,
       .hides = reach::bundle,
       .plant = plant_chip_domain},
      {.name = "sem-missing",
       .description = "a chip lacks the exact-match entry of a sub-bundle",
       .finding = "Programming Error {}: SEMA/B entry is not present for glif {},{object}({}) NPU "
                  "{},{node}",
       .depth = 81,
       .plant = plant_sem},
      {.name = "sem-garbage",
       .description = "the local LIF of a sub-bundle's exact-match entry is no number",
       .finding = "{}: SEM entry verification failed",
       .depth = 81,
       .plant = plant_sem_garbage},
      {.name = "glif-unknown",
       .description = "a chip does not know the global LIF of an untagged sub-bundle",
       .finding = "Programming Error {}: Not able to find GLIF {} to LLIF mapping for {object}({}) "
                  "NPU {},{node}",
       .depth = 81,
       .plant = plant_glif},
      {.name = "lif-garbage",
       .description = "a chip gives a local LIF that is no number for an untagged sub-bundle",
       .finding = "{}: get_glif_to_llif_vsi_mapping failed for {object}({}) NPU {},{node}",
       .depth = 81,
       .plant = plant_lif_garbage},
      {.name = "chip-vsi",
       .description = "a chip maps the LIF of a sub-bundle to another router interface",
       .finding = "Inconsistency {}:{object}({}) NPU {},{node} RIF is not consistent in "
                  "BCM_LIF_TO_VSI_MAPPING:{}, Expected:{}",
       .depth = 81,
       .hides = reach::bundle_everywhere,  // its sub-bundle has no key on any node
       .plant = plant_vsi},
      {.name = "rif-missing",
       .description = "a chip does not have the router interface of an untagged bundle",
       .finding =
           "Programming Error {}: DPA RIF {} not found in BCM for {object}({}) NPU {},{node}",
       .depth = 83,
       .plant = plant_rif},
      {.name = "rif-row-missing",
       .description = "a Jericho2 chip has no row for the router interface of an untagged bundle",
       .finding = "{}: RIF verification failed for {object}({}) NPU {},{node}",
       .depth = 83,
       .plant = plant_rif_row},
      {.name = "vsi-overlong",
       .description = "a line of a chip's table of router interfaces goes on for ten kilobytes",
       .finding = "{}: RIF verification failed for {object}({}) NPU {},{node}",
       .depth = 82,
       .hides = reach::node,
       .edit = edit_vsi_line},
      {.name = "mac-low-bits",
       .description = "an older chip's MAC differs within the ten bits that are compared",
       .finding =
           "Programming Error {}: BM PI MAC {} != BCM MAC MSB {} for {object}({}) NPU {},{node}",
       .depth = 83,
       .plant = plant_low_mac},
      {.name = "mac-high-bits",
       .description = "an older chip's MAC differs beyond the ten bits that are compared",
       .depth = 83,
       .counted = false,
       .plant = plant_high_mac},
      {.name = "mac-jericho2",
       .description = "a Jericho2 chip's MAC differs: counted, and told by a failure alone",
       .finding = "{}: RIF verification failed for {object}({}) NPU {},{node}",
       .depth = 83,
       .plant = plant_jericho2_mac},
  };
  for (fault& one : faults) one.shown = phase::programming;
  return faults;
}

std::vector<fault> hygiene_faults() {
  return {
      {.name = "stale-pi",
       .description = "the bundle manager holds a member that nobody configured",
       .finding = "Number of stale entries in PI 1",
       .shown = phase::stale,
       .depth = 90,
       .hides = reach::nothing,
       .counted = false,
       .plant = plant_stale_pi},
      {.name = "stale-bme",
       .description = "the agent of a node holds a member that nobody configured",
       .finding = "Number of stale entries in BME 1",
       .shown = phase::stale,
       .depth = 90,
       .hides = reach::nothing,
       .counted = false,
       .plant = plant_stale_pd},
      {.name = "stale-dpa",
       .description = "a forwarding object holds a member that nobody configured",
       .finding = "Number of stale entries in DPA 1",
       .shown = phase::stale,
       .depth = 90,
       .hides = reach::nothing,
       .counted = false,
       .plant = plant_stale_dpa},
      {.name = "stale-bcm",
       .description = "a chip holds a LAG that nobody configured",
       .finding = "Number of stale entries in BCM 1",
       .shown = phase::stale,
       .depth = 90,
       .hides = reach::nothing,
       .counted = false,
       .plant = plant_stale_chip},
      {.name = "health-info",
       .description = "the bundle manager's own check adds an information block, which is left out",
       .shown = phase::health,
       .depth = 100,
       .hides = reach::nothing,
       .counted = false,
       .plant = plant_health_info},
      {.name = "health-errors",
       .description = "the bundle manager's own check names bundles",
       .finding = "Bundle-Ether{}",
       .shown = phase::health,
       .depth = 100,
       .hides = reach::router,
       .counted = false,
       .plant = plant_health_errors},
      {.name = "health-mixed",
       .description =
           "the bundle manager's own check informs and names bundles, several of them in "
           "one line",
       .finding = "Bundle-Ether{}",
       .shown = phase::health,
       .depth = 100,
       .hides = reach::router,
       .counted = false,
       .plant = plant_health_mixed},
      {.name = "health-overlong",
       .description = "a line of the bundle manager's own check goes on for ten kilobytes",
       .finding = "{}: Bundle health check failed",
       .shown = phase::health,
       .depth = 99,
       .hides = reach::router,
       .counted = false,  // behind the search for stale entries
       .edit = edit_health_line},
  };
}

}  // namespace

std::vector<fault> chip_faults() {
  std::vector<fault> all;
  for (auto part : {compared_faults, table_faults, hygiene_faults})
    for (fault& one : part()) all.push_back(one);
  return all;
}

}  // namespace lab
