// The changes of a router between two captures: which layer, on which node, for which bundles. The
// order of lines does not matter; counters, uptimes and the like do not count as changes.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "lab/capture/capture.h"

namespace lab {

struct changed_line {
  std::string owner;  // bundle, sub-bundle or port; may be empty
  std::string line;
  int times = 0;  // how much more often it is in B than in A; negative if A has more
};

struct layer_change {
  std::string layer;                   // "DPA"
  std::string where;                   // "0/0/CPU0", "0/0/CPU0 NPU 1", or "router"
  std::set<std::string> named;         // bundles, sub-bundles, else ports: "BE1.100"
  std::set<std::string> asked;         // commands whose answers differ
  std::size_t lines = 0;               // lines that only one capture has
  std::vector<changed_line> values{};  // these lines, by owner
};

// In the order of the layers, from the configuration down to the chips.
std::vector<layer_change> changes_between(const capture& a, const capture& b);

struct change_view {
  bool values = false;  // the changed lines, too
  bool all = false;     // everything, however long it is
};

// A table for people, at most one screen long unless the view wants more.
std::string change_report(const std::vector<layer_change>& changes, const change_view& view = {});

}  // namespace lab
