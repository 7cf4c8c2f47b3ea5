// Faults that can be planted into a router: each has a name, a description, the finding that the
// audit must raise, and a reach within which it may hide other findings. Most are overrides of the
// model, chosen so that one layer on one node is wrong and the finding does not depend on the order
// of the audit's threads. The others edit the rendered outputs or restrict what the audit may
// write.
//
//     router r = load_router("birch-small");
//     r.faults = {parse_fault("sem-missing"), parse_fault("dpa-mac@3")};  // @3: its fourth place
//     capture c = render(r);                                 // the output of the router's tools
//     std::vector<expectation> all = expected_findings(r);   // the required findings
//
// The catalogue is a constant table in each lab/faults/*_faults.cpp, by what a fault harms. A new
// row needs three decisions; docs/LAB.md ("Add a fault") goes through them with an example:
//
// - `at`: which check of the audit raises the finding? Find the message in src/, and take the
//   checkpoint whose comment names that check. A fault without a finding has the checkpoint at
//   which the audit would notice it.
// - `hides`: what does the audit skip, or misread, after that check? Read on in src/ from the
//   message: a check that returns ERROR ends the walk of its object (`object`), of the bundle on
//   that node (`bundle`), and so on. What is checked before `at` is never hidden.
// - `stops_from`: does the run, or a phase of it, end there? Then no finding of that phase shows.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

// The phases of an audit, in order. `none` comes after all of them.
enum class phase { start, collecting, parsing, consistency, programming, stale, health, none };

// The checks of the audit, in the order of its walk from the platform down to the chips' tables. A
// fault hides findings of its checkpoint and of later ones, never of earlier ones.
enum class checkpoint {
  // Start, collection and parsing.
  chip_units,     // check_asic_support: the list of chip units
  groundwork,     // the basis of all checks: router type, node ids, a node's answers, log files
  inventory,      // get_list_of_vms: the list of nodes
  configuration,  // parse_data: banner, end and stanzas of the running configuration
  pi_table,       // parse_bundle_info_PI: the bundle manager's table as a whole

  // The bundle manager (PI) and the interface manager; of no node down to `im_sub`.
  pi_bundle,     // check_bundles_PI: the bundle, with MAC and MTU
  im_sub,        // check_sub_bundles_PI: a sub-bundle's handle
  pi_member,     // check_members_PI: the member
  port_listing,  // check_members_PI: the MTU of the member's interface

  // The bundle manager's agents (PD).
  pd_bundle,     // check_bundles_PD: the bundle on any node
  pd_node,       // check_bundles_PD: the bundle on this node
  pd_lag,        // check_bundles_PD: its LAG id
  pd_member,     // check_members_PD: the member
  pd_npu,        // check_members_PD: its NPU
  pd_member_id,  // check_members_PD: its id

  // The forwarding objects (DPA).
  dpa_bundle,      // check_bundles_DPA: the node, the bundle's lagport object, and its weight
  dpa_lag,         // check_bundles_DPA: its LAG id
  dpa_l2port,      // check_bundles_DPA: the l2port object
  dpa_lif,         // check_bundles_DPA: LIF and RIF of the l2port object
  dpa_mac,         // check_bundles_DPA: its MAC
  dpa_intf,        // check_bundles_DPA: the l3intf or l2intf object
  dpa_intf_value,  // check_bundles_DPA: its RIF or LIF
  dpa_members,     // check_bundles_DPA: VLAN domain; check_members_DPA: the member
  dpa_member_id,   // check_members_DPA: its id
  dpa_mtu,         // check_members_DPA: its MTU
  dpa_sub,         // check_sub_bundles_DPA: the sub-bundle's object and LAG id
  dpa_sub_lif,     // check_sub_bundles_DPA: its l2intf object and LIF
  dpa_sub_rif,     // check_sub_bundles_DPA: its RIF

  // The chips (BCM).
  chip_lag,     // check_bundles_BCM, check_sub_bundles_BCM: the LAG, and the node's dump as a whole
  chip_member,  // check_members_BCM: the member
  chip_mtu,     // check_members_BCM: its MTU

  // The programming pass.
  chip_domain,      // verify_vlan_domain, check_sub_bdl_prgm_task: the parts of a chip's key
  chip_entry,       // verify_sem_entry, get_glif_to_llif_vsi_mapping: exact match and LIF
  chip_interfaces,  // verify_rif_entry: the table of router interfaces
  chip_mac,         // verify_rif_entry: the row and MAC of one

  stale,           // check_stale_entries
  health_report,   // check_bundle_health: the report as a whole
  health_bundles,  // check_bundle_health: the bundles in the report
};

