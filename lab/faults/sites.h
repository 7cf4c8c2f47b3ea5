// Where faults go, and the ways in which they change a router or its rendered outputs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/faults/faults.h"
#include "lab/model/router.h"

namespace lab {

// Parts of the catalogue, one source each.
std::vector<fault> layer_faults();       // what the layers above the chips hold
std::vector<fault> chip_faults();        // what the chips hold, and what nobody refers to
std::vector<fault> collection_faults();  // what the tools print, or fail to
std::vector<fault> machine_faults();     // what the route processor does not let the audit do

struct site {
  const bundle* b = nullptr;
  const member* m = nullptr;
  const node* n = nullptr;

  explicit operator bool() const { return m != nullptr; }
};

// True if the audit examines the node and it reports to the bundle manager: a standby one does not.
bool is_examined(const node& n);

// Every member on such a node.
std::vector<site> sites_of(const router& r);

inline bool anywhere(const site&) {
  return true;
}
bool on_older_chip(const site& s);

// The sites that fit, in the order of the description, counted through by the fault's place.
template <typename Fits>
site find_site(const router& r, const planted_fault& p, Fits fits, bool last_first = false) {
  std::vector<site> sites = sites_of(r);
  std::erase_if(sites, [&](const site& one) { return !fits(one); });
  if (last_first) std::reverse(sites.begin(), sites.end());
  return sites.empty() ? site{} : sites[p.place % sites.size()];
}

// One of a vector's elements by the fault's place. The vector is not empty.
template <typename T>
const T& placed(const std::vector<T>& all, const planted_fault& p) {
  return all[p.place % all.size()];
}

// Notes where the fault went.
void note_place(planted_fault& p, const site& s, std::string object);

void hold(router& r, std::string field, const std::string& object, const std::string& node_name,
          std::string value, int npu = -1);

// Changing rendered text ------------------------------------------------------------------------

bool replace_once(std::string& text, std::string_view from, std::string_view to);

std::string& configuration(capture& c);
std::string& forwarding_objects(capture& c, const node& n, std::string_view type);

// File names of all answers of a tool at all places, "asic_shell_show" or the beginning of its
// arguments as well, "asic_shell_show,-c,diag+lag".
std::vector<std::pair<std::string, std::string>> answers_of(const capture& c,
                                                            const std::string& tool);

}  // namespace lab
