// The diagnostic shell of Jericho2.
#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "lab/render/chip_unit.h"
#include "lab/render/render.h"

namespace lab {
namespace {

// A LAG has the same port number on all cores of a chip.
unsigned lag_port(const bundle& b) {
  return 256 + b.lag;
}

// The chip stores MTUs as profiles: one for each MTU of the router's bundles.
std::map<std::string, unsigned> profiles_of(const chip_unit& u) {
  std::set<std::string> mtus;
  for (const bundle& b : u.r.bundles) {
    for (const member& m : b.members) mtus.insert(std::to_string(m.mtu));
    if (const auto other = u.instead("chip.mtu", name_of(b))) mtus.insert(*other);
  }
  std::map<std::string, unsigned> profiles;
  for (const std::string& mtu : mtus) {
    const auto number = static_cast<unsigned>(profiles.size()) + 1;
    profiles[mtu] = number;
  }
  return profiles;
}

unsigned profile_of(const chip_unit& u, const bundle& b,
                    const std::map<std::string, unsigned>& all) {
  const unsigned mtu = b.members.empty() ? b.mtu : b.members.front().mtu;
  const auto found = all.find(u.instead("chip.mtu", name_of(b)).value_or(std::to_string(mtu)));
  return found == all.end() ? 0 : found->second;
}

std::string lag_ports(const chip_unit& u) {
  std::string text =
      "+-------+-------+-------+-------+-------+-------+\n"
      "| Entry | LAG   | Core  | Port  | Base  | Size  |\n"
      "+-------+-------+-------+-------+-------+-------+\n";
  unsigned entry = 0;
  for (const bundle& b : u.r.bundles) {
    if (u.lacks("chip.lag", name_of(b))) continue;
    text += fmt::format("| {:<5} | {:<5} | {:<5} | {:<5} | {:<5} | {:<5} |\n", entry, b.lag, 0,
                        lag_port(b), 16 * entry, b.members.size());
    if (!u.lacks("chip.lag-port", name_of(b)))
      text += fmt::format("|       |       | {:<5} | {:<5} |       |       |\n", 1, lag_port(b));
    ++entry;
  }
  return text + "+-------+-------+-------+-------+-------+-------+\n";
}

std::string port_domains(const chip_unit& u) {
  std::string text =
      "table INGRESS_PP_PORT\n"
      "| Entry | Core | PP port || VLAN domain | Profile |\n";
  unsigned entry = 0;
  for (const bundle& b : u.r.bundles)
    for (const member* m : members_on(u.r, b, u.n, u.npu))
      text += fmt::format("| {:<5} | {:<4} | {:<7} || {:<11} | {:<7} |\n", entry++, m->core,
                          m->pp_port, b.vlan_domain, 3);
  return text + fmt::format("{} entries\n", entry);
}

void show_lag_row(std::string& text, const std::string& head, const std::string& mode,
                  const std::string& port, const std::string& state) {
  text += fmt::format("{} {:<6} | {:<11} | {:<5} |\n", head, mode, port, state);
}

// The first row of a LAG has its numbers; the rows of further members leave these cells empty.
std::string lag_members(const chip_unit& u) {
  constexpr std::uint32_t first_global_port = 0xc000000;
  const std::string further = "|       |      |       |      |";
  std::string text = "| Entry | Hash | Ports | LAG  | Mode   | Global port | State |\n";
  unsigned entry = 0;
  struct lag_slot {
    std::uint32_t port;
    bool up;
  };
  const auto add = [&](std::uint32_t lag, const std::vector<lag_slot>& ports) {
    std::string head =
        fmt::format("| {:<5} | {:<4} | {:<5} | {:<4} |", entry++, 2, ports.size(), lag);
    if (ports.empty()) show_lag_row(text, head, "", "", "");
    for (const lag_slot& slot : ports) {
      show_lag_row(text, head, "hash", fmt::format("{:#x}", first_global_port + slot.port),
                   slot.up ? "up" : "down");
      head = further;
    }
  };
  for (const bundle& b : u.r.bundles) {
    std::vector<lag_slot> ports;
    for (const member& m : b.members)
      if (!u.lacks("chip.member", port_tail(m.port))) ports.push_back({m.system_port, m.up});
    if (!u.lacks("chip.lag", name_of(b))) add(b.lag, ports);
    for (const sub_bundle& s : b.subs)
      if (s.lag != b.lag && !u.lacks("chip.lag", name_of(s))) add(s.lag, {});
  }
  if (const auto extra = u.instead("chip.extra-lag", "*"))
    add(static_cast<std::uint32_t>(std::stoul(*extra)), {{0xfff, true}});
  return text;
}

std::string untagged_lifs(const chip_unit& u) {
  std::string text =
      "table IN_AC_UNTAGGED_DB\n"
      "| Entry | PP port | Kind || Local LIF | Valid |\n";
  unsigned entry = 0;
  for (const bundle& b : u.r.bundles)
    if (!members_on(u.r, b, u.n, u.npu).empty())
      text += fmt::format("| {:<5} | {:<7} | {:<4} || {:<9} | {:<5} |\n", entry++, lag_port(b), 1,
                          b.local_lif, 1);
  return text + fmt::format("{} entries\n", entry);
}

std::string vsi_macs(const chip_unit& u) {
  std::string text =
      "table ING_VSI_INFO_DB\n"
      "| Entry | VSI  || Routing | MAC low | Profile |\n";
  unsigned entry = 0;
  const auto add = [&](std::uint32_t vsi, const std::string& mac) {
    text += fmt::format("| {:<5} | {:<4} || {:<7} | {:<7} | {:<7} |\n", entry++, vsi, 1, mac, 2);
  };
  for (const bundle& b : u.r.bundles) {
    const std::string mac = std::to_string(low_mac_bits(b.mac));
    const std::string held = u.instead("chip.mac", name_of(b)).value_or(mac);
    if (!b.l2 && held != absent) add(b.rif, held);
    for (const sub_bundle& s : b.subs)
      if (!s.l2) add(s.rif, mac);
  }
  return text + fmt::format("{} entries\n", entry);
}

std::string lag_profiles(const chip_unit& u) {
  const auto profiles = profiles_of(u);
  std::string text;
  if (u.lacks("chip.lag-mtu", "*")) return text;
  for (unsigned core = 0; core < u.n.cores; ++core) {
    text +=
        fmt::format("ETPPC_EDITING_PER_PORT_TABLE.ETPPC{}[0]: <PORT_TYPE=0,MTU_PROFILE=0>\n", core);
    for (const bundle& b : u.r.bundles)
      text += fmt::format(
          "ETPPC_EDITING_PER_PORT_TABLE.ETPPC{}[{}]: <PORT_TYPE=0x1,TAGS=2,MTU_PROFILE={},MODE=0>"
          "\n",
          core, lag_port(b), profile_of(u, b, profiles));
  }
  return text;
}

// A profile has ten entries in the map, one for each kind of frame.
std::string profile_mtus(const chip_unit& u) {
  constexpr unsigned kinds = 10;
  std::string text;
  for (unsigned core = 0; core < u.n.cores; ++core)
    for (const auto& [mtu, profile] : profiles_of(u))
      for (unsigned kind = 0; kind < kinds; ++kind)
        text += fmt::format("ETPPC_MTU_MAP_TABLE.ETPPC{}[{}]: <KIND={},MTU={:#x}>\n", core,
                            profile * kinds + kind, kind, std::stoul(mtu));
  return text;
}

}  // namespace

void render_jericho2_chips(const router& r, capture& c) {
  for (const chip_unit& u : chips_of(r, chip_family::jericho2)) {
    answer_chip(c, u, "vis lag", lag_ports(u));
    answer_chip(c, u, "dbal table dump table=INGRESS_PP_PORT", port_domains(u));
    answer_chip(c, u, "tm lag", lag_members(u));
    answer_chip(c, u, "dbal table dump table=IN_AC_UNTAGGED_DB", untagged_lifs(u));
    answer_chip(c, u, "dbal table dump table=ING_VSI_INFO_DB", vsi_macs(u));
    answer_chip(c, u, "dump ETPPC_EDITING_PER_PORT_TABLE ", lag_profiles(u));
    answer_chip(c, u, "dump chg ETPPC_MTU_MAP_TABLE", profile_mtus(u));
  }
}

}  // namespace lab
