#include "faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "render.h"

namespace lab {
namespace {

// Where to plant --------------------------------------------------------------------------------

struct site {
  const bundle* b = nullptr;
  const member* m = nullptr;
  const node* n = nullptr;
};

// Members in reverse or given order, the first that `fits`. Only nodes that the audit examines and
// that report to the bundle manager: a standby one does not.
template <typename Fits>
site find_site(const router& r, Fits fits, bool last_first = false) {
  std::vector<site> sites;
  for (const bundle& b : r.bundles)
    for (const member& m : b.members) {
      const node* n = find_node(r, m.node);
      if (n != nullptr && n->state == "ACTIVE" && n->band == "FINAL" && n->forwarding)
        sites.push_back({&b, &m, n});
    }
  if (last_first) std::reverse(sites.begin(), sites.end());
  const auto found = std::find_if(sites.begin(), sites.end(), fits);
  return found == sites.end() ? site{} : *found;
}

bool anywhere(const site&) {
  return true;
}
bool on_older_chip(const site& s) {
  return family_of(*s.n) == chip_family::older;
}

void hold(router& r, std::string field, const std::string& object, const std::string& node_name,
          std::string value, int npu = -1) {
  r.overrides.push_back({std::move(field), object, node_name, npu, std::move(value)});
}

std::string other_lag(const bundle& b) {
  return fmt::format("{:#x}", b.lag + 0x400);
}

// A port that no bundle has, on the node of a member.
std::string foreign_port(const member& m) {
  return m.port.substr(0, m.port.find('/')) + "/" + "0/0/60";
}

// Layer against layer ---------------------------------------------------------------------------

bool plant_pi_bundle(router& r, const std::string&) {
  if (r.bundles.empty()) return false;
  hold(r, "pi.bundle", name_of(r.bundles.front()), "", "absent");
  return true;
}

bool plant_pi_member(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pi.member", port_tail(s.m->port), "", "absent");
  return true;
}

bool plant_im_sub(router& r, const std::string&) {
  for (const bundle& b : r.bundles)
    if (!b.subs.empty()) {
      hold(r, "im.handle", name_of(b.subs.front()), "", "absent");
      return true;
    }
  return false;
}

bool plant_pd_bundle(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pd.bundle", name_of(*s.b), "", "absent");
  return true;
}

bool plant_pd_npu(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pd.npu", port_tail(s.m->port), s.n->name, std::to_string(s.m->npu + 7));
  return true;
}

bool plant_pd_member(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pd.member", port_tail(s.m->port), s.n->name, "absent");
  return true;
}

bool plant_dpa_lag(router& r, const std::string&) {
  // The agent of the same node has set the expectation by the time that this object is compared.
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.lag", name_of(*s.b), s.n->name, other_lag(*s.b));
  return true;
}

bool plant_dpa_object(router& r, const std::string&) {
  // On a node without members of the bundle nothing else can fail for the want of the object.
  for (const bundle& b : r.bundles)
    for (const node& n : r.nodes)
      if (n.forwarding && n.state == "ACTIVE" && members_on(r, b, n).empty()) {
        hold(r, "dpa.object", name_of(b), n.name, "absent");
        return true;
      }
  return false;
}

bool plant_dpa_mtu(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.mtu", port_tail(s.m->port), s.n->name, std::to_string(s.m->mtu - 100));
  return true;
}

bool plant_dpa_member_id(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.member-id", port_tail(s.m->port), s.n->name, std::to_string(s.m->id + 40));
  return true;
}

bool plant_dpa_mac(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  std::string mac = colon_mac(s.b->mac);
  mac.back() = mac.back() == '0' ? '1' : '0';
  hold(r, "dpa.mac", name_of(*s.b), s.n->name, mac);
  return true;
}

bool plant_dpa_l3_rif(router& r, const std::string&) {
  // The l2port object, which the same check reads first, has set the expectation by then.
  const site s = find_site(r, [](const site& one) { return !one.b->l2; });
  if (s.m == nullptr) return false;
  hold(r, "dpa.l3-rif", name_of(*s.b), s.n->name, fmt::format("{:#x}", s.b->rif + 0x100));
  return true;
}

bool plant_dpa_l2_domain(router& r, const std::string&) {
  const site s = find_site(r, [](const site& one) { return one.b->l2; });
  if (s.m == nullptr) return false;
  hold(r, "dpa.l2-vlan-domain", name_of(*s.b), s.n->name,
       fmt::format("{:#x}", s.b->vlan_domain + 0x300));
  return true;
}

bool plant_weight(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.weight", port_tail(s.m->port), s.n->name, std::to_string(s.b->max_members + 1));
  return true;
}

bool plant_delay_delete(router& r, const std::string&) {
  // Marked on every node, as the last one compared decides; wrong on one, so that it counts.
  const site s = find_site(r, anywhere, true);
  if (s.m == nullptr) return false;
  hold(r, "dpa.pending", name_of(*s.b), "", "0/0/1");
  hold(r, "dpa.lag", name_of(*s.b), s.n->name, other_lag(*s.b));
  return true;
}

// Layers against the chip -----------------------------------------------------------------------

bool plant_chip_lag(router& r, const std::string&) {
  // Where the bundle has no member the missing LAG is the whole of the finding.
  for (const bundle& b : r.bundles)
    for (const node& n : r.nodes)
      for (unsigned npu = 0; npu < n.npus; ++npu)
        if (n.state == "ACTIVE" && n.forwarding && members_on(r, b, n).empty()) {
          hold(r, "chip.lag", name_of(b), n.name, "absent", static_cast<int>(npu));
          return true;
        }
  return false;
}

bool plant_chip_member(router& r, const std::string&) {
  const bundle* first = r.bundles.empty() ? nullptr : &r.bundles.front();
  site s = find_site(r, [&](const site& one) { return one.b != first && on_older_chip(one); });
  if (s.m == nullptr) s = find_site(r, anywhere);
  if (s.m == nullptr || s.n->npus == 0) return false;
  hold(r, "chip.member", port_tail(s.m->port), s.n->name, "absent", static_cast<int>(s.m->npu));
  return true;
}

bool plant_chip_mtu(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr || s.n->npus == 0) return false;
  const bool older = on_older_chip(s);
  const unsigned mtu = s.m->mtu - 200;
  hold(r, "chip.mtu", older ? port_tail(s.m->port) : name_of(*s.b), s.n->name,
       older ? fmt::format("{:#x}", mtu) : std::to_string(mtu), static_cast<int>(s.m->npu));
  return true;
}

bool plant_chip_domain(router& r, const std::string&) {
  const site s = find_site(r, on_older_chip);
  if (s.m == nullptr) return false;
  hold(r, "chip.vlan-domain", port_tail(s.m->port), s.n->name,
       fmt::format("{:#x}", s.b->vlan_domain + 0x200), static_cast<int>(s.m->npu));
  return true;
}

bool plant_sem(router& r, const std::string&) {
  const auto with_key = [](const bundle& b) {
    return std::find_if(b.subs.begin(), b.subs.end(),
                        [&](const sub_bundle& one) { return !key_of(b, one).digits.empty(); });
  };
  const site s = find_site(r, [&](const site& one) {
    return on_older_chip(one) && with_key(*one.b) != one.b->subs.end();
  });
  if (s.m == nullptr) return false;
  hold(r, "chip.sem", name_of(*with_key(*s.b)), s.n->name, "absent", static_cast<int>(s.m->npu));
  return true;
}

// The audit asks the VSI table only for layer 3 bundles with an untagged sub-bundle.
bool verified_mac(const site& s) {
  return !s.b->l2 && has_untagged(*s.b);
}

bool plant_rif(router& r, const std::string&) {
  const site s = find_site(r, verified_mac);
  if (s.m == nullptr) return false;
  // Jericho2 keeps the row of an unused interface and shows a MAC of zeros there.
  hold(r, "chip.mac", name_of(*s.b), s.n->name, on_older_chip(s) ? "absent" : "0",
       static_cast<int>(s.m->npu));
  return true;
}

bool plant_mac(router& r, unsigned difference, bool older_only) {
  const site s = find_site(
      r, [&](const site& one) { return verified_mac(one) && (!older_only || on_older_chip(one)); });
  if (s.m == nullptr) return false;
  const unsigned mac = low_mac_bits(s.b->mac) ^ difference;
  hold(r, "chip.mac", name_of(*s.b), s.n->name,
       on_older_chip(s) ? fmt::format("{:#x}", mac) : std::to_string(mac),
       static_cast<int>(s.m->npu));
  return true;
}

bool plant_low_mac(router& r, const std::string&) {
  return plant_mac(r, 0x1, false);
}
bool plant_high_mac(router& r, const std::string&) {
  return plant_mac(r, 0x400, true);
}

bool plant_glif(router& r, const std::string&) {
  if (!r.hqos) return false;  // without it nothing tells the audit a sub-bundle's LIF
  const site s =
      find_site(r, [](const site& one) { return on_older_chip(one) && has_untagged(*one.b); });
  if (s.m == nullptr) return false;
  for (const sub_bundle& sub : s.b->subs)
    if (sub.encapsulation == "untagged")
      hold(r, "chip.glif", name_of(sub), s.n->name, "absent", static_cast<int>(s.m->npu));
  return true;
}

// What nobody refers to -------------------------------------------------------------------------

bool plant_stale_pi(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pi.extra-member", name_of(*s.b), "", foreign_port(*s.m));
  return true;
}

bool plant_stale_pd(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "pd.extra-member", name_of(*s.b), s.n->name, foreign_port(*s.m));
  return true;
}

