// Faults of the platform and of the tools: nodes that take no part, answers that are missing, cut
// or full of garbage, and what stands in the running configuration.
#include <fmt/format.h>

#include "lab/faults/sites.h"
#include "lab/render/render.h"

namespace lab {
namespace {

// The platform ----------------------------------------------------------------------------------

bool plant_model(router& r, planted_fault&) {
  if (r.type == "fir") return false;  // its nodes are none of an unknown router: that is told
  r.model = "TR-WILLOW (x86_64)";
  return true;
}

node* node_named(router& r, std::string_view name) {
  for (node& n : r.nodes)
    if (n.name == name) return &n;
  return nullptr;
}

bool on_line_card(const site& s) {
  return s.n->kind == "LC";
}
bool has_chip(const site& s) {
  return s.n->npus > 0;
}
bool has_older_chip(const site& s) {
  return has_chip(s) && on_older_chip(s);
}
bool has_jericho2(const site& s) {
  return has_chip(s) && !on_older_chip(s);
}

// Chooses a member's node. None if no site fits.
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

// A standby route processor of an aspen that shares the ports of the active one.
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
  for (node& n : r.nodes)
    if (n.kind == "RP") {
      n.state = "ACTIVE";
      ++processors;
    }
  return processors == 2;
}

// Each of the two tells of the other one as well.
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

// An aspen asks its boards, every other router the converter.
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

// Nobody answers at the node's address.
bool edit_unreachable(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, on_line_card);
  if (!s) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  std::erase_if(c.answers, [&](const auto& one) { return one.first.first == s.n->address; });
  return true;
}

// Tools -----------------------------------------------------------------------------------------

// Some tools are asked on some routers alone, or answer there for nothing.
bool is_asked(const router& r, std::string_view tool) {
  if (tool == "sw_version_show") return r.type != "fir";  // as an unknown model
  if (tool == "plat_nodes_show") return !is_single_node(r.type);
  if (tool == "node_id_convert") return r.type != "aspen";
  if (tool == "board_api_probe") return r.type == "aspen";
  if (tool == "ifmgr_show")
    return std::any_of(r.bundles.begin(), r.bundles.end(),
                       [](const bundle& b) { return !b.members.empty() && !b.subs.empty(); });
  return true;
}

bool edit_tool_empty(capture& c, const router& r, planted_fault& p) {
  const std::string tool = p.argument.empty() ? "lagmgr_table_show" : p.argument;
  const auto keys = answers_of(c, tool);
  for (const auto& key : keys) c.answers[key].clear();
  return !keys.empty() && is_asked(r, tool);
}

bool edit_tool_missing(capture& c, const router& r, planted_fault& p) {
  const std::string tool = p.argument.empty() ? "lagmgr_agent_show" : p.argument;
  c.missing_tools.push_back(tool);
  const auto keys = answers_of(c, tool);
  for (const auto& key : keys) c.answers.erase(key);
  return !keys.empty() && is_asked(r, tool);
}

bool edit_pi_handle(capture& c, const router&, planted_fault&) {
  return replace_once(answer_to(c, local_place, "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all"),
                      " (0x", " (0xz");
}

bool plant_pd_garbage(router& r, planted_fault& p) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  note_place(p, s, name_of(*s.b));
  hold(r, "pd.lag", p.object, p.node, "none");
  return true;
}

// All objects of a type on one node, but for the heading.
bool cut_objects(capture& c, const router& r, planted_fault& p, const std::string& type) {
  const site s = find_site(r, p, anywhere);
  if (!s) return false;
  std::string& text = forwarding_objects(c, *s.n, type);
  const std::size_t first = text.find("\n" + type + " element");
  if (first == std::string::npos) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  text.resize(first);
  return true;
}

bool edit_lagports(capture& c, const router& r, planted_fault& p) {
  return cut_objects(c, r, p, "lagport");
}
bool edit_l1ports(capture& c, const router& r, planted_fault& p) {
  return cut_objects(c, r, p, "l1port");
}
bool edit_l2ports(capture& c, const router& r, planted_fault& p) {
  return cut_objects(c, r, p, "l2port");
}
bool edit_l3intfs(capture& c, const router& r, planted_fault& p) {
  return cut_objects(c, r, p, "l3intf");
}

