#include "desk/model/layers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "desk/model/numbers.h"
#include "desk/model/pending.h"
#include "desk/read/snapshot.h"

namespace desk {

namespace {

constexpr std::string_view unset = "Not set";
constexpr std::size_t most_complaints = 200;
constexpr std::size_t most_notes = 10'000;

// Compares with a literal as with one number; a million keys are compared with a few words each.
template <std::size_t Size>
[[gnu::always_inline]] inline bool is(std::string_view text, const char (&word)[Size]) {
  return same_text(text, std::string_view(word, Size - 1));
}

// The record of a member is a copy of its port object, until the bundle manager is asked for the
// handle and behind that the interface listing for the MTU.
struct member_record {
  std::size_t member = 0;
  bool has_handle = false;
  std::optional<text_id> mtu{};
};

// A port in a chip's LAG whose id is a sub-bundle's.
struct sub_bundle_port {
  text_id lag = 0;
  std::int16_t node = no_place;
  std::int16_t npu = no_place;
  text_id port = 0;
};

// What is looked up again and again with the same words: lines of one object follow each other.
struct last_object {
  object_kind kind = object_kind::router;
  std::string bundle;
  std::string name;
  std::size_t index = 0;
};
struct last_table {
  std::tuple<source, std::int16_t, std::int16_t> key{};
  std::size_t* entries = nullptr;
};

enum class dump : std::uint8_t { bundles, manager, agents, forwarding, chips, nodes, ports, other };

dump dump_named(std::string_view label) {
  if (label == "TESSELDB") return dump::bundles;
  if (label == "BM PI") return dump::manager;
  if (label == "BM PD") return dump::agents;
  if (label == "DPA") return dump::forwarding;
  if (label == "BCM") return dump::chips;
  if (label == "VM information") return dump::nodes;
  return label == "Voq usage" ? dump::ports : dump::other;
}

// What the dumps hold, while they pass by.
struct intake {
  run& into;
  std::map<std::string, std::int16_t, std::less<>> nodes;
  pending_values pending{};
  std::unordered_map<text_id, text_id> port_mtus{};  // of the forwarding layer, by the port's name
  std::vector<member_record> member_records{};
  std::vector<sub_bundle_port> sub_bundle_ports{};
  // Of the chip whose table is being read: all of its lines follow each other.
  std::pair<std::int16_t, std::int16_t> chip_of_lags{no_place, no_place};
  std::vector<text_id>* lags_of_chip = nullptr;
  dump in_dump = dump::other;
  bool has_map = false;  // the dump, so far
  std::array<std::array<text_id, std::size_t(field::none) + 1>, std::size_t(source::none) + 1>
      last_ids{};
  std::array<std::array<bool, std::size_t(field::none) + 1>, std::size_t(source::none) + 1>
      is_seen{};

  text_id keep(std::string_view text) { return into.texts.keep(text); }
  void note_seen(source from, field what) { is_seen[std::size_t(from)][std::size_t(what)] = true; }

  // The same for a value of a table of which each node or chip has one.
  text_id keep_value(std::string_view text, source from, field what) {
    note_seen(from, what);
    return into.texts.keep(text, last_ids[std::size_t(from)][std::size_t(what)]);
  }

  // The same for the key of an entry, which comes again with each of its fields.
  text_id keep_key(std::string_view text, source from) {
    if (!same_text(text, into.texts.text(last_id))) last_id = keep_value(text, from, field::none);
    return last_id;
  }
  bool agents_have_rows = false;  // in any bundle, of whatever form
  bool has_too_many_nodes = false;
  std::size_t notes_left_out = 0;
  text_id last_id = keep("");
  text_id present = keep("present");
  std::int16_t last_node = no_place;
  last_object last_bundle{};
  last_object last_part{};
  last_table last_count{};