bool plant_stale_dpa(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.extra-member", name_of(*s.b), s.n->name, foreign_port(*s.m));
  return true;
}

bool plant_stale_chip(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr || s.n->npus == 0) return false;
  hold(r, "chip.extra-lag", "*", s.n->name, "999", static_cast<int>(s.m->npu));
  return true;
}

bool plant_health_info(router& r, const std::string&) {
  r.health = "info";
  return true;
}

bool plant_health_errors(router& r, const std::string&) {
  if (r.bundles.empty()) return false;
  r.health = "errors";
  return true;
}

// Collection ------------------------------------------------------------------------------------

bool plant_band(router& r, const std::string&) {
  if (is_single_node(r.type)) return false;
  const site s = find_site(r, [](const site& one) { return one.n->kind == "LC"; });
  if (s.m == nullptr) return false;
  for (node& n : r.nodes)
    if (n.name == s.n->name) n.band = "BOOTING";
  return true;
}

bool plant_pi_mac(router& r, const std::string&) {
  if (r.bundles.empty()) return false;
  hold(r, "pi.mac", name_of(r.bundles.front()), "", "absent");
  return true;
}

bool plant_pi_mtu(router& r, const std::string&) {
  if (r.bundles.empty()) return false;
  hold(r, "pi.mtu", name_of(r.bundles.front()), "", "absent");
  return true;
}

