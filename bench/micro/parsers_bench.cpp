// One case per parser, at three sizes of router. The time per bundle must stay the same.
#include <benchmark/benchmark.h>

#include <string>

#include "base/text.h"
#include "collect/interface_mtus.h"
#include "consistency/im_handles.h"
#include "hygiene/bundle_health.h"
#include "micro/texts.h"
#include "parse/bcm_lag.h"
#include "parse/bundle_pd.h"
#include "parse/bundle_pi.h"
#include "parse/dpa_objects.h"
#include "parse/hardware_tables.h"
#include "parse/running_config.h"
#include "platform/node_inventory.h"
#include "run/state.h"

namespace {

using tessel::value;

constexpr unsigned older_card = 0;
constexpr unsigned jericho2_card = 1;
constexpr const char* older_node = "0/0/CPU0";
constexpr const char* jericho2_node = "0/1/CPU0";

void fresh_state() {
  tessel::new_state();
  tessel::st().router = tessel::birch;
  tessel::nodeinfo_init();
}

unsigned bundles_of(const benchmark::State& state) {
  return static_cast<unsigned>(state.range(0));
}

template <class Parse>
void run(benchmark::State& state, const std::string& text, Parse parse) {
  fresh_state();
  const value output = text;
  for (auto _ : state) benchmark::DoNotOptimize(parse(output));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.SetComplexityN(state.range(0));
}

std::string objects(benchmark::State& state, const std::string& type, const char* kept,
                    const char* dropped) {
  const unsigned bundles = bundles_of(state);
  return bench::text_of(bundles, bench::card_address(bundles, older_card),
                        "/opt/nos/bin/fwd_object_show -t " + type + " -D", kept, dropped);
}

std::string chip(benchmark::State& state, unsigned card, const std::string& command,
                 const char* dropped = "") {
  const std::string line =
      "/opt/nos/bin/asic_shell_show -c \"" + command + "\" -u 0 -n " + std::to_string(card);
  return bench::text_of(bundles_of(state), "local", line, "", dropped);
}

void lagport(benchmark::State& state) {
  run(state,
      objects(state, "lagport",
              "lagport|pending|lag_id|intf|mifh|npu_id|mtu|port_class|weight|max_member_count",
              "not set"),
      [](const value& text) { return tessel::parse_lagport_object_DPA(text, older_node); });
}

void l1port(benchmark::State& state) {
  run(state, objects(state, "l1port", "port|intf|device|core|mtu|pending", ""),
      [](const value& text) { return tessel::parse_l1port_object_DPA(text, older_node); });
}

void l2port(benchmark::State& state) {
  run(state, objects(state, "l2port", "l2port|bia_mac|intf|lif|rif", "not set"),
      [](const value& text) { return tessel::parse_l2port_object_DPA(text, older_node); });
}

void l2intf(benchmark::State& state) {
  run(state, objects(state, "l2intf", "intf|lif|encap_id|vlan_domain", "not set"),
      [](const value& text) { return tessel::parse_l2intf_object_DPA(text, older_node); });
}

void l3intf(benchmark::State& state) {
  run(state, objects(state, "l3intf", "intf", "not set"),
      [](const value& text) { return tessel::parse_l3intf_object_DPA(text, older_node); });
}

void bundle_pi(benchmark::State& state) {
  run(state,
      bench::text_of(bundles_of(state), "local", "lagmgr_table_show -d -P 0x0 -N all -L 0x3 -O all",
                     "Bundle|Member|Operational MTU|Local"),
      [](const value& text) { return tessel::parse_bundle_info_PI(text.as_text()); });
}

void bundle_pd(benchmark::State& state) {
  run(state, bench::text_of(bundles_of(state), "local", "lagmgr_agent_show -m -a all"),
      [](const value& text) { return tessel::parse_bundle_info_PD(text.as_text()); });
}

void interface_mtus(benchmark::State& state) {
  run(state, bench::text_of(bundles_of(state), "local", "iface_show -i .*", "line protocol|MTU"),
      [](const value& text) { return tessel::parse_interface_mtus(text.as_text()); });
}

void im_handles(benchmark::State& state) {
  run(state, bench::text_of(bundles_of(state), "local", "ifmgr_show database -l 0x1 -a", "BE"),
      [](const value& text) {
        tessel::st().indexes.clear();
        return tessel::im_handle_of(text.as_shared_text(), "BE1.1");
      });
}

std::string node_name(unsigned card) {
  return "0/" + std::to_string(card) + "/CPU0";
}

// What collection leaves for the configuration's members: the ports of all cards, and the raw VLAN
// domain tables of the earlier chips.
void collect_ports(benchmark::State& state) {
  constexpr unsigned cards = 4;
  const unsigned bundles = bundles_of(state);
  tessel::run_state& run = tessel::st();
  for (unsigned card = 0; card < cards; ++card) {
    const std::string node = node_name(card);
    tessel::parse_l1port_object_DPA(bench::text_of(bundles, bench::card_address(bundles, card),
                                                   "/opt/nos/bin/fwd_object_show -t l1port -D",
                                                   "port|intf|device|core|mtu|pending"),
                                    node);
    run.nodeinfo.get().at(node).as_map().set("asic", card % 2 == 0 ? "BCM8868" : "BCM8869");
    value npus = tessel::make_map();
    for (const char* npu : {"0", "1"}) {
      value tables = tessel::make_map();
      if (card % 2 == 0) {
        tables.as_map().set(
            "vd",
            bench::text_of(bundles, "local",
                           "/opt/nos/bin/asic_shell_show -c \"d IHP_VTT_IN_PP_PORT_CONFIG\" -u " +
                               std::string(npu) + " -n " + std::to_string(card),
                           "", "VLAN_DOMAIN=0,"));
      }
      npus.as_map().set(npu, tables);
    }
    run.BCM.get().as_map().set(node, npus);
  }
}

// The whole parse: bundles, members, their VLAN domains and sub-bundles.
void running_config(benchmark::State& state) {
  const std::string text =
      bench::text_of(bundles_of(state), "local", "cfg_render -c -l 1 -t 1 -o 1");
  fresh_state();
  collect_ports(state);
  tessel::run_state& run = tessel::st();
  run.dl_fd.open("/dev/null", tessel::file_mode::append);
  for (auto _ : state) {
    run.run_cfg.set(text);
    run.tesselDb = tessel::make_ordered_map();
    run.bundle_dict = tessel::make_map();
    run.indexes.clear();
    benchmark::DoNotOptimize(tessel::parse_running_config());
  }
  if (run.exception != 0 || run.tesselDb.as_map().size() != bundles_of(state) + 1) {
    state.SkipWithError("not every bundle was parsed");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
  state.SetComplexityN(state.range(0));
}

// A report that names every bundle.
void bundle_health(benchmark::State& state) {
  std::string text = "--------\nProcess   Node   Result   Errors   Details\n--------\n";
  for (unsigned bundle = 1; bundle <= bundles_of(state); ++bundle) {
    text += "Bundle-Ether" + std::to_string(bundle) + "\n      is not distributing\n\n\n";
  }
  run(state, text,
      [](const value& report) { return tessel::parse_bundle_health(report.as_text()); });
}

void diag_lag(benchmark::State& state) {
  run(state, chip(state, older_card, "diag lag", "0xbffffff"),
      [](const value& text) { return tessel::parse_diag_lag_BCM(text, older_node, "0"); });
}

void tm_lag(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "tm lag"),
      [](const value& text) { return tessel::parse_tm_lag(text, jericho2_node, "0"); });
}

