#include "parse/hardware_tables.h"

#include <fmt/format.h>

#include <string>

#include "base/failure.h"
#include "base/findings.h"
#include "base/numbers.h"
#include "base/records.h"
#include "base/text.h"
#include "parse/vlan_domain_rows.h"
#include "platform/port_numbers.h"
#include "platform/router_type.h"
#include "run/state.h"

namespace tessel {

namespace {

constexpr wide_int indexes_per_profile = 10;

map& inner_map(value& outer, std::string_view key) {
  if (!outer.contains(key)) outer.as_map().set(key, make_map());
  return outer.at(key).as_map();
}

// Maps group 1 to group 2 to group 3; the last row of a key wins.
value nested_table(const pattern& row, const value& output) {
  value table = make_map();
  const matches rows = findall(row, output.as_text());
  for (std::size_t at = 0; at < rows.size(); ++at) {
    inner_map(table, rows[at][0]).set(rows[at][1], rows[at][2]);
  }
  return table;
}

// Maps group 1 to group 2; the last row of a key wins.
value flat_table(const pattern& row, const value& output) {
  value table = make_map();
  const matches rows = findall(row, output.as_text());
  for (std::size_t at = 0; at < rows.size(); ++at) table.as_map().set(rows[at][0], rows[at][1]);
  return table;
}

bool standby_takes_part() {
  run_state& run = st();
  if (run.router != aspen || run.standbynodeinfo == DEFAULT) return false;
  return run.nodeinfo.get().at(run.standbynodeinfo.as_text()).at("dump").truthy();
}

// The raw tables in which to look for a member, by node.
value tables_of(const record& member, std::string_view nodename) {
  run_state& run = st();
  const std::string npu = member.get("npu_id").as_text();
  const value bcm = run.BCM.get();
  value vd = make_map();
  vd.as_map().set(nodename, bcm.at(nodename).at(npu).at("vd"));
  if (!standby_takes_part()) return vd;
  const std::string_view standby = run.standbynodeinfo.as_text();
  if (!bcm.contains(standby)) {
    throw failure(fmt::format("no port number: {} has no chip tables", standby));
  }
  vd.as_map().set(standby, bcm.at(standby).at(npu).at("vd"));
  return vd;
}

}  // namespace

value parse_member_mtu(const value& member_mtu) {
  static const pattern& row = constant(
      R"(EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE\.EPNI(\d+)\[(\d+)\]:\s+\<[A-Z_=0-9,a-z]+MTU=(\w+))");
  value table = make_map();
  const matches rows = findall(row, member_mtu.as_text());
  for (std::size_t at = 0; at < rows.size(); ++at) {
    inner_map(table, rows[at][0]).set(rows[at][1], convert_hex_to_int(rows[at][2]));
  }
  return table;
}

value parse_bdl_pp_port(const value& vis_lag) {
  static const pattern& two_rows = constant(
      "\\|\\s(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\s(\\d+)\\s+\\|\\s+(\\d+)\\s+\\|\\s+("
      "\\d+)"
      "\\s+\\|\n\\|\\s+\\|\\s+\\|\\s+(\\d+)\\s+\\|\\s+(\\d+)");
  value table = make_map();
  const matches lags = findall(two_rows, vis_lag.as_text());
  for (std::size_t at = 0; at < lags.size(); ++at) {
    const auto cells = lags[at];
    map& ports = inner_map(table, cells[1]);
    ports.set(cells[2], cells[3]);
    ports.set(cells[6], cells[7]);
  }
  return table;
}

value parse_bdl_vsi_mac(const value& vsi_mac) {
  static const pattern& row = constant(R"(\|\s+\d+\s+\|\s+(\d+)\s+\|\|\s+\d+\s+\|\s+(\d+))");
  return flat_table(row, vsi_mac);
}

value parse_lif_entries(const value& lif_entry) {
  static const pattern& row = constant(R"(\|\s+\d+\s+\|\s+(\d+)\s+\|\s+\d+\s+\|\|\s+(\d+))");
  return flat_table(row, lif_entry);
}

value parse_vlan_domain_j2(const value& vlan_domain) {
  static const pattern& row = constant(R"(\|\s+\d+\s+\|\s+(\d+)\s+\|\s+(\d+)\s+\|\|\s+(\d+))");
  return nested_table(row, vlan_domain);
}

value get_mtu_profile(const value& mtu_profile) {
  static const pattern& row = constant(
      R"(ETPPC_EDITING_PER_PORT_TABLE\.ETPPC(\d+)\[(\d+)\]:\s+\<[A-Z_=0-9,a-z]+MTU_PROFILE=(\d+))");
  return nested_table(row, mtu_profile);
}

value parse_mtu_profiles(const value& all_mtu) {
  static const pattern& row =
      constant(R"(ETPPC_MTU_MAP_TABLE\.ETPPC(\d+)\[(\d+)\]:\s<[A-Z_=0-9,]+MTU\=(\w+))");
  value table = make_map();
  const matches rows = findall(row, all_mtu.as_text());
  for (std::size_t at = 0; at < rows.size(); ++at) {
    const wide_int profile = to_wide_decimal(rows[at][1]) / indexes_per_profile;
    inner_map(table, rows[at][0]).set(fmt::format("{}", profile), convert_hex_to_int(rows[at][2]));
  }
  return table;
}

int parse_vlan_domain(std::string_view mem) {
  run_state& run = st();
  try {
    const value entry = run.voq_usage.get().at(mem);
    record& member = entry.as_record();
    const std::string nodename = member.get("nodename").as_text();
    if (!run.nodeinfo.get().at(nodename).at("asic_supported").truthy()) return SUCCESS;
    if (is_j2(nodename)) return SUCCESS;
    const value vd = tables_of(member, nodename);
    const std::string core = member.get("npu_core").as_text();
    const std::string port = port_on_core(member.get("pp_port"), member.get("npu_core"));
    const value vlan_domain = member.get("vlan_domain");
    for (const auto& [node, table] : vd.as_map().items()) {
      const auto domain = vlan_domain_of(table.as_shared_text(), core, port);
      vlan_domain.as_map().set(node, domain ? value(convert_to_hex(*domain)) : value(0));
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: parse_vlan_domain failed", error.what()));
  }
}

}  // namespace tessel