bool plant_garbage(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.member-npu", port_tail(s.m->port), s.n->name, "absent");
  return true;
}

bool plant_no_rif(router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr) return false;
  hold(r, "dpa.rif", name_of(*s.b), s.n->name, "absent");
  return true;
}

bool plant_lost_port(router& r, const std::string&) {
  const site s = find_site(r, anywhere, true);
  if (s.m == nullptr) return false;
  hold(r, "dpa.port", port_tail(s.m->port), s.n->name, "absent");
  return true;
}

// All answers of a tool, wherever it runs.
template <typename Change>
bool for_tool(capture& c, const std::string& tool, Change change) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const auto& [key, text] : c.answers)
    if (key.second == tool || key.second.starts_with(tool + ",")) found.push_back(key);
  for (const auto& key : found) change(key);
  return !found.empty();
}

bool edit_tool_empty(capture& c, const router&, const std::string& argument) {
  const std::string tool = argument.empty() ? "lagmgr_table_show" : argument;
  return for_tool(c, tool, [&](const auto& key) { c.answers[key].clear(); });
}

bool edit_tool_missing(capture& c, const router&, const std::string& argument) {
  const std::string tool = argument.empty() ? "lagmgr_agent_show" : argument;
  c.missing_tools.push_back(tool);
  return for_tool(c, tool, [&](const auto& key) { c.answers.erase(key); });
}

