// Finds the objects that a message names: a bundle, a member, a node, an NPU.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "desk/model/run.h"

namespace desk {

struct mention {
  object_ref object;
  std::string node;
  std::string npu;
};

// Finds them in many texts about one run. The objects, nodes and cells of the run must not change
// meanwhile.
class mention_finder {
 public:
  explicit mention_finder(const run& of) : of_(of) {}

  // Reads a text such as "NPU1,NPU0,0/0/0/1,BE12(0x3000120), 0/0/CPU0". What the text does not name
  // stays empty. The run's nodes and objects complete it: the bundle of a member, or of a handle.
  [[nodiscard]] mention in(std::string_view text);

  // A bundle on a node that weighs this much where only that much is allowed, and all of them: the
  // audit writes a message for each, with nothing but these numbers.
  struct weighed {
    const object* one;
    std::int16_t node;
  };
  [[nodiscard]] const std::vector<weighed>& weighing(std::string_view weight,
                                                     std::string_view limit);

 private:
  void complete_member(mention& found);
  void complete_node(mention& found) const;
  void complete_handle(std::string_view text, mention& found);
  void note_members();
  void note_handles();
  void note_weights();

  const run& of_;
  bool knows_members_ = false;
  bool knows_handles_ = false;
  bool knows_weights_ = false;
  std::unordered_map<std::string_view, const object*> members_;  // the first of this name
  std::unordered_map<std::string_view, const object*> handles_;
  std::map<std::pair<std::string_view, std::string_view>, std::vector<weighed>> weights_;
};

// The same for a single text.
[[nodiscard]] mention mentioned_in(const run& of, std::string_view text);

// All bundles that a text names as BE12, BE12.100 or Bundle-Ether12, in order, each once.
[[nodiscard]] std::vector<std::string> bundles_in(std::string_view text);

}  // namespace desk
