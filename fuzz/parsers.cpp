#include "parsers.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "base/records.h"
#include "base/text.h"
#include "collect/dpa_dumps.h"
#include "collect/dump_data.h"
#include "collect/hardware_dumps.h"
#include "collect/interface_mtus.h"
#include "collect/port_listing.h"
#include "commands.h"
#include "consistency/consistency_pass.h"
#include "consistency/im_handles.h"
#include "definitions.h"
#include "hygiene/bundle_health.h"
#include "hygiene/stale_entries.h"
#include "parse/bcm_lag.h"
#include "parse/bundle_pd.h"
#include "parse/bundle_pi.h"
#include "parse/dpa_objects.h"
#include "parse/hardware_tables.h"
#include "parse/parse_data.h"
#include "parse/running_config.h"
#include "parse/vlan_domain_rows.h"
#include "platform/node_inventory.h"
#include "platform/router_type.h"
#include "programming/chip_rows.h"
#include "programming/entry_checks.h"
#include "programming/mapping_checks.h"
#include "programming/programming_pass.h"
#include "run/state.h"

namespace fuzz {

namespace {

using namespace tessel;

using texts = std::vector<std::string>;

constexpr std::string_view node = "0/0/CPU0";
constexpr std::string_view npu = "0";
constexpr std::string_view object = "BE1(0x60) NPU 0,0/0/CPU0";

constexpr std::string_view version = "sw_version_show";
constexpr std::string_view node_listing = "plat_nodes_show";
constexpr std::string_view unit_list = R"(asic_shell_show -c "show unit)";
constexpr std::string_view own_node_id = "board_api_probe";
constexpr std::string_view converted_node_id = "node_id_convert";
constexpr std::string_view interface_listing = "iface_show";
constexpr std::string_view handle_listing = "ifmgr_show database";
constexpr std::string_view configuration = "cfg_render";
constexpr std::string_view port_listing = "qos_voq_show";
constexpr std::string_view pi_table = "lagmgr_table_show";
constexpr std::string_view pd_table = "lagmgr_agent_show";
constexpr std::string_view health_report = "lagmgr_health";
constexpr std::string_view lagport = "fwd_object_show -t lagport";
constexpr std::string_view l1port = "fwd_object_show -t l1port";
constexpr std::string_view l2port = "fwd_object_show -t l2port";
constexpr std::string_view l2intf = "fwd_object_show -t l2intf";
constexpr std::string_view l3intf = "fwd_object_show -t l3intf";
constexpr std::string_view vlan_domains = R"(asic_shell_show -c "d IHP_VTT_IN_PP_PORT_CONFIG)";
constexpr std::string_view sem_a = R"(asic_shell_show -c "diag dbal dbd 3)";
constexpr std::string_view sem_b = R"(asic_shell_show -c "diag dbal dbd 4)";
constexpr std::string_view diag_lag = R"(asic_shell_show -c "diag lag)";
constexpr std::string_view vsi_macs = R"(asic_shell_show -c "d IHP_VSI_LOW_CFG_1)";
constexpr std::string_view port_mtus =
    R"(asic_shell_show -c "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE)";
constexpr std::string_view bundle_ports = R"(asic_shell_show -c "vis lag)";
constexpr std::string_view vlan_domains_j2 =
    R"(asic_shell_show -c "dbal table dump table=INGRESS_PP_PORT)";
constexpr std::string_view tm_lag = R"(asic_shell_show -c "tm lag)";
constexpr std::string_view local_lifs =
    R"(asic_shell_show -c "dbal table dump table=IN_AC_UNTAGGED_DB)";
constexpr std::string_view vsi_macs_j2 =
    R"(asic_shell_show -c "dbal table dump table=ING_VSI_INFO_DB)";
constexpr std::string_view port_mtu_profiles =
    R"(asic_shell_show -c "dump ETPPC_EDITING_PER_PORT_TABLE)";
constexpr std::string_view mtu_profiles = R"(asic_shell_show -c "dump chg ETPPC_MTU_MAP_TABLE)";
constexpr std::string_view lif_answer = R"(asic_shell_show -c "diag pp lif id=0x)";

std::shared_ptr<const std::string> shared(const std::string& text) {
  return std::make_shared<const std::string>(text);
}

