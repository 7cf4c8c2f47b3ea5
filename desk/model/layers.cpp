#include "desk/model/layers.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "desk/model/numbers.h"
#include "desk/read/snapshot.h"

namespace desk {

namespace {

constexpr std::string_view unset = "Not set";
constexpr std::size_t most_complaints = 200;

// A value whose object is known only once all dumps have been read: the forwarding layer and the
// chips know handles and LAG ids, not names.
struct pending_cell {
  text_id key;         // handle of the bundle or sub-bundle, or the LAG id
  text_id member = 0;  // handle, member id or system port of a member
  bool is_member = false;
  cell of;
};

// What the dumps hold, while they pass by.
struct intake {
  run& into;
  std::map<std::string, std::int16_t, std::less<>> nodes;
  std::vector<pending_cell> by_handle{};
  std::vector<pending_cell> by_lag{};
  std::vector<pending_cell> by_port{};  // MTUs of chips: key is "core port"
  // Of Jericho2: the port of a LAG, the profile of a port, the MTU of a profile.
  std::map<std::string, std::string, std::less<>> chip_values{};

  text_id keep(std::string_view text) { return into.texts.keep(text); }

  // The same for the key of an entry, which comes again with each of its fields.
  text_id keep_key(std::string_view text) {
    if (text != last_key) {
      last_key = text;
      last_id = keep(text);
    }
    return last_id;
  }
  bool has_too_many_nodes = false;
  std::string last_key{};
  text_id last_id = keep("");
  text_id present = keep("present");

