// Extreme running configurations: excessive numbers, counts and lines, and bytes that are not text.
#include <fmt/format.h>

#include <cstdint>

#include "lab/faults/sites.h"

namespace lab {
namespace {

// Bundles without a port.
bool edit_many_bundles(capture& c, const router&, planted_fault&) {
  constexpr unsigned first = 20000;
  constexpr unsigned more_than_any_limit = 1100;
  std::string bundles;
  for (unsigned number = first; number < first + more_than_any_limit; ++number)
    bundles += fmt::format("interface Bundle-Ether{}\n shutdown\n!\n", number);
  return replace_once(configuration(c), "interface Loopback0\n", bundles + "interface Loopback0\n");
}

// Without hierarchical QoS, where each kind has a limit of its own. Numbers and tags differ from
// those of other sub-bundles: otherwise the chip would find the entry of one under the key of
// another.
bool plant_many_subs(router& r, planted_fault& p, const sub_bundle& first, unsigned count) {
  const site s = find_site(r, p, [&](const site& one) { return first.l2 || !one.b->l2; });
  if (!s || r.hqos) return false;
  constexpr unsigned first_tag = 3000;
  constexpr unsigned tags = 1000;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  for (bundle& b : r.bundles)
    for (unsigned i = 0; name_of(b) == p.bundle && i < count; ++i) {
      sub_bundle sub = first;
      sub.bundle = b.number;
      sub.number += i;
      sub.encapsulation = fmt::format("dot1q {}", first_tag + i % tags);
      if (sub.l2) sub.encapsulation += fmt::format(" second-dot1q {}", 1 + i / tags);
      sub.handle += std::uint64_t{0x20} * i;
      sub.lag = b.lag;
      sub.glif += i;
      if (!sub.l2) sub.rif += i;
      sub.local_lif += i;
      b.subs.push_back(sub);
    }
  return true;
}

bool plant_many_l2_subs(router& r, planted_fault& p) {
  sub_bundle first;
  first.number = 10000;
  first.l2 = true;
  first.handle = 0x4000000;
  first.glif = 0x18000;
  first.local_lif = 0x8000;
  return plant_many_subs(r, p, first, is_single_node(r.type) ? 4100 : 8200);
}

bool plant_many_l3_subs(router& r, planted_fault& p) {
  sub_bundle first;
  first.number = 60000;
  first.handle = 0x5000000;
  first.glif = 0x1b000;
  first.rif = 0x2000;
  first.local_lif = 0xb000;
  return plant_many_subs(r, p, first, 1030);
}

bool edit_huge_tag(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, [](const site& one) {
    return has_older_chip(one) && !one.b->subs.empty() &&
           one.b->subs.front().encapsulation.starts_with("dot1q ");
  });
  if (!s) return false;
  const sub_bundle& sub = s.b->subs.front();
  note_place(p, s, name_of(sub));
  std::string& text = configuration(c);
  const std::size_t stanza =
      text.find(fmt::format("interface Bundle-Ether{}.{}", sub.bundle, sub.number));
  const std::string_view words = " encapsulation dot1q ";
  const std::size_t tag = stanza == std::string::npos ? stanza : text.find(words, stanza);
  if (tag == std::string::npos) return false;
  text.insert(tag + words.size(), "99999999999999999999");
  return true;
}

// More digits than a search pattern can hold.
std::string huge_number() {
  constexpr std::size_t digits = 40000;
  return std::string(digits, '9');
}

bool edit_huge_sub_number(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  std::string& text = configuration(c);
  const std::string head = fmt::format("interface Bundle-Ether{}\n", s.b->number);
  const std::size_t stanza = text.find(head);
  const std::size_t end = stanza == std::string::npos ? stanza : text.find("\n!\n", stanza);
  if (end == std::string::npos) return false;
  text.insert(end + 3, fmt::format("interface Bundle-Ether{}.{} l2transport\n"
                                   " encapsulation dot1q 77\n!\n",
                                   s.b->number, huge_number()));
  return true;
}

// Moves a port from its bundle to a new one with the huge number.
bool edit_huge_bundle_number(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  std::string& text = configuration(c);
  const std::size_t port = text.find(fmt::format("interface {}\n", s.m->port));
  const std::string_view words = " bundle id ";
  const std::size_t id = port == std::string::npos ? port : text.find(words, port);
  if (id == std::string::npos) return false;
  const std::size_t digits = id + words.size();
  text.replace(digits, text.find(' ', digits) - digits, huge_number());
  text.insert(port, fmt::format("interface Bundle-Ether{}\n!\n", huge_number()));
  return true;
}

bool edit_overlong(capture& c, const router&, planted_fault&) {
  constexpr std::size_t megabytes = 8;
  return describe_port(c, std::string(megabytes << 20U, 'x'));
}

bool edit_binary(capture& c, const router& r, planted_fault&) {
  const std::string bytes{"a\0b\xff\xfe\x80\xc3 \x1b[31m\x7f", 14};
  // The forwarding tool's filter reads bytes as text; it drops this line and must keep the others.
  for (const node& n : r.nodes)
    if (has_address(n))
      replace_once(forwarding_objects(c, n, "lagport"), "uint32_t revision => 4",
                   "char comment => " + bytes);
  return describe_port(c, bytes);
}

constexpr fault table[] = {
    {.name = "sub-huge-tag",
     .description = "a sub-bundle is configured with a VLAN of more than twenty digits",
     .finding = "{}: verify_lif_rif_mac_mapping failed for {object}({}) NPU {},{node}",
     .harms = "cfg_render",
     .at = checkpoint::chip_domain,
     .hides = reach::bundle_everywhere,  // it is configured for all nodes
     .edit = edit_huge_tag},
    {.name = "sub-huge-number",
     .description = "a sub-bundle is configured with a number of 40000 digits",
     .finding = "{}: get_encap_id failed for interface {}",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .stops_from = phase::consistency,
     .edit = edit_huge_sub_number},
    {.name = "bundle-huge-number",
     .description = "a bundle with a port is configured with a number of 40000 digits",
     .finding = "{}: get_bundle_type from running config failed for interface {}",
     .harms = "cfg_render",
     .at = checkpoint::configuration,
     .stops_from = phase::consistency,
     .edit = edit_huge_bundle_number},
    {.name = "scale-bundles",
     .description = "1100 bundles without members are configured",
     .finding = "INFO: Allowed {}bundles: {}, configured more: {}",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::consistency,
     .hides = reach::nothing,
     .edit = edit_many_bundles},
    {.name = "scale-l2-subs",
     .description = "a bundle has more layer 2 sub-bundles than are allowed, without hqos",
     .finding = "INFO: Allowed l2 sub-bundles: {}, configured more: {}",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::consistency,
     .hides = reach::nothing,
     .plant = plant_many_l2_subs},
    {.name = "scale-l3-subs",
     .description = "a bundle has more layer 3 sub-bundles than are allowed, without hqos",
     .finding = "INFO: Allowed l3 sub-bundles: {}, configured more: {}",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::consistency,
     .hides = reach::nothing,
     .plant = plant_many_l3_subs},
    {.name = "overlong-line",
     .description = "a description in the running configuration is eight megabytes long",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_overlong},
    {.name = "binary-bytes",
     .description = "descriptions and object dumps contain NUL and invalid UTF-8",
     .harms = "cfg_render",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::nothing,
     .counted = false,
     .edit = edit_binary},
};

}  // namespace

std::span<const fault> extreme_faults() {
  return table;
}

}  // namespace lab