// Sets the run's router type, with all nodes that its chassis can hold.
void take_for(int router) {
  run_state& run = st();
  run.router = router;
  run.nodeinfo.set(make_ordered_map());
  nodeinfo_init();
}

void start_afresh() {
  // The workers of the previous state have ended, so it can be freed.
  static std::unique_ptr<run_state> current;
  current.reset(&new_state());
  st().dl_fd.open("/dev/null", file_mode::append);
  st().stale_fd.open("/dev/null", file_mode::append);
  take_for(birch);
}

void set_table(std::string_view nodename, std::string_view unit, std::string_view key,
               value content) {
  map& nodes = st().BCM.get().as_map();
  if (!nodes.contains(nodename)) nodes.set(nodename, make_map());
  map& units = nodes.at(nodename).as_map();
  if (!units.contains(unit)) units.set(unit, make_map());
  units.at(unit).as_map().set(key, std::move(content));
}

std::shared_ptr<Bundles> bundle_with(std::string_view field, std::string_view content) {
  auto bundle = std::make_shared<Bundles>();
  bundle->set(field, content);
  bundle->set("mac", "0011.2233.4455");
  return bundle;
}

// The word after the first `mark`, or `otherwise`. It gives look-ups a key that occurs in the
// table.
std::string word_behind(std::string_view mark, std::string_view text, std::string_view otherwise) {
  const std::size_t found = text.find(mark);
  if (found == std::string_view::npos) return std::string(otherwise);
  const std::size_t start = found + mark.size();
  std::size_t end = start;
  while (end < text.size() && is_word(text[end])) ++end;
  return std::string(end > start ? text.substr(start, end - start) : otherwise);
}

// Parses the configuration, with the ports that the forwarding objects know and the chips' VLAN
// domains.
void configure(const texts& all, std::string_view nodename, std::string_view standby) {
  constexpr int units_of_node = 8;
  parse_l1port_object_DPA(all[1], nodename);
  for (int unit = 0; unit < units_of_node; ++unit) {
    for (const std::string_view each : {nodename, standby}) {
      set_table(each, std::to_string(unit), "vd", all[2]);
    }
  }
  dump_running_config();
  parse_data();
}

void running_config(const texts& all) {
  configure(all, node, node);
}

void running_config_with_standby(const texts& all) {
  take_for(aspen);
  run_state& run = st();
  run.activenodeinfo = "0/RP0/CPU0";
  run.standbynodeinfo = "0/RP1/CPU0";
  run.nodeinfo.get().at("0/RP1/CPU0").as_map().set("dump", 1);
  configure(all, "0/RP0/CPU0", "0/RP1/CPU0");
}

void router_type(const texts&) {
  st().router = notset;
  get_router_type();
}

void node_inventory(const texts&) {
  for (const int router : {birch, aspen, fir}) {
    take_for(router);
    get_list_of_vms();
  }
}

void units(const texts&) {
  for (const int router : {birch, fir, cedar}) {
    take_for(router);
    check_asic_support();
  }
}

// One kind of chassis asks each node for its id; all others convert the node's name.
void node_ids(const texts&) {
  for (const int router : {birch, aspen}) {
    take_for(router);
    st().activenode_cnt = 2;
    map& one = st().nodeinfo.get().at(node).as_map();
    one.set("dump", 1);
    one.set("nodeip", "192.0.0.6");
    dump_data();
  }
}

void ports(const texts&) {
  for (const int router : {birch, aspen}) {
    take_for(router);
    fill_member_details();
  }
}

void vlan_domain_table(const texts& all) {
  const auto table = shared(all[0]);
  vlan_domain_of(table, "0", "10");
  vlan_domain_of(table, "0", "123456789012345678901");
}

void sem_tables(const texts& all) {
  set_table(node, npu, "SEMA", all[0]);
  set_table(node, npu, "SEMB", all[1]);
  for (const std::string& key : {word_behind("Key=0x", all[0], "1005"),
                                 word_behind("Key=0x", all[1], "1005"), std::string("no key")}) {
    verify_sem_entry(any_llif, {node, npu}, key);
    verify_sem_entry("5", {node, npu}, key);
  }
}

void vsi_table(const texts& all) {
  set_table(node, npu, "VSI", all[0]);
  const auto bundle = bundle_with("rif", word_behind("IHP0[", all[0], "5"));
  verify_rif_entry(*bundle, {node, npu}, object, 0);
}