  std::int16_t node_of(std::string_view name) {
    if (last_node == no_place ||
        !same_text(name, into.nodes[static_cast<std::size_t>(last_node)].name))
      last_node = new_node_of(name);
    return last_node;
  }
  std::int16_t new_node_of(std::string_view name) {
    const auto at = nodes.find(name);
    if (at != nodes.end()) return at->second;
    constexpr std::size_t most_nodes = 1024;  // several times what the largest router has
    if (into.nodes.size() == most_nodes) {
      has_too_many_nodes = true;
      return no_place;
    }
    const auto index = static_cast<std::int16_t>(into.nodes.size());
    into.nodes.emplace_back().name = name;
    nodes.emplace(name, index);
    return index;
  }
  std::int16_t npu_of(std::string_view text) {
    const bool is_digit = text.size() == 1 && text.front() >= '0' && text.front() <= '9';
    return is_digit ? static_cast<std::int16_t>(text.front() - '0') : npu_in(text);
  }
  std::size_t object_at(object_kind kind, std::string_view bundle, std::string_view name) {
    last_object& last = kind == object_kind::bundle ? last_bundle : last_part;
    if (last.kind != kind || !same_text(last.name, name) || !same_text(last.bundle, bundle))
      last = {kind, std::string(bundle), std::string(name), into.object_at(kind, bundle, name)};
    return last.index;
  }

