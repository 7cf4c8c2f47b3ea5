#include "desk/model/coverage.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "desk/model/command_lines.h"
#include "desk/model/finding_source.h"
#include "desk/model/numbers.h"

namespace desk {

namespace {

constexpr std::array forwarding_tables = {source::lagport, source::l1port, source::l2port,
                                          source::l2intf, source::l3intf};
constexpr std::string_view store_of_nodes = "VM information";
constexpr std::string_view command_for_interfaces = "iface_show -i '.*'";
constexpr std::string_view command_for_interface_db = "ifmgr_show database -l 0x1 -a";
constexpr std::string_view words_for_no_address = "the list of nodes has no address for it";
constexpr std::string_view list_of_units =
    "/opt/nos/bin/asic_shell_show -c \"show unit\" -u all -n A";

const node* node_named(const run& of, std::string_view name) {
  const std::int16_t index = of.node_index(name);
  return index == no_place ? nullptr : &of.nodes[static_cast<std::size_t>(index)];
}

// What is asked of the findings, the members and the journal for each node and chip.
struct covering {
  explicit covering(run& of_run);
  run& of;
  using list = std::vector<const finding*>;
  std::map<std::string_view, list> by_code{};
  std::map<std::pair<std::string_view, std::string_view>, list> by_code_and_node{};
  // By index in run::nodes: one is configured there, or an agent there knows one.
  std::vector<bool> has_members;
  std::set<std::pair<std::int16_t, std::int16_t>> chips_with_members{};
  using commands = std::vector<const journal_command*>;
  std::map<layer, commands> by_layer{};
  std::map<std::pair<layer, std::string_view>, commands> by_layer_and_node{};
};

// The first finding with one of these codes, about this node and NPU where they are not empty.
const finding* finding_with(const covering& in, const std::vector<std::string_view>& codes,
                            std::string_view node = {}, std::string_view npu = {}) {
  const finding* first = nullptr;
  const auto is_about = [&](const finding* one) {
    return npu.empty() || one->npu.empty() || one->npu == npu;
  };
  const auto take_first = [&](const auto& lists, const auto& key) {
    const auto at = lists.find(key);
    if (at == lists.end()) return;
    const auto found = std::find_if(at->second.begin(), at->second.end(), is_about);
    // They all are in one vector.
    if (found != at->second.end() && (first == nullptr || *found < first)) first = *found;
  };
  for (const std::string_view code : codes) {
    if (node.empty())
      take_first(in.by_code, code);
    else
      take_first(in.by_code_and_node, std::pair(code, node));
  }
  return first;
}

// A command that could not be run or whose output could not be kept, by a part of its text.
const finding* refused_command(const covering& in, std::string_view part,
                               std::string_view also = {}) {
  const auto refused = in.by_code.find("TC-701");
  if (refused == in.by_code.end()) return nullptr;
  for (const finding* one : refused->second)
    if (one->text.find(part) != std::string::npos && one->text.find(also) != std::string::npos)
      return one;
  return nullptr;
}

// Whether a text holds a name or an address as a whole: 192.0.0.1 is no part of 192.0.0.16.
bool holds_word(std::string_view text, std::string_view word) {
  const auto goes_on = [](char c) { return (c >= '0' && c <= '9') || c == '.' || c == '_'; };
  for (std::size_t at = text.find(word); !word.empty() && at != std::string_view::npos;
       at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    const bool is_whole_before = at == 0 || !goes_on(text[at - 1]);
    const bool is_whole_behind = end == text.size() || !goes_on(text[end]) || text[end] == '.';
    if (is_whole_before && is_whole_behind) return true;
  }
  return false;
}

// What a tool itself complained about, in the debug log.
std::string complaint_with(const run& of, std::string_view part) {
  for (const std::string& one : of.complaints)
    if (holds_word(one, part)) return one;
  return {};
}

std::size_t entries_of(const run& of, source from, std::int16_t node, std::int16_t npu) {
  const auto at = of.tables.find({from, node, npu});
  return at == of.tables.end() ? 0 : at->second;
}

bool has_table(const run& of, source from, std::int16_t node, std::int16_t npu) {
  return of.tables.contains({from, node, npu});
}

std::string_view store_of(layer one) {
  switch (one) {
    case layer::config:
      return "TESSELDB";
    case layer::pi:
      return "BM PI";
    case layer::pd:
      return "BM PD";
    case layer::dpa:
      return "DPA";
    case layer::bcm:
      return "BCM";
    case layer::none:
      break;
  }
  return {};
}

bool is_unread(const run& of, std::string_view store) {
  const auto at = of.stores.find(std::string(store));
  return at != of.stores.end() && at->second == store_unread;
}

std::string words_for_unread(std::string_view store) {
  return fmt::format("the dump of {} in the debug log is in a form that cannot be read", store);
}

bool is_unread(const run& of, layer one) {
  return is_unread(of, store_of(one));
}

// What ended the run before it asked the layers.
const finding* early_end(const covering& in) {
  return finding_with(in, {"TC-702", "TC-703", "TC-704"});
}

// ---- The router as a whole ----------------------------------------------------------------------

struct whole_layer {
  layer of;
  source from;
  std::string_view tool;
  std::vector<std::string_view> not_understood;
};

coverage cover_whole(const covering& in, const whole_layer& one) {
  coverage entry;
  entry.of = one.of;
  entry.command = command_for(in.of, one.from, {}, {});
  if (const finding* refused = refused_command(in, one.tool)) {
    entry.state = coverage_state::failed;
    entry.reason = refused->text;
    return entry;
  }
  const finding* failure = finding_with(in, one.not_understood);
  const bool has_entries = entries_of(in.of, one.from, no_place, no_place) != 0;
  if (failure != nullptr) {
    entry.state = has_entries ? coverage_state::partly : coverage_state::not_understood;
    entry.reason = failure->text;
    return entry;
  }
  if (has_entries) {
    entry.state = coverage_state::read;
    return entry;
  }
  if (!in.of.has_snapshot) {
    entry.reason = "the logs hold no snapshot of this run";
    return entry;
  }
  if (const finding* lost = finding_with(in, {"TC-765", "TC-766"})) {
    entry.reason = lost->text;
    return entry;
  }
  if (const finding* early = early_end(in)) {
    entry.reason = fmt::format("the run ended before it could ask: {}", early->text);
    return entry;
  }
  if (in.of.end == run_end::cut_off) {
    entry.reason = "the snapshot ends before it";
    return entry;
  }
  entry.state = coverage_state::empty;
  entry.reason = complaint_with(in.of, one.tool);
  if (!entry.reason.empty()) entry.state = coverage_state::failed;
  if (entry.reason.empty()) entry.reason = fmt::format("{} shows no bundle with members", one.tool);
  return entry;
}

// ---- A node -------------------------------------------------------------------------------------

// Why a node takes no part in the run.
const finding* note_of_platform(const covering& in, const node& at) {
  return finding_with(in, {"TC-602", "TC-603", "TC-604", "TC-605"}, at.name);
}

std::string why_left_out(const covering& in, const node& at) {
  if (const finding* note = note_of_platform(in, at)) return note->text;
  if (at.role == "Standby") return "standby route processor";
  if (!at.band.empty() && at.band != "FINAL")
    return fmt::format("its software is in band {}", at.band);
  if (at.address.empty()) return std::string(words_for_no_address);
  return "left out by the platform's list of nodes";
}

bool has_members(const covering& in, const node& at) {
  return in.has_members[static_cast<std::size_t>(&at - in.of.nodes.data())];
}

void cover_agent(covering& in, const node& at, const coverage& whole) {
  coverage entry;
  entry.of = layer::pd;
  entry.node = at.name;
  entry.command = command_for(in.of, source::agent, {}, {});
  if (entries_of(in.of, source::agent, in.of.node_index(at.name), no_place) != 0) {
    entry.state = coverage_state::read;
  } else {
    entry.state = whole.state == coverage_state::read ? coverage_state::empty : whole.state;
    entry.reason = whole.state == coverage_state::read
                       ? "the agents' table has no bundle for this node"
                       : whole.reason;
    // Of a node without members nobody asks its agent, and the agents do not report a live standby
    // route processor.
    entry.is_normal =
        entry.state == coverage_state::empty && (at.role == "Standby" || !has_members(in, at));
    const std::string complaint = complaint_with(in.of, tool_of(source::agent));
    if (entry.state == coverage_state::empty && !entry.is_normal && !complaint.empty()) {
      entry.state = coverage_state::failed;
      entry.reason = complaint;
    }
  }
  in.of.covered.push_back(std::move(entry));
}

// What the tables of the forwarding layer that are not there have in common.
void explain_forwarding(const covering& in, const node& at, coverage& entry) {
  if (at.address.empty()) {
    entry.state = coverage_state::never_asked;
    entry.reason = words_for_no_address;
    return;
  }
  const std::string complaint = complaint_with(in.of, at.address);
  if (!complaint.empty()) {
    entry.state = coverage_state::failed;
    entry.reason = complaint;
    return;
  }
  if (const finding* refused = refused_command(in, "fwd_object_show", at.address)) {
    entry.state = coverage_state::failed;
    entry.reason = refused->text;
  } else if (const finding* failed = finding_with(
                 in, {"TC-708", "TC-713", "TC-714", "TC-715", "TC-716", "TC-717"}, at.name)) {
    entry.state = coverage_state::not_understood;
    entry.reason = failed->text;
    entry.command = command_for(in.of, source_of(*failed), at.name, {});
  } else if (const finding* note =
                 finding_with(in, {"TC-611", "TC-612", "TC-613", "TC-614"}, at.name)) {
    entry.reason = note->text;
    entry.command = command_for(in.of, source_of(*note), at.name, {});
  } else {
    entry.reason = "it prints no objects";
  }
}

// Tables that a node may lack in health: ports where it has none, layer 3 where nothing is routed.
bool may_be_empty(const covering& in, const node& at, source table) {
  if (table == source::lagport || table == source::l2port) return !has_members(in, at);
  // Of a standby route processor the ports are not asked.
  if (table == source::l1port) return !has_members(in, at) || at.role == "Standby";
  return true;
}

// Whether any table of the node's forwarding layer has an entry: then its chips and its other
// tables have the bundles too.
bool holds_bundles(const covering& in, const node& at) {
  const std::int16_t index = in.of.node_index(at.name);
  return std::any_of(forwarding_tables.begin(), forwarding_tables.end(),
                     [&](source table) { return entries_of(in.of, table, index, no_place) != 0; });
}

// A route processor without ports has nothing to show, unless another of its tables does: what that
// holds nobody compares once the audit has left the node out. The chips of a line card have the
// LAGs of all bundles, also of those without a member there.
bool may_be_bare(const covering& in, const node& at) {
  return at.type != "LC" && !has_members(in, at) && !holds_bundles(in, at);
}

void cover_forwarding(covering& in, const node& at) {
  coverage entry;
  entry.of = layer::dpa;
  entry.node = at.name;
  entry.command = command_for(in.of, source::lagport, at.name, {});
  const std::int16_t index = in.of.node_index(at.name);
  std::vector<std::string_view> missing;
  std::size_t held = 0;
  for (const source table : forwarding_tables) {
    if (entries_of(in.of, table, index, no_place) != 0)
      ++held;
    else if (!may_be_empty(in, at, table))
      missing.push_back(tool_of(table).substr(tool_of(table).rfind(' ') + 1));
  }
  const bool has_failure =
      finding_with(in, {"TC-708", "TC-713", "TC-714", "TC-715", "TC-716", "TC-717"}, at.name) !=
      nullptr;
  if (held != 0 && missing.empty() && !has_failure) {
    entry.state = coverage_state::read;
  } else {
    entry.state = coverage_state::empty;
    explain_forwarding(in, at, entry);
    if (held != 0 && entry.state != coverage_state::never_asked) {
      if (!missing.empty())
        entry.reason = fmt::format("no {}: {}", fmt::join(missing, ", "), entry.reason);
      entry.state = coverage_state::partly;
    }
    if (!in.of.has_snapshot) {
      entry.state = coverage_state::unknown;
      entry.reason = "the logs hold no snapshot of this run";
    } else if (const finding* early = held == 0 ? early_end(in) : nullptr) {
      entry.state = coverage_state::unknown;
      entry.reason = fmt::format("the run ended before it could ask: {}", early->text);
    }
    // Without ports there is nothing to hold. A node that did not answer is another matter.
    entry.is_normal = entry.state == coverage_state::empty && missing.empty() && at.type != "LC";
  }
  in.of.covered.push_back(std::move(entry));
}

void cover_chip(covering& in, const node& at, const std::string& npu) {
  coverage entry;
  entry.of = layer::bcm;
  entry.node = at.name;
  entry.npu = npu;
  entry.command = command_for(in.of, source::chip_lag, at.name, npu);
  const std::int16_t index = in.of.node_index(at.name);
  const auto number = npu_in(npu);
  const finding* failure = finding_with(in, {"TC-718", "TC-719"}, at.name, npu);
  if (failure == nullptr) failure = finding_with(in, {"TC-709", "TC-710"}, at.name);
  if (failure != nullptr) {
    const bool is_dump = failure->code == "TC-709" || failure->code == "TC-710";
    entry.state = is_dump ? coverage_state::failed : coverage_state::not_understood;
    entry.reason = failure->text;
  } else if (const finding* note = finding_with(in, {"TC-615"}, at.name)) {
    entry.state = coverage_state::empty;
    entry.reason = note->text;
    entry.is_normal = may_be_bare(in, at);
  } else if (!at.has_supported_asic) {
    entry.state = coverage_state::never_asked;
    entry.reason = fmt::format("chips of the family {} are not supported", at.asic);
  } else if (at.address.empty() && !has_table(in.of, source::chip_lag, index, number)) {
    entry.state = coverage_state::never_asked;
    entry.reason = words_for_no_address;
  } else if (!in.of.has_chip_tables) {
    entry.reason =
        in.of.end == run_end::complete
            ? "the logs hold no chip tables: the check of stale entries failed before it kept them"
            : "the logs hold no chip tables: the run ended before it compared them";
  } else if (number == no_place) {
    entry.reason = "the list of nodes gives no number for this chip";
  } else if (entries_of(in.of, source::chip_lag, index, number) != 0) {
    entry.state = coverage_state::read;
  } else if (has_table(in.of, source::chip_lag, index, number)) {
    entry.state = coverage_state::empty;
    entry.reason = "the chip shows no LAG";
    entry.is_normal = may_be_bare(in, at);
  } else if (!is_unread(in.of, layer::bcm)) {
    entry.state = coverage_state::failed;
    entry.reason = "the run has no tables of this chip";
  }
  in.of.covered.push_back(std::move(entry));
}

// The audit leaves a node out of the rest of the run when a layer of it turns out to be empty.
coverage cover_left_out(const covering& in, const node& at) {
  coverage entry;
  entry.node = at.name;
  entry.of = layer::dpa;
  entry.state = coverage_state::never_asked;
  entry.command = command_for(in.of, source::lagport, at.name, {});
  const finding* note =
      finding_with(in, {"TC-611", "TC-612", "TC-613", "TC-614", "TC-615"}, at.name);
  if (note == nullptr) {
    entry.reason = why_left_out(in, at);
    if (const finding* why = note_of_platform(in, at))
      entry.command = command_for_platform(in.of, *why);
    return entry;
  }
  entry.of = note->of;
  const std::string complaint = complaint_with(in.of, at.address);
  entry.state = complaint.empty() ? coverage_state::empty : coverage_state::failed;
  entry.reason = complaint.empty() ? note->text : complaint;
  if (complaint.empty() || entry.of == layer::bcm)
    entry.command = command_for(in.of, source_of(*note), at.name, {});
  entry.is_normal = complaint.empty() && may_be_bare(in, at);
  return entry;
}

void add_unasked(covering& in, const node& at, std::string npu, std::string reason,
                 std::string command) {
  coverage entry;
  entry.of = layer::bcm;
  entry.node = at.name;
  entry.npu = std::move(npu);
  entry.state = coverage_state::never_asked;
  entry.reason = std::move(reason);
  entry.command = std::move(command);
  in.of.covered.push_back(std::move(entry));
}

// Without a place in the platform's list of units the audit asks no chip of the node, or NPU 0
// only.
void cover_unlisted_chips(covering& in, const node& at) {
  if (!at.npus.empty() && !at.asic.empty()) return;
  if (at.type != "LC" && !(at.npus.empty() && has_members(in, at))) return;
  const std::string_view lacks =
      at.asic.empty() ? "does not have it" : "gives no chip of it a place";
  add_unasked(in, at, {},
              at.npus.empty()
                  ? fmt::format("the platform's list of chip units {}", lacks)
                  : fmt::format("the platform's list of chip units {}, so NPU {} was asked, and "
                                "which others it has is unknown",
                                lacks, fmt::join(at.npus, ", ")),
              std::string(list_of_units));
}

// Of most types of router the audit asks NPU 0 of each node only, but members may sit on another.
void cover_unasked_chips(covering& in, const node& at) {
  const std::int16_t index = in.of.node_index(at.name);
  std::set<std::int16_t> asked;
  for (const std::string& npu : at.npus) asked.insert(npu_in(npu));
  for (const auto& [node, npu] : in.chips_with_members) {
    if (at.npus.empty() || node != index || npu == no_place || asked.contains(npu)) continue;
    const std::string name = std::to_string(npu);
    add_unasked(in, at, name,
                fmt::format("members sit on it, and of this node the audit asks NPU {} only",
                            fmt::join(at.npus, ", ")),
                command_for(in.of, source::chip_lag, at.name, name));
  }
}

void cover_node(covering& in, const node& at, const coverage& agents) {
  if (!at.takes_part) {
    in.of.covered.push_back(cover_left_out(in, at));
    return;
  }
  cover_agent(in, at, agents);
  cover_forwarding(in, at);
  for (const std::string& npu : at.npus) cover_chip(in, at, npu);
  cover_unasked_chips(in, at);
  cover_unlisted_chips(in, at);
}

// What the chips' shell is asked for one of its tables.
std::string_view chip_command(source from, bool is_jericho2) {
  switch (from) {
    case source::chip_mtu:
      return is_jericho2 ? "dump ETPPC_EDITING_PER_PORT_TABLE"
                         : "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE";
    case source::chip_domain:
      return is_jericho2 ? "dbal table dump table=INGRESS_PP_PORT" : "d IHP_VTT_IN_PP_PORT_CONFIG";
    case source::chip_entry:
      return is_jericho2 ? "dbal table dump table=ING_VSI_INFO_DB" : "d IHP_VSI_LOW_CFG_1";
    default:
      break;
  }
  return is_jericho2 ? "tm lag" : "diag lag";
}

// Without a list of nodes nothing is asked of any.
void cover_inventory(covering& in) {
  const bool has_node = std::any_of(in.of.nodes.begin(), in.of.nodes.end(),
                                    [](const node& at) { return !at.is_empty_slot; });
  const bool is_cut = in.of.end == run_end::cut_off;
  const bool is_other_form = is_unread(in.of, store_of_nodes);
  if (!in.of.has_snapshot || (has_node && !is_cut && !is_other_form)) return;
  const bool is_explained =
      finding_with(in, {"TC-702", "TC-703", "TC-704", "TC-765", "TC-766"}) != nullptr;
  if (is_explained && !is_other_form) return;
  coverage entry;
  entry.state = coverage_state::empty;
  entry.reason = "plat_nodes_show lists no node";
  if (is_cut) {
    entry.state = coverage_state::unknown;
    entry.reason = "the snapshot is cut off in the list of nodes, or before it";
  } else if (is_other_form) {
    entry.state = coverage_state::not_understood;
    entry.reason = words_for_unread(store_of_nodes);
  }
  entry.command = list_of_nodes;
  in.of.covered.push_back(std::move(entry));
}

}  // namespace

const coverage* coverage_of(const run& of, layer of_layer, std::string_view node,
                            std::string_view npu) {
  for (const coverage& one : of.covered)
    if (one.of == of_layer && one.node == node && one.npu == npu) return &one;
  return nullptr;
}

bool is_hole(const coverage& entry) {
  switch (entry.state) {
    case coverage_state::read:
      return false;
    case coverage_state::never_asked:
      return entry.reason != "standby route processor";
    default:
      return !entry.is_normal;
  }
}

std::string command_for(const run& of, source from, std::string_view node, std::string_view npu) {
  const desk::node* at = node_named(of, node);
  switch (from) {
    case source::running_config:
      return "cfg_render -c -l 1 -t 1 -o 1";
    case source::bundle_manager:
      return "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all";
    case source::interfaces:
      return std::string(command_for_interfaces);
    case source::interface_db:
      return std::string(command_for_interface_db);
    case source::agent:
      return "lagmgr_agent_show -m -a all";
    case source::none:
      return {};
    default:
      break;
  }
  if (at == nullptr) return {};
  if (layer_of(from) == layer::dpa)
    return command_on_node(*at, fmt::format("{} -D", tool_of(from)));
  return command_on_chips(*at, npu, chip_command(from, at->asic == jericho2));
}

namespace {

// What the route processor denied to the audit itself.
std::string_view command_for_machine(std::string_view message) {
  const bool is_refused = message.starts_with("cannot ") ||
                          message.find(": cannot write /var/log") != std::string_view::npos;
  if (!is_refused) return {};
  if (message.find("/var/log/") != std::string_view::npos) return "df /var/log; ls -l /var/log";
  return message.find("/tmp") == std::string_view::npos ? "" : "df /tmp; ls -ld /tmp/tessel*";
}

}  // namespace

std::string command_for_platform(const run& of, const finding& message) {
  if (const std::string_view command = command_for_machine(message.text); !command.empty())
    return std::string(command);
  if (message.code == "TC-603" || message.code == "TC-604" || message.code == "TC-703")
    return std::string(list_of_nodes);
  if (message.code == "TC-601" || message.code == "TC-602") return std::string(list_of_units);
  // A port that no node's objects have: its card may be down.
  if (message.code == "TC-724" && message.node.empty()) return std::string(list_of_nodes);
  // Two types of router know a node's id from different tools.
  const bool is_of_board =
      message.code == "TC-605" || message.text.starts_with("no second node id");
  if (is_of_board) {
    const node* at = node_named(of, message.node);
    return at == nullptr || at->address.empty() ? std::string("/opt/nos/bin/board_api_probe")
                                                : command_on_node(*at, "board_api_probe");
  }
  if (message.code != "TC-704") return {};
  const auto has_id = [](const node& one) { return one.is_empty_slot || !one.id.empty(); };
  const auto lost = std::find_if_not(of.nodes.begin(), of.nodes.end(), has_id);
  return command_for_id(lost == of.nodes.end() ? "NODE" : lost->name);
}

namespace {

// ---- By the journal -----------------------------------------------------------------------------

// Belongs to PI, and the snapshot has no table of what it prints.
struct side_tool {
  std::string_view name;
  std::string_view command;
};
constexpr std::string_view tool_of_interface_db = "ifmgr_show";
constexpr std::array side_tools =
    std::to_array<side_tool>({{"iface_show", command_for_interfaces},
                              {tool_of_interface_db, command_for_interface_db},
                              {"lagmgr_health", "lagmgr_health"}});

layer layer_of_command(std::string_view command) {
  if (command.find("fwd_object_show") != std::string_view::npos) return layer::dpa;
  if (command.find("lagmgr_agent_show") != std::string_view::npos) return layer::pd;
  if (command.find("lagmgr_table_show") != std::string_view::npos) return layer::pi;
  if (command.find("cfg_render") != std::string_view::npos) return layer::config;
  for (const side_tool& one : side_tools)
    if (command.find(one.name) != std::string_view::npos) return layer::pi;
  if (command.find("asic_shell_show") != std::string_view::npos &&
      command.find("show unit") == std::string_view::npos)
    return layer::bcm;
  return layer::none;
}

// How a command ended, if that is what hides the layer: it did not end, failed, or printed nothing.
std::string trouble_of(const covering& in, const journal_command& command) {
  if (!command.failed.empty()) return command.failed;
  if (!command.has_ended)
    return in.of.log_of_commands->lacks_lines ? "" : "it had not ended when the run did";
  if (command.is_timed_out) return "ended, because its time was over";
  if (command.signal) return fmt::format("ended by signal {}", *command.signal);
  // 1 is also what grep says of an output in which it found nothing.
  if (command.status && *command.status > 1)
    return fmt::format("exit status {}, {} bytes", *command.status, command.bytes.value_or(0));
  return command.bytes == 0U ? "printed nothing" : "";
}

// Of a chip with members each table has a line at least, but for the one that lists the ports with
// an MTU of their own.
bool lacks_a_table(const covering& in, const coverage& entry, const journal_command& command) {
  const std::int16_t node = in.of.node_index(entry.node);
  return entry.of == layer::bcm && command.bytes == 0U &&
         command.command.find("ETPPC_EDITING_PER_PORT_TABLE") == std::string::npos &&
         in.chips_with_members.contains({node, npu_in(entry.npu)});
}

// The audit looks up only sub-bundles in the interface database, and the report of health may be
// about the route processors' agreement only.
bool may_print_nothing(const covering& in, const side_tool& tool) {
  if (tool.name == tool_of_interface_db)
    return std::none_of(in.of.objects.begin(), in.of.objects.end(),
                        [](const object& one) { return one.kind == object_kind::sub_bundle; });
  if (tool.name != "lagmgr_health") return false;
  const route_processors all = route_processors_of(in.of);
  return all.active.size() + all.standby.size() < 2;
}

// In a journal that lacks lines a command may have ended all the same.
bool is_cut_short(const covering& in, const journal_command& command) {
  const bool is_open = !command.has_ended && !in.of.log_of_commands->lacks_lines;
  return is_open || command.is_timed_out || command.signal;
}

// The tool of PI of which this command has not all that it should, or nothing.
const side_tool* troubled_tool(const covering& in, const journal_command& command) {
  const auto tool = std::find_if(side_tools.begin(), side_tools.end(), [&](const side_tool& one) {
    return command.command.find(one.name) != std::string::npos;
  });
  if (tool == side_tools.end()) return nullptr;
  if (!command.failed.empty() || command.status.value_or(0) > 1) return tool;
  if (is_cut_short(in, command)) return tool;
  const bool is_silent = command.bytes == 0U && !may_print_nothing(in, *tool);
  return is_silent ? tool : nullptr;
}

const covering::commands& commands_about(const covering& in, const coverage& entry) {
  static const covering::commands none;
  if (entry.node.empty()) {
    const auto at = in.by_layer.find(entry.of);
    return at == in.by_layer.end() ? none : at->second;
  }
  const auto at = in.by_layer_and_node.find({entry.of, entry.node});
  return at == in.by_layer_and_node.end() ? none : at->second;
}

// What the reader of a hole has to ask: not the layer's table, if that was read.
void ask_tool(coverage& entry, const side_tool& tool) {
  if (entry.state == coverage_state::read)
    entry.command = tool.command;
  else if (entry.command.find(tool.command) == std::string::npos)
    entry.command += fmt::format("; {}", tool.command);
}

void add_journal(const covering& in, coverage& entry) {
  if (!in.of.log_of_commands) return;
  for (const journal_command* about : commands_about(in, entry)) {
    const journal_command& one = *about;
    if (!entry.npu.empty() && one.npu != entry.npu) continue;
    ++entry.commands;
    entry.seconds += one.seconds;
    entry.bytes += one.bytes.value_or(0);
    const std::string trouble = trouble_of(in, one);
    // What a command has printed before it was ended is in the tables, and the rest is not.
    const side_tool* troubled = entry.of == layer::pi ? troubled_tool(in, one) : nullptr;
    if (troubled != nullptr) ask_tool(entry, *troubled);
    if (troubled != nullptr && troubled->name == tool_of_interface_db)
      entry.interface_db = interface_db_state::lost;
    if (entry.state == coverage_state::read &&
        (is_cut_short(in, one) || lacks_a_table(in, entry, one) || troubled != nullptr)) {
      entry.state = coverage_state::partly;
      entry.has_trouble = true;
      entry.reason = fmt::format("`{}`: {}", shown_call(one), trouble);
    }
    if (trouble.empty() || entry.state == coverage_state::read || entry.has_trouble) continue;
    entry.has_trouble = true;
    entry.reason = fmt::format("{}; `{}`: {}", entry.reason, shown_call(one), trouble);
    if (entry.state == coverage_state::unknown) entry.state = coverage_state::empty;
  }
  // A chip whose every command printed something was read, even if its tables are not in the logs.
  const bool is_note_of_node = entry.of == layer::bcm && entry.state == coverage_state::empty &&
                               !entry.npu.empty() && !entry.has_trouble && entry.commands != 0;
  if (is_note_of_node) {
    entry.state = coverage_state::unknown;
    entry.reason = fmt::format("{}; this chip printed {} bytes", entry.reason, entry.bytes);
  }
}

// What a dump shows before it is cut off was read, and more may have been.
void mark_cut_off(const run& of, coverage& entry) {
  const auto store = of.stores.find(std::string(store_of(entry.of)));
  if (entry.state != coverage_state::read || store == of.stores.end()) return;
  if (store->second != store_cut_off) return;
  entry.state = coverage_state::partly;
  entry.reason = fmt::format("the dump of {} in the debug log is cut off", store->first);
}

// Of a dump in another form than JSON nothing is known, unless it began as one.
void mark_unread(const run& of, coverage& entry) {
  if (!is_unread(of, entry.of)) return;
  const bool is_begun =
      entry.state == coverage_state::read || entry.state == coverage_state::partly;
  const bool is_open =
      is_begun || entry.state == coverage_state::empty || entry.state == coverage_state::unknown;
  if (!is_open) return;
  entry.state = is_begun ? coverage_state::partly : coverage_state::not_understood;
  entry.is_normal = false;
  entry.reason = words_for_unread(store_of(entry.of));
}

// Tools beside the bundle manager's table that could not be asked, or complained.
void mark_side_tools(const covering& in, coverage& entry) {
  if (entry.of != layer::pi) return;
  const bool was_read = entry.state == coverage_state::read;
  for (const side_tool& one : side_tools) {
    const finding* refused = refused_command(in, one.name);
    const std::string why = refused != nullptr ? refused->text : complaint_with(in.of, one.name);
    if (why.empty()) continue;
    if (one.name == tool_of_interface_db)
      entry.interface_db =
          refused != nullptr ? interface_db_state::lost : interface_db_state::complained;
    if (!was_read) continue;
    ask_tool(entry, one);
    if (entry.state == coverage_state::read)
      entry.reason = why;
    else if (entry.reason.find(why) == std::string::npos)
      entry.reason += fmt::format("; {}", why);
    entry.state = coverage_state::partly;
  }
}

// A layer that was read, in a form that is not known here.
void mark_not_understood(const run& of, coverage& entry) {
  const auto why = of.not_understood.find(entry.of);
  if (entry.state != coverage_state::read || why == of.not_understood.end()) return;
  entry.state = coverage_state::not_understood;
  entry.reason = why->second;
}

// A capture can lack the output of a command, or hold what nobody understands.
void mark_chip_troubles(const run& of, coverage& entry) {
  if (entry.of != layer::bcm || entry.state != coverage_state::read) return;
  const auto why = of.chip_troubles.find({of.node_index(entry.node), npu_in(entry.npu)});
  if (why == of.chip_troubles.end()) return;
  entry.state = coverage_state::partly;
  entry.reason = why->second;
}

// Also with one that is left out: what a standby lacks that was asked is a hole.
void share_with_standby(covering& in) {
  const std::set<std::pair<std::int16_t, std::int16_t>> own = in.chips_with_members;
  const route_processors all = route_processors_of(in.of);
  for (const auto& [node, npu] : own) {
    if (!std::binary_search(all.active.begin(), all.active.end(), static_cast<std::size_t>(node)))
      continue;
    for (const std::size_t at : all.standby)
      in.chips_with_members.emplace(static_cast<std::int16_t>(at), npu);
  }
}

covering::covering(run& of_run) : of(of_run), has_members(of_run.nodes.size()) {
  for (const finding& one : of.findings) {
    by_code[one.code].push_back(&one);
    by_code_and_node[{one.code, one.node}].push_back(&one);
  }
  for (const object& one : of.objects) {
    if (one.kind != object_kind::member) continue;
    for (const cell& c : one.cells)
      if (c.from == source::agent && c.node != no_place)
        has_members[static_cast<std::size_t>(c.node)] = true;
  }
  for (const auto& [member, at] : of.places)
    if (at.node != no_place) chips_with_members.emplace(at.node, at.npu);
  share_with_standby(*this);
  for (const auto& [node, npu] : chips_with_members)
    has_members[static_cast<std::size_t>(node)] = true;
  if (!of.log_of_commands) return;
  for (const journal_command& one : of.log_of_commands->commands) {
    const layer asked = layer_of_command(one.command);
    by_layer[asked].push_back(&one);
    by_layer_and_node[{asked, one.node}].push_back(&one);
  }
}

}  // namespace

void fill_coverage(run& of) {
  covering in(of);
  const std::array<whole_layer, 3> layers = {
      whole_layer{layer::config,
                  source::running_config,

                  "cfg_render",
                  {"TC-705", "TC-720", "TC-721", "TC-723"}},
      whole_layer{layer::pi,
                  source::bundle_manager,

                  "lagmgr_table_show",
                  {"TC-711", "TC-606", "TC-607"}},
      whole_layer{layer::pd, source::agent, "lagmgr_agent_show", {"TC-712"}}};
  for (const whole_layer& one : layers) of.covered.push_back(cover_whole(in, one));
  const coverage agents = of.covered.back();
  cover_inventory(in);
  for (std::size_t i = 0; i < of.nodes.size(); ++i)
    if (!of.nodes[i].is_empty_slot) cover_node(in, of.nodes[i], agents);
  for (coverage& entry : of.covered) {
    mark_cut_off(of, entry);
    mark_unread(of, entry);
    mark_not_understood(of, entry);
    mark_chip_troubles(of, entry);
    mark_side_tools(in, entry);
    add_journal(in, entry);
  }
}

}  // namespace desk
