// Faults of the chips' forwarding tables: VLAN domains, exact match, LIFs, router interfaces.
#include <fmt/format.h>

#include "lab/faults/sites.h"
#include "lab/render/render.h"

namespace lab {
namespace {

bool plant_chip_domain(router& r, planted_fault& p) {
  const site s = find_site(r, p, on_older_chip);
  if (!s) return false;
  note_place(p, s, port_tail(s.m->port));
  hold_on_npu(r, p, "chip.vlan-domain", p.object, s,
              fmt::format("{:#x}", s.b->vlan_domain + 0x200));
  return true;
}

// The exact match -------------------------------------------------------------------------------

// The first sub-bundle that suits, null if the bundle has none.
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

// The audit reads the VSI table only for layer 3 bundles with an untagged sub-bundle.
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

// An overlong line of the VSI table, before all others.
bool edit_vsi_line(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, verified_mac_older);
  if (!s) return false;
  constexpr std::size_t digits = 10000;
  note_place(p, s, name_of(*s.b));
  p.npu = static_cast<int>(s.m->npu);
  std::string& table =
      answer_to(c, local_place, chip_command("d IHP_VSI_LOW_CFG_1", s.m->npu, *s.n));
  table.insert(0, "IHP_VSI_LOW_CFG_1.IHP0[0]: <PAD=" + std::string(digits, '0') +
                      ",ENABLE_ROUTING=0,MY_MAC=0x0>\n");
  return true;
}

// LIFs ------------------------------------------------------------------------------------------

bool hold_untagged(router& r, planted_fault& p, const char* field, std::string value) {
  if (!r.hqos) return false;  // without it no layer reports a sub-bundle's LIF
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

// The audit compares the VSI of a layer 3 sub-bundle whose encapsulation gives no key.
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

constexpr fault table[] = {
    {.name = "vlan-domain-member",
     .description = "a chip has a different VLAN domain for a member's port",
     .finding = "Programming Error {}: {bundle}({}) NPU {},{node} Vlan Domain {} != Member {} "
                "Vlan Domain {}",
     .at = checkpoint::chip_domain,
     .hides = reach::bundle,
     .plant = plant_chip_domain},
    {.name = "sem-missing",
     .description = "a chip lacks the exact-match entry of a sub-bundle",
     .finding = "Programming Error {}: SEMA/B entry is not present for glif {},{object}({}) NPU "
                "{},{node}",
     .at = checkpoint::chip_entry,
     .plant = plant_sem},
    {.name = "sem-garbage",
     .description = "the local LIF in a sub-bundle's exact-match entry is not a number",
     .finding = "{}: SEM entry verification failed",
     .at = checkpoint::chip_entry,
     .plant = plant_sem_garbage},
    {.name = "glif-unknown",
     .description = "a chip does not know the global LIF of an untagged sub-bundle",
     .finding = "Programming Error {}: Not able to find GLIF {} to LLIF mapping for {object}({}) "
                "NPU {},{node}",
     .at = checkpoint::chip_entry,
     .plant = plant_glif},
    {.name = "lif-garbage",
     .description = "a chip shows a local LIF that is not a number for an untagged sub-bundle",
     .finding = "{}: get_glif_to_llif_vsi_mapping failed for {object}({}) NPU {},{node}",
     .at = checkpoint::chip_entry,
     .plant = plant_lif_garbage},
    {.name = "chip-vsi",
     .description = "a chip maps a sub-bundle's LIF to a different router interface",
     .finding = "Inconsistency {}:{object}({}) NPU {},{node} RIF is not consistent in "
                "BCM_LIF_TO_VSI_MAPPING:{}, Expected:{}",
     .at = checkpoint::chip_entry,
     .hides = reach::bundle_everywhere,  // its sub-bundle has no key on any node
     .plant = plant_vsi},
    {.name = "rif-missing",
     .description = "a chip lacks the router interface of an untagged bundle",
     .finding = "Programming Error {}: DPA RIF {} not found in BCM for {object}({}) NPU {},{node}",
     .at = checkpoint::chip_mac,
     .plant = plant_rif},
    {.name = "rif-row-missing",
     .description = "a Jericho2 chip has no row for the router interface of an untagged bundle",
     .finding = "{}: RIF verification failed for {object}({}) NPU {},{node}",
     .at = checkpoint::chip_mac,
     .plant = plant_rif_row},
    {.name = "vsi-overlong",
     .description = "a line of a chip's router interface table is ten kilobytes long",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_interfaces,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_vsi_line},
    {.name = "mac-low-bits",
     .description = "an older chip's MAC differs in the ten bits that the audit compares",
     .finding =
         "Programming Error {}: BM PI MAC {} != BCM MAC MSB {} for {object}({}) NPU {},{node}",
     .at = checkpoint::chip_mac,
     .plant = plant_low_mac},
    {.name = "mac-high-bits",
     .description = "an older chip's MAC differs outside the ten bits that the audit compares",
     .at = checkpoint::chip_mac,
     .counted = false,
     .plant = plant_high_mac},
    {.name = "mac-jericho2",
     .description = "a Jericho2 chip's MAC differs; the audit counts it but reports only a failure",
     .finding = "{}: RIF verification failed for {object}({}) NPU {},{node}",
     .at = checkpoint::chip_mac,
     .plant = plant_jericho2_mac},
};

}  // namespace

std::span<const fault> chip_table_faults() {
  return table;
}

}  // namespace lab
