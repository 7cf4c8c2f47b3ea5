// Faults of the platform: an unknown model, nodes and chips that the audit cannot examine.
#include <fmt/format.h>

#include "lab/faults/sites.h"

namespace lab {
namespace {

bool plant_model(router& r, planted_fault&) {
  if (r.type == "fir") return false;  // its nodes are invalid for an unknown model
  r.model = "TR-WILLOW (x86_64)";
  return true;
}

node* node_named(router& r, std::string_view name) {
  for (node& n : r.nodes)
    if (n.name == name) return &n;
  return nullptr;
}

// Chooses a member's node. Null if no site fits.
node* choose_node(router& r, planted_fault& p, bool (*fits)(const site&)) {
  const site s = find_site(r, p, fits);
  if (!s) return nullptr;
  note_place(p, {nullptr, nullptr, s.n}, "");
  return node_named(r, p.node);
}

bool plant_band(router& r, planted_fault& p) {
  node* n = is_single_node(r.type) ? nullptr : choose_node(r, p, on_line_card);
  if (n == nullptr) return false;
  n->band = "BOOTING";
  return true;
}

bool plant_unknown_asic(router& r, planted_fault& p) {
  const auto listed = [](const site& s) { return has_chip(s) && s.n->in_unit_list; };
  node* n = choose_node(r, p, listed);
  if (n == nullptr) return false;
  n->chip = "BCM88850";
  return true;
}

// The standby route processor of an aspen, which shares the ports of the active one.
node* standby_processor(router& r, planted_fault& p) {
  if (r.type != "aspen") return nullptr;
  for (node& n : r.nodes)
    if (n.kind == "RP" && n.state == "STANDBY" && n.npus > 0 && n.in_unit_list && has_address(n)) {
      p.node = n.name;
      return &n;
    }
  return nullptr;
}

bool plant_live_standby(router& r, planted_fault& p) {
  node* n = standby_processor(r, p);
  if (n == nullptr || n->band == "FINAL" || family_of(*n) != chip_family::jericho2) return false;
  n->band = "FINAL";
  return true;
}

bool plant_standby_asic(router& r, planted_fault& p) {
  node* n = standby_processor(r, p);
  if (n == nullptr || n->band != "FINAL") return false;
  n->chip = "BCM88850";
  return true;
}

bool plant_no_address(router& r, planted_fault& p) {
  node* n = is_single_node(r.type) ? nullptr : choose_node(r, p, on_line_card);
  if (n == nullptr) return false;
  n->address = "None";
  return true;
}

// A card that no bundle uses yet.
bool plant_no_address_unused(router& r, planted_fault& p) {
  std::vector<node*> unused;
  for (node& n : r.nodes)
    if (n.kind == "LC" && is_examined(n) && !r.bundles.empty() &&
        std::all_of(r.bundles.begin(), r.bundles.end(),
                    [&](const bundle& b) { return members_on(r, b, n).empty(); }))
      unused.push_back(&n);
  if (unused.empty()) return false;
  node* n = placed(unused, p);
  p.node = n->name;
  n->address = "None";
  return true;
}

bool plant_both_active(router& r, planted_fault&) {
  if (r.type != "aspen") return false;
  std::size_t processors = 0;
  bool had_standby = false;
  for (node& n : r.nodes)
    if (n.kind == "RP") {
      had_standby = had_standby || n.state == "STANDBY";
      n.state = "ACTIVE";
      ++processors;
    }
  return processors == 2 && had_standby;
}

// Each of the two names the other as its peer.
bool edit_both_active(capture& c, const router& r, planted_fault&) {
  for (const node& n : r.nodes) {
    if (!has_address(n)) continue;
    std::string& probe = answer_to(c, n.address, "board_api_probe");
    if (probe.find("Peer Node Id:") != std::string::npos) continue;
    const node& peer = &n == &r.nodes.front() ? r.nodes.back() : r.nodes.front();
    probe += fmt::format("  Peer Node Id:{:#x}\n", peer.id);
  }
  return true;
}

bool edit_lone_active(capture& c, const router& r, planted_fault&) {
  for (const node& n : r.nodes) {
    if (!has_address(n)) continue;
    std::string& probe = answer_to(c, n.address, "board_api_probe");
    const std::size_t peer = probe.find("  Peer Node Id:");
    if (peer != std::string::npos) probe.resize(peer);
  }
  return true;
}

bool edit_unit_list(capture& c, const router&, planted_fault&) {
  answer_to(c, local_place, "asic_shell_show -c \"show unit\" -u all -n A") +=
      "\nNode ID: 0/77/CPU0\nUnit 0 chip BCM88680_A0 (current)\n  driver attached, 2 cores\n"
      "  R/S/I: 0/77/0\n";
  return true;
}

bool edit_inventory(capture& c, const router& r, planted_fault&) {
  if (is_single_node(r.type)) return false;
  answer_to(c, local_place, "plat_nodes_show -v") +=
      "0/77/CPU0        LC    TC-LC-24H      ACTIVE       FINAL  7.3.2     192.0.0.99     12w3d\n";
  return true;
}

// The audit asks the boards of an aspen, but the converter on every other router.
bool edit_node_id(capture& c, const router& r, planted_fault&) {
  if (r.type == "aspen") return false;
  for (const auto& key : answers_of(c, "node_id_convert"))
    c.answers[key] = "conversion failed (-4)\n";
  return true;
}

bool edit_boards(capture& c, const router& r, planted_fault&) {
  if (r.type != "aspen") return false;
  for (const auto& key : answers_of(c, "board_api_probe"))
    c.answers[key] = "probe: board does not answer\n";
  return true;
}

// Nothing answers at the node's address.
bool edit_unreachable(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, on_line_card);
  if (!s) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  std::erase_if(c.answers, [&](const auto& one) { return one.first.first == s.n->address; });
  return true;
}

constexpr fault table[] = {
    {.name = "model-unknown",
     .description = "the version banner names an unknown model",
     .finding = "ERROR: Not able to get router type",
     .harms = "sw_version_show",
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .plant = plant_model},
    {.name = "unit-list-garbage",
     .description = "the list of chip units names an impossible node",
     .finding = "{}: Not able to get ASIC information",
     .harms = "show unit",
     .at = checkpoint::chip_units,  // the audit checks it before the model
     .shown = phase::start,
     .hides = reach::router,
     .stops_from = phase::start,
     .edit = edit_unit_list},
    {.name = "inventory-garbage",
     .description = "the list of nodes names an impossible node",
     .finding = "{}: nodeinfo init failed",
     .harms = "plat_nodes_show",
     .at = checkpoint::inventory,
     .shown = phase::start,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .edit = edit_inventory},
    {.name = "node-not-final",
     .description = "a line card with members is still booting; its members are unknown",
     .finding = "{node} is in BOOTING band, not ready yet, skipping TESSEL check on this location",
     .harms = "plat_nodes_show",
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .plant = plant_band},
    {.name = "asic-unknown",
     .description = "a node has chips of an unknown family",
     .finding = "INFO: Found unsupported ASIC {}x. TESSEL doesn't guarantee consistency check on "
                "this node {node}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_lag,
     .shown = phase::start,
     .hides = reach::node,
     .plant = plant_unknown_asic},
    {.name = "standby-live",
     .description = "the standby route processor of an aspen with Jericho2 is live, but the bundle "
                    "manager's agents omit it",
     .finding = "{}: BCM member verification failed for {}, {node}",
     .harms = "plat_nodes_show",
     .at = checkpoint::chip_member,
     .hides = reach::node,
     .plant = plant_live_standby},
    {.name = "standby-asic-unknown",
     .description = "the live standby route processor of an aspen has chips of an unknown family; "
                    "no member can be looked up",
     .finding = "INFO: Found unsupported ASIC {}x. TESSEL doesn't guarantee consistency check on "
                "this node {node}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_lag,
     .shown = phase::start,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .plant = plant_standby_asic},
    {.name = "node-no-address",
     .description =
         "the inventory gives no address for a line card with members; its members are unknown",
     .finding = "{}: get_member_pp_port failed for {}",
     .harms = "plat_nodes_show",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .plant = plant_no_address},
    {.name = "node-no-address-unused",
     .description = "the inventory gives no address for a line card without members",
     .finding = "Inconsistency {}: DPA has no Bundle entry in location {node}",
     .harms = "plat_nodes_show",
     .at = checkpoint::dpa_bundle,
     .hides = reach::node,
     .plant = plant_no_address_unused},
    {.name = "both-active",
     .description = "both route processors of an aspen are active; no node is audited",
     .finding = "INFO: Both RPs are in active mode & software may be different. Performed TESSEL "
                "check on current node, skipped {}",
     .harms = "plat_nodes_show",
     .at = checkpoint::groundwork,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .plant = plant_both_active,
     .edit = edit_both_active},
    {.name = "both-active-alone",
     .description = "both route processors of an aspen are active, and neither knows of the other",
     .finding = "{}: dump data failed",
     .harms = "board_api_probe",
     .at = checkpoint::groundwork,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .plant = plant_both_active,
     .edit = edit_lone_active},
    {.name = "node-id-garbage",
     .description = "the node id tool prints an error instead of an id",
     .finding = "{}: dump data failed",
     .harms = "node_id_convert",
     .at = checkpoint::groundwork,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .edit = edit_node_id},
    {.name = "board-silent",
     .description = "the boards of an aspen do not report their node ids",
     .finding = "ERROR: Not able to get node id for {}",
     .harms = "board_api_probe",
     .at = checkpoint::groundwork,
     .hides = reach::router,
     .stops_from = phase::collecting,
     .edit = edit_boards},
    {.name = "node-unreachable",
     .description = "a line card does not answer at its address; its members are unknown",
     .finding = "{}: get_member_pp_port failed for {}",
     .harms = "ssh",
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .edit = edit_unreachable},
};

}  // namespace

std::span<const fault> platform_faults() {
  return table;
}

}  // namespace lab
