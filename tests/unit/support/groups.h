// The first two groups of each match as values, to compare two searches.
#pragma once

#include <string>
#include <vector>

#include "base/text.h"

namespace tessel {

inline std::vector<std::vector<std::string>> groups_of(const matches& found) {
  std::vector<std::vector<std::string>> groups;
  for (std::size_t at = 0; at < found.size(); ++at) {
    groups.push_back({std::string(found[at][0]), std::string(found[at][1])});
  }
  return groups;
}

}  // namespace tessel