bool replace_once(std::string& text, std::string_view from, std::string_view to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) return false;
  text.replace(at, from.size(), to);
  return true;
}

std::string& configuration(capture& c) {
  return answer_to(c, local_place, "cfg_render -c -l 1 -t 1 -o 1");
}

bool edit_no_banner(capture& c, const router&, const std::string&) {
  return replace_once(configuration(c), "Tarmac OS Configuration 7.3.2", "Configuration");
}

bool edit_no_end(capture& c, const router&, const std::string&) {
  return replace_once(configuration(c), "\nend\n", "\n");
}

bool edit_node_id(capture& c, const router& r, const std::string&) {
  if (r.type == "aspen")
    return for_tool(c, "board_api_probe",
                    [&](const auto& key) { c.answers[key] = "probe: board does not answer\n"; });
  return for_tool(c, "node_id_convert",
                  [&](const auto& key) { c.answers[key] = "conversion failed (-4)\n"; });
}

bool edit_chip_empty(capture& c, const router& r, const std::string&) {
  const site s = find_site(r, anywhere);
  if (s.m == nullptr || s.n->npus == 0) return false;
  const std::string unit = fmt::format(",-u,{},-n,{}", s.m->npu, s.n->id);
  bool any = false;
  for (auto& [key, text] : c.answers)
    if (key.second.starts_with("asic_shell_show,") && key.second.ends_with(unit)) {
      text.clear();
      any = true;
    }
  return any;
}

// Descriptions are the one place where an operator's own text reaches the audit.
bool edit_description(capture& c, const std::string& description) {
  return replace_once(configuration(c), "description out of band", "description " + description);
}

bool edit_overlong(capture& c, const router&, const std::string&) {
  constexpr std::size_t megabytes = 8;
  return edit_description(c, std::string(megabytes << 20U, 'x'));
}

bool edit_binary(capture& c, const router& r, const std::string&) {
  const std::string bytes{"a\0b\xff\xfe\x80\xc3 \x1b[31m\x7f", 14};
  // The forwarding tool's filter reads bytes as text; this line it drops, others it must keep.
  for (const node& n : r.nodes)
    replace_once(answer_to(c, n.address, "fwd_object_show -t lagport -D"), "uint32_t revision => 4",
                 "char comment => " + bytes);
  return edit_description(c, bytes);
}

}  // namespace