bool edit_chip_empty(capture& c, const router& r, planted_fault& p) {
  const site s = find_site(r, p, has_chip);
  if (!s) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  const std::string unit = fmt::format(",-u,{},-n,{}", s.m->npu, s.n->id);
  bool any = false;
  for (auto& [key, text] : c.answers)
    if (key.second.starts_with("asic_shell_show,") && key.second.ends_with(unit)) {
      text.clear();
      any = true;
    }
  return any;
}

// One chip's answer to a command, if it answers at all.
std::string* chip_answer(capture& c, const router& r, planted_fault& p, const char* command,
                         bool (*fits)(const site&)) {
  const site s = find_site(r, p, fits);
  if (!s) return nullptr;
  note_place(p, {nullptr, nullptr, s.n}, "");
  return &answer_to(c, local_place, chip_command(command, s.m->npu, *s.n));
}

bool edit_tm_lag(capture& c, const router& r, planted_fault& p) {
  std::string* text = chip_answer(c, r, p, "tm lag", has_jericho2);
  if (text == nullptr) return false;
  const std::size_t row = text->find("\n| 0 ");
  const std::size_t port = row == std::string::npos ? row : text->find(" hash", row);
  if (port == std::string::npos) return false;
  text->resize(port);
  return true;
}

bool edit_diag_lag(capture& c, const router& r, planted_fault& p) {
  constexpr std::size_t digits = 5000;
  std::string* text = chip_answer(c, r, p, "diag lag", has_older_chip);
  return text != nullptr && replace_once(*text, "LAG ID: ", "LAG ID: " + std::string(digits, '9'));
}

bool edit_diag_lag_id(capture& c, const router& r, planted_fault& p) {
  std::string* text = chip_answer(c, r, p, "diag lag", has_older_chip);
  if (text == nullptr) return false;
  const std::string_view words = "LAG ID: ";
  const std::size_t id = text->find(words);
  if (id == std::string::npos) return false;
  const std::size_t first = id + words.size();
  text->replace(first, text->find(' ', first) - first, "none");
  return true;
}

bool edit_mtu_map(capture& c, const router& r, planted_fault& p) {
  std::string* text = chip_answer(c, r, p, "dump chg ETPPC_MTU_MAP_TABLE", has_jericho2);
  return text != nullptr && replace_once(*text, "ETPPC0[", "ETPPC0[999999999999999999999999999999");
}

// The running configuration ---------------------------------------------------------------------

// Some faults are at no bundle and no node, but in this text.
constexpr const char* in_configuration = "configuration";

bool edit_no_banner(capture& c, const router&, planted_fault& p) {
  p.node = in_configuration;
  return replace_once(configuration(c), "Tarmac OS Configuration 7.3.2", "Configuration");
}

bool edit_no_end(capture& c, const router&, planted_fault& p) {
  p.node = in_configuration;
  return replace_once(configuration(c), "\nend\n", "\n");
}

bool edit_unconfigured(capture& c, const router&, planted_fault&) {
  std::string& text = configuration(c);
  bool any = false;
  while (replace_once(text, "\n bundle id ", "\n lag ")) any = true;
  return any;
}

// The first bundle's stanza once more.
bool edit_duplicate(capture& c, const router&, planted_fault&) {
  std::string& text = configuration(c);
  const std::size_t start = text.find("interface Bundle-Ether");
  const std::size_t end = start == std::string::npos ? start : text.find("\n!\n", start);
  if (end == std::string::npos) return false;
  text.insert(start, text.substr(start, end + 3 - start));
  return true;
}

// Bundles that nobody put a port into.
bool edit_many_bundles(capture& c, const router&, planted_fault&) {
  constexpr unsigned first = 20000;
  constexpr unsigned more_than_any_limit = 1100;
  std::string bundles;
  for (unsigned number = first; number < first + more_than_any_limit; ++number)
    bundles += fmt::format("interface Bundle-Ether{}\n shutdown\n!\n", number);
  return replace_once(configuration(c), "interface Loopback0\n", bundles + "interface Loopback0\n");
}

