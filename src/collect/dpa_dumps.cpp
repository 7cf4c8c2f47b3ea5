#include "collect/dpa_dumps.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "base/command.h"
#include "base/findings.h"
#include "base/text.h"
#include "parse/dpa_objects.h"
#include "run/state.h"

namespace tessel {

namespace {

value parse_l1port(const value& output, std::string_view nodename) {
  return parse_l1port_object_DPA(output, nodename);
}

struct object_type {
  std::string_view name;
  std::string_view grep_opt;
  value (*parse)(const value& output, std::string_view nodename);
  // True if the parsed map is kept under the type's name; ports go to `voq_usage` instead.
  bool is_kept;
};

// An l1port line counts even if its value is missing, so only that filter keeps "not set".
constexpr std::array<object_type, 5> object_types = {{
    {"lagport",
     "grep -Ea 'lagport|pending|lag_id|intf|mifh|npu_id|mtu|port_class|weight|max_member_count' | "
     "grep -v -E 'not set'",
     parse_lagport_object_DPA, true},
    {"l1port", "grep -Ea 'port|intf|device|core|mtu|pending'", parse_l1port, false},
    {"l2port", "grep -Ea 'l2port|bia_mac|intf|lif|rif' | grep -v -E 'not set'",
     parse_l2port_object_DPA, true},
    {"l2intf", "grep -Ea 'intf|lif|encap_id|vlan_domain' | grep -v -E 'not set'",
     parse_l2intf_object_DPA, true},
    {"l3intf", "grep -Ea 'intf' | grep -v -E 'not set'", parse_l3intf_object_DPA, true},
}};

value fetch(const object_type& type, const value& nodeip, const std::string& nodename) {
  const std::string form = fmt::format(
      "ssh  -q -o 'StrictHostKeyChecking=no' {{}} /opt/nos/bin/fwd_object_show -t {} -D | {}",
      type.name, type.grep_opt);
  const std::string node_in_file_name = replace_all(nodename, "/", "_");
  return execute(filled_line(form, {{filling::address, std::string(nodeip.as_text()), nodename}}),
                 filled_line(fmt::format("{}_{{}}", type.name),
                             {{filling::node_in_file_name, node_in_file_name}}));
}

}  // namespace

int dump_dpa_objects(const value&, const value& nodeip, const std::string& nodename) {
  run_state& run = st();
  try {
    const value objects = make_shared_map(map::order::plain);
    run.DPA.get().as_map().set(nodename, objects);
    for (const object_type& type : object_types) {
      if (type.name == "l1port" && run.standbynodeinfo == value(nodename)) continue;
      const value parsed = type.parse(fetch(type, nodeip, nodename), nodename);
      if (type.is_kept) objects.as_map().set(type.name, parsed);
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump_dpa_objects failed {}", error.what(), nodename));
  }
}

}  // namespace tessel
