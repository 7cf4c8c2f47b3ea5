#include "parse/slot_fields.h"

#include <algorithm>

namespace tessel {

// Values are only looked ahead at, because a value's last digits may be the slot of a line that
// follows without a separator.

const slot_fields::field& slot_fields::npu() {
  static const field made = {R"({}:uint8_t mbr_npu_id\s=>\s(\d+))",
                             constant(R"((?<!\d)(\d*+):uint8_t mbr_npu_id\s=>\s(?=(\d+)))")};
  return made;
}

const slot_fields::field& slot_fields::weight() {
  static const field made = {R"({}:uint16_t\s+weight\s+=>\s+(\d+))",
                             constant(R"((?<!\d)(\d*+):uint16_t\s+weight\s+=>\s+(?=(\d+)))")};
  return made;
}

const slot_fields::field& slot_fields::port_class() {
  static const field made = {
      R"((?<={}:uint16_t port_class_id =>\s)\d+)",
      constant(R"((?<!\d)(\d*+):uint16_t port_class_id =>\s(?=(\d+)))", letter_case::ignored)};
  return made;
}

slot_fields::slot_fields(const field& which, std::string_view block) {
  const matches found = findall(which.all, block);
  for (std::size_t at = 0; at < found.size(); ++at) {
    lines_.emplace_back(found[at][0], found[at][1]);
    const std::size_t longest = std::min(found[at][0].size(), indexed_digits);
    for (std::size_t length = 1; length <= longest; ++length) {
      first_by_end_.try_emplace(tail(found[at][0], length), found[at][1]);
    }
  }
}

std::optional<std::string_view> slot_fields::first_of(std::string_view slot) const {
  if (slot.empty() || slot.size() > indexed_digits) {
    for (const auto& [digits, content] : lines_) {
      if (digits.ends_with(slot)) return content;
    }
    return std::nullopt;
  }
  const auto found = first_by_end_.find(slot);
  return found == first_by_end_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace tessel
