// One chip of a node, as the chip renderers ask the model about it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

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

}  // namespace lab