const std::vector<fault>& fault_catalogue() {
  static const std::vector<fault> catalogue{
      {"pi-bundle-missing", "the bundle manager does not hold a configured bundle",
       "Inconsistency: BM PI has no entry for", plant_pi_bundle, nullptr},
      {"pi-member-missing", "the bundle manager does not hold a configured member",
       "Inconsistency: BM PI Member has no entry for", plant_pi_member, nullptr},
      {"im-missing-sub", "the interface manager does not list a sub-bundle",
       "Inconsistency: Data for sub-bundle not found in IM database", plant_im_sub, nullptr},
      {"pd-bundle-missing", "the bundle manager's agents do not hold a bundle",
       "Inconsistency: BME has no entry for", plant_pd_bundle, nullptr},
      {"pd-member-missing", "the agent of a node does not hold a member",
       "Inconsistency: BME has no entry for", plant_pd_member, nullptr},
      {"pd-npu-differs", "the agent has a member on another NPU than the forwarding layer",
       "Inconsistency: NPU ID is not consistent in BME", plant_pd_npu, nullptr},
      {"dpa-lag-id", "one node's forwarding object has another LAG id",
       "Inconsistency: Lag ID is not consistent in DPA_Bundles", plant_dpa_lag, nullptr},
      {"dpa-object-missing", "a node without members has no forwarding object of a bundle",
       "Inconsistency: DPA has no entry for", plant_dpa_object, nullptr},
      {"dpa-member-id", "a member stands in another slot of the forwarding object",
       "Inconsistency: Member ID is not consistent in DPA_Members", plant_dpa_member_id, nullptr},
      {"dpa-mtu", "the forwarding object of a port has another MTU than the interface",
       "Inconsistency: MTU is not consistent in DPA_Members", plant_dpa_mtu, nullptr},
      {"dpa-mac", "the forwarding object of a bundle has another MAC",
       "Inconsistency: MAC is not consistent in DPA_Bundles_l2port", plant_dpa_mac, nullptr},
      {"dpa-l3-rif", "the layer 3 object of a bundle has another RIF than its layer 2 object",
       "Inconsistency: RIF is not consistent in DPA_Bundles_l2port", plant_dpa_l3_rif, nullptr},
      {"dpa-l2-vlan-domain", "the layer 2 object of a bundle has another VLAN domain",
       "Inconsistency: vlan_domain is not consistent in DPA_l2intf", plant_dpa_l2_domain, nullptr},
      {"dpa-weight", "the members of a bundle weigh more than is allowed",
       "Inconsistency: member scale limit exceeded", plant_weight, nullptr},
      {"delay-delete", "an inconsistent bundle is marked for delayed delete",
       "Delete Pending DPA Objects beside an inconsistency", plant_delay_delete, nullptr},
      {"chip-lag-missing", "a chip without members of a bundle does not have its LAG",
       "Inconsistency: not found in BCM for", plant_chip_lag, nullptr},
      {"chip-member-missing", "a chip's LAG lacks a member",
       "Inconsistency: Member ID not found in BCM", plant_chip_member, nullptr},
      {"chip-mtu", "a chip has another MTU for a member's port",
       "Inconsistency: MTU verification failed", plant_chip_mtu, nullptr},
      {"vlan-domain-member", "a chip has another VLAN domain for a member's port",
       "Programming Error: Vlan Domain != Member Vlan Domain", plant_chip_domain, nullptr},
      {"sem-missing", "a chip lacks the exact-match entry of a sub-bundle",
       "Programming Error: SEMA/B entry is not present", plant_sem, nullptr},
      {"rif-missing", "a chip does not have the router interface of an untagged bundle",
       "Programming Error: DPA RIF not found in BCM", plant_rif, nullptr},
      {"mac-low-bits", "a chip's MAC differs within the ten bits that are compared",
       "Programming Error: BM PI MAC != BCM MAC MSB", plant_low_mac, nullptr},
      {"mac-high-bits", "a chip's MAC differs beyond the ten bits that are compared",
       "no finding of its own", plant_high_mac, nullptr},
      {"glif-unknown", "a chip does not know the global LIF of an untagged sub-bundle",
       "Programming Error: Not able to find GLIF", plant_glif, nullptr},
      {"stale-pi", "the bundle manager holds a member that nobody configured",
       "Stale Entries 1 (PI)", plant_stale_pi, nullptr},
      {"stale-bme", "the agent of a node holds a member that nobody configured",
       "Stale Entries 1 (BME)", plant_stale_pd, nullptr},
      {"stale-dpa", "a forwarding object holds a member that nobody configured",
       "Stale Entries 1 (DPA)", plant_stale_dpa, nullptr},
      {"stale-bcm", "a chip holds a LAG that nobody configured", "Stale Entries 1 (BCM)",
       plant_stale_chip, nullptr},
      {"health-info", "the bundle manager's own check adds an information block",
       "no count; the report's table head stays in the health log", plant_health_info, nullptr},
      {"health-errors", "the bundle manager's own check names bundles",
       "Bundle Health Status Error, one for each bundle", plant_health_errors, nullptr},
      {"node-not-final", "a line card with members is still booting",
       "note: is in BOOTING band, not ready yet; its members are unknown", plant_band, nullptr},
      {"tool-empty", "a tool prints nothing; =TOOL, lagmgr_table_show unless given",
       "INFO: BMPI dont have any bundle data, for the default tool", nullptr, edit_tool_empty},
      {"tool-missing", "a tool is not there; =TOOL, lagmgr_agent_show unless given",
       "INFO: Bundlemgr PD dont have any bundle data, for the default tool", nullptr,
       edit_tool_missing},
      {"config-no-banner", "the running configuration lacks its banner",
       "PARSE-ERROR: Not able to find the start of the running config", nullptr, edit_no_banner},
      {"config-no-end", "the running configuration breaks off before its end line",
       "PARSE-ERROR: Not able to find the end of the running config", nullptr, edit_no_end},
      {"pi-no-mac", "the bundle manager shows a bundle without a MAC",
       "ERROR: Not able to find MAC-Address in BM PI", plant_pi_mac, nullptr},
      {"pi-no-mtu", "the bundle manager shows a bundle without an operational MTU",
       "ERROR: Not able to find Operational MTU in BM PI", plant_pi_mtu, nullptr},
      {"lagport-garbage", "a forwarding object has a member without an NPU",
       "failure: parse lagport object failed", plant_garbage, nullptr},
      {"l2port-no-rif", "a forwarding object has no router interface set",
       "failure: parse l2port object failed", plant_no_rif, nullptr},
      {"port-unknown", "the forwarding layer does not know a member's port",
       "failure: get_member_pp_port failed", plant_lost_port, nullptr},
      {"node-id-garbage", "the tool that tells node ids fails",
       "failure: dump data failed; on aspen ERROR: Not able to get node id", nullptr, edit_node_id},
      {"chip-dump-empty", "the chip shell of one NPU prints nothing",
       "INFO: BCM hardware dont have any bundle data", nullptr, edit_chip_empty},
      {"overlong-line", "a description of eight megabytes in the configuration", "no finding",
       nullptr, edit_overlong},
      {"binary-bytes", "NUL and broken UTF-8 in descriptions and object dumps", "no finding",
       nullptr, edit_binary},
  };
  return catalogue;
}

