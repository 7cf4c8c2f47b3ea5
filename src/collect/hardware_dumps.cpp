#include "collect/hardware_dumps.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "base/command.h"
#include "base/dump.h"
#include "base/findings.h"
#include "parse/bcm_lag.h"
#include "parse/hardware_tables.h"
#include "platform/router_type.h"
#include "run/state.h"

namespace tessel {

namespace {

struct chip_command {
  std::string_view cmd;
  std::string_view fname;
  std::string_view grep_opt;
  std::string_view key;
  value (*parse)(const value& output, std::string_view nodename, std::string_view npu);
};

value raw(const value& output, std::string_view, std::string_view) {
  return output;
}

// Adapts a parser that does not need the node and the NPU of its text.
template <value (*Parse)(const value&)>
value parsed(const value& output, std::string_view, std::string_view) {
  return Parse(output);
}

// The last two share a file name, which is safe: the text of the first is in memory by then.
constexpr std::array<chip_command, 7> j2_commands = {{
    {"vis lag", "lag_pp_port", DEFAULT, "bdl_pp_port", parsed<parse_bdl_pp_port>},
    {"dbal table dump table=INGRESS_PP_PORT", "vlan_domain", DEFAULT, "vd",
     parsed<parse_vlan_domain_j2>},
    {"tm lag", "tm_lag", DEFAULT, "tm_lag", parse_tm_lag},
    {"dbal table dump table=IN_AC_UNTAGGED_DB", "local_lif", DEFAULT, "lif",
     parsed<parse_lif_entries>},
    {"dbal table dump table=ING_VSI_INFO_DB", "vsi_mac_map", DEFAULT, "VSI",
     parsed<parse_bdl_vsi_mac>},
    {"dump ETPPC_EDITING_PER_PORT_TABLE ", "mtu_profile", DEFAULT, "lag_mtu",
     parsed<get_mtu_profile>},
    {"dump chg ETPPC_MTU_MAP_TABLE", "mtu_profile", DEFAULT, "mtu_profile",
     parsed<parse_mtu_profiles>},
}};

// The filters drop rows of VLAN domain 0, empty entries and unused members, and keep the rows of
// the first instance that carry a MAC.
constexpr std::array<chip_command, 6> non_j2_commands = {{
    {"d IHP_VTT_IN_PP_PORT_CONFIG", "vlan_domain", "-v -E 'VLAN_DOMAIN=0,' | grep '[^[:space:]]'",
     "vd", raw},
    {"diag dbal dbd 3", "SEMA", "-v -E 'Payload=0x00000000'", "SEMA", raw},
    {"diag dbal dbd 4", "SEMB", "-v -E 'Payload=0x00000000'", "SEMB", raw},
    {"diag lag", "diag_lag", "-v -E 0xbffffff", "diag_lag", parse_diag_lag_BCM},
    {"d IHP_VSI_LOW_CFG_1", "vsi_mac_map", "-E 'IHP0' | grep -E 'MY_MAC=0x'", "VSI", raw},
    {"dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE", "mtu_profile", DEFAULT, "member_mtu",
     parsed<parse_member_mtu>},
}};

template <class Commands>
int dump_tables(const Commands& commands, const value& npu, const value& nodeid,
                const value& nodeip, const std::string& nodename, here where = here::current()) {
  try {
    const std::string_view unit = npu.as_text();
    const value dict = make_ordered_map();
    for (const chip_command& each : commands) {
      const value output = execute_bcmd(filled_line(each.cmd), npu, nodeid, nodeip,
                                        filled_line(each.fname), each.grep_opt);
      dict.as_map().set(each.key, each.parse(output, nodename, unit));
    }
    st().BCM.get().at(nodename).as_map().set(unit, dict);
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump_tables_per_npu failed {}", error.what(), nodename),
                         where);
  }
}

}  // namespace

int dump_hw_tables(const value& npu_list, const value& nodeid, const value& nodeip,
                   const std::string& nodename) {
  run_state& run = st();
  try {
    run.BCM.get().as_map().set(nodename, make_shared_map());
    for (const value& npu : npu_list.as_list()) {
      const auto dump = is_j2(nodename) ? dump_tables_per_npu_j2 : dump_tables_per_npu_non_j2;
      run.pid_list.append(start_worker([=] { dump(npu, nodeid, nodeip, nodename); }));
    }
    return SUCCESS;
  } catch (const std::exception& error) {
    return log_and_count(fmt::format("{}: dump_hw_tables failed for nodeid {}, {}", error.what(),
                                     plain(nodeid), nodename));
  }
}

int dump_tables_per_npu_j2(const value& npu, const value& nodeid, const value& nodeip,
                           const std::string& nodename) {
  return dump_tables(j2_commands, npu, nodeid, nodeip, nodename);
}

int dump_tables_per_npu_non_j2(const value& npu, const value& nodeid, const value& nodeip,
                               const std::string& nodename) {
  return dump_tables(non_j2_commands, npu, nodeid, nodeip, nodename);
}

}  // namespace tessel
