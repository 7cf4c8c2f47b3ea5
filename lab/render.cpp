#include "render.h"

#include <fmt/format.h>

#include "faults.h"

namespace lab {
namespace {

// What is left of a domain's hexadecimal form when zeros and the "x" are trimmed from both ends:
// the chip's keys hold the domain in this form.
std::string trimmed_domain(unsigned domain) {
  const std::string text = fmt::format("{:x}", domain);
  const std::size_t first = text.find_first_not_of('0');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of('0') - first + 1);
}

std::string lif_answer(const router& r, const std::string& object, std::uint32_t glif,
                       std::uint32_t local_lif, std::uint32_t vsi, const node& n, unsigned npu) {
  const unsigned low = glif & 0xffff;
  std::string text = fmt::format("Ingress LIF 0x{:04x} (global)\n", low);
  const std::string held = overridden(r, "chip.glif", object, n.name, static_cast<int>(npu))
                               .value_or(fmt::format("{:#x}", local_lif));
  if (held == absent) return text + "  no such global LIF\n";
  text += fmt::format("GLIF 0x{:04x} -> Local In_LIF:{} table: A\n", low, held);
  text += "  orientation: hub  cos profile: 0  drop: none  protection: not set\n";
  text += fmt::format("  learn: enabled  flood: enabled  vsid: {}  stat id: 0\n",
                      overridden(r, "chip.vsi", object, n.name, static_cast<int>(npu))
                          .value_or(std::to_string(vsi)));
  text += fmt::format("  IN_LIF         {}\n", local_lif);
  return text;
}

}  // namespace

std::string chip_command(const std::string& command, unsigned npu, const node& n) {
  return fmt::format("asic_shell_show -c \"{}\" -u {} -n {}", command, npu, n.id);
}

sem_key key_of(const bundle& b, const sub_bundle& s) {
  const std::vector<unsigned> tags = tags_of(s.encapsulation);
  const std::string domain = trimmed_domain(b.vlan_domain);
  if (tags.size() == 1) return {fmt::format("{}{:03x}", domain, tags[0]), false};
  // The outer tag stands in front, moved up by the bit that tells its kind.
  if (tags.size() == 2) return {fmt::format("{:03x}{}{:03x}", tags[0] * 2, domain, tags[0]), true};
  return {};
}

sem_key untagged_key_of(const bundle& b) {
  return {trimmed_domain(b.vlan_domain) + "fff", false};
}

void render_lif_queries(const router& r, const node& n, capture& c) {
  const auto add = [&](const std::string& object, std::uint32_t glif, std::uint32_t local_lif,
                       std::uint32_t vsi) {
    for (unsigned npu = 0; npu < n.npus; ++npu)
      answer(
          c, local_place,
          chip_command(fmt::format("diag pp lif id=0x{:04x} gl=1 type=in", glif & 0xffff), npu, n),
          lif_answer(r, object, glif, local_lif, vsi, n, npu));
  };
  for (const bundle& b : r.bundles) {
    add(name_of(b), b.glif, b.local_lif, b.rif);
    for (const sub_bundle& s : b.subs)
      add(name_of(s), s.glif, s.local_lif, s.l2 ? s.local_lif : s.rif);
  }
}

capture render(const router& r, std::vector<planted_fault>* planted) {
  router faulty = r;
  plant_faults(faulty);
  capture c;
  c.router = faulty.name;
  c.host_node_id = faulty.host_node_id;
  for (const node& n : faulty.nodes) c.nodes.emplace_back(n.address, n.name);
  render_platform(faulty, c);
  render_interfaces(faulty, c);
  render_lagmgr(faulty, c);
  render_forwarding(faulty, c);
  render_older_chips(faulty, c);
  render_jericho2_chips(faulty, c);
  edit_for_faults(faulty, c);
  if (planted != nullptr) *planted = faulty.faults;
  return c;
}

}  // namespace lab
