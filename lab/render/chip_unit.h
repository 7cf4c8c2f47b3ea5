// One chip of a node, for the chip renderers.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/capture/capture.h"
#include "lab/model/router.h"

namespace lab {

struct chip_unit {
  const router& r;
  const node& n;
  unsigned npu;

  bool lacks(std::string_view field, std::string_view object) const {
    return is_absent(r, field, object, n.name, static_cast<int>(npu));
  }
  std::optional<std::string> instead(std::string_view field, std::string_view object) const {
    return overridden(r, field, object, n.name, static_cast<int>(npu));
  }
};

// Every chip of the family, node by node.
std::vector<chip_unit> chips_of(const router& r, chip_family family);

// Sets the chip's answer to a command of its shell.
void answer_chip(capture& c, const chip_unit& u, const char* command, std::string text);

}  // namespace lab