void vsi_table_j2(const texts& all) {
  constexpr std::size_t most_rows = 16;
  const value table = parse_bdl_vsi_mac(all[0]);
  set_table(node, npu, "VSI", table);
  const std::vector<std::string> rifs = table.as_map().keys();
  for (std::size_t at = 0; at < std::min(rifs.size(), most_rows); ++at) {
    const auto bundle = bundle_with("rif", rifs[at]);
    verify_rif_entry_j2(*bundle, {node, npu}, object, 0, rifs[at]);
  }
}

void lif_map(const texts& all) {
  const auto bundle = bundle_with("glif", word_behind("GLIF ", all[0], "0x4001"));
  get_glif_to_llif_vsi_mapping(node, npu, *bundle, object);
  const value lifs = parse_lif_entries(all[1]);
  set_table(node, npu, "lif", lifs);
  const std::vector<std::string> pp_ports = lifs.as_map().keys();
  verify_sem_entry_j2("", {node, npu}, pp_ports.empty() ? "1" : pp_ports.front(), "0x4001");
}

// Each NPU of a chassis reads all tables of its chip, so more NPUs than a chassis has only cost
// time.
bool has_too_many_units() {
  constexpr std::size_t most_units = 64;
  std::size_t count = 0;
  for (const auto& [nodename, each] : st().nodeinfo.get().as_map().items()) {
    count += each.at("npu_list").as_list().size();
  }
  return count > most_units;
}

// The phases of a run as its driver calls them, without the logs, the results and the end of the
// process.
void whole_run(const texts&) {
  run_state& run = st();
  run.my_node_id = 4096;
  run.router = notset;
  take_for(get_router_type());
  if (!check_asic_support() || run.router == invalid || has_too_many_units()) return;
  run.nodeinfo.set(get_list_of_vms());
  if (!run.nodeinfo.get().truthy() || dump_data() == ERROR) return;
  if (parse_data() == ERROR || run.exception != 0) return;
  if (check_bundle_consistency() == ERROR) return;
  check_bundle_programming();
  check_stale_entries();
  check_bundle_health();
}

std::vector<std::string_view> commands_of_whole_run() {
  return {version,
          node_listing,
          unit_list,
          own_node_id,
          converted_node_id,
          interface_listing,
          handle_listing,
          configuration,
          pi_table,
          pd_table,
          health_report,
          lagport,
          l1port,
          l2port,
          l2intf,
          l3intf,
          vlan_domains,
          sem_a,
          sem_b,
          diag_lag,
          vsi_macs,
          port_mtus,
          bundle_ports,
          vlan_domains_j2,
          tm_lag,
          local_lifs,
          vsi_macs_j2,
          port_mtu_profiles,
          mtu_profiles,
          lif_answer};
}

// For what reads only one text.
template <void (*Read)(std::string_view text)>
void only(const texts& all) {
  Read(all[0]);
}

