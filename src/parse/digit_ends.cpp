#include "parse/digit_ends.h"

#include <algorithm>

namespace tessel {

std::size_t digit_ends::child_for(std::size_t parent, char last) const {
  std::size_t at = nodes_[parent].child;
  for (; at != 0 && nodes_[at].more.back() != last; at = nodes_[at].sibling) ++steps_;
  return at;
}

std::size_t digit_ends::length_of_common_end(std::string_view a, std::string_view b) const {
  const std::size_t longest = std::min(a.size(), b.size());
  std::size_t length = 0;
  while (length < longest && a[a.size() - 1 - length] == b[b.size() - 1 - length]) ++length;
  steps_ += length + 1;
  return length;
}

// Puts a node for the shorter end, with the last `length` digits, above the one at `at`, and in its
// place.
void digit_ends::split(std::size_t at, std::size_t length) {
  node longer = nodes_[at];
  longer.more.remove_suffix(length);
  longer.sibling = 0;
  nodes_[at].more.remove_prefix(nodes_[at].more.size() - length);
  nodes_[at].child = nodes_.size();
  nodes_.push_back(longer);
}

void digit_ends::add(std::string_view digits, std::size_t number) {
  if (nodes_.empty()) nodes_.push_back({"", number});
  std::size_t at = 0;
  while (!digits.empty()) {
    const std::size_t next = child_for(at, digits.back());
    if (next == 0) {
      const std::size_t sibling = nodes_[at].child;
      nodes_[at].child = nodes_.size();
      nodes_.push_back({digits, number, 0, sibling});
      return;
    }
    const std::size_t common = length_of_common_end(nodes_[next].more, digits);
    if (common < nodes_[next].more.size()) split(next, common);
    digits.remove_suffix(common);
    at = next;
  }
}

std::optional<std::size_t> digit_ends::first_of(std::string_view digits) const {
  if (nodes_.empty()) return std::nullopt;
  std::size_t at = 0;
  while (!digits.empty()) {
    at = child_for(at, digits.back());
    if (at == 0) return std::nullopt;
    const std::size_t length = nodes_[at].more.size();
    const std::size_t common = length_of_common_end(nodes_[at].more, digits);
    if (common < std::min(length, digits.size())) return std::nullopt;
    digits.remove_suffix(common);
  }
  return nodes_[at].first;
}

}  // namespace tessel