  void set(std::size_t object, field what, source from, std::int16_t node, std::int16_t npu,
           std::string_view value) {
    if (value == unset) return;
    note_seen(from, what);
    into.objects[object].cells.push_back({what, from, node, npu, keep(value)});
  }
  void count(source from, std::int16_t node, std::int16_t npu, std::size_t entries) {
    const std::tuple key(from, node, npu);
    if (last_count.entries == nullptr || last_count.key != key)
      last_count = {key, &into.tables[key]};  // which never moves
    *last_count.entries += entries;
  }
};

// ---- The configured bundles ---------------------------------------------------------------------

void take_member_record(intake& in, dump_path path, std::string_view value) {
  const std::size_t member = in.object_at(object_kind::member, path[0], path[4]);
  in.into.objects[member].is_configured = true;
  const std::string_view name = path[5];
  const std::int16_t node = in.node_of(path[3]);
  auto& records = in.member_records;
  if (records.empty() || records.back().member != member) records.push_back({member});
  if (name == "ifh" && value != unset) records.back().has_handle = true;
  if (name == "mtu" && value != unset) records.back().mtu = in.keep(value);
  if (name == "npu_id") in.set(member, field::npu, source::l1port, node, no_place, value);
  if (name == "npu_core") in.into.places[member].core = value;
  if (name == "pp_port") in.into.places[member].port = value;
  if (name == "npu_id") in.into.places[member].npu = npu_in(value);
  if (name == "nodename") in.into.places[member].node = in.node_of(value);
  if (name == "vlan_domain" && path.size() == 7)
    in.set(member, field::vlan_domain, source::chip_domain, in.node_of(path[6]), no_place, value);
}

// The last word of the run, which the programming pass goes by.
void take_question(chip_question& into, std::string_view name, std::string_view value,
                   text_id known) {
  if (name == "is_l2") into.is_l2 = value == "1";
  if (name == "untagged") into.is_untagged = value == "1";
  if (name == "encap") into.tags.emplace_back(value);
  if (value == unset) return;
  if (name == "lagid") into.lag = known;
  if (name == "glif") into.lif = known;
  if (name == "rif") into.rif = known;
}

void take_chip_question(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 3) return;
  if (path[2] == "members") return;
  if (path[2] == "sub_bundles") {
    if (path.size() < 5) return;
    const std::size_t sub = in.object_at(object_kind::sub_bundle, path[0], path[3]);
    return take_question(in.into.chip_questions[sub], path[4], value, in.keep(value));
  }
  chip_question& asked =
      in.into.chip_questions[in.object_at(object_kind::bundle, path[0], path[0])];
  if (path[2] == "vlan_domain" && path.size() == 5 && value != unset)
    asked.domains[{in.node_of(path[3]), in.npu_of(path[4])}] = in.keep(value);
  take_question(asked, path[2], value, in.keep(value));
}

void take_sub_record(intake& in, dump_path path, std::string_view value) {
  const std::size_t sub = in.object_at(object_kind::sub_bundle, path[0], path[3]);
  in.into.objects[sub].is_configured = true;
  const std::string_view name = path[4];
  if (name == "ifh") in.set(sub, field::handle, source::interface_db, no_place, no_place, value);
  if (name == "is_l2")
    in.set(sub, field::type, source::running_config, no_place, no_place,
           value == "1" ? "layer 2" : "layer 3");
  if (name == "encap")
    in.set(sub, field::encapsulation, source::running_config, no_place, no_place, value);
  if (name == "lagid" && value != unset) in.into.lag_ids[in.keep(value)].push_back(sub);
}

void take_bundle_record(intake& in, dump_path path, std::string_view value) {
  if (path.size() == 1 && path[0] == "hqos") in.into.has_hqos = value == "1";
  if (path.size() < 3) return;
  if (in.into.keeps_questions) take_chip_question(in, path, value);
  const std::string_view name = path[2];
  if (name == "members") {
    if (path.size() >= 6) take_member_record(in, path, value);
    return;
  }
  if (name == "sub_bundles") {
    if (path.size() >= 5) take_sub_record(in, path, value);
    return;
  }
  const std::size_t bundle = in.object_at(object_kind::bundle, path[0], path[0]);
  in.into.objects[bundle].is_configured = true;
  if (name == "is_l2")
    in.set(bundle, field::type, source::running_config, no_place, no_place,
           value == "1" ? "layer 2" : "layer 3");
  if (name == "lagid" && value != unset) in.into.lag_ids[in.keep(value)].push_back(bundle);
}

// ---- The bundle manager and its agents ----------------------------------------------------------

void take_manager(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 2) return;
  const std::size_t bundle = in.object_at(object_kind::bundle, path[0], path[0]);
  const auto set = [&](std::size_t object, field what) {
    in.set(object, what, source::bundle_manager, no_place, no_place, value);
  };
  if (path[1] == "ifh") set(bundle, field::handle);
  if (path[1] == "mac") set(bundle, field::mac);
  if (path[1] == "mtu") set(bundle, field::mtu);
  if (path[1] == "members" && path.size() == 4 && path[3] == "mifh")
    set(in.object_at(object_kind::member, path[0], path[2]), field::handle);
}

// Marks of the audit's own, which stand in an entry without a row as well.
bool is_mark(std::string_view key) {
  return key == "Visited" || key == "Node Description";
}

void take_agent(intake& in, dump_path path, std::string_view value) {
  if (!in.agents_have_rows) in.agents_have_rows = path.size() > 1 && !is_mark(path[1]);
  if (path.size() == 3 && path[2] == "lagid") {
    const std::size_t bundle = in.object_at(object_kind::bundle, path[0], path[0]);
    const std::int16_t node = in.node_of(path[1]);
    in.set(bundle, field::lag_id, source::agent, node, no_place, value);
    in.count(source::agent, node, no_place, 1);
  }
  if (path.size() != 5 || path[1] != "members") return;
  const std::size_t member = in.object_at(object_kind::member, path[0], path[3]);
  const std::int16_t node = in.node_of(path[2]);
  const auto set = [&](field what) { in.set(member, what, source::agent, node, no_place, value); };
  if (path[4] == "npu") set(field::npu);
  if (path[4] == "memid") set(field::member_id);
  if (path[4] == "sysport") set(field::system_port);
}

// ---- The forwarding objects ---------------------------------------------------------------------