const std::vector<fuzzed_parser>& all_parsers() {
  static const std::vector<fuzzed_parser> made = {
      {"router_type", {version}, router_type},
      {"node_inventory", {node_listing}, node_inventory},
      {"units", {unit_list}, units},
      {"node_ids", {converted_node_id, own_node_id}, node_ids},
      {"interface_mtus",
       {interface_listing},
       [](const texts& all) { parse_interface_mtus(all[0]); }},
      {"im_handles",
       {handle_listing},
       [](const texts& all) { im_handle_of(shared(all[0]), "BE1.100"); }},
      {"bundle_pi", {pi_table}, [](const texts&) { dump_parse_bundle_info_PI(); }},
      {"bundle_pd", {pd_table}, [](const texts&) { dump_parse_bundle_info_PD(); }},
      {"bundle_health", {health_report}, [](const texts&) { check_bundle_health(); }},
      {"ports", {port_listing}, ports},
      {"running_config", {configuration, l1port, vlan_domains}, running_config},
      {"running_config_with_standby",
       {configuration, l1port, vlan_domains},
       running_config_with_standby},
      {"lagport", {lagport}, [](const texts& all) { parse_lagport_object_DPA(all[0], node); }},
      {"l1port", {l1port}, [](const texts& all) { parse_l1port_object_DPA(all[0], node); }},
      {"l2port", {l2port}, [](const texts& all) { parse_l2port_object_DPA(all[0], node); }},
      {"l2intf", {l2intf}, [](const texts& all) { parse_l2intf_object_DPA(all[0], node); }},
      {"l3intf", {l3intf}, [](const texts& all) { parse_l3intf_object_DPA(all[0], node); }},
      {"vlan_domains", {vlan_domains}, vlan_domain_table},
      {"sem", {sem_a, sem_b}, sem_tables},
      {"diag_lag", {diag_lag}, [](const texts& all) { parse_diag_lag_BCM(all[0], node, npu); }},
      {"vsi", {vsi_macs}, vsi_table},
      {"port_mtus", {port_mtus}, [](const texts& all) { parse_member_mtu(all[0]); }},
      {"bundle_ports", {bundle_ports}, [](const texts& all) { parse_bdl_pp_port(all[0]); }},
      {"vlan_domains_j2",
       {vlan_domains_j2},
       [](const texts& all) { parse_vlan_domain_j2(all[0]); }},
      {"tm_lag", {tm_lag}, [](const texts& all) { parse_tm_lag(all[0], node, npu); }},
      {"vsi_j2", {vsi_macs_j2}, vsi_table_j2},
      {"lif_map", {lif_answer, local_lifs}, lif_map},
      {"port_mtu_profiles", {port_mtu_profiles}, [](const texts& all) { get_mtu_profile(all[0]); }},
      {"mtu_profiles", {mtu_profiles}, [](const texts& all) { parse_mtu_profiles(all[0]); }},
      {"definition_of_diag_lag", {diag_lag}, only<compare_lag_rows>},
      {"definition_of_tm_lag", {tm_lag}, only<compare_lag_rows>},
      {"definition_of_fields", {l2port}, only<compare_block_fields>},
      {"definition_of_slots", {lagport}, only<compare_slot_fields>},
      {"definition_of_lagports", {lagport}, only<compare_block_fields>},
      {"definition_of_encapsulations", {configuration}, only<compare_interface_text>},
      {"definition_of_mtus", {interface_listing}, only<compare_interface_mtus>},
      {"definition_of_handles", {handle_listing}, only<compare_im_handles>},
      {"definition_of_vlan_domains", {vlan_domains}, only<compare_vlan_domains>},
      {"definition_of_sem", {sem_a}, only<compare_chip_rows>},
      {"definition_of_vsi", {vsi_macs}, only<compare_chip_rows>},
      {"definition_of_lif_mappings", {lif_answer}, only<compare_lif_mappings>},
      {"definition_of_units", {unit_list}, only<compare_units>},
      {"definition_of_members", {pi_table}, only<compare_bundle_members>},
      {"definition_of_health_blocks", {health_report}, only<compare_health_report>},
      {"snapshot", {handle_listing}, only<check_snapshot>},
      {"whole_run", commands_of_whole_run(), whole_run},
  };
  return made;
}

texts texts_of(const fuzzed_parser& parser, std::string_view input) {
  const auto pieces = split(input, std::string_view(&text_separator, 1));
  texts all(pieces.begin(), pieces.end());
  all.resize(parser.commands.size());
  return all;
}

}  // namespace

std::span<const fuzzed_parser> parsers() {
  return all_parsers();
}

std::vector<std::string> command_lines() {
  answer_commands({});
  return commands_asked_by([] {
    start_afresh();
    dump_data();
    dump_dpa_objects(0, "192.0.0.6", std::string(node));
    set_table(node, npu, "none", value());
    dump_tables_per_npu_j2(npu, 0, DEFAULT, std::string(node));
    dump_tables_per_npu_non_j2(npu, 0, DEFAULT, std::string(node));
    check_bundle_health();
  });
}

void run(const fuzzed_parser& parser, std::string_view input) {
  const texts all = texts_of(parser, input);
  std::vector<command_answer> answers;
  for (std::size_t at = 0; at < all.size(); ++at) {
    answers.push_back({std::string(parser.commands[at]), all[at]});
  }
  answer_commands(std::move(answers));
  start_afresh();
  try {
    parser.parse(all);
  } catch (const std::exception&) {
    // A parser may throw `failure`; the audit's handlers for it are not under test here.
  }
}

}  // namespace fuzz