void member_mtu(benchmark::State& state) {
  run(state, chip(state, older_card, "dump EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE"),
      tessel::parse_member_mtu);
}

void bdl_pp_port(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "vis lag"), tessel::parse_bdl_pp_port);
}

void bdl_vsi_mac(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "dbal table dump table=ING_VSI_INFO_DB"),
      tessel::parse_bdl_vsi_mac);
}

void lif_entries(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "dbal table dump table=IN_AC_UNTAGGED_DB"),
      tessel::parse_lif_entries);
}

void vlan_domain_j2(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "dbal table dump table=INGRESS_PP_PORT"),
      tessel::parse_vlan_domain_j2);
}

void lag_mtu(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "dump ETPPC_EDITING_PER_PORT_TABLE "),
      tessel::get_mtu_profile);
}

void mtu_profiles(benchmark::State& state) {
  run(state, chip(state, jericho2_card, "dump chg ETPPC_MTU_MAP_TABLE"),
      tessel::parse_mtu_profiles);
}

#define TESSEL_PARSER(name) BENCHMARK(name)->Arg(25)->Arg(50)->Arg(100)->Complexity()
TESSEL_PARSER(lagport);
TESSEL_PARSER(l1port);
TESSEL_PARSER(l2port);
TESSEL_PARSER(l2intf);
TESSEL_PARSER(l3intf);
TESSEL_PARSER(bundle_pi);
TESSEL_PARSER(bundle_pd);
TESSEL_PARSER(interface_mtus);
TESSEL_PARSER(im_handles);
TESSEL_PARSER(running_config);
TESSEL_PARSER(diag_lag);
TESSEL_PARSER(tm_lag);
TESSEL_PARSER(member_mtu);
TESSEL_PARSER(bdl_pp_port);
TESSEL_PARSER(bdl_vsi_mac);
TESSEL_PARSER(lif_entries);
TESSEL_PARSER(vlan_domain_j2);
TESSEL_PARSER(lag_mtu);
TESSEL_PARSER(mtu_profiles);
TESSEL_PARSER(bundle_health);

}  // namespace