source table_named(std::string_view name) {
  if (is(name, "lagport")) return source::lagport;
  if (is(name, "l2port")) return source::l2port;
  if (is(name, "l2intf")) return source::l2intf;
  if (is(name, "l3intf")) return source::l3intf;
  return source::none;
}

void take_lagport(intake& in, std::int16_t node, dump_path path, std::string_view value) {
  const auto add = [&](field what, std::int16_t npu) {
    in.pending.add(in.keep_key(path[2], source::lagport), what, source::lagport, node, npu,
                   in.keep_value(value, source::lagport, what));
  };
  if (is(path[3], "lagid")) add(field::lag_id, no_place);
  if (is(path[3], "weight")) add(field::weight, no_place);
  if (is(path[3], "max_member_count") && value != unset) add(field::weight_limit, no_place);
  if (is(path[3], "deletePending") && is(value, "1")) add(field::deletion, no_place);
  if (is(path[3], "vlan_domain") && path.size() == 5 && value != unset)
    add(field::vlan_domain, in.npu_of(path[4]));
  if (is(path[3], "members") && path.size() == 7 && is(path[6], "memid"))
    in.pending.add_of_member(in.keep_key(path[2], source::lagport),
                             in.keep_value(path[5], source::lagport, field::handle),
                             field::member_id, source::lagport, node, in.npu_of(path[4]),
                             in.keep_value(value, source::lagport, field::member_id));
}

// Half of the millions of lines hold something else.
bool is_compared(std::string_view key) {
  return is(key, "lagid") || is(key, "weight") || is(key, "max_member_count") ||
         is(key, "deletePending") || is(key, "vlan_domain") || is(key, "members") ||
         is(key, "lif") || is(key, "rif") || is(key, "mac");
}

void take_forwarding(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 4 || !is_compared(path[3])) return;
  const source from = table_named(path[1]);
  const std::int16_t node = in.node_of(path[0]);
  if (from == source::lagport) return take_lagport(in, node, path, value);
  if (from == source::none || value == unset) return;
  const auto add = [&](field what) {
    in.pending.add(in.keep_key(path[2], from), what, from, node, no_place,
                   in.keep_value(value, from, what));
  };
  if (is(path[3], "lif")) add(field::lif);
  if (is(path[3], "rif")) add(field::rif);
  if (is(path[3], "mac")) add(field::mac);
  if (is(path[3], "vlan_domain")) add(field::vlan_domain);
}

// ---- The chips ----------------------------------------------------------------------------------

// The configuration stands before the chips.
bool may_be_of_sub_bundle(const run& of, text_id lag) {
  if (!of.has_hqos) return false;
  const auto holders = of.lag_ids.find(lag);
  return holders != of.lag_ids.end() &&
         of.objects[holders->second.front()].kind == object_kind::sub_bundle;
}

void take_chip_member(intake& in, dump_path path, member_name by, std::string_view name,
                      std::string_view port) {
  const std::int16_t node = in.node_of(path[0]);
  const std::int16_t npu = in.npu_of(path[1]);
  const text_id lag = in.keep_key(lag_id_in(path[3]), source::chip_lag);
  in.pending.add_lag_member(lag, node, npu, by,
                            in.keep_value(name, source::chip_lag, field::presence));
  const bool has_place = node != no_place && npu != no_place;
  if (has_place && may_be_of_sub_bundle(in.into, lag))
    in.sub_bundle_ports.push_back({lag, node, npu, in.keep(port)});
}

// Of the chips' tables the audit keeps only the LAGs for its snapshot.
void take_chip(intake& in, dump_path path, std::string_view value) {
  constexpr std::size_t depth_of_member = 6;
  if (path.size() != depth_of_member) return;
  if (is(path[2], "diag_lag") && is(path[5], "gport"))
    take_chip_member(in, path, member_name::id, path[4], value);
  if (is(path[2], "tm_lag") && is(path[4], "members"))
    take_chip_member(in, path, member_name::system_port, value, value);
}

