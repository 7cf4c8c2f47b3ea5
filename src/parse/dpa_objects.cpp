#include "parse/dpa_objects.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/records.h"
#include "base/text.h"
#include "parse/block_fields.h"
#include "parse/slot_fields.h"
#include "run/state.h"

namespace tessel {

namespace {

// The last value that a block prints for a field.
std::string_view field(const field_lines& fields, std::string_view name,
                       here where = here::current()) {
  const auto found = fields.last_of(name);
  if (!found) throw failure(fmt::format("no field {}", quoted(name)), where);
  return *found;
}

void leave_out_of_run(std::string_view note, std::string_view nodename) {
  run_state& run = st();
  ++run.info;
  logger(fmt::format("{}, {}", note, nodename), "exception");
  run.nodeinfo.get().at(nodename).as_map().update("dump", 0);
}

// What the parser keeps from bundle to bundle.
struct lagport_reader {
  std::string_view nodename;
  map& bundles;
  slot_fields slots;  // so that no bundle needs new memory for them
};

// The members of one bundle on one node, in the order read: NPU to member handle to member.
struct lagport_members {
  value by_npu = make_map();
  std::string_view last_npu;
  wide_int total_weight = 0;
};

map& members_on(std::string_view npu, map& by_npu) {
  if (by_npu.look_up(npu) == nullptr) by_npu.set(npu, make_map());
  return by_npu.look_up(npu)->as_map();
}

const row_keys& keys_of_member() {
  static const row_keys& keys = *new row_keys{"memid", "Visited", "Node Description"};
  return keys;
}

lagport_members members_of(std::string_view bundle, std::string_view lagid,
                           lagport_reader& reader) {
  lagport_members members;
  // A member's line has this word.
  if (bundle.find("mifh") == std::string_view::npos) return members;
  reader.slots.read(bundle);
  for (const auto& [slot, handle] : reader.slots.members()) {
    const std::string mifh = hex_of(handle);
    const auto npu = reader.slots.npu_of(slot);
    if (!npu) throw failure(fmt::format("no NPU for the member in slot {}", slot));
    members.last_npu = *npu;
    value member =
        make_row(keys_of_member(), hex_of(slot), 0,
                 make_text({"Lag ", lagid, "_npu", *npu, "_node", reader.nodename, "_mifh", mifh}));
    members_on(*npu, members.by_npu.as_map()).set(mifh, std::move(member));
    if (const auto weight = reader.slots.weight_of(slot)) {
      members.total_weight += to_wide_decimal(*weight);
    }
  }
  return members;
}

value vlan_domains_of(const slot_fields& slots, const value& by_npu) {
  value domains = make_map();
  by_npu.as_map().for_each([&](std::string_view npu, const value&) {
    const auto domain = slots.port_class_of(npu);
    domains.as_map().set(npu, domain ? value(hex_of(*domain)) : value(DEFAULT));
  });
  return domains;
}

// Only the objects with members get a mark and a description.
const row_keys& keys_with_members() {
  static const row_keys& keys =
      *new row_keys{"lagid",   "members",          "vlan_domain",  "weight", "max_member_count",
                    "Visited", "Node Description", "deletePending"};
  return keys;
}

const row_keys& keys_without_members() {
  static const row_keys& keys = *new row_keys{"lagid",  "members",          "vlan_domain",
                                              "weight", "max_member_count", "deletePending"};
  return keys;
}

void add_lagport(std::string_view bundle, lagport_reader& reader) {
  // Only the last of the three counters, for deletion, shows an object on its way out.
  constexpr std::string_view pending = "pending(cr/up/dl):0/0/1";
  const auto head = lagport_head_of(bundle);
  if (!head) return;
  const std::string ifh = hex_of(head->ifh);
  const std::string lagid = hex_of(head->lagid);
  const std::string_view limit = member_limit_of(bundle);
  const lagport_members members = members_of(bundle, lagid, reader);
  const value most = limit.empty() ? DEFAULT : limit;
  const value weight = number_value(members.total_weight);
  const int is_pending = bundle.find(pending) == std::string_view::npos ? 0 : 1;
  if (members.by_npu.truthy()) {
    value name = make_text({"Lag ", lagid, "_npu", members.last_npu, "_node", reader.nodename});
    reader.bundles.set(ifh, make_row(keys_with_members(), lagid, members.by_npu,
                                     vlan_domains_of(reader.slots, members.by_npu), weight, most, 0,
                                     std::move(name), is_pending));
  } else {
    reader.bundles.set(ifh, make_row(keys_without_members(), lagid, make_map(), make_map(), weight,
                                     most, is_pending));
  }
}

// Adds the block's port to `voq_usage`. Returns false if the block is not a port. A port's name is
// the letters of its type word followed by the port tail, with underscores for slashes.
bool add_port(std::string_view block, std::string_view nodename) {
  static const pattern& name_line = constant(R"(name\s=>\s[a-zA-Z]+(\w+))");
  const matches name = findall(name_line, block);
  if (name.empty()) return false;
  const std::string intf_name = replace_all(name.text(0), "_", "/");
  const field_lines intf_prop(field_lines::values::words, block);
  auto mem_obj = std::make_shared<memberInfo>();
  mem_obj->set("name", field(intf_prop, "intf_name"));
  mem_obj->set("ifh", hex_of(field(intf_prop, "intf")));
  mem_obj->set("pp_port", field(intf_prop, "pp_port_id"));
  mem_obj->set("npu_id", field(intf_prop, "device"));
  mem_obj->set("npu_core", field(intf_prop, "core"));
  mem_obj->set("nodename", nodename);
  mem_obj->set("mtu", field(intf_prop, "mtu"));
  st().voq_usage.get().as_map().set(intf_name, std::shared_ptr<record>(mem_obj));
  return true;
}

struct interface_type {
  std::string_view name;
  const row_keys& keys;                  // of the resulting maps
  std::vector<std::string_view> fields;  // in the printed block
  bool may_be_empty;
};

// The attributes of one interface, as printed.
value interface_of(const interface_type& type, std::string_view block, last_values& found,
                   here where = here::current()) {
  found.read(block);
  value_list contents;
  contents.reserve(type.fields.size());
  for (std::size_t at = 0; at < type.fields.size(); ++at) {
    if (!found.of(at)) throw failure(fmt::format("no field {}", quoted(type.fields[at])), where);
    contents.emplace_back(*found.of(at));
  }
  return make_row(type.keys, contents);
}

value interfaces_of(const interface_type& type, const value& output, std::string_view nodename) {
  const std::string_view text = output.as_text();
  const auto blocks = split(text, fmt::format("{} element", type.name));
  value interfaces = make_map(blocks.size());
  last_values found(field_lines::values::words_and_colons);
  for (const std::string_view each : type.fields) found.want(each);
  for (const std::string_view block : blocks) {
    if (block.empty()) continue;
    const std::string_view handle = interface_handle_of(block);
    if (handle.empty()) throw failure(fmt::format("no handle in the block {}", brief_text(block)));
    interfaces.as_map().set(handle, interface_of(type, block, found));
  }
  if (!interfaces.truthy() && !type.may_be_empty) {
    leave_out_of_run(fmt::format("INFO: DPA {} object dont have any interface from", type.name),
                     nodename);
  }
  return interfaces;
}

}  // namespace

value parse_lagport_object_DPA(const value& lagport, std::string_view nodename) {
  try {
    const auto bundles = split(lagport.as_text(), "lagport element");
    value bundle_dpa = make_map(bundles.size());
    lagport_reader reader{nodename, bundle_dpa.as_map(), {}};
    for (const std::string_view bundle : bundles) add_lagport(bundle, reader);
    if (!bundle_dpa.truthy()) {
      leave_out_of_run("INFO: DPA lagport object dont have any bundle data/no bundle member from",
                       nodename);
    }
    return bundle_dpa;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse lagport object failed {}", error.what(), nodename));
  }
}

int parse_l1port_object_DPA(const value& l1port, std::string_view nodename) {
  try {
    std::size_t ports = 0;
    for (const std::string_view block : split(l1port.as_text(), "l1port element")) {
      if (add_port(block, nodename)) ++ports;
    }
    if (ports == 0) {
      leave_out_of_run("INFO: DPA l1port object dont have any interface from", nodename);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l1port object failed {}", error.what(), nodename));
  }
}

value parse_l2port_object_DPA(const value& l2port, std::string_view nodename) {
  try {
    static const row_keys& keys = *new row_keys{"rif", "lif", "mac"};
    return interfaces_of({"l2port", keys, {"rif", "lif", "bia_mac"}, false}, l2port, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l2port object failed {}", error.what(), nodename));
  }
}

value parse_l2intf_object_DPA(const value& l2intf, std::string_view nodename) {
  try {
    static const row_keys& keys = *new row_keys{"vlan_domain", "lif", "is_l2"};
    return interfaces_of({"l2intf", keys, {"vlan_domain", "gport_id_lif", "l2_intf_type"}, true},
                         l2intf, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l2intf object failed {}", error.what(), nodename));
  }
}

value parse_l3intf_object_DPA(const value& l3intf, std::string_view nodename) {
  try {
    static const row_keys& keys = *new row_keys{"rif"};
    return interfaces_of({"l3intf", keys, {"l3a_intf_id"}, false}, l3intf, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l3intf object failed {}", error.what(), nodename));
  }
}

}  // namespace tessel
