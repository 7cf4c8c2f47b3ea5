// The array fields of one lagport block, read once and looked up by slot.
//
// A field line carries its slot and a colon in front of the type. The look-up gives what
// `findall` of the pattern in `definition`, filled with the slot, gives first: the slot is not
// anchored on the left, so the line of slot 11 also answers for slot 1 if it comes first.
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
    std::string_view definition;  // of one slot, which fills the braces
    const pattern& all;           // of all slots: the digits in front of the colon, the value
  };
  static const field& npu();         // NPU of the member in a slot
  static const field& weight();      // weight of the member in a slot
  static const field& port_class();  // VLAN domain on the NPU of that number

  // Throws what `findall` throws. `block` must outlive this object.
  slot_fields(const field& which, std::string_view block);

  // `slot` is a decimal text. Nothing if no line answers for it.
  std::optional<std::string_view> first_of(std::string_view slot) const;

 private:
  // Slots of more digits are looked up line by line.
  static constexpr std::size_t indexed_digits = 20;

  std::vector<std::pair<std::string_view, std::string_view>> lines_;
  // The last digits in front of the colon, in every length, to the first line that ends so.
  std::unordered_map<std::string_view, std::string_view> first_by_end_;
};

}  // namespace tessel
