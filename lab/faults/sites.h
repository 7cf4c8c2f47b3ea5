// The places of faults, and the ways in which faults change a router or its rendered outputs.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/faults/faults.h"
#include "lab/model/router.h"

namespace lab {

// Parts of the catalogue: one source each; the two parts for tools share one.
std::span<const fault> manager_faults();            // bundle manager, interface manager, agents
std::span<const fault> forwarding_faults();         // one node's forwarding objects
std::span<const fault> between_nodes_faults();      // values that differ between nodes
std::span<const fault> unreadable_object_faults();  // forwarding objects that the audit cannot read
std::span<const fault> chip_lag_faults();           // chips: LAGs, members, MTUs
std::span<const fault> chip_table_faults();         // chips: the forwarding tables
std::span<const fault> hygiene_faults();            // stale entries, bundle health
std::span<const fault> platform_faults();           // router, nodes, families of chips
std::span<const fault> tool_faults();               // tools missing, silent, cut or garbled
std::span<const fault> silent_tool_faults();        // the effect of each silent tool
std::span<const fault> configuration_faults();      // the running configuration
std::span<const fault> extreme_faults();            // excessive numbers, counts and lines in it
std::span<const fault> machine_faults();            // what the route processor denies to the audit

// The rows with `hides` set in each.
template <std::size_t N>
constexpr std::array<fault, N> hiding(reach hides, const fault (&rows)[N]) {
  std::array<fault, N> all{};
  for (std::size_t i = 0; i < N; ++i) {
    all[i] = rows[i];
    all[i].hides = hides;
  }
  return all;
}

struct site {
  const bundle* b = nullptr;
  const member* m = nullptr;
  const node* n = nullptr;

  explicit operator bool() const { return m != nullptr; }
};

// True if the audit examines the node and the bundle manager has an agent there. A standby node has
// none.
bool is_examined(const node& n);

// Every member on such a node.
std::vector<site> sites_of(const router& r);

inline bool anywhere(const site&) {
  return true;
}
bool is_l2(const site& s);
bool is_l3(const site& s);
bool on_line_card(const site& s);
bool on_older_chip(const site& s);
bool has_chip(const site& s);
bool has_older_chip(const site& s);
bool has_jericho2(const site& s);

// The element with the number of the fault's place. The vector must not be empty.
template <typename T>
const T& placed(const std::vector<T>& all, planted_fault& p) {
  p.places = all.size();
  return all[p.place % all.size()];
}

// The site with the number of the fault's place, among those that fit, in the order of the
// description. Like `placed`, it notes how many there are; the caller of the fault's functions
// refuses a number beyond them.
template <typename Fits>
site find_site(const router& r, planted_fault& p, Fits fits, bool last_first = false) {
  std::vector<site> sites = sites_of(r);
  std::erase_if(sites, [&](const site& one) { return !fits(one); });
  if (last_first) std::reverse(sites.begin(), sites.end());
  return sites.empty() ? site{} : placed(sites, p);
}

// Notes the place of the fault.
void note_place(planted_fault& p, const site& s, std::string object);

void hold(router& r, std::string field, const std::string& object, const std::string& node_name,
          std::string value, int npu = -1);

// Note the place, and override one layer's value of the site's member or bundle on its node. False
// if there is no site.
bool hold_of_member(router& r, planted_fault& p, const site& s, std::string field,
                    std::string value);
bool hold_of_bundle(router& r, planted_fault& p, const site& s, std::string field,
                    std::string value);
// Overrides a value of an object in the chip of the site's member, on the noted node.
void hold_on_npu(router& r, const planted_fault& p, std::string field, const std::string& object,
                 const site& s, std::string value);

// Changing rendered text ------------------------------------------------------------------------

bool replace_once(std::string& text, std::string_view from, std::string_view to);

std::string& configuration(capture& c);
// Changes a description in the configuration: the only free text that the audit reads.
bool describe_port(capture& c, const std::string& description);
std::string& forwarding_objects(capture& c, const node& n, std::string_view type);

// The file names of all answers of a tool at all places: "asic_shell_show", or with the beginning
// of its arguments, "asic_shell_show,-c,diag+lag". Not what a node says of a missing tool.
std::vector<std::pair<std::string, std::string>> answers_of(const capture& c,
                                                            const std::string& tool);

}  // namespace lab