void take_chip_map(intake& in, dump_path path) {
  if (path.size() == 4 && (is(path[2], "diag_lag") || is(path[2], "tm_lag"))) {
    const std::int16_t node = in.node_of(path[0]);
    const std::int16_t npu = in.npu_of(path[1]);
    const text_id lag = in.keep_key(lag_id_in(path[3]), source::chip_lag);
    in.pending.add_lag(lag, node, npu);
    in.count(source::chip_lag, node, npu, 1);
    if (node == no_place || npu == no_place) return;
    if (in.lags_of_chip == nullptr || in.chip_of_lags != std::pair(node, npu)) {
      in.chip_of_lags = {node, npu};
      in.lags_of_chip = &in.into.chip_lags[in.chip_of_lags];
    }
    in.lags_of_chip->push_back(lag);
  }
}

// ---- Nodes --------------------------------------------------------------------------------------

void take_node(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 2) return;
  const std::int16_t index = in.node_of(path[0]);
  if (index == no_place) return;
  node& at = in.into.nodes[static_cast<std::size_t>(index)];
  const std::string_view name = path[1];
  const std::string known(value == unset ? "" : value);
  if (name == "nodeip") at.address = known == "None" ? "" : known;
  if (name == "asic") at.asic = known;
  if (name == "act_standby") at.role = known;
  if (name == "band") at.band = known;
  if (name == "nodetype") at.type = known;
  if (name == "nodeid") at.id = known;
  if (name == "dump") at.takes_part = value == "1";
  if (name == "asic_supported") at.has_supported_asic = value == "1";
  if (name == "npu_list" && path.size() == 3) at.npus.push_back(known);
}

// ---- Putting together ---------------------------------------------------------------------------

// The system port is in the lower bits of a global port. A slot of a LAG says nothing of whose port
// it holds: every LAG has a slot 0.
std::optional<std::uint64_t> system_port_in(std::string_view text) {
  constexpr std::uint64_t bits_of_system_port = 0xffffff;
  if (text.starts_with("0x")) text.remove_prefix(2);
  const auto number = number_in(fmt::format("0x{}", text));
  return number ? std::optional(*number & bits_of_system_port) : std::nullopt;
}

std::set<std::uint64_t> system_ports_of(const run& of, const object& bundle) {
  std::set<std::uint64_t> ports;
  for (const std::size_t part : bundle.parts)
    for (const cell& c : of.objects[part].cells)
      if (c.from == source::agent && c.what == field::system_port)
        if (const auto port = system_port_in(of.texts.text(c.value))) ports.insert(*port);
  return ports;
}

// Null if a bundle has the id as well, or sub-bundles of several.
const object* owner_of_lag(const run& of, text_id lag) {
  const object* owner = nullptr;
  for (const std::size_t holder : of.lag_ids.at(lag)) {
    const object& one = of.objects[holder];
    const object* bundle = &of.objects[one.bundle];
    if (one.kind != object_kind::sub_bundle || (owner != nullptr && owner != bundle))
      return nullptr;
    owner = bundle;
  }
  return owner;
}

// A LAG with a port of another bundle may have been that one's, and its id was given anew.
void find_sub_bundle_lags(intake& in) {
  run& into = in.into;
  std::unordered_map<text_id, const object*> owners;
  std::unordered_map<const object*, std::set<std::uint64_t>> ports;
  std::map<std::tuple<text_id, std::int16_t, std::int16_t>, bool> is_own;
  for (const sub_bundle_port& one : in.sub_bundle_ports) {
    const auto [owner, is_new] = owners.try_emplace(one.lag);
    if (is_new) owner->second = owner_of_lag(into, one.lag);
    if (owner->second == nullptr) continue;
    const auto [known, is_first] = ports.try_emplace(owner->second);
    if (is_first) known->second = system_ports_of(into, *owner->second);
    const auto port = system_port_in(into.texts.text(one.port));
    bool& all_own = is_own.try_emplace({one.lag, one.node, one.npu}, true).first->second;
    all_own = all_own && port && known->second.contains(*port);
  }
  for (const auto& [lag, all_own] : is_own)
    if (all_own) into.sub_bundle_lags[lag] = into.lag_ids.at(std::get<0>(lag)).front();
}