// Without hierarchical QoS, where each kind has a limit of its own. Neither numbers nor tags are
// those of other sub-bundles: the chip would find the entry of one under the key of another.
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
      sub.handle += 0x20 * i;
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

// A sub-bundle of the configuration, by the fault's place.
template <typename Suits>
sub_bundle* choose_sub(router& r, planted_fault& p, Suits suits) {
  std::vector<std::pair<bundle*, sub_bundle*>> subs;
  for (bundle& b : r.bundles)
    for (sub_bundle& s : b.subs)
      if (!b.members.empty() && suits(s)) subs.emplace_back(&b, &s);
  if (subs.empty()) return nullptr;
  const auto& [b, sub] = placed(subs, p);
  note_place(p, {b, nullptr, nullptr}, name_of(*sub));
  return sub;
}

bool plant_no_encapsulation(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle&) { return true; });
  if (sub == nullptr) return false;
  sub->encapsulation.clear();
  return true;
}

// A comma in front of the encapsulation: the audit reads the stanza to there.
bool plant_sub_comma(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle&) { return true; });
  if (sub == nullptr) return false;
  sub->description = "customer 17, east";
  return true;
}

// Likewise in front of the word that makes a bundle one of layer 2.
bool plant_bundle_comma(router& r, planted_fault& p) {
  const site s = find_site(r, p, [](const site& one) { return one.b->l2; });
  if (!s) return false;
  note_place(p, {s.b, nullptr, nullptr}, name_of(*s.b));
  for (bundle& b : r.bundles)
    if (name_of(b) == p.bundle) b.description = "customers, east";
  return true;
}

bool plant_untagged(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle& one) { return one.l2; });
  if (sub == nullptr) return false;
  sub->encapsulation = "untagged";
  return true;
}

// On earlier chips, where the key of a sub-bundle without a tag cannot be told from its domain.
bool plant_no_key(router& r, planted_fault& p) {
  sub_bundle* sub = choose_sub(r, p, [](const sub_bundle& one) { return one.l2; });
  if (sub == nullptr) return false;
  for (const site& s : sites_of(r))
    if (has_older_chip(s) && name_of(*s.b) == p.bundle) {
      sub->encapsulation = "untagged";
      return true;
    }
  return false;
}

