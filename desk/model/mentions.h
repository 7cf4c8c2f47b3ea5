// Finds the objects that a message names: a bundle, a member, a node, an NPU.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "desk/model/run.h"

namespace desk {

struct mention {
  object_ref object;
  std::string node;
  std::string npu;
};

// Reads a text such as "NPU1,NPU0,0/0/0/1,BE12(0x3000120), 0/0/CPU0". What the text does not name
// stays empty. The run's nodes and objects complete it: the bundle of a member, or of a handle.
[[nodiscard]] mention mentioned_in(const run& of, std::string_view text);

// All bundles that a text names as BE12, BE12.100 or Bundle-Ether12, in order, each once.
[[nodiscard]] std::vector<std::string> bundles_in(std::string_view text);

}  // namespace desk
