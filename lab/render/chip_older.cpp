// The diagnostic shell of the earlier chip family.
#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "lab/render/chip_unit.h"
#include "lab/render/render.h"

namespace lab {
namespace {

struct local_port {
  const bundle* b;
  const member* m;
};

// The chip's bundle ports, by core and row.
using port_table = std::map<std::pair<unsigned, unsigned>, local_port>;

port_table ports_of(const chip_unit& u) {
  port_table ports;
  for (const bundle& b : u.r.bundles)
    for (const member* m : members_on(u.r, b, u.n, u.npu))
      ports[{m->core, chip_row(u.r, *m)}] = {&b, m};
  return ports;
}

// Tables continue for some rows after the last port.
unsigned rows_of(const port_table& ports) {
  unsigned last = 15;
  for (const auto& [key, port] : ports) last = std::max(last, key.second);
  return last + 4;
}

std::string domain_rows(const chip_unit& u) {
  const port_table ports = ports_of(u);
  const unsigned rows = rows_of(ports);
  std::string text;
  for (unsigned core = 0; core < u.n.cores; ++core) {
    for (unsigned row = 0; row < rows; ++row) {
      const auto port = ports.find({core, row});
      std::string domain = "0";
      if (port != ports.end())
        domain = u.instead("chip.vlan-domain", port_tail(port->second.m->port))
                     .value_or(fmt::format("{:#x}", port->second.b->vlan_domain));
      text += fmt::format(
          "IHP_VTT_IN_PP_PORT_CONFIG.IHP{}[{}]: <PORT_PROFILE=3,VLAN_DOMAIN={},TAG_STRUCT={:#x},"
          "IS_MEMBER=1,DATA=0>\n",
          core, row, domain, row + 1);
    }
    text += "\n";
  }
  return text;
}

void show_sem_row(std::string& text, unsigned row, const std::string& key,
                  const std::string& payload) {
  text += fmt::format("  {:>5} | Key=0x{:0>16} Payload=0x{:0>8}\n", row, key, payload);
}

// The local LIF that the chip's table has for a key.
std::string payload_of(const chip_unit& u, const std::string& object, std::uint32_t local_lif) {
  return u.instead("chip.sem", object).value_or(fmt::format("{:x}", local_lif));
}

// One of the two tables of the exact match: A holds single tags and untagged frames, B double tags.
std::string sem_rows(const chip_unit& u, bool double_tagged) {
  std::string text = fmt::format("DBAL database {}\n", double_tagged ? 4 : 3);
  unsigned row = 0;
  show_sem_row(text, row++, "0", "0");
  for (const bundle& b : u.r.bundles) {
    if (members_on(u.r, b, u.n, u.npu).empty()) continue;
    if (has_untagged(b) && !double_tagged && !u.lacks("chip.sem", name_of(b)))
      show_sem_row(text, row++, untagged_key_of(b).digits, payload_of(u, name_of(b), b.local_lif));
    for (const sub_bundle& s : b.subs) {
      const sem_key key = key_of(b, s);
      if (key.digits.empty() || key.double_tagged != double_tagged) continue;
      if (!u.lacks("chip.sem", name_of(s)))
        show_sem_row(text, row++, key.digits, payload_of(u, name_of(s), s.local_lif));
    }
  }
  show_sem_row(text, row, "0", "0");
  return text + fmt::format("{} entries in use\n", row - 1);
}

void show_lag_head(std::string& text, std::uint32_t id, std::size_t members) {
  text += fmt::format("LAG ID: {}  members: {}  load balancing: hash\n", id, members);
  text += "  Member ID | Global port | Active\n";
}

void show_lag_member(std::string& text, unsigned id, std::uint32_t global_port, char active) {
  text += fmt::format("  {:>9} | 0x{:08x} | {}\n", id, global_port, active);
}

// An empty slot; without the audit's filter it would read as a member.
void show_free_slot(std::string& text) {
  text += "        255 | 0xbffffff | N\n\n";
}

std::string lag_tables(const chip_unit& u) {
  constexpr std::uint32_t first_global_port = 0x4000000;
  std::string text = "Link aggregation groups\n";
  std::size_t down = 0;
  for (const bundle& b : u.r.bundles) {
    if (!u.lacks("chip.lag", name_of(b))) {
      show_lag_head(text, b.lag, b.members.size());
      for (const member& m : b.members)
        if (!u.lacks("chip.member", port_tail(m.port)))
          show_lag_member(text, m.id, first_global_port + m.system_port, m.up ? 'Y' : 'N');
      show_free_slot(text);
    }
    down += static_cast<std::size_t>(
        std::count_if(b.members.begin(), b.members.end(), [](const member& m) { return !m.up; }));
    for (const sub_bundle& s : b.subs) {
      if (s.lag == b.lag || u.lacks("chip.lag", name_of(s))) continue;
      show_lag_head(text, s.lag, 0);
      show_free_slot(text);
    }
  }
  if (const auto extra = u.instead("chip.extra-lag", "*")) {
    show_lag_head(text, static_cast<std::uint32_t>(std::stoul(*extra)), 1);
    show_lag_member(text, 0, first_global_port + 0xfff, 'Y');
  }
  if (down > 0) text += fmt::format("LAG members that are down: {}\n", down);
  return text;
}

void show_vsi_row(std::string& text, unsigned core, std::uint32_t vsi, const std::string& mac) {
  text += fmt::format(
      "IHP_VSI_LOW_CFG_1.IHP{}[{}]: <VSI_PROFILE=0x2,TOPOLOGY_ID=0x0,ENABLE_ROUTING=1,MY_MAC={},"
      "MAC_CLASS=0>\n",
      core, vsi, mac);
}

std::string vsi_rows(const chip_unit& u) {
  std::string text;
  for (unsigned core = 0; core < u.n.cores; ++core) {
    show_vsi_row(text, core, 0, "0");
    for (const bundle& b : u.r.bundles) {
      // The chip holds more of the MAC than the ten bits that can be compared with other layers.
      const std::string mac = fmt::format("{:#x}", 0x5400U | low_mac_bits(b.mac));
      const std::string held = u.instead("chip.mac", name_of(b)).value_or(mac);
      if (!b.l2 && held != absent) show_vsi_row(text, core, b.rif, held);
      for (const sub_bundle& s : b.subs)
        if (!s.l2) show_vsi_row(text, core, s.rif, mac);
    }
  }
  return text;
}

std::string mtu_rows(const chip_unit& u) {
  const port_table ports = ports_of(u);
  const unsigned rows = rows_of(ports);
  std::string text;
  for (unsigned core = 0; core < u.n.cores; ++core)
    for (unsigned row = 0; row < rows; ++row) {
      const auto port = ports.find({core, row});
      const std::string own =
          fmt::format("{:#x}", port == ports.end() ? 1514U : port->second.m->mtu);
      const std::string mtu =
          port == ports.end()
              ? own
              : u.instead("chip.mtu", port_tail(port->second.m->port)).value_or(own);
      text += fmt::format(
          "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI{}[{}]: <PORT_PROFILE=0x1,"
          "FILTER=0,MTU={},LAST=0>\n",
          core, row, mtu);
    }
  return text;
}

}  // namespace

void render_older_chips(const router& r, capture& c) {
  for (const chip_unit& u : chips_of(r, chip_family::older)) {
    answer_chip(c, u, "d IHP_VTT_IN_PP_PORT_CONFIG", domain_rows(u));
    answer_chip(c, u, "diag dbal dbd 3", sem_rows(u, false));
    answer_chip(c, u, "diag dbal dbd 4", sem_rows(u, true));
    answer_chip(c, u, "diag lag", lag_tables(u));
    answer_chip(c, u, "d IHP_VSI_LOW_CFG_1", vsi_rows(u));
    answer_chip(c, u, "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE", mtu_rows(u));
  }
}

}  // namespace lab
