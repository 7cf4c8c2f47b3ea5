#include "lab/render/render.h"

#include <fmt/format.h>

#include <algorithm>

namespace lab {
namespace {

// A domain's hexadecimal form with zeros and the "x" trimmed from both ends: the form of the domain
// in the chip's keys.
std::string trimmed_domain(unsigned domain) {
  const std::string text = fmt::format("{:x}", domain);
  const std::size_t first = text.find_first_not_of('0');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of('0') - first + 1);
}

struct known_lif {
  std::string object;
  std::uint32_t glif;
  std::uint32_t local_lif;
  std::uint32_t vsi;
};

std::vector<known_lif> lifs_of(const router& r) {
  std::vector<known_lif> lifs;
  for (const bundle& b : r.bundles) {
    lifs.push_back({name_of(b), b.glif, b.local_lif, b.rif});
    for (const sub_bundle& s : b.subs)
      lifs.push_back({name_of(s), s.glif, s.local_lif, s.l2 ? s.local_lif : s.rif});
  }
  return lifs;
}

std::string lif_query(const known_lif& lif) {
  return fmt::format("diag pp lif id=0x{:04x} gl=1 type=in", lif.glif & 0xffff);
}

std::string lif_heading(const known_lif& lif) {
  return fmt::format("Ingress LIF 0x{:04x} (global)\n", lif.glif & 0xffff);
}

// `held` and `vsi` are the chip's values for the LIF, as texts.
std::string lif_answer(const known_lif& lif, const std::string& held, const std::string& vsi) {
  std::string text = lif_heading(lif);
  if (held == absent) return text + "  no such global LIF\n";
  text += fmt::format("GLIF 0x{:04x} -> Local In_LIF:{} table: A\n", lif.glif & 0xffff, held);
  text += "  orientation: hub  cos profile: 0  drop: none  protection: not set\n";
  text += fmt::format("  learn: enabled  flood: enabled  vsid: {}  stat id: 0\n", vsi);
  text += fmt::format("  IN_LIF         {}\n", lif.local_lif);
  return text;
}

std::string healthy_lif_answer(const known_lif& lif) {
  return lif_answer(lif, fmt::format("{:#x}", lif.local_lif), std::to_string(lif.vsi));
}

// On most routers no chip differs; only the others need the walk over all chips and LIFs.
void render_differing_lifs(const router& r, const std::vector<known_lif>& lifs, capture& c) {
  if (std::none_of(r.overrides.begin(), r.overrides.end(), [](const override_rule& rule) {
        return rule.field == "chip.glif" || rule.field == "chip.vsi";
      }))
    return;
  for (const node& n : r.nodes)
    for (unsigned npu = 0; npu < n.npus; ++npu)
      for (const known_lif& lif : lifs) {
        const auto held = overridden(r, "chip.glif", lif.object, n.name, static_cast<int>(npu));
        const auto vsi = overridden(r, "chip.vsi", lif.object, n.name, static_cast<int>(npu));
        if (held || vsi)
          answer(c, local_place, chip_command(lif_query(lif), npu, n),
                 lif_answer(lif, held.value_or(fmt::format("{:#x}", lif.local_lif)),
                            vsi.value_or(std::to_string(lif.vsi))));
      }
}

}  // namespace

std::string chip_command(const std::string& command, unsigned npu, const node& n) {
  return fmt::format("asic_shell_show -c \"{}\" -u {} -n {}", command, npu, n.id);
}

std::string chip_command_of_all(const std::string& command) {
  return fmt::format("asic_shell_show -c \"{}\"", command);
}

sem_key key_of(const bundle& b, const sub_bundle& s) {
  const std::vector<unsigned> tags = tags_of(s.encapsulation);
  const std::string domain = trimmed_domain(b.vlan_domain);
  if (tags.size() == 1) return {fmt::format("{}{:03x}", domain, tags[0]), false};
  // The outer tag comes first, shifted by the bit that gives its kind.
  if (tags.size() == 2) return {fmt::format("{:03x}{}{:03x}", tags[0] * 2, domain, tags[0]), true};
  return {};
}

sem_key untagged_key_of(const bundle& b) {
  return {trimmed_domain(b.vlan_domain) + "fff", false};
}

void render_lif_queries(const router& r, capture& c) {
  // Nobody asks a Jericho2 for a LIF.
  if (std::none_of(r.nodes.begin(), r.nodes.end(),
                   [](const node& n) { return family_of(n) == chip_family::older; }))
    return;
  const std::vector<known_lif> lifs = lifs_of(r);
  for (const known_lif& lif : lifs)
    answer(c, local_place, chip_command_of_all(lif_query(lif)), healthy_lif_answer(lif));
  render_differing_lifs(r, lifs, c);
}

capture render_answers(const router& r) {
  capture c;
  c.router = r.name;
  c.made.version = lab_version();
  c.made.type = r.type;
  c.host_node_id = r.host_node_id;
  for (const node& n : r.nodes)
    if (has_address(n)) c.nodes.emplace_back(n.address, n.name);
  render_platform(r, c);
  render_interfaces(r, c);
  render_lagmgr(r, c);
  render_forwarding(r, c);
  render_older_chips(r, c);
  render_jericho2_chips(r, c);
  render_lif_queries(r, c);
  return c;
}

}  // namespace lab