// The phase in which the findings of a checkpoint show, unless a fault says otherwise.
constexpr phase phase_of(checkpoint at) {
  if (at >= checkpoint::health_report) return phase::health;
  if (at >= checkpoint::stale) return phase::stale;
  if (at >= checkpoint::chip_domain) return phase::programming;
  if (at >= checkpoint::pi_bundle) return phase::consistency;
  return at == checkpoint::configuration ? phase::parsing : phase::collecting;
}

// How far around its place a fault hides other findings.
enum class reach {
  nothing,
  object,             // the same object: its bundle on that node, or its member or sub-bundle
  bundle,             // all of the bundle on that node
  bundle_everywhere,  // all of the bundle on every node
  node,               // all of the node
  router,             // everything
};

// A line that comes with a fault's finding.
struct by_product {
  std::string_view finding{};
  checkpoint at = checkpoint::groundwork;
  phase shown = phase_of(at);
};

// "tool-empty=lagmgr_health" is a row for the effect of one argument; it is planted as the fault
// that takes the argument.
//
// The fields stand in the order in which a row is read.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct fault {
  std::string_view name;
  std::string_view description;
  // The line that a log or the console must show, as docs/FINDINGS.md writes it: {} stands for any
  // text, {object}, {bundle} and {node} for the place. Empty if the audit must not find the fault.
  std::string_view finding{};
  // Lines that must also show. More faults hide these, as they may be about any object around the
  // place. Rows without a finding are unused: see `lines_beside`.
  by_product also[2]{};

  // For a fault that changes no value of a layer: the tool whose output is wrong. Planting a fault
  // that takes a tool or a file as its argument notes that one instead.
  std::string_view harms{};

  // Where the finding shows, and which findings of other faults it hides: see `hidden_by`.
  checkpoint at = checkpoint::groundwork;
  phase shown = phase_of(at);
  reach hides = reach::object;                      // from `at` on, this far around the place
  checkpoint deepest = checkpoint::health_bundles;  // and to here
  bool counted = true;             // the run is not clean, so the audit skips stale entries
  phase stops_from = phase::none;  // the first phase that no finding of another fault survives in
  phase stops_to = phase::health;  // and the last

  // Changes the model; returns false if the router has no place for the fault. May be null.
  bool (*plant)(router& r, planted_fault& p) = nullptr;
  // Changes the rendered outputs; returns false likewise. May be null.
  bool (*edit)(capture& c, const router& r, planted_fault& p) = nullptr;
  bool takes_argument = false;
  // The fault whose rows describe the arguments; empty if it has its own.
  std::string_view argued_like{};
};

// The lines that a run must show beside the finding. The rows live as long as `f`.
std::span<const by_product> lines_beside(const fault& f);

const std::vector<fault>& fault_catalogue();

// "tool-empty=lagmgr_health", "sem-missing@2" -> name, place and argument. Throws `lab_error` for
// an unknown name, a place that is not a number, an argument that the fault does not take.
planted_fault parse_fault(const std::string& text);

// Plants the model's faults and notes their places. Throws `lab_error` that names a fault that does
// not apply.
void plant_faults(router& r);
// Does the same for faults that edit rendered outputs.
void edit_for_faults(router& r, capture& c);

// True if the fault can be planted into the router.
bool applies(const router& r, std::string_view name);

// Why an audit need not report `b` beside `a`, empty if it must. There are four rules:
// - a fault that stops phases hides what would have shown in them;
// - a fault that is counted hides stale entries, which only a clean run looks for;
// - of two faults that change the same value, each hides the other, and so does one that removes
//   the object of the other's value;
// - a fault hides the findings of its checkpoint and of later ones, down to `deepest`, around its
//   place, as far as `hides` reaches.
std::string hidden_by(const planted_fault& a, const planted_fault& b);

struct expectation {
  std::string name;       // the fault, as the user gave it
  std::string finding{};  // with its place filled in; {} stands for any text. Empty: none
  std::string hidden{};   // why it may be missing; empty: it must show
};

// The findings that the audit of the router must report. Throws `lab_error` as rendering does.
std::vector<expectation> expected_findings(const router& r);

// Where a fault was planted. An empty text means that no single one is concerned.
struct fault_place {
  std::string name;      // the fault, as the user gave it
  std::string layer;     // "config", "PI", "PD", "DPA", "BCM", "tool" or "machine"
  std::string node{};    // empty for the configuration and PI, which are of the whole router
  std::string npu{};     // of a chip
  std::string bundle{};  // "BE1"
  std::string object{};  // a member or sub-bundle; without a bundle: the tool, file or folder
};

// The places of the router's faults, in their order: the layer whose values planting changed, not
// the one that a finding names. Throws `lab_error` as rendering does.
std::vector<fault_place> places_of_faults(const router& r);
fault_place place_of(const planted_fault& p);

// The fault as the user gave it: "dpa-mac@2", "tool-empty=lagmgr_health".
std::string text_of(const planted_fault& p);

}  // namespace lab
