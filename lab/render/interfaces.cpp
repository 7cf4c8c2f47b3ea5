#include <fmt/format.h>

#include "lab/render/render.h"

namespace lab {
namespace {

// The listing -----------------------------------------------------------------------------------

void list_state(std::string& text, const std::string& name, const char* state) {
  text += fmt::format("{0} is {1}, line protocol is {1}\n", name, state);
}

void list_interface(std::string& text, const std::string& name, const std::string& hardware,
                    const std::string& description, const std::string& mtu, unsigned gigabits,
                    const char* state = "up") {
  const unsigned long kilobits = 1000000UL * gigabits;
  list_state(text, name, state);
  text += "  Interface state transitions: 1\n";
  text += fmt::format("  Hardware is {}\n", hardware);
  if (!description.empty()) text += fmt::format("  Description: {}\n", description);
  text += fmt::format("  MTU {} bytes, BW {} Kbit (Max: {} Kbit)\n", mtu, kilobits, kilobits);
  text += "     reliability 255/255, txload 1/255, rxload 1/255\n";
  text += "  Encapsulation ARPA, loopback not set,\n";
  text += "  Last link flapped 12w3d\n";
  text += "    1234567 packets input, 987654321 bytes, 0 total input drops\n\n";
}

std::string port_mtu(const router& r, const member& m) {
  return overridden(r, "interfaces.mtu", port_tail(m.port), m.node).value_or(std::to_string(m.mtu));
}

std::string management_port(const router& r) {
  return fmt::format("MgmtEth{}/0", r.nodes.front().name);
}

std::string interface_listing(const router& r) {
  std::string text;
  // The console has no MTU; the next MTU in the listing is a bundle's, which the audit does not
  // read.
  list_state(text, "Async0", "up");
  text += "  Hardware is Async console line\n\n";
  for (const bundle& b : r.bundles) {
    list_interface(text, fmt::format("Bundle-Ether{}", b.number), "Aggregated Ethernet interface",
                   b.description, std::to_string(b.mtu), 200);
    for (const sub_bundle& s : b.subs)
      list_interface(text, fmt::format("Bundle-Ether{}.{}", b.number, s.number),
                     "VLAN sub-interface", s.description, std::to_string(b.mtu + 4), 200);
  }
  list_interface(text, "Loopback0", "Loopback interface(s)", "router id", "1500", 0);
  list_interface(text, management_port(r), "Management Ethernet", "", "1514", 1);
  for (const bundle& b : r.bundles)
    for (const member& m : b.members)
      if (const std::string mtu = port_mtu(r, m); mtu != absent)
        list_interface(
            text, m.port, port_type(m.port),
            m.description.empty() ? fmt::format("member of bundle {}", b.number) : m.description,
            mtu, 100, m.up ? "up" : "down");
  for (const node& n : r.nodes)
    if (n.kind == "LC") {
      const std::string port = free_port(r, n);
      list_interface(text, port, port_type(port), "", "1514", 100, "administratively down");
    }
  list_interface(text, "Null0", "Null interface", "", "1500", 0);
  return text;
}

// The interface manager's database --------------------------------------------------------------

void list_view(std::string& text, const std::string& handle, const std::string& name,
               const char* view, unsigned flags, unsigned mtu) {
  text += fmt::format("{} {} {:<5} up up {:#x} {}\n", handle, name, view, flags, mtu);
}

void list_views(std::string& text, const std::string& handle, const std::string& name,
                unsigned mtu) {
  for (const char* view : {"OWN", "IPV4", "LDP"}) list_view(text, handle, name, view, 0x1041, mtu);
}

std::string manager_database(const router& r) {
  std::string text =
      "Interface manager database, all views, location local\n"
      "Handle    Name  View  State Line Flags MTU\n"
      "------------------------------------------\n";
  text += "0x60000000 Null0 OWN   up up 0x20 1500\n";
  for (const bundle& b : r.bundles) {
    for (const member& m : b.members)
      text += fmt::format("{:#x} {} OWN   up up 0x1021 {}\n", m.handle, short_name(m.port), m.mtu);
    list_views(text, fmt::format("{:#x}", b.handle), name_of(b), b.mtu);
    for (const sub_bundle& s : b.subs) {
      const std::string handle =
          overridden(r, "im.handle", name_of(s)).value_or(fmt::format("{:#x}", s.handle));
      if (handle != absent) list_views(text, handle, name_of(s), b.mtu + 4);
      if (const auto again = overridden(r, "im.second-row", name_of(s)))
        list_view(text, *again, name_of(s), "LDP", 0x1049, b.mtu + 4);
    }
  }
  return text;
}

// The running configuration ---------------------------------------------------------------------

void configure_head(const router& r, std::string& text) {
  text +=
      "Building configuration...\n"
      "!! Tarmac OS Configuration 7.3.2\n"
      "!! Last configuration change at Mon Mar 10 11:02:13 2025 by admin\n"
      "!\n";
  text += fmt::format("hostname {}\nclock timezone UTC 0\nlogging console disable\n", r.name);
  text += "domain name lab.example\n!\n";
  text += "line default\n exec-timeout 0 0\n!\n";
  if (r.hqos) text += "hw-module profile qos hqos-enable\n!\n";
  if (r.bundle_scale > 0)
    text += fmt::format("hw-module profile bundle-scale {}\n!\n", r.bundle_scale);
  text += "interface Loopback0\n description router id, \"first\" of all\n";
  text += " ipv4 address 10.255.0.1 255.255.255.255\n!\n";
  text += fmt::format("interface {}\n description out of band; see rack 7 (door's side) + up!\n",
                      management_port(r));
  text += " ipv4 address 10.0.0.2 255.255.255.0\n!\n";
}

void configure_sub(const bundle& b, const sub_bundle& s, std::string& text) {
  text += fmt::format("interface Bundle-Ether{}.{}{}\n", b.number, s.number,
                      s.l2 ? " l2transport" : "");
  if (!s.description.empty()) text += fmt::format(" description {}\n", s.description);
  if (!s.l2)
    text +=
        fmt::format(" ipv4 address 10.{}.{}.1 255.255.255.252\n", b.number % 256, s.number % 256);
  if (!s.encapsulation.empty()) text += fmt::format(" encapsulation {}\n", s.encapsulation);
  if (s.l2) text += " rewrite ingress tag pop 1 symmetric\n";
  text += "!\n";
}

void configure_bundle(const bundle& b, std::string& text) {
  text += fmt::format("interface Bundle-Ether{}\n", b.number);
  if (!b.description.empty()) text += fmt::format(" description {}\n", b.description);
  text += fmt::format(" mtu {}\n", b.mtu);
  if (!b.l2 && b.subs.empty())
    text += fmt::format(" ipv4 address 10.{}.0.1 255.255.255.252\n", b.number % 256);
  text += " bundle minimum-active links 1\n lacp switchover suppress-flaps 100\n";
  if (b.l2) text += " l2transport\n  propagate remote-status\n !\n";
  text += "!\n";
  for (const sub_bundle& s : b.subs) configure_sub(b, s, text);
}

void configure_ports(const router& r, std::string& text) {
  for (const bundle& b : r.bundles)
    for (const member& m : b.members)
      text += fmt::format(
          "interface {}\n description {}\n bundle id {} mode active\n lacp period short\n!\n",
          m.port,
          m.description.empty() ? fmt::format("member of bundle {} - {}", b.number, m.node)
                                : m.description,
          b.number);
  for (const node& n : r.nodes)
    if (n.kind == "LC")
      text += fmt::format(
          "interface {}\n description free; was \"bundle id 1\" [ring #3] 100% {{x}}\n"
          " shutdown\n!\n",
          free_port(r, n));
}

// Other protocols also name bundles, in lines of their own stanzas.
void configure_protocols(const router& r, std::string& text) {
  text += "route-policy pass-all\n  pass\nend-policy\n!\n";
  text += "router isis core\n net 49.0001.0102.5500.0001.00\n";
  for (const bundle& b : r.bundles)
    if (!b.l2)
      text += fmt::format(
          " interface Bundle-Ether{}\n  point-to-point\n  address-family ipv4 unicast\n"
          "   metric 10\n  !\n !\n",
          b.number);
  text += "!\nl2vpn\n bridge group lab\n  bridge-domain all\n";
  for (const bundle& b : r.bundles) {
    if (b.l2) text += fmt::format("   interface Bundle-Ether{}\n   !\n", b.number);
    for (const sub_bundle& s : b.subs)
      if (s.l2) text += fmt::format("   interface Bundle-Ether{}.{}\n   !\n", b.number, s.number);
  }
  text += "  !\n !\n!\nmpls ldp\n";
  for (const bundle& b : r.bundles)
    if (!b.l2) text += fmt::format(" interface Bundle-Ether{}\n !\n", b.number);
  text += "!\nssh server v2\nend\n";
}

std::string running_configuration(const router& r) {
  std::string text;
  configure_head(r, text);
  for (const bundle& b : r.bundles) configure_bundle(b, text);
  configure_ports(r, text);
  configure_protocols(r, text);
  return text + "\n";
}

}  // namespace

void render_interfaces(const router& r, capture& c) {
  answer(c, local_place, "iface_show -i .*", interface_listing(r));
  answer(c, local_place, "ifmgr_show database -l 0x1 -a", manager_database(r));
  answer(c, local_place, "cfg_render -c -l 1 -t 1 -o 1", running_configuration(r));
}

}  // namespace lab
