#include "parse/dpa_objects.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/failure.h"
#include "base/findings.h"
#include "base/logs.h"
#include "base/numbers.h"
#include "base/records.h"
#include "base/text.h"
#include "parse/slot_fields.h"
#include "run/state.h"

namespace tessel {

namespace {

using field_map = std::unordered_map<std::string_view, std::string_view>;

// Maps each field that a block prints to its last value.
field_map fields_of(const pattern& field, std::string_view block) {
  field_map fields;
  const matches found = findall(field, block);
  for (std::size_t at = 0; at < found.size(); ++at) fields[found[at][0]] = found[at][1];
  return fields;
}

std::string_view field(const field_map& fields, std::string_view name,
                       here where = here::current()) {
  const auto found = fields.find(name);
  if (found == fields.end()) throw failure(fmt::format("no field {}", quoted(name)), where);
  return found->second;
}

void leave_out_of_run(std::string_view note, std::string_view nodename) {
  run_state& run = st();
  ++run.info;
  logger(fmt::format("{}, {}", note, nodename), "exception");
  run.nodeinfo.get().at(nodename).as_map().update("dump", 0);
}

// The members of one bundle on one node, in the order read: NPU to member handle to member.
struct lagport_members {
  value by_npu = make_map();
  std::string last_npu;
  wide_int total_weight = 0;
};

lagport_members members_of(std::string_view bundle, std::string_view lagid,
                           std::string_view nodename) {
  static const pattern& member_line = constant(R"((?<!\d)(\d++):dpa_intf_t\smifh\s=>\s(\w+))");
  lagport_members members;
  const slot_fields npus(slot_fields::npu(), bundle);
  const slot_fields weights(slot_fields::weight(), bundle);
  const matches found = findall(member_line, bundle);
  for (std::size_t at = 0; at < found.size(); ++at) {
    const std::string_view slot = found[at][0];
    const std::string mifh = convert_to_hex(found[at][1]);
    const auto npu = npus.first_of(slot);
    if (!npu) throw failure(fmt::format("no NPU for the member in slot {}", slot));
    members.last_npu = *npu;
    if (!members.by_npu.contains(*npu)) members.by_npu.as_map().set(*npu, make_map());
    value member = make_map();
    member.as_map().set("memid", convert_to_hex(slot));
    member.as_map().set("Visited", 0);
    member.as_map().set("Node Description",
                        fmt::format("Lag {}_npu{}_node{}_mifh{}", lagid, *npu, nodename, mifh));
    members.by_npu.at(*npu).as_map().set(mifh, member);
    if (const auto weight = weights.first_of(slot)) {
      members.total_weight += to_wide_decimal(*weight);
    }
  }
  return members;
}

value vlan_domains_of(std::string_view bundle, const value& by_npu) {
  const slot_fields port_classes(slot_fields::port_class(), bundle);
  value domains = make_map();
  for (const std::string& npu : by_npu.as_map().keys()) {
    const auto domain = port_classes.first_of(npu);
    domains.as_map().set(npu, domain ? value(convert_to_hex(*domain)) : value(DEFAULT));
  }
  return domains;
}

void add_lagport(std::string_view bundle, std::string_view nodename, map& bundle_dpa) {
  static const pattern& handle_and_lag =
      constant("dpa_intf_t\\sintf\\s=>\\s(\\w+)\n\\s+\\w+ lag_id\\s=.\\s(\\w+)");
  static const pattern& limit_line = constant(R"(uint32_t max_member_count\s+=>\s+(\d+))");
  // Only the last of the three counters, for deletion, shows an object on its way out.
  static const pattern& pending = constant(R"(pending\(cr/up/dl\):0/0/(1))");
  const matches ifh_lag = findall(handle_and_lag, bundle);
  if (ifh_lag.empty()) return;
  const std::string ifh = convert_to_hex(ifh_lag[0][0]);
  const std::string lagid = convert_to_hex(ifh_lag[0][1]);
  const matches limit = findall(limit_line, bundle);
  const lagport_members members = members_of(bundle, lagid, nodename);
  value tmp = make_map();
  map& entry = tmp.as_map();
  entry.set("lagid", lagid);
  entry.set("members", members.by_npu);
  entry.set("vlan_domain", vlan_domains_of(bundle, members.by_npu));
  entry.set("weight", number_value(members.total_weight));
  entry.set("max_member_count", limit.empty() ? DEFAULT : limit.text(0));
  if (members.by_npu.truthy()) {
    entry.set("Visited", 0);
    entry.set("Node Description",
              fmt::format("Lag {}_npu{}_node{}", lagid, members.last_npu, nodename));
  }
  entry.set("deletePending", findall(pending, bundle).empty() ? 0 : 1);
  bundle_dpa.set(ifh, tmp);
}

// Adds the block's port to `voq_usage`. Returns false if the block is not a port. A port's name is
// the letters of its type word followed by the port tail, with underscores for slashes.
bool add_port(std::string_view block, std::string_view nodename) {
  static const pattern& name_line = constant(R"(name\s=>\s[a-zA-Z]+(\w+))");
  static const pattern& field_line = constant(R"((?<!\w)(\w++)\s=>\s(\w+))");
  const matches name = findall(name_line, block);
  if (name.empty()) return false;
  const std::string intf_name = replace_all(name.text(0), "_", "/");
  const field_map intf_prop = fields_of(field_line, block);
  auto mem_obj = std::make_shared<memberInfo>();
  mem_obj->set("name", field(intf_prop, "intf_name"));
  mem_obj->set("ifh", convert_to_hex(field(intf_prop, "intf")));
  mem_obj->set("pp_port", field(intf_prop, "pp_port_id"));
  mem_obj->set("npu_id", field(intf_prop, "device"));
  mem_obj->set("npu_core", field(intf_prop, "core"));
  mem_obj->set("nodename", nodename);
  mem_obj->set("mtu", field(intf_prop, "mtu"));
  st().voq_usage.get().as_map().set(intf_name, std::shared_ptr<record>(mem_obj));
  return true;
}

struct wanted_field {
  std::string_view key;    // in the resulting map
  std::string_view field;  // in the printed block
};

struct interface_type {
  std::string_view name;
  std::vector<wanted_field> fields;
  bool may_be_empty;
};

value interfaces_of(const interface_type& type, const value& output, std::string_view nodename) {
  static const pattern& field_line = constant(R"((?<!\w)(\w++)\s=>\s([\w:]*))");
  static const pattern& handle_line = constant(R"(@dpa_intf_t\s+intf\s+=>\s+(\w+))");
  value interfaces = make_map();
  for (const std::string_view block :
       split(output.as_text(), fmt::format("{} element", type.name))) {
    if (block.empty()) continue;
    const field_map intf_prop = fields_of(field_line, block);
    const matches handle = findall(handle_line, block);
    if (handle.empty()) throw failure(fmt::format("no handle in the block {}", brief_text(block)));
    value entry = make_map();
    for (const wanted_field& each : type.fields) {
      entry.as_map().set(each.key, field(intf_prop, each.field));
    }
    interfaces.as_map().set(handle.text(0), entry);
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
    value bundle_dpa = make_map();
    for (const std::string_view bundle : split(lagport.as_text(), "lagport element")) {
      add_lagport(bundle, nodename, bundle_dpa.as_map());
    }
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
    return interfaces_of({"l2port", {{"rif", "rif"}, {"lif", "lif"}, {"mac", "bia_mac"}}, false},
                         l2port, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l2port object failed {}", error.what(), nodename));
  }
}

value parse_l2intf_object_DPA(const value& l2intf, std::string_view nodename) {
  try {
    return interfaces_of(
        {"l2intf",
         {{"vlan_domain", "vlan_domain"}, {"lif", "gport_id_lif"}, {"is_l2", "l2_intf_type"}},
         true},
        l2intf, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l2intf object failed {}", error.what(), nodename));
  }
}

value parse_l3intf_object_DPA(const value& l3intf, std::string_view nodename) {
  try {
    return interfaces_of({"l3intf", {{"rif", "l3a_intf_id"}}, false}, l3intf, nodename);
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse l3intf object failed {}", error.what(), nodename));
  }
}

}  // namespace tessel
