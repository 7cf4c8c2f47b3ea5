#include <fmt/format.h>

#include "lab/render/render.h"

namespace lab {
namespace {

// The bundle manager's own database -------------------------------------------------------------

void show_database_member(std::string& text, const std::string& name, std::uint64_t handle,
                          bool up = true) {
  text += fmt::format("  Member interface                 {} ({:#x})\n", name, handle);
  text +=
      fmt::format("    Port state                     {}\n", up ? "distributing" : "configured");
  text += "    Port priority / number         0x8000, 0x0001\n";
  text += "    Bandwidth (kbps)               100000000\n";
}

void show_database_bundle(const router& r, const bundle& b, std::string& text) {
  const std::string name = name_of(b);
  text += fmt::format("\nBundle-Ether{}\n", b.number);
  text += fmt::format("  Bundle interface handle          {} ({:#x})\n", name, b.handle);
  text += "  Admin state                      up\n";
  const std::string mac = overridden(r, "pi.mac", name).value_or(b.mac);
  if (mac != absent) text += fmt::format("  Local MAC address                {}\n", mac);
  const std::string mtu = overridden(r, "pi.mtu", name).value_or(std::to_string(b.mtu));
  if (mtu != absent) text += fmt::format("  Operational MTU                  {}\n", mtu);
  text += "  Configured MTU                   not set\n";
  text += "  Minimum active links             1\n";
  text += "  LACP operational                 true\n";
  for (const member& m : b.members)
    if (!is_absent(r, "pi.member", port_tail(m.port), m.node))
      show_database_member(text, short_name(m.port), m.handle, m.up);
  if (const auto extra = overridden(r, "pi.extra-member", name))
    show_database_member(text, short_name(*extra), 0x1ffff00);
}

std::string database(const router& r) {
  std::string text = "LAG manager tables, process lagmgr_distrib, all nodes\n";
  for (const bundle& b : r.bundles)
    if (!is_absent(r, "pi.bundle", name_of(b))) show_database_bundle(r, b, text);
  return text;
}

// The agents' view ------------------------------------------------------------------------------

// The agents shorten the name of a route processor: "0/RP0/0" for "0/RP0/CPU0".
std::string agent_name(const node& n) {
  if (n.name.starts_with("0/RP")) return n.name.substr(0, n.name.rfind('/')) + "/0";
  return n.name;
}

void show_agent_row(const router& r, const bundle& b, const node& n, std::string& text) {
  if (is_absent(r, "pd.row", name_of(b), n.name)) return;
  unsigned mask = 0;
  for (const member* m : members_on(r, b, n)) mask |= 1U << m->npu;
  const std::string lag =
      overridden(r, "pd.lag", name_of(b), n.name).value_or(std::to_string(b.lag));
  text +=
      fmt::format("  {:<14} {:<8} 0x{:08x}  {:#x}\n", agent_name(n), lag, 0xc000000 + b.lag, mask);
}

void show_agent_member(const std::string& npu, const std::string& id, const std::string& port,
                       const std::string& name, std::string& text) {
  text += fmt::format("  {:<5} {:<10} {:<12} {}\n", npu, id, port, name);
}

void show_agent_node(const router& r, const bundle& b, const node& n, std::string& text) {
  text += fmt::format("\n Node: {}\n", agent_name(n));
  text += "  Members programmed by the agent\n";
  text += "  NPU   Member ID  System port  Name\n";
  text += "  ----------------------------------\n";
  for (const member* m : members_on(r, b, n)) {
    const std::string tail = port_tail(m->port);
    if (is_absent(r, "pd.member", tail, n.name)) continue;
    show_agent_member(overridden(r, "pd.npu", tail, n.name).value_or(std::to_string(m->npu)),
                      overridden(r, "pd.id", tail, n.name).value_or(fmt::format("{:#x}", m->id)),
                      overridden(r, "pd.system-port", tail, n.name)
                          .value_or(fmt::format("{:#x}", m->system_port)),
                      short_name(m->port), text);
  }
  if (const auto extra = overridden(r, "pd.extra-member", name_of(b), n.name))
    show_agent_member("0", "0x3e", "0xfff", short_name(*extra), text);
}

std::string agents(const router& r) {
  std::string text = "\nLAG manager agents, all bundles\n\n";
  for (const bundle& b : r.bundles) {
    if (is_absent(r, "pd.bundle", name_of(b))) continue;
    text += fmt::format("Bundle-Ether{}\n", b.number);
    text += "  Node           LAG ID   Global port NPU mask\n";
    text += "  --------------------------------------------\n";
    // A standby agent learns nothing until it takes over.
    for (const node& n : r.nodes)
      if (n.state != "STANDBY") show_agent_row(r, b, n, text);
    for (const node& n : r.nodes)
      if (n.state != "STANDBY") show_agent_node(r, b, n, text);
    text += "\n";
  }
  return text;
}

// Its own check ---------------------------------------------------------------------------------

std::string health_head() {
  return "Checking bundle manager processes\n"
         "checking bundle databases on all nodes\n"
         "------------------------------------------------------\n"
         "Process            Node          Result\n"
         "------------------------------------------------------\n";
}

std::string clean_health(const router& r) {
  std::string text = health_head();
  for (const node& n : r.nodes)
    if (n.kind == "RP") text += fmt::format("lagmgr_distrib     {}    OK\n", n.name);
  return text;
}

std::string informing_health(const router& r) {
  return clean_health(r) +
         "\n\nINFO: 2 bundles were left out of the hash check\n"
         "\n   they carry one member each, 0 of them are down\n"
         "\n   no action is needed\n\n";
}

std::string failing_health(const router& r) {
  std::string text = clean_health(r) + "\n\n";
  unsigned shown = 0;
  for (const bundle& b : r.bundles) {
    if (shown++ == 2) break;
    text += fmt::format("   Bundle-Ether{}\n", b.number);
    text += "         Database of the agent differs from the distributor\n\n";
    text += fmt::format("         {} of {} members out of step\n\n", b.members.size(),
                        b.members.size());
  }
  return text;
}

// Two tables, both forms of information, and several bundles in one line.
std::string mixed_health(const router& r) {
  std::string text = informing_health(r);
  text += "INFO: the hash check was left out, it is switched off\n\n";
  std::string together;
  for (const bundle& b : r.bundles)
    together += fmt::format("{}Bundle-Ether{}", together.empty() ? "" : ", ", b.number);
  text +=
      fmt::format("   {}\n         Databases of the agents differ from each other\n\n", together);
  return text + failing_health(r);
}

std::string health(const router& r) {
  if (r.health == "info") return informing_health(r) + "Overall result: PASSED\n";
  if (r.health == "errors") return failing_health(r) + "Overall result: FAILED\n";
  if (r.health == "mixed") return mixed_health(r) + "Overall result: FAILED\n";
  return clean_health(r) + "Overall result: PASSED\n";
}

}  // namespace

void render_lagmgr(const router& r, capture& c) {
  answer(c, local_place, "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all", database(r));
  answer(c, local_place, "lagmgr_agent_show -m -a all", agents(r));
  answer(c, local_place, "lagmgr_health", health(r));
}

}  // namespace lab