// A port object: what the forwarding layer of its node holds of it.
void take_port(intake& in, dump_path path, std::string_view value) {
  if (path.size() != 2) return;
  if (is(path[1], "nodename")) in.count(source::l1port, in.node_of(value), no_place, 1);
  if (is(path[1], "mtu") && value != unset) in.port_mtus[in.keep(path[0])] = in.keep(value);
}

// A failure of the manager's check shows later which ports the listing lacks.
void take_member_mtus(intake& in) {
  for (const member_record& one : in.member_records) {
    if (!one.mtu) continue;
    if (one.has_handle)
      in.set(one.member, field::mtu, source::interfaces, no_place, no_place,
             in.into.texts.text(*one.mtu));
    else
      in.into.places[one.member].mtu = one.mtu;
  }
}

void attach_port_mtus(intake& in) {
  for (auto& [member, at] : in.into.places) {
    const auto name = in.into.texts.find(in.into.objects[member].name);
    const auto known = name ? in.port_mtus.find(*name) : in.port_mtus.end();
    if (known != in.port_mtus.end()) at.mtu = known->second;
  }
}

void take_value(intake& in, std::string_view label, dump_path path, std::string_view value) {
  if (path.empty()) {
    // A layer's store that holds the tool's text or a number instead of a map.
    in.into.stores[std::string(label)] = value.empty() ? "empty" : "not understood";
    return;
  }
  switch (in.in_dump) {
    case dump::bundles:
      return take_bundle_record(in, path, value);
    case dump::manager:
      return take_manager(in, path, value);
    case dump::agents:
      return take_agent(in, path, value);
    case dump::forwarding:
      return take_forwarding(in, path, value);
    case dump::chips:
      return take_chip(in, path, value);
    case dump::nodes:
      return take_node(in, path, value);
    case dump::ports:
      return take_port(in, path, value);
    case dump::other:
      return;
  }
}

void take_forwarding_map(intake& in, dump_path path) {
  if (path.size() < 2 || path.size() > 3) return;
  const source from = table_named(path[1]);
  if (from != source::none) in.count(from, in.node_of(path[0]), no_place, path.size() == 3 ? 1 : 0);
}

void take_map(intake& in, std::string_view label, dump_path path) {
  if (!in.has_map) in.into.stores.try_emplace(std::string(label), "read");
  in.has_map = true;
  const auto count_entry = [&](source from) {
    if (path.size() == 1) in.count(from, no_place, no_place, 1);
  };
  switch (in.in_dump) {
    case dump::bundles:
      return count_entry(source::running_config);
    case dump::manager:
      return count_entry(source::bundle_manager);
    case dump::agents:
      in.agents_have_rows =
          in.agents_have_rows || path.size() > 2 || (path.size() == 2 && path[1] != "members");
      return count_entry(source::agent);
    case dump::forwarding:
      return take_forwarding_map(in, path);
    case dump::chips:
      if (path.size() == 2) in.count(source::chip_lag, in.node_of(path[0]), in.npu_of(path[1]), 0);
      return take_chip_map(in, path);
    default:
      return;
  }
}

void take_line(intake& in, std::string_view line) {
  run& into = in.into;
  if (line.empty()) return;
  if (const std::string_view note = without_quotes(line); note.size() != line.size()) {
    if (into.debug_notes.size() < most_notes)
      into.debug_notes.emplace_back(note);
    else
      ++in.notes_left_out;
    return;
  }
  if (into.complaints.size() == most_complaints) return;
  if (std::find(into.complaints.begin(), into.complaints.end(), line) == into.complaints.end())
    into.complaints.emplace_back(line);
}

