// Faults of the chips' LAGs, members and MTUs, which the audit compares with the layers above.
#include <fmt/format.h>

#include <algorithm>

#include "lab/faults/sites.h"

namespace lab {
namespace {

// Of these types the audit takes a node's units from the list of units, by slot; of the others it
// knows only the first one.
bool finds_units_by_slot(const router& r) {
  return r.type == "birch" || r.type == "fir";
}

unsigned examined_units(const router& r, const node& n) {
  return finds_units_by_slot(r) ? n.npus : std::min(n.npus, 1U);
}

bool plant_chip_lag(router& r, planted_fault& p) {
  // On a chip without members of the bundle, a missing LAG has no other effect. If the audit looks
  // chips up by slot, it finds none for a listed route processor.
  const auto is_read = [&](const node& n) {
    return is_examined(n) && !(finds_units_by_slot(r) && n.kind == "RP" && n.in_unit_list);
  };
  std::vector<std::pair<site, int>> places;
  for (const bundle& b : r.bundles)
    for (const node& n : r.nodes)
      for (unsigned npu = 0; npu < examined_units(r, n); ++npu)
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
  // On an aspen the audit fails before it compares the MTUs of a Jericho2.
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

// The audit of an aspen fails if its chips give the ports an MTU profile.
bool plant_lag_mtu(router& r, planted_fault& p) {
  const site s =
      find_site(r, p, [](const site& one) { return has_chip(one) && !on_older_chip(one); });
  if (!s || r.type != "aspen") return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  hold(r, "chip.lag-mtu", "*", p.node, "shown");
  return true;
}

constexpr fault table[] = {
    {.name = "chip-lag-missing",
     .description = "a chip without members of a bundle lacks its LAG",
     .finding = "Inconsistency {}: {} not found in BCM for {}{object}({}), {node}",
     .at = checkpoint::chip_lag,
     .plant = plant_chip_lag},
    {.name = "chip-lag-lost",
     .description = "a chip with members of a bundle lacks its LAG",
     .finding = "Inconsistency {}: {} not found in BCM for {}{object}({}), {node}",
     .also = {{"{}: BCM member verification failed for {}{bundle}({}), {node}",
               checkpoint::chip_member}},
     .at = checkpoint::chip_lag,
     .hides = reach::bundle,
     .plant = plant_chip_lag_of_member},
    {.name = "chip-sub-lag-missing",
     .description = "an older chip lacks the LAG of a sub-bundle",
     .finding = "Inconsistency {}: {} not found in BCM for {object}({}), NPU {}, {node},NPU: {}",
     .at = checkpoint::chip_lag,
     .plant = plant_chip_sub_lag},
    {.name = "chip-sub-lag-jericho2",
     .description = "a Jericho2 chip lacks the LAG of a sub-bundle",
     .finding = "Inconsistency {}: {} not found in BCM for {object}({}), NPU {}, {node}",
     .at = checkpoint::chip_lag,
     .plant = plant_jericho2_sub_lag},
    {.name = "chip-member-missing",
     .description = "a chip's LAG lacks a member",
     .finding = "Inconsistency {}: Member ID not found in BCM for {object}, {}{bundle}({}), "
                "{node} ,NPU: {}",
     .at = checkpoint::chip_member,
     .plant = plant_chip_member},
    {.name = "chip-mtu",
     .description = "a chip has a different MTU for a member's port",
     .finding = "Inconsistency {}: MTU verification failed for {object}, {}{bundle}({}), {node} "
                ",NPU: {}",
     .at = checkpoint::chip_mtu,
     .plant = plant_chip_mtu},
    {.name = "lag-port-missing",
     .description = "a Jericho2 chip lists the port of a LAG on one core only",
     .finding = "{}: BCM member verification failed for {}{object}({}), {node}",
     .at = checkpoint::chip_mtu,
     .plant = plant_lag_port},
    {.name = "aspen-lag-mtu",
     .description = "an aspen's Jericho2 chips assign MTU profiles to their ports; the audit "
                    "cannot compare a member with them",
     .finding = "{}: BCM member verification failed for {}, {node}",
     .at = checkpoint::chip_mtu,
     .hides = reach::nothing,
     .plant = plant_lag_mtu},
};

}  // namespace

std::span<const fault> chip_lag_faults() {
  return table;
}

}  // namespace lab