  std::int16_t node_of(std::string_view name) {
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

  void set(std::size_t object, field what, source from, std::int16_t node, std::int16_t npu,
           std::string_view value) {
    if (value == unset) return;
    into.objects[object].cells.push_back({what, from, node, npu, keep(value)});
  }
  void count(source from, std::int16_t node, std::int16_t npu, std::size_t entries) {
    into.tables[{from, node, npu}] += entries;
  }
};

// ---- The configured bundles ---------------------------------------------------------------------

void take_member_record(intake& in, dump_path path, std::string_view value) {
  const std::size_t member = in.into.object_at(object_kind::member, path[0], path[4]);
  in.into.objects[member].is_configured = true;
  const std::string_view name = path[5];
  const std::int16_t node = in.node_of(path[3]);
  if (name == "npu_id") in.set(member, field::npu, source::l1port, node, no_place, value);
  if (name == "mtu") in.set(member, field::mtu, source::interfaces, no_place, no_place, value);
  if (name == "npu_core") in.into.places[member].core = value;
  if (name == "pp_port") in.into.places[member].port = value;
  if (name == "npu_id") in.into.places[member].npu = npu_in(value);
  if (name == "nodename") in.into.places[member].node = in.node_of(value);
  if (name == "vlan_domain" && path.size() == 7)
    in.set(member, field::vlan_domain, source::chip_domain, in.node_of(path[6]), no_place, value);
}

void take_sub_record(intake& in, dump_path path, std::string_view value) {
  const std::size_t sub = in.into.object_at(object_kind::sub_bundle, path[0], path[3]);
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
  if (path.size() < 3) return;  // "hqos"
  const std::string_view name = path[2];
  if (name == "members") {
    if (path.size() >= 6) take_member_record(in, path, value);
    return;
  }
  if (name == "sub_bundles") {
    if (path.size() >= 5) take_sub_record(in, path, value);
    return;
  }
  const std::size_t bundle = in.into.object_at(object_kind::bundle, path[0], path[0]);
  in.into.objects[bundle].is_configured = true;
  if (name == "is_l2")
    in.set(bundle, field::type, source::running_config, no_place, no_place,
           value == "1" ? "layer 2" : "layer 3");
  if (name == "lagid" && value != unset) in.into.lag_ids[in.keep(value)].push_back(bundle);
}

// ---- The bundle manager and its agents ----------------------------------------------------------

void take_manager(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 2) return;
  const std::size_t bundle = in.into.object_at(object_kind::bundle, path[0], path[0]);
  const auto set = [&](std::size_t object, field what) {
    in.set(object, what, source::bundle_manager, no_place, no_place, value);
  };
  if (path[1] == "ifh") set(bundle, field::handle);
  if (path[1] == "mac") set(bundle, field::mac);
  if (path[1] == "mtu") set(bundle, field::mtu);
  if (path[1] == "members" && path.size() == 4 && path[3] == "mifh")
    set(in.into.object_at(object_kind::member, path[0], path[2]), field::handle);
}

void take_agent(intake& in, dump_path path, std::string_view value) {
  if (path.size() == 3 && path[2] == "lagid") {
    const std::size_t bundle = in.into.object_at(object_kind::bundle, path[0], path[0]);
    const std::int16_t node = in.node_of(path[1]);
    in.set(bundle, field::lag_id, source::agent, node, no_place, value);
    in.count(source::agent, node, no_place, 1);
  }
  if (path.size() != 5 || path[1] != "members") return;
  const std::size_t member = in.into.object_at(object_kind::member, path[0], path[3]);
  const std::int16_t node = in.node_of(path[2]);
  const auto set = [&](field what) { in.set(member, what, source::agent, node, no_place, value); };
  if (path[4] == "npu") set(field::npu);
  if (path[4] == "memid") set(field::member_id);
  if (path[4] == "sysport") set(field::system_port);
}

// ---- The forwarding objects ---------------------------------------------------------------------

source table_named(std::string_view name) {
  if (name == "lagport") return source::lagport;
  if (name == "l2port") return source::l2port;
  if (name == "l2intf") return source::l2intf;
  if (name == "l3intf") return source::l3intf;
  return source::none;
}

void take_lagport(intake& in, std::int16_t node, dump_path path, std::string_view value) {
  const auto add = [&](field what, std::int16_t npu) {
    in.by_handle.push_back(
        {in.keep_key(path[2]), 0, false, {what, source::lagport, node, npu, in.keep(value)}});
  };
  if (path[3] == "lagid") add(field::lag_id, no_place);
  if (path[3] == "weight") add(field::weight, no_place);
  if (path[3] == "max_member_count" && value != unset) add(field::weight_limit, no_place);
  if (path[3] == "deletePending" && value == "1") add(field::deletion, no_place);
  if (path[3] == "vlan_domain" && path.size() == 5 && value != unset)
    add(field::vlan_domain, npu_in(path[4]));
  if (path[3] == "members" && path.size() == 7 && path[6] == "memid")
    in.by_handle.push_back(
        {in.keep(path[2]),
         in.keep(path[5]),
         true,
         {field::member_id, source::lagport, node, npu_in(path[4]), in.keep(value)}});
}

void take_forwarding(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 4) return;
  const source from = table_named(path[1]);
  const std::int16_t node = in.node_of(path[0]);
  if (from == source::lagport) return take_lagport(in, node, path, value);
  if (from == source::none || value == unset) return;
  const auto add = [&](field what) {
    in.by_handle.push_back(
        {in.keep_key(path[2]), 0, false, {what, from, node, no_place, in.keep(value)}});
  };
  if (path[3] == "lif") add(field::lif);
  if (path[3] == "rif") add(field::rif);
  if (path[3] == "mac") add(field::mac);
  if (path[3] == "vlan_domain") add(field::vlan_domain);
}

// ---- The chips ----------------------------------------------------------------------------------

// "0x1" of "LAG 0x1", the older chips' form.
std::string_view lag_id_in(std::string_view key) {
  constexpr std::string_view word = "LAG ";
  return key.starts_with(word) ? key.substr(word.size()) : key;
}

void take_chip(intake& in, dump_path path, std::string_view value) {
  if (path.size() < 4) return;
  const std::int16_t node = in.node_of(path[0]);
  const std::int16_t npu = npu_in(path[1]);
  const std::string_view table = path[2];
  const auto member = [&](std::string_view of) {
    in.by_lag.push_back({in.keep_key(lag_id_in(path[3])),
                         in.keep(of),
                         true,
                         {field::presence, source::chip_lag, node, npu, in.present}});
  };
  if (table == "diag_lag" && path.size() == 6 && path[5] == "gport") member(path[4]);
  if (table == "tm_lag" && path.size() == 6 && path[4] == "members") member(value);
  if (table == "member_mtu" && path.size() == 5)
    in.by_port.push_back({in.keep(fmt::format("{} {}", path[3], path[4])),
                          0,
                          false,
                          {field::mtu, source::chip_mtu, node, npu, in.keep(value)}});
  if (path.size() == 5 && (table == "bdl_pp_port" || table == "lag_mtu" || table == "mtu_profile"))
    in.chip_values[fmt::format("{} {} {} {} {}", node, npu, table, path[3], path[4])] = value;
}

void take_chip_map(intake& in, dump_path path) {
  if (path.size() == 4 && (path[2] == "diag_lag" || path[2] == "tm_lag")) {
    const std::int16_t node = in.node_of(path[0]);
    const std::int16_t npu = npu_in(path[1]);
    const text_id lag = in.keep_key(lag_id_in(path[3]));
    in.by_lag.push_back(
        {lag, 0, false, {field::presence, source::chip_lag, node, npu, in.present}});
    in.count(source::chip_lag, node, npu, 1);
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

// Objects by handle; members by the handle of their bundle and their own.
void attach_by_handle(intake& in) {
  std::unordered_map<text_id, std::size_t> objects;
  std::map<std::pair<text_id, text_id>, std::size_t> members;
  const auto handle_of = [&](const object& of) -> const cell* {
    for (const cell& c : of.cells)
      if (c.what == field::handle) return &c;
    return nullptr;
  };
  auto& all = in.into.objects;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const cell* handle = handle_of(all[i]);
    if (handle == nullptr) continue;
    if (all[i].kind != object_kind::member) {
      objects.try_emplace(handle->value, i);
      continue;
    }
    if (const cell* bundle = handle_of(all[all[i].bundle]))
      members.try_emplace({bundle->value, handle->value}, i);
  }
  for (const pending_cell& one : in.by_handle) {
    if (!one.is_member) {
      if (const auto at = objects.find(one.key); at != objects.end())
        all[at->second].cells.push_back(one.of);
      continue;
    }
    const auto at = members.find({one.key, one.member});
    if (at != members.end()) all[at->second].cells.push_back(one.of);
  }
}

// The chips' LAGs carry ids. An older chip names a member by its id in the LAG, Jericho2 by the end
// of its system port.
bool is_member_of_chip(const intake& in, const object& member, std::string_view named) {
  return std::any_of(member.cells.begin(), member.cells.end(), [&](const cell& c) {
    if (c.from != source::agent) return false;
    const std::string_view value = in.into.texts.text(c.value);
    if (c.what == field::member_id) return value == named;
    return c.what == field::system_port && same_end(named, value);
  });
}

void attach_by_lag(intake& in) {
  auto& all = in.into.objects;
  for (const pending_cell& one : in.by_lag) {
    const auto at = in.into.lag_ids.find(one.key);
    if (at == in.into.lag_ids.end()) continue;
    for (const std::size_t bundle : at->second) {
      if (!one.is_member) {
        all[bundle].cells.push_back(one.of);
        continue;
      }
      const std::string_view named = in.into.texts.text(one.member);
      for (const std::size_t part : all[bundle].parts) {
        if (all[part].kind != object_kind::member) continue;
        if (is_member_of_chip(in, all[part], named)) all[part].cells.push_back(one.of);
      }
    }
  }
}

void attach_by_port(intake& in) {
  std::map<std::pair<std::int16_t, std::int16_t>, std::vector<std::size_t>> members;
  for (const auto& [member, place] : in.into.places)
    members[{place.node, place.npu}].push_back(member);
  for (const pending_cell& one : in.by_port) {
    const auto at = members.find({one.of.node, one.of.npu});
    if (at == members.end()) continue;
    for (const std::size_t member : at->second) {
      const place& of = in.into.places[member];
      if (in.into.texts.text(one.key) == fmt::format("{} {}", of.core, of.port))
        in.into.objects[member].cells.push_back(one.of);
    }
  }
}

// Jericho2: the LAG's port on the member's core has a profile, and the profile an MTU.
void attach_profiles(intake& in) {
  const auto value_at = [&](const place& at, std::string_view table, std::string_view first,
                            std::string_view second) -> std::string_view {
    const auto found =
        in.chip_values.find(fmt::format("{} {} {} {} {}", at.node, at.npu, table, first, second));
    return found == in.chip_values.end() ? std::string_view{} : found->second;
  };
  for (const auto& [lag, bundles] : in.into.lag_ids) {
    const std::string id = decimal_of(in.into.texts.text(lag));
    for (const std::size_t bundle : bundles) {
      for (const std::size_t part : in.into.objects[bundle].parts) {
        const auto at = in.into.places.find(part);
        if (at == in.into.places.end()) continue;
        const place& of = at->second;
        const std::string_view port = value_at(of, "bdl_pp_port", id, of.core);
        const std::string_view profile = value_at(of, "lag_mtu", of.core, port);
        const std::string_view mtu = value_at(of, "mtu_profile", of.core, profile);
        if (!mtu.empty())
          in.set(part, field::mtu, source::chip_mtu, of.node, of.npu, decimal_of(mtu));
      }
    }
  }
}

void take_value(intake& in, std::string_view label, dump_path path, std::string_view value) {
  if (path.empty()) {
    // A layer's store that holds the tool's text or a number instead of a map.
    in.into.stores[std::string(label)] = value.empty() ? "empty" : "not understood";
    return;
  }
  if (label == "TESSELDB") take_bundle_record(in, path, value);
  if (label == "BM PI") take_manager(in, path, value);
  if (label == "BM PD") take_agent(in, path, value);
  if (label == "DPA") take_forwarding(in, path, value);
  if (label == "BCM") take_chip(in, path, value);
  if (label == "VM information") take_node(in, path, value);
  if (label == "Voq usage" && path.size() == 2 && path[1] == "nodename")
    in.count(source::l1port, in.node_of(value), no_place, 1);
}

void take_map(intake& in, std::string_view label, dump_path path) {
  in.into.stores.try_emplace(std::string(label), "read");
  if (label == "BM PI" && path.size() == 1) in.count(source::bundle_manager, no_place, no_place, 1);
  if (label == "BM PD" && path.size() == 1) in.count(source::agent, no_place, no_place, 1);
  if (label == "TESSELDB" && path.size() == 1)
    in.count(source::running_config, no_place, no_place, 1);
  if (label == "DPA" && path.size() >= 2 && path.size() <= 3) {
    const source from = table_named(path[1]);
    if (from != source::none)
      in.count(from, in.node_of(path[0]), no_place, path.size() == 3 ? 1 : 0);
  }
  if (label == "BCM") {
    if (path.size() == 2) in.count(source::chip_lag, in.node_of(path[0]), npu_in(path[1]), 0);
    take_chip_map(in, path);
  }
}

void take_line(run& into, std::string_view line) {
  if (line.empty()) return;
  // A note of the audit itself stands in quotes.
  const bool is_quoted = line.front() == '\'' || line.front() == '"';
  if (is_quoted && line.size() > 1 && line.back() == line.front()) {
    if (into.debug_notes.size() < most_complaints)
      into.debug_notes.emplace_back(line.substr(1, line.size() - 2));
    return;
  }
  if (into.complaints.size() == most_complaints) return;
  if (std::find(into.complaints.begin(), into.complaints.end(), line) == into.complaints.end())
    into.complaints.emplace_back(line);
}

// Slots that the platform's list names, but where nothing is.
bool is_empty_slot(const node& of) {
  return !of.takes_part && of.address.empty() && of.band.empty() && of.role.empty();
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
    into.has_snapshot = true;
    if (label == "BCM") into.has_chip_tables = true;
  };
  taker.ended = [&](std::string_view label, bool is_whole) {
    if (!is_whole) into.stores[std::string(label)] = std::string(store_cut_off);
  };
  taker.wants = [](std::string_view label) { return !label.starts_with("Parsed bundle config"); };
  taker.line = [&](std::string_view line) { take_line(into, line); };
  for (std::string& mark : read_dumps(debug_log, taker)) into.marks.push_back(std::move(mark));
  if (in.has_too_many_nodes)
    into.marks.push_back(fmt::format("{}: it names more nodes than a router can have", debug_log));
  attach_by_handle(in);
  attach_by_lag(in);
  attach_by_port(in);
  attach_profiles(in);
  for (node& of : into.nodes)
    if (is_empty_slot(of)) of.is_empty_slot = true;
}

}  // namespace desk