// What every entry of a table has. That a fault takes it from all of several entries is less likely
// than that another version of the audit writes it otherwise.
struct needed_field {
  source from;
  field what;
};
constexpr std::array needed_fields = std::to_array<needed_field>({
    {source::bundle_manager, field::handle},
    {source::bundle_manager, field::mac},
    {source::bundle_manager, field::mtu},
    {source::agent, field::lag_id},
    {source::agent, field::member_id},
    {source::lagport, field::lag_id},
    {source::lagport, field::member_id},
    {source::lagport, field::vlan_domain},
    {source::l2port, field::lif},
    {source::l2intf, field::lif},
    {source::l3intf, field::rif},
    {source::chip_lag, field::presence},
});

void find_tables_of_other_form(const intake& in) {
  constexpr std::size_t fewest_entries = 3;
  std::map<source, std::size_t> entries;
  for (const auto& [place, count] : in.into.tables) entries[std::get<0>(place)] += count;
  for (const needed_field& one : needed_fields) {
    if (entries[one.from] < fewest_entries) continue;
    // The agents lost all bundles: there is no row that could be of another form.
    if (one.from == source::agent && !in.agents_have_rows) continue;
    if (in.is_seen[std::size_t(one.from)][std::size_t(one.what)]) continue;
    in.into.not_understood.try_emplace(
        layer_of(one.from),
        fmt::format("none of the {} entries of {} has {}, so another version of the audit may have "
                    "written them",
                    entries[one.from], tool_of(one.from),
                    one.what == field::presence ? "members" : word_for(one.what)));
  }
}

// Slots that the platform's list names, but where nothing is.
bool is_empty_slot(const node& of) {
  return !of.takes_part && of.address.empty() && of.band.empty() && of.role.empty();
}

// A run writes it before its checks, and the snapshot when it ends.
bool is_parsed_configuration(std::string_view label) {
  return label.starts_with("Parsed bundle config");
}

}  // namespace

void read_layers(run& into, const std::string& debug_log) {
  intake in{into, {}};
  dump_taker taker;
  taker.value = [&](std::string_view label, dump_path path, std::string_view value) {
    take_value(in, label, path, value);
  };
  taker.map = [&](std::string_view label, dump_path path) { take_map(in, label, path); };
  taker.begins = [&](std::string_view label) {
    const bool is_snapshot = !is_parsed_configuration(label);
    into.has_snapshot = into.has_snapshot || is_snapshot;
    into.has_parsed_configuration = into.has_parsed_configuration || !is_snapshot;
    in.in_dump = dump_named(label);
    in.has_map = false;
    if (label == "BCM") into.has_chip_tables = true;
  };
  taker.ended = [&](std::string_view label, dump_end how) {
    if (how != dump_end::whole)
      into.stores[std::string(label)] = how == dump_end::unread ? store_unread : store_cut_off;
  };
  taker.wants = [](std::string_view label) { return !is_parsed_configuration(label); };
  taker.line = [&](std::string_view line) { take_line(in, line); };
  for (std::string& mark : read_dumps(debug_log, taker)) into.marks.push_back(std::move(mark));
  if (in.has_too_many_nodes)
    into.marks.push_back(fmt::format("{}: it names more nodes than a router can have", debug_log));
  if (in.notes_left_out != 0)
    into.marks.push_back(fmt::format("{}: {} notes of the audit behind the first {} are left out",
                                     debug_log, in.notes_left_out, most_notes));
  find_tables_of_other_form(in);
  take_member_mtus(in);
  in.pending.attach(into, in.present);
  attach_port_mtus(in);
  find_sub_bundle_lags(in);
  for (node& of : into.nodes)
    if (is_empty_slot(of)) of.is_empty_slot = true;
}

}  // namespace desk
