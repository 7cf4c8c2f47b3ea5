#include "parsers.h"

#include <array>
#include <exception>
#include <memory>

#include "base/text.h"
#include "consistency/im_handles.h"
#include "hygiene/bundle_health.h"
#include "parse/bcm_lag.h"
#include "parse/bundle_pd.h"
#include "parse/bundle_pi.h"
#include "parse/dpa_objects.h"
#include "parse/hardware_tables.h"
#include "parse/interface_mtus.h"
#include "parse/running_config.h"
#include "parse/vlan_domain_rows.h"
#include "platform/node_inventory.h"
#include "programming/chip_rows.h"
#include "run/state.h"

namespace fuzz {

namespace {

using namespace tessel;

constexpr std::string_view node = "0/0/CPU0";

std::shared_ptr<const std::string> shared(const std::string& text) {
  return std::make_shared<const std::string>(text);
}

void whole_configuration(const std::string& text) {
  const parsed_config config{value(text)};
  const auto [bundles, cfg] = get_bundles(config);
  for (const std::string& bundle : bundles) {
    const std::string name = replace_all(bundle, "interface Bundle-Ether", "BE");
    get_members(name, config);
    get_bundle_type(cfg, bundle);
    get_encap_id(cfg, bundle + ".1");
  }
}

constexpr std::array<fuzzed_parser, 20> all_parsers = {{
    {"lagport", [](const std::string& text) { parse_lagport_object_DPA(text, node); }},
    {"l1port", [](const std::string& text) { parse_l1port_object_DPA(text, node); }},
    {"l2port", [](const std::string& text) { parse_l2port_object_DPA(text, node); }},
    {"l2intf", [](const std::string& text) { parse_l2intf_object_DPA(text, node); }},
    {"l3intf", [](const std::string& text) { parse_l3intf_object_DPA(text, node); }},
    {"bundle_pi", [](const std::string& text) { parse_bundle_info_PI(text); }},
    {"bundle_pd", [](const std::string& text) { parse_bundle_info_PD(text); }},
    {"interface_mtus", [](const std::string& text) { parse_interface_mtus(text); }},
    {"im_handles", [](const std::string& text) { im_handle_of(shared(text), "BE1.100"); }},
    {"running_config", whole_configuration},
    {"diag_lag", [](const std::string& text) { parse_diag_lag_BCM(text, node, "0"); }},
    {"tm_lag", [](const std::string& text) { parse_tm_lag(text, node, "0"); }},
    {"member_mtu", [](const std::string& text) { parse_member_mtu(text); }},
    {"bdl_pp_port", [](const std::string& text) { parse_bdl_pp_port(text); }},
    {"flat_tables",
     [](const std::string& text) {
       parse_bdl_vsi_mac(text);
       parse_lif_entries(text);
     }},
    {"nested_tables",
     [](const std::string& text) {
       parse_vlan_domain_j2(text);
       get_mtu_profile(text);
     }},
    {"mtu_profiles", [](const std::string& text) { parse_mtu_profiles(text); }},
    {"vlan_domains", [](const std::string& text) { vlan_domain_of(shared(text), "0", "10"); }},
    {"chip_rows",
     [](const std::string& text) {
       sem_payload_of(shared(text), "111064");
       vsi_mac_of(shared(text), "17");
     }},
    {"bundle_health", [](const std::string& text) { parse_bundle_health(text); }},
}};

}  // namespace

std::span<const fuzzed_parser> parsers() {
  return all_parsers;
}

void set_up() {
  new_state();
  st().router = birch;
  nodeinfo_init();
  st().dl_fd.open("/dev/null", file_mode::append);
}

void run(const fuzzed_parser& parser, const std::string& text) {
  try {
    parser.parse(text);
  } catch (const std::exception&) {
    // A failure names what it stumbled on; its handler is not part of the parser.
  }
  run_state& state = st();
  state.waiting_entries.clear();
  state.indexes.clear();
  state.voq_usage.set(make_shared_map());
  state.bundle_dict = make_map();
}

}  // namespace fuzz
