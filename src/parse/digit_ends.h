// Which of many decimal texts is the first that ends in a given one.
//
//   digit_ends ends;
//   ends.add("11", 0);
//   ends.add("1", 1);
//   ends.first_of("1");   // 0
//
// The texts form a tree by their digits, from the last to the first. Adding a text and looking one
// up take as many steps as it has digits, however long the others are and however many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tessel {

// For one thread.
class digit_ends {
 public:
  // `digits` must stay as long as something is looked up. Each `number` is larger than the ones
  // before.
  void add(std::string_view digits, std::size_t number);
  // The number of the first text that ends in `digits`. Nothing if none does.
  std::optional<std::size_t> first_of(std::string_view digits) const;
  void clear() { nodes_.clear(); }

  // How many digits and branches were looked at so far. For tests.
  std::uint64_t steps() const { return steps_; }

 private:
  // A node stands for an end that texts share; its children for those ends with more digits.
  struct node {
    std::string_view more;  // the digits that this end has before those of its parent
    std::size_t first;      // the first text with this end
    std::size_t child = 0;  // places in nodes_; 0, the root's, for none
    std::size_t sibling = 0;
  };

  std::size_t child_for(std::size_t parent, char last) const;
  std::size_t length_of_common_end(std::string_view a, std::string_view b) const;
  void split(std::size_t at, std::size_t length);

  std::vector<node> nodes_;  // the root, for the empty end, comes first
  mutable std::uint64_t steps_ = 0;
};

}  // namespace tessel