namespace {

const fault& fault_of(const std::string& name) {
  const auto& all = fault_catalogue();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const fault& f) { return f.name == name; });
  if (found == all.end())
    throw lab_error(fmt::format("there is no fault \"{}\"; `tessel-lab faults` lists them", name));
  return *found;
}

void insist(bool planted, const router& r, const planted_fault& wanted) {
  if (!planted)
    throw lab_error(fmt::format("fault {}{}{} does not apply to {}", wanted.name,
                                wanted.argument.empty() ? "" : "=", wanted.argument, r.name));
}

}  // namespace

planted_fault parse_fault(const std::string& text) {
  const std::size_t equals = text.find('=');
  planted_fault wanted{text.substr(0, equals),
                       equals == std::string::npos ? "" : text.substr(equals + 1)};
  const fault& known = fault_of(wanted.name);
  if (!wanted.argument.empty() && known.name != "tool-empty" && known.name != "tool-missing")
    throw lab_error(fmt::format("fault {} takes no argument", wanted.name));
  if (wanted.argument == "ssh")
    throw lab_error(fmt::format("fault {}: ssh cannot be taken away", wanted.name));
  return wanted;
}

void plant_faults(router& r) {
  const std::vector<planted_fault> wanted = r.faults;
  for (const planted_fault& one : wanted) {
    const fault& known = fault_of(one.name);
    if (known.plant != nullptr) insist(known.plant(r, one.argument), r, one);
  }
}

void edit_for_faults(const router& r, capture& c) {
  for (const planted_fault& one : r.faults) {
    const fault& known = fault_of(one.name);
    if (known.edit != nullptr) insist(known.edit(c, r, one.argument), r, one);
  }
}

bool applies(const router& r, std::string_view name) {
  router trial = r;
  trial.faults = {{std::string{name}, {}}};
  try {
    render(trial);
  } catch (const lab_error&) {
    return false;
  }
  return true;
}

}  // namespace lab
