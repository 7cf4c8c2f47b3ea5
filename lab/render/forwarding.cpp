#include <fmt/format.h>

#include <algorithm>

#include "lab/render/render.h"

namespace lab {
namespace {

// The audit cuts each object type at its element line, and its filter of a type keeps every line
// with certain words: no heading before the first element may contain such a word. "Forwarding
// objects" contains none.
std::string heading(const node& n) {
  return fmt::format("Forwarding objects, node {}\n------------------------\n", n.name);
}

std::string footing(std::size_t count) {
  return fmt::format("\n{} objects shown\n", count);
}

void show_element(std::string& text, std::string_view type, std::size_t number,
                  const std::string& pending) {
  text += fmt::format("\n{} element {}\n", type, number);
  text += fmt::format("  flags: 0x1  refs: 2  pending(cr/up/dl):{}\n", pending);
}

void show_handle(std::string& text, std::uint64_t handle) {
  text += fmt::format("  @dpa_intf_t intf => {:#x}\n", handle);
  text += "  uint32_t revision => 4\n";
}

std::uint64_t handle_of_free_port(const node& n) {
  return 0x1f00000U + n.id;
}

// lagport ---------------------------------------------------------------------------------------

struct lagport_object {
  std::string name;
  std::uint64_t handle;
  std::uint32_t lag;
};

void show_slot(const router& r, const member& m, const node& n, std::string& text) {
  const std::string tail = port_tail(m.port);
  const std::string slot =
      overridden(r, "dpa.member-id", tail, n.name).value_or(std::to_string(m.id));
  text += fmt::format("  {}:dpa_intf_t mifh => {:#x}\n", slot, m.handle);
  const std::string npu =
      overridden(r, "dpa.member-npu", tail, n.name).value_or(std::to_string(m.npu));
  if (npu != absent) text += fmt::format("  {}:uint8_t mbr_npu_id => {}\n", slot, npu);
  const std::string weight =
      overridden(r, "dpa.weight", tail, n.name).value_or(std::to_string(m.weight));
  if (weight != absent) text += fmt::format("  {}:uint16_t weight => {}\n", slot, weight);
}

// Slots of members on other nodes have no value here, nor has the next free one.
void show_slots(const router& r, const bundle& b, const node& n, std::string& text) {
  const auto local = members_on(r, b, n);
  for (const member& m : b.members) {
    const bool here = std::find(local.begin(), local.end(), &m) != local.end() &&
                      !is_absent(r, "dpa.member", port_tail(m.port), n.name);
    if (here) {
      show_slot(r, m, n, text);
    } else {
      text += fmt::format("  {}:dpa_intf_t mifh => not set\n", m.id);
      text += fmt::format("  {}:uint8_t mbr_npu_id => not set\n", m.id);
    }
  }
  text += fmt::format("  {}:dpa_intf_t mifh => not set\n", b.members.size());
  if (overridden(r, "dpa.extra-member", name_of(b), n.name)) {
    const std::size_t slot = b.members.size() + 20;
    text += fmt::format("  {}:dpa_intf_t mifh => {:#x}\n", slot, 0x1ffff00);
    text += fmt::format("  {}:uint8_t mbr_npu_id => 0\n", slot);
    text += fmt::format("  {}:uint16_t weight => 1\n", slot);
  }
}

void show_domains(const router& r, const bundle& b, const node& n, std::string& text) {
  for (unsigned npu = 0; npu < std::max(n.npus, 1U); ++npu)
    text += fmt::format("  {}:uint16_t port_class_id => {}\n", npu,
                        overridden(r, "dpa.vlan-domain", name_of(b), n.name, static_cast<int>(npu))
                            .value_or(std::to_string(b.vlan_domain)));
}

void show_lagport(const router& r, const lagport_object& object, const node& n, const bundle* main,
                  std::size_t number, std::string& text) {
  show_element(text, "lagport", number,
               overridden(r, "dpa.pending", object.name, n.name).value_or("0/0/0"));
  show_handle(text, object.handle);
  text += fmt::format(
      "  uint16_t lag_id => {}\n",
      overridden(r, "dpa.lag", object.name, n.name).value_or(fmt::format("{:#x}", object.lag)));
  text += "  uint8_t hash_mode => 2\n";
  if (main == nullptr) {
    text += "  uint32_t max_member_count => not set\n  uint32_t mtu => not set\n";
    return;
  }
  const std::string limit = overridden(r, "dpa.max-members", object.name, n.name)
                                .value_or(std::to_string(main->max_members));
  text += fmt::format("  uint32_t max_member_count => {}\n", limit == absent ? "not set" : limit);
  text += fmt::format("  uint32_t mtu => {}\n", main->mtu);
  show_slots(r, *main, n, text);
  show_domains(r, *main, n, text);
}

std::string lagports(const router& r, const node& n) {
  std::string text = heading(n);
  std::size_t count = 0;
  for (const bundle& b : r.bundles) {
    if (!is_absent(r, "dpa.object", name_of(b), n.name))
      show_lagport(r, {name_of(b), b.handle, b.lag}, n, &b, count++, text);
    // Without hierarchical QoS a sub-bundle has no LAG, and so no such object.
    for (const sub_bundle& s : b.subs)
      if (r.hqos && !is_absent(r, "dpa.object", name_of(s), n.name))
        show_lagport(r, {name_of(s), s.handle, s.lag}, n, nullptr, count++, text);
  }
  return text + footing(count);
}

// l1port ----------------------------------------------------------------------------------------

void show_port(const std::string& name, std::uint64_t handle, unsigned npu, unsigned core,
               unsigned pp_port, const std::string& mtu, std::size_t number, std::string& text) {
  show_element(text, "l1port", number, "0/0/0");
  show_handle(text, handle);
  text += fmt::format("  char intf_name => {}\n", name);
  text += fmt::format("  uint8_t device => {}\n  uint8_t core => {}\n", npu, core);
  text += fmt::format("  uint32_t pp_port_id => {}\n", pp_port);
  if (mtu != absent) text += fmt::format("  uint32_t mtu => {}\n", mtu);
  text += "  uint32_t speed => 100\n  uint32_t egress_port_class => not set\n";
}

std::string l1ports(const router& r, const node& n) {
  std::string text = heading(n);
  std::size_t count = 0;
  for (const bundle& b : r.bundles)
    for (const member* m : members_on(r, b, n)) {
      const std::string tail = port_tail(m->port);
      if (is_absent(r, "dpa.port", tail, n.name)) continue;
      show_port(object_name(m->port), m->handle, m->npu, m->core, m->pp_port,
                overridden(r, "dpa.mtu", tail, n.name).value_or(std::to_string(m->mtu)), count++,
                text);
    }
  show_port(object_name(free_port(r, n)), handle_of_free_port(n), 0, 0, 9, "1514", count++, text);
  return text + footing(count);
}

// l2port, l2intf, l3intf ------------------------------------------------------------------------

void show_l2port(const router& r, const bundle& b, const node& n, std::size_t number,
                 std::string& text) {
  const std::string name = name_of(b);
  show_element(text, "l2port", number, "0/0/0");
  show_handle(text, b.handle);
  text += fmt::format("  dpa_mac_t bia_mac => {}\n",
                      overridden(r, "dpa.mac", name, n.name).value_or(colon_mac(b.mac)));
  text += fmt::format(
      "  uint32_t lif => {}\n",
      overridden(r, "dpa.glif", name, n.name).value_or(fmt::format("0x{:08x}", b.glif)));
  const std::string rif =
      overridden(r, "dpa.rif", name, n.name).value_or(fmt::format("0x{:04x}", b.rif));
  text += fmt::format("  uint32_t rif => {}\n", rif == absent ? "not set" : rif);
  text += "  uint32_t vrf_id => not set\n  uint8_t trust => 1\n";
}

// A port outside all bundles has an interface of its own.
constexpr std::uint32_t first_own_rif = 0x7f00;

void show_own_l2port(const node& n, std::size_t number, std::string& text) {
  show_element(text, "l2port", number, "0/0/0");
  show_handle(text, handle_of_free_port(n));
  text += fmt::format(
      "  dpa_mac_t bia_mac => 00:26:5e:ff:00:3f\n  uint32_t lif => 0x{:08x}\n"
      "  uint32_t rif => 0x{:04x}\n  uint32_t vrf_id => not set\n  uint8_t trust => 1\n",
      0x1f000U, first_own_rif);
}

std::string l2ports(const router& r, const node& n) {
  std::string text = heading(n);
  std::size_t count = 0;
  for (const bundle& b : r.bundles)
    if (!is_absent(r, "dpa.l2port", name_of(b), n.name)) show_l2port(r, b, n, count++, text);
  show_own_l2port(n, count++, text);
  return text + footing(count);
}

void show_l2intf(const router& r, const std::string& name, std::uint64_t handle, bool l2,
                 std::uint32_t glif, unsigned domain, const node& n, std::size_t number,
                 std::string& text) {
  if (is_absent(r, "dpa.l2intf", name, n.name)) return;
  show_element(text, "l2intf", number, "0/0/0");
  show_handle(text, handle);
  text += fmt::format("  uint8_t l2_intf_type => {}\n", l2 ? 1 : 0);
  const std::string lif =
      overridden(r, "dpa.l2-glif", name, n.name).value_or(fmt::format("0x{:08x}", glif));
  text += fmt::format("  uint32_t gport_id_lif => {}\n", lif == absent ? "not set" : lif);
  text += fmt::format(
      "  uint16_t vlan_domain => {}\n",
      overridden(r, "dpa.l2-vlan-domain", name, n.name).value_or(fmt::format("{:#x}", domain)));
  text += "  uint32_t encap_id => not set\n  uint8_t learning => 1\n";
}

std::string l2intfs(const router& r, const node& n) {
  std::string text = heading(n);
  std::size_t count = 0;
  for (const bundle& b : r.bundles) {
    if (b.l2) show_l2intf(r, name_of(b), b.handle, true, b.glif, b.vlan_domain, n, count++, text);
    for (const sub_bundle& s : b.subs)
      show_l2intf(r, name_of(s), s.handle, s.l2, s.glif, b.vlan_domain, n, count++, text);
  }
  return text + footing(count);
}

void show_l3intf(const router& r, const std::string& name, std::uint64_t handle, std::uint32_t rif,
                 const node& n, std::size_t number, std::string& text) {
  if (is_absent(r, "dpa.l3intf", name, n.name)) return;
  show_element(text, "l3intf", number, "0/0/0");
  show_handle(text, handle);
  const std::string id =
      overridden(r, "dpa.l3-rif", name, n.name).value_or(fmt::format("{:#x}", rif));
  text += fmt::format("  uint32_t l3a_intf_id => {}\n", id == absent ? "not set" : id);
  text += "  uint32_t vrf_id => 1\n  uint32_t next_intf => not set\n";
}

std::string l3intfs(const router& r, const node& n) {
  std::string text = heading(n);
  std::size_t count = 0;
  for (const bundle& b : r.bundles) {
    if (!b.l2) show_l3intf(r, name_of(b), b.handle, b.rif, n, count++, text);
    for (const sub_bundle& s : b.subs)
      if (!s.l2) show_l3intf(r, name_of(s), s.handle, s.rif, n, count++, text);
  }
  show_l3intf(r, free_port(r, n), handle_of_free_port(n), first_own_rif, n, count++, text);
  return text + footing(count);
}

}  // namespace

void render_forwarding(const router& r, capture& c) {
  for (const node& n : r.nodes) {
    if (!has_address(n)) continue;
    const auto add = [&](const char* type, std::string text) {
      answer(c, n.address, fmt::format("fwd_object_show -t {} -D", type),
             n.forwarding ? std::move(text) : heading(n) + footing(0));
    };
    add("lagport", lagports(r, n));
    add("l1port", l1ports(r, n));
    add("l2port", l2ports(r, n));
    add("l2intf", l2intfs(r, n));
    add("l3intf", l3intfs(r, n));
  }
}

}  // namespace lab
