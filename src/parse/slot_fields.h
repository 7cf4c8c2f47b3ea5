// The array fields of one lagport block, read once and looked up by slot.
//
// A field line has its slot and a colon before the type. A look-up returns the first result of
// `findall` with the pattern `definition` for that slot. The pattern does not anchor the slot on
// the left, so the line of slot 11 also answers for slot 1 if it comes first.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/text.h"

namespace tessel {

class slot_fields {
 public:
  struct field {
    std::string_view definition;  // for one slot, which fills the braces
    const pattern& all;           // for all slots: the digits before the colon, the value
  };
  static const field& npu();         // NPU of the member in a slot
  static const field& weight();      // weight of the member in a slot
  static const field& port_class();  // VLAN domain on the NPU with that number

  // Throws what `findall` throws. `block` must outlive this object.
  slot_fields(const field& which, std::string_view block);

  // `slot` is a decimal text. Returns nothing if no line answers for it.
  std::optional<std::string_view> first_of(std::string_view slot) const;

 private:
  // Slots with more digits are looked up line by line.
  static constexpr std::size_t indexed_digits = 20;

  std::vector<std::pair<std::string_view, std::string_view>> lines_;
  // Maps the last digits before the colon, in every length, to the first line that ends in them.
  std::unordered_map<std::string_view, std::string_view> first_by_end_;
};

}  // namespace tessel
