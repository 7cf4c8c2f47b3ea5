#include <fmt/format.h>

#include "lab/render/render.h"

namespace lab {
namespace {

std::string version_banner(const router& r) {
  return fmt::format(
      "Tarmac OS Software, Version 7.3.2\n"
      "Build of Mon Mar 10 09:12:44 UTC, label 7.3.2-common\n"
      "\n"
      "{} uptime is 12 weeks, 3 days, 4 hours\n"
      "Image on disk: harddisk:/install/tarmac-7.3.2\n"
      "\n"
      "Tarmac {} processor with 33554432K bytes of memory.\n"
      "Hardware revision 1.2, chassis serial FXC2210Q0ZT\n",
      r.name, r.model);
}

std::string inventory(const router& r) {
  std::string text =
      "Node name        Type  Card           State        Band   Software  Address        Uptime\n"
      "---------------------------------------------------------------------------------------\n";
  for (const node& n : r.nodes)
    text += fmt::format("{:<16} {:<5} {:<14} {:<12} {:<6} {:<9} {:<14} 12w3d\n", n.name, n.kind,
                        n.card, n.state, n.band, "7.3.2", n.address);
  text +=
      "0/FT0            FT    TC-FAN         OPERATIONAL  N/A    N/A       N/A            12w3d\n";
  text +=
      "0/PM0            PM    TC-PWR-3K      OPERATIONAL  N/A    N/A       N/A            12w3d\n";
  return text;
}

// "0/3/CPU0" -> "0/3": the place of a unit, without its processor.
std::string seat_of(const node& n) {
  return n.name.substr(0, n.name.rfind('/'));
}

std::string unit_list(const router& r) {
  std::string text = "Units of all nodes\n";
  for (const node& n : r.nodes) {
    if (n.chip.empty() || !n.in_unit_list) continue;
    text += fmt::format("\nNode ID: {}\n", n.name);
    // A card with slots for port modules has a line for that first.
    if (n.card.find("-MOD") != std::string::npos) text += "Card with port modules\n";
    for (unsigned npu = 0; npu < n.npus; ++npu) {
      text += fmt::format("Unit {} chip {}_A0 (current)\n", npu, n.chip);
      text += fmt::format("  driver attached, {} cores\n", n.cores);
      text += fmt::format("  R/S/I: {}/{}\n", seat_of(n), npu);
    }
  }
  return text;
}

// The converter puts the kind of location into the byte above the id; on a fir it counts in tens.
std::string converted_id(const router& r, const node& n) {
  const unsigned id = 0x1000000U | n.id;
  return r.type == "fir" ? fmt::format("{}\n", id) : fmt::format("{:#x}\n", id);
}

const node* active_peer(const router& r, const node& n) {
  for (const node& other : r.nodes)
    if (&other != &n && other.kind == "RP" && other.state == "ACTIVE") return &other;
  return nullptr;
}

// A route processor that shares its role also reports the other one.
std::string board_probe(const router& r, const node& n) {
  std::string text = fmt::format(
      "Board API probe\n"
      "  Card name:{}\n"
      "  Serial:FXC2210Q{:04X}\n"
      "  Node Id:{:#x}\n"
      "  Slot state:{}\n",
      n.card, n.id, n.id, n.state);
  const node* peer = n.kind == "RP" && n.state == "ACTIVE" ? active_peer(r, n) : nullptr;
  if (peer != nullptr)
    text += fmt::format("  Peer Node Id:{:#x}\n  Peer state:{}\n", peer->id, peer->state);
  return text;
}

// The answer of the chip shell on a node without a chip.
void render_chipless(const node& n, capture& c) {
  for (const char* command :
       {"d IHP_VTT_IN_PP_PORT_CONFIG", "diag dbal dbd 3", "diag dbal dbd 4", "diag lag",
        "d IHP_VSI_LOW_CFG_1", "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE"})
    answer(c, local_place, chip_command(command, 0, n), "no attached unit on this node\n");
}

std::string voq_usage(const router& r) {
  std::string text = "VOQ usage of all nodes\n";
  for (const node& n : r.nodes) {
    text += fmt::format("\nNode ID: {}\n", n.name);
    text += "Interface        handle   npu core pport sport  voq  cos  kind    speed\n";
    for (const bundle& b : r.bundles)
      for (const member* m : members_on(r, b, n))
        text += fmt::format("{:<16} {:x}  {:<3} {:<4} {:<5} {:<6} {:<4} 8    local   100G\n",
                            short_name(m->port), m->handle, m->npu, m->core, m->pp_port,
                            m->system_port, 1024 + 8 * m->system_port);
    text += "Rcy0/0/0/0       0        0   0    225   0      0    0    remote  -\n";
  }
  return text;
}

}  // namespace

void render_platform(const router& r, capture& c) {
  answer(c, local_place, "sw_version_show", version_banner(r));
  // A single node has no other to list. An aspen gets node ids from its boards, every other router
  // from the converter: each has only one of the two tools.
  if (!is_single_node(r.type)) answer(c, local_place, "plat_nodes_show -v", inventory(r));
  answer(c, local_place, "asic_shell_show -c \"show unit\" -u all -n A", unit_list(r));
  answer(c, local_place, "qos_voq_show -v x -i 0x10 -n A -t n -p 0x0", voq_usage(r));
  for (const node& n : r.nodes) {
    if (r.type != "aspen")
      answer(c, local_place, "node_id_convert -I " + n.name, converted_id(r, n));
    else if (has_address(n))
      answer(c, n.address, "board_api_probe", board_probe(r, n));
    if (n.chip.empty()) render_chipless(n, c);
  }
}

}  // namespace lab