bool plant_no_key_with_hqos(router& r, planted_fault& p) {
  return r.hqos && plant_no_key(r, p);
}
bool plant_no_key_without_hqos(router& r, planted_fault& p) {
  return !r.hqos && plant_no_key(r, p);
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

// More digits than a pattern that is made of them can hold.
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

// A bundle of a port that was another one's.
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

// Descriptions are the one place where an operator's own text reaches the audit.
bool edit_description(capture& c, const std::string& description) {
  return replace_once(configuration(c), "description out of band", "description " + description);
}

bool edit_overlong(capture& c, const router&, planted_fault&) {
  constexpr std::size_t megabytes = 8;
  return edit_description(c, std::string(megabytes << 20U, 'x'));
}

bool edit_blanks(capture& c, const router&, planted_fault&) {
  constexpr std::size_t many = 5000;
  return edit_description(c, "out" + std::string(many, ' ') + "of band");
}

bool edit_binary(capture& c, const router& r, planted_fault&) {
  const std::string bytes{"a\0b\xff\xfe\x80\xc3 \x1b[31m\x7f", 14};
  // The forwarding tool's filter reads bytes as text; this line it drops, others it must keep.
  for (const node& n : r.nodes)
    if (has_address(n))
      replace_once(forwarding_objects(c, n, "lagport"), "uint32_t revision => 4",
                   "char comment => " + bytes);
  return edit_description(c, bytes);
}

// The catalogue ---------------------------------------------------------------------------------

std::vector<fault> platform_faults() {
  return {
      {.name = "model-unknown",
       .description = "the version banner names no known model",
       .finding = "ERROR: Not able to get router type",
       .shown = phase::start,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .plant = plant_model},
      {.name = "unit-list-garbage",
       .description = "the list of chip units names a node that cannot be",
       .finding = "{}: Not able to get ASIC information",
       .shown = phase::start,
       .depth = -1,  // in front of the look at the model
       .hides = reach::router,
       .stops_from = phase::start,
       .edit = edit_unit_list},
      {.name = "inventory-garbage",
       .description = "the list of nodes names one that cannot be",
       .finding = "{}: nodeinfo init failed",
       .shown = phase::start,
       .depth = 1,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .edit = edit_inventory},
      {.name = "node-not-final",
       .description = "a line card with members is still booting; its members are unknown",
       .finding =
           "{node} is in BOOTING band, not ready yet, skipping TESSEL check on this location",
       .shown = phase::start,
       .depth = 0,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .plant = plant_band},
      {.name = "asic-unknown",
       .description = "a node has chips of no known family",
       .finding = "INFO: Found unsupported ASIC {}x. TESSEL doesn't guarantee consistency check on "
                  "this node {node}",
       .shown = phase::start,
       .depth = 70,
       .hides = reach::node,
       .plant = plant_unknown_asic},
      {.name = "standby-live",
       .description = "the standby route processor of an aspen with Jericho2 is live; the bundle "
                      "manager's agent does not tell of it",
       .finding = "{}: BCM member verification failed for {}, {node}",
       .depth = 71,
       .hides = reach::node,
       .plant = plant_live_standby},
      {.name = "standby-asic-unknown",
       .description =
           "the live standby route processor of an aspen has chips of no known family: no "
           "member can be looked up",
       .finding = "INFO: Found unsupported ASIC {}x. TESSEL doesn't guarantee consistency check on "
                  "this node {node}",
       .shown = phase::start,
       .depth = 70,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .plant = plant_standby_asic},
      {.name = "node-no-address",
       .description =
           "the inventory gives no address for a line card with members; its members are "
           "unknown",
       .finding = "{}: get_member_pp_port failed for {}",
       .shown = phase::parsing,
       .depth = 0,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .plant = plant_no_address},
      {.name = "node-no-address-unused",
       .description = "the inventory gives no address for a line card without members",
       .finding = "Inconsistency {}: DPA has no Bundle entry in location {node}",
       .depth = 50,
       .hides = reach::node,
       .plant = plant_no_address_unused},
      {.name = "both-active",
       .description = "both route processors of an aspen are in charge: no node is audited",
       .finding = "INFO: Both RPs are in active mode & software may be different. Performed TESSEL "
                  "check on current node, skipped {}",
       .shown = phase::collecting,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .plant = plant_both_active,
       .edit = edit_both_active},
      {.name = "both-active-alone",
       .description =
           "both route processors of an aspen are in charge, and none knows of the other",
       .finding = "{}: dump data failed",
       .shown = phase::collecting,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .plant = plant_both_active,
       .edit = edit_lone_active},
      {.name = "node-id-garbage",
       .description = "the tool that tells node ids fails",
       .finding = "{}: dump data failed",
       .shown = phase::collecting,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .edit = edit_node_id},
      {.name = "board-silent",
       .description = "the boards of an aspen do not tell their node ids",
       .finding = "ERROR: Not able to get node id for {}",
       .shown = phase::collecting,
       .hides = reach::router,
       .stops_from = phase::collecting,
       .edit = edit_boards},
      {.name = "node-unreachable",
       .description = "nobody answers at the address of a line card; its members are unknown",
       .finding = "{}: get_member_pp_port failed for {}",
       .shown = phase::parsing,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .edit = edit_unreachable},
  };
}

std::vector<fault> tool_faults() {
  std::vector<fault> faults{
      {.name = "tool-empty",
       .description = "a tool prints nothing; =TOOL, lagmgr_table_show unless given",
       .finding = "INFO: BMPI dont have any bundle data",
       .depth = 5,
       .hides = reach::router,
       .deepest = 10,
       .stops_from = phase::consistency,
       .edit = edit_tool_empty,
       .takes_argument = true},
      {.name = "tool-missing",
       .description = "a tool is not there; =TOOL, lagmgr_agent_show unless given",
       .finding = "INFO: Bundlemgr PD dont have any bundle data",
       .depth = 40,
       .hides = reach::router,
       .deepest = 41,
       .stops_from = phase::consistency,
       .edit = edit_tool_missing,
       .takes_argument = true,
       .argued_like = "tool-empty"},
      {.name = "pi-garbage",
       .description = "the bundle manager shows a handle that is no number",
       .finding = "{}: parse_bundle_info_PI failed",
       .depth = 10,
       .hides = reach::router,
       .deepest = 10,
       .stops_from = phase::consistency,
       .edit = edit_pi_handle},
      {.name = "pd-garbage",
       .description = "the agent shows a LAG id that is no number",
       .finding = "{}: dump_parse_bundle_info_PD failed",
       .depth = 41,
       .hides = reach::router,
       .deepest = 41,
       .stops_from = phase::consistency,
       .plant = plant_pd_garbage},
      {.name = "lagport-empty",
       .description = "a node has no lagport objects and is left out",
       .finding =
           "INFO: DPA lagport object dont have any bundle data/no bundle member from, {node}",
       .depth = 0,
       .hides = reach::node,
       .edit = edit_lagports},
      {.name = "l1port-empty",
       .description = "a node has no l1port objects; its members are unknown",
       .finding = "INFO: DPA l1port object dont have any interface from, {node}",
       .depth = 0,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .edit = edit_l1ports},
      {.name = "l2port-empty",
       .description = "a node has no l2port objects and is left out",
       .finding = "INFO: DPA l2port object dont have any interface from, {node}",
       .depth = 0,
       .hides = reach::node,
       .edit = edit_l2ports},
      {.name = "l3intf-empty",
       .description = "a node has no l3intf objects and is left out",
       .finding = "INFO: DPA l3intf object dont have any interface from, {node}",
       .depth = 0,
       .hides = reach::node,
       .edit = edit_l3intfs},
      {.name = "chip-dump-empty",
       .description = "the chip shell of one NPU prints nothing",
       .finding =
           "INFO: BCM hardware dont have any bundle data/no bundle member from Location {node}",
       .depth = 70,
       .hides = reach::node,
       .edit = edit_chip_empty},
      {.name = "tm-lag-cut",
       .description = "a Jericho2 chip's list of LAGs breaks off in its first row",
       .finding = "{}: parse tm_lag output failed Location {node}, NPU {}",
       .depth = 71,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .edit = edit_tm_lag},
      {.name = "diag-lag-garbage",
       .description = "an older chip's list of LAGs holds a number of 5000 digits",
       .finding = "{}: parse diag_lag output failed Location {node}, NPU {}",
       .depth = 71,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .edit = edit_diag_lag},
      {.name = "diag-lag-no-id",
       .description = "an older chip's list of LAGs has one without a number",
       .finding = "Data Not Found: Not able to get lag id from diag_lag output, Location {node}, "
                  "NPU {}",
       .depth = 71,
       .hides = reach::node,
       .edit = edit_diag_lag_id},
      {.name = "mtu-map-garbage",
       .description = "a Jericho2 chip's MTU table has a row number of more than thirty digits",
       .finding = "{}: dump_tables_per_npu failed {node}",
       .depth = 71,
       .hides = reach::node,
       .stops_from = phase::consistency,
       .edit = edit_mtu_map},
  };
  for (fault& one : faults) one.shown = phase::collecting;
  return faults;
}

// What one tool's silence does.
std::vector<fault> silent_tool_faults() {
  std::vector<fault> faults{
      {.name = "tool-empty=sw_version_show",
       .description = "the version tool prints nothing",
       .finding = "ERROR: Not able to get router type",
       .shown = phase::start,
       .stops_from = phase::collecting},
      {.name = "tool-empty=plat_nodes_show",
       .description = "the list of nodes is empty; nobody knows the members' ports",
       .finding = "{}: get_member_pp_port failed for {}",
       .also = {{"{}: parse_vlan_domain failed", phase::parsing}},
       .shown = phase::parsing,
       .stops_from = phase::consistency},
      {.name = "tool-empty=node_id_convert",
       .description = "the tool that tells node ids prints nothing",
       .finding = "{}: dump data failed",
       .shown = phase::collecting,
       .stops_from = phase::collecting},
      {.name = "tool-empty=board_api_probe",
       .description = "the boards of an aspen print nothing",
       .finding = "ERROR: Not able to get node id for {}",
       .shown = phase::collecting,
       .stops_from = phase::collecting},
      {.name = "tool-empty=fwd_object_show",
       .description = "no node prints a forwarding object",
       .finding = "INFO: DPA lagport object dont have any bundle data/no bundle member from, {}",
       .also = {{"{}: get_member_pp_port failed for {}", phase::parsing}},
       .shown = phase::collecting,
       .stops_from = phase::consistency},
      {.name = "tool-empty=asic_shell_show",
       .description = "no chip shell prints anything, the list of chip units included",
       .finding = "INFO: BCM hardware dont have any bundle data/no bundle member from Location {}",
       .shown = phase::collecting,
       .depth = -1},
      {.name = "tool-empty=lagmgr_agent_show",
       .description = "the agents print nothing",
       .finding = "INFO: Bundlemgr PD dont have any bundle data",
       .shown = phase::collecting,
       .depth = 40,
       .deepest = 41,
       .stops_from = phase::consistency},
      {.name = "tool-empty=cfg_render",
       .description = "the running configuration is empty",
       .finding = "INFO: No Bundle is configured/No member is added to Bundle",
       .also = {{"PARSE-ERROR: Not able to find the start of the running config",
                 phase::collecting}},
       .shown = phase::parsing,
       .deepest = 4,  // what stands in the configuration itself
       .stops_from = phase::consistency},
      {.name = "tool-empty=ifmgr_show",
       .description = "the interface manager lists no interface",
       .finding = "Inconsistency {}:Data for sub-bundle {} not found in IM database",
       .shown = phase::consistency,
       .depth = 20},
      {.name = "tool-empty=iface_show",
       .description = "the interface manager shows no port",
       .finding = "{}: BM PI verification failed for {},{}({}), {}",
       .shown = phase::consistency,
       .depth = 31},
      {.name = "tool-empty=lagmgr_health",
       .description = "the bundle manager's own check prints nothing",
       .shown = phase::health,
       .depth = 90,
       .counted = false},
  };
  for (fault& one : faults) {
    one.hides = reach::router;
    one.edit = edit_tool_empty;
  }
  return faults;
}

constexpr std::string_view untagged_note =
    "INFO: Found untagged encap config, SEM entry check for {bundle} will not be performed";

std::vector<fault> configuration_faults() {
  return {
      {.name = "config-no-banner",
       .description = "the running configuration lacks its banner",
       .finding = "PARSE-ERROR: Not able to find the start of the running config",
       .shown = phase::collecting,
       .depth = 3,
       .hides = reach::node,  // without a start nobody looks for the end
       .counted = false,
       .edit = edit_no_banner},
      {.name = "config-no-end",
       .description = "the running configuration breaks off before its end line",
       .finding = "PARSE-ERROR: Not able to find the end of the running config",
       .shown = phase::collecting,
       .depth = 4,
       .hides = reach::nothing,
       .counted = false,
       .edit = edit_no_end},
      {.name = "config-no-members",
       .description = "no port of the running configuration is put into a bundle",
       .finding = "INFO: No Bundle is configured/No member is added to Bundle",
       .shown = phase::parsing,
       .hides = reach::router,
       .stops_from = phase::consistency,
       .edit = edit_unconfigured},
      {.name = "config-blanks",
       .description = "a description of the running configuration has a run of 5000 blanks",
       .shown = phase::parsing,
       .hides = reach::nothing,
       .counted = false,
       .edit = edit_blanks},
      {.name = "config-duplicate",
       .description = "the first bundle stands twice in the running configuration",
       .finding = "DEBUG: Duplicate Key, ignoring cfg {}",
       .shown = phase::parsing,
       .hides = reach::nothing,
       .counted = false,
       .edit = edit_duplicate},
      {.name = "sub-no-encapsulation",
       .description = "a sub-bundle is configured without an encapsulation",
       .finding = "{}: Dont have any encapsulation config.",
       .shown = phase::parsing,
       .depth = 2,
       .plant = plant_no_encapsulation},
      {.name = "config-comma-sub",
       .description = "a comma in the description of a sub-bundle cuts its encapsulation off",
       .finding = "{}: Dont have any encapsulation config.",
       .shown = phase::parsing,
       .depth = 2,
       .plant = plant_sub_comma},
      {.name = "config-comma-bundle",
       .description = "a comma in the description of a layer 2 bundle cuts its type off: the audit "
                      "takes it for one of layer 3",
       .finding = "{}: DPA bundle consistency check failed for {object}({}), {}",
       .depth = 56,
       .hides = reach::bundle_everywhere,
       .plant = plant_bundle_comma},
      {.name = "sub-untagged",
       .description = "a sub-bundle is configured to take untagged frames",
       .finding = untagged_note,
       .shown = phase::parsing,
       .depth = 2,
       .plant = plant_untagged},
      {.name = "sub-no-key",
       .description = "an older chip can hold no key for an untagged sub-bundle whose LIF it knows",
       .finding = untagged_note,
       .also = {{"{}: verify_lif_rif_mac_mapping_key_llif failed for {object}({}) NPU {},{}",
                 phase::programming, 81}},
       .shown = phase::parsing,
       .depth = 2,
       .plant = plant_no_key_with_hqos},
      {.name = "sub-no-glif",
       .description = "without hqos nobody tells the LIF of an untagged sub-bundle",
       .finding = untagged_note,
       .also = {{"Programming Error {}: LIF/RIF verification failed for {object}({}) NPU {},{}: "
                 "GLIF {} is not valid",
                 phase::programming, 81}},
       .shown = phase::parsing,
       .depth = 2,
       .plant = plant_no_key_without_hqos},
      {.name = "sub-huge-tag",
       .description = "a sub-bundle is configured with a VLAN of more than twenty digits",
       .finding = "{}: verify_lif_rif_mac_mapping failed for {object}({}) NPU {},{node}",
       .shown = phase::programming,
       .depth = 80,
       .hides = reach::bundle_everywhere,  // it is configured for all nodes
       .edit = edit_huge_tag},
      {.name = "sub-huge-number",
       .description = "a sub-bundle is configured under a number of 40000 digits",
       .finding = "{}: get_encap_id failed for interface {}",
       .shown = phase::parsing,
       .depth = 2,
       .stops_from = phase::consistency,
       .edit = edit_huge_sub_number},
      {.name = "bundle-huge-number",
       .description = "a bundle with a port is configured under a number of 40000 digits",
       .finding = "{}: get_bundle_type from running config failed for interface {}",
       .shown = phase::parsing,
       .depth = 2,
       .stops_from = phase::consistency,
       .edit = edit_huge_bundle_number},
      {.name = "scale-bundles",
       .description = "1100 bundles without members are configured",
       .finding = "INFO: Allowed {}bundles: {}, configured more: {}",
       .depth = 0,
       .hides = reach::nothing,
       .edit = edit_many_bundles},
      {.name = "scale-l2-subs",
       .description = "a bundle has more layer 2 sub-bundles than are allowed, without hqos",
       .finding = "INFO: Allowed l2 sub-bundles: {}, configured more: {}",
       .depth = 0,
       .hides = reach::nothing,
       .plant = plant_many_l2_subs},
      {.name = "scale-l3-subs",
       .description = "a bundle has more layer 3 sub-bundles than are allowed, without hqos",
       .finding = "INFO: Allowed l3 sub-bundles: {}, configured more: {}",
       .depth = 0,
       .hides = reach::nothing,
       .plant = plant_many_l3_subs},
      {.name = "overlong-line",
       .description = "a description of eight megabytes in the running configuration",
       .shown = phase::parsing,
       .hides = reach::nothing,
       .counted = false,
       .edit = edit_overlong},
      {.name = "binary-bytes",
       .description = "NUL and broken UTF-8 in descriptions and object dumps",
       .shown = phase::parsing,
       .hides = reach::nothing,
       .counted = false,
       .edit = edit_binary},
  };
}

}  // namespace

std::vector<fault> collection_faults() {
  std::vector<fault> all;
  for (auto part : {platform_faults, tool_faults, silent_tool_faults, configuration_faults})
    for (fault& one : part()) all.push_back(one);
  return all;
}

}  // namespace lab
