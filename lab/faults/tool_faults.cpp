// Tools that are missing, print nothing, stop early or print garbage.
#include <fmt/format.h>

#include "lab/capture/answer_list.h"
#include "lab/faults/sites.h"
#include "lab/render/render.h"

namespace lab {
namespace {

// Some tools run, or matter, only on some routers.
bool is_asked(const router& r, std::string_view tool) {
  if (tool == "sw_version_show")
    return r.type != "fir";  // its nodes are invalid for an unknown model
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
  p.harmed = tool;
  const auto keys = answers_of(c, tool);
  for (const auto& key : keys) c.answers[key].clear();
  return !keys.empty() && is_asked(r, tool);
}

// What a node's shell says instead.
void answer_as_missing(capture& c, const std::pair<std::string, std::string>& key,
                       const std::string& tool) {
  const auto& [place, file] = key;
  const std::string answer = numbered_file(file, 1);
  c.answers[{place, answer}].clear();
  c.answers[{place, answer + std::string{complaint_suffix}}] =
      fmt::format("sh: 1: /opt/nos/bin/{}: not found\n", tool);
  c.answers[{place, file + std::string{list_suffix}}] =
      answer_list_text({{.status = 127, .number = 1, .complains = true}});
}

bool edit_tool_missing(capture& c, const router& r, planted_fault& p) {
  const std::string tool = p.argument.empty() ? "lagmgr_agent_show" : p.argument;
  p.harmed = tool;
  c.missing_tools.push_back(tool);
  const auto keys = answers_of(c, tool);
  for (const auto& key : keys) {
    if (key.first != local_place) answer_as_missing(c, key, tool);
    c.answers.erase(key);
  }
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

// Removes all objects of a type on one node, but leaves the heading.
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
  p.npu = static_cast<int>(s.m->npu);
  const std::string unit = fmt::format(",-u,{},-n,{}", s.m->npu, s.n->id);
  bool any = false;
  for (auto& [key, text] : c.answers)
    if (key.second.starts_with("asic_shell_show,") && key.second.ends_with(unit)) {
      text.clear();
      any = true;
    }
  return any;
}

// One chip's answer to a command. Null if no chip fits.
std::string* chip_answer(capture& c, const router& r, planted_fault& p, const char* command,
                         bool (*fits)(const site&)) {
  const site s = find_site(r, p, fits);
  if (!s) return nullptr;
  note_place(p, {nullptr, nullptr, s.n}, "");
  p.npu = static_cast<int>(s.m->npu);
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

constexpr fault garbled_tools[] = {
    {.name = "tool-empty",
     .description = "a tool prints nothing; =TOOL (default: lagmgr_table_show)",
     .finding = "INFO: BMPI dont have any bundle data",
     .at = checkpoint::pi_table,
     .hides = reach::router,
     .deepest = checkpoint::pi_bundle,
     .stops_from = phase::consistency,
     .edit = edit_tool_empty,
     .takes_argument = true},
    {.name = "tool-missing",
     .description = "a tool is missing; =TOOL (default: lagmgr_agent_show)",
     .finding = "INFO: Bundlemgr PD dont have any bundle data",
     .at = checkpoint::pd_bundle,
     .shown = phase::collecting,
     .hides = reach::router,
     .deepest = checkpoint::pd_node,
     .stops_from = phase::consistency,
     .edit = edit_tool_missing,
     .takes_argument = true,
     .argued_like = "tool-empty"},
    {.name = "pi-garbage",
     .description = "the bundle manager shows a handle that is not a number",
     .finding = "{}: parse_bundle_info_PI failed",
     .harms = "lagmgr_table_show",
     .at = checkpoint::pi_bundle,
     .shown = phase::collecting,
     .hides = reach::router,
     .deepest = checkpoint::pi_bundle,
     .stops_from = phase::consistency,
     .edit = edit_pi_handle},
    {.name = "pd-garbage",
     .description = "the agent shows a LAG id that is not a number",
     .finding = "{}: dump_parse_bundle_info_PD failed",
     .at = checkpoint::pd_node,
     .shown = phase::collecting,
     .hides = reach::router,
     .deepest = checkpoint::pd_node,
     .stops_from = phase::consistency,
     .plant = plant_pd_garbage},
    {.name = "lagport-empty",
     .description = "a node has no lagport objects and is left out",
     .finding = "INFO: DPA lagport object dont have any bundle data/no bundle member from, {node}",
     .harms = "fwd_object_show",
     .at = checkpoint::groundwork,
     .hides = reach::node,
     .edit = edit_lagports},
    {.name = "l1port-empty",
     .description = "a node has no l1port objects; its members are unknown",
     .finding = "INFO: DPA l1port object dont have any interface from, {node}",
     .harms = "fwd_object_show",
     .at = checkpoint::groundwork,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .edit = edit_l1ports},
    {.name = "l2port-empty",
     .description = "a node has no l2port objects and is left out",
     .finding = "INFO: DPA l2port object dont have any interface from, {node}",
     .harms = "fwd_object_show",
     .at = checkpoint::groundwork,
     .hides = reach::node,
     .edit = edit_l2ports},
    {.name = "l3intf-empty",
     .description = "a node has no l3intf objects and is left out",
     .finding = "INFO: DPA l3intf object dont have any interface from, {node}",
     .harms = "fwd_object_show",
     .at = checkpoint::groundwork,
     .hides = reach::node,
     .edit = edit_l3intfs},
    {.name = "chip-dump-empty",
     .description = "the chip shell of one NPU prints nothing",
     .finding =
         "INFO: BCM hardware dont have any bundle data/no bundle member from Location {node}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_lag,
     .shown = phase::collecting,
     .hides = reach::node,
     .edit = edit_chip_empty},
    {.name = "tm-lag-cut",
     .description = "a Jericho2 chip's list of LAGs breaks off in its first row",
     .finding = "{}: parse tm_lag output failed Location {node}, NPU {}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_member,
     .shown = phase::collecting,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .edit = edit_tm_lag},
    {.name = "diag-lag-garbage",
     .description = "an older chip's list of LAGs contains a number of 5000 digits",
     .finding = "{}: parse diag_lag output failed Location {node}, NPU {}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_member,
     .shown = phase::collecting,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .edit = edit_diag_lag},
    {.name = "diag-lag-no-id",
     .description = "an older chip's list of LAGs has one without a number",
     .finding = "Data Not Found: Not able to get lag id from diag_lag output, Location {node}, "
                "NPU {}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_member,
     .shown = phase::collecting,
     .hides = reach::node,
     .edit = edit_diag_lag_id},
    {.name = "mtu-map-garbage",
     .description = "a Jericho2 chip's MTU table has a row number of more than thirty digits",
     .finding = "{}: dump_tables_per_npu failed {node}",
     .harms = "asic_shell_show",
     .at = checkpoint::chip_member,
     .shown = phase::collecting,
     .hides = reach::node,
     .stops_from = phase::consistency,
     .edit = edit_mtu_map},
};

// The effect of each tool that is silent or missing. Planted as tool-empty or tool-missing.
constexpr fault silence[] = {
    {.name = "tool-empty=sw_version_show",
     .description = "the version tool prints nothing",
     .finding = "ERROR: Not able to get router type",
     .at = checkpoint::groundwork,
     .shown = phase::start,
     .stops_from = phase::collecting},
    {.name = "tool-empty=plat_nodes_show",
     .description = "the list of nodes is empty; the members' ports are unknown",
     .finding = "{}: get_member_pp_port failed for {}",
     .also = {{"{}: parse_vlan_domain failed", checkpoint::groundwork, phase::parsing}},
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .stops_from = phase::consistency},
    {.name = "tool-empty=node_id_convert",
     .description = "the node id tool prints nothing",
     .finding = "{}: dump data failed",
     .at = checkpoint::groundwork,
     .stops_from = phase::collecting},
    {.name = "tool-empty=board_api_probe",
     .description = "the boards of an aspen print nothing",
     .finding = "ERROR: Not able to get node id for {}",
     .at = checkpoint::groundwork,
     .stops_from = phase::collecting},
    {.name = "tool-empty=fwd_object_show",
     .description = "no node prints a forwarding object",
     .finding = "INFO: DPA lagport object dont have any bundle data/no bundle member from, {}",
     .also = {{"{}: get_member_pp_port failed for {}", checkpoint::groundwork, phase::parsing}},
     .at = checkpoint::groundwork,
     .stops_from = phase::consistency},
    {.name = "tool-empty=asic_shell_show",
     .description = "no chip shell prints anything, the list of chip units included",
     .finding = "INFO: BCM hardware dont have any bundle data/no bundle member from Location {}",
     .at = checkpoint::chip_units},
    {.name = "tool-empty=lagmgr_agent_show",
     .description = "the agents print nothing",
     .finding = "INFO: Bundlemgr PD dont have any bundle data",
     .at = checkpoint::pd_bundle,
     .shown = phase::collecting,
     .deepest = checkpoint::pd_node,
     .stops_from = phase::consistency},
    {.name = "tool-empty=cfg_render",
     .description = "the running configuration is empty",
     .finding = "INFO: No Bundle is configured/No member is added to Bundle",
     .also = {{"PARSE-ERROR: Not able to find the start of the running config",
               checkpoint::groundwork}},
     .at = checkpoint::groundwork,
     .shown = phase::parsing,
     .deepest = checkpoint::configuration,  // the findings of the configuration itself
     .stops_from = phase::consistency},
    {.name = "tool-empty=ifmgr_show",
     .description = "the interface manager lists no interfaces",
     .finding = "Inconsistency {}:Data for sub-bundle {} not found in IM database",
     .at = checkpoint::im_sub},
    {.name = "tool-empty=iface_show",
     .description = "the interface listing is empty",
     .finding = "{}: BM PI verification failed for {},{}({}), {}",
     .at = checkpoint::port_listing},
    {.name = "tool-empty=lagmgr_health",
     .description = "the bundle manager's own check prints nothing",
     .at = checkpoint::health_report,
     .counted = false},
};
constexpr auto silent_tools = hiding(reach::router, silence);

}  // namespace

std::span<const fault> tool_faults() {
  return garbled_tools;
}

std::span<const fault> silent_tool_faults() {
  return silent_tools;
}

}  // namespace lab
