// The array fields of one lagport block, found in one reading and looked up by slot.
//
//   4:dpa_intf_t mifh => 0x1000140
//   4:uint8_t mbr_npu_id => 0
//
// A field line has its slot and a colon before the type. What is found for a slot is the first
// result of `findall` with the pattern beside the function, in which the slot fills the braces. The
// pattern does not anchor the slot on the left, so the line of slot 11 also answers for slot 1 if
// it comes first.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "parse/digit_ends.h"

namespace tessel {

// The values of one field. For one thread.
class slot_values {
 public:
  void clear();
  void add(std::string_view slot, std::string_view content);
  // Prepares for look-ups; call it after the last `add`.
  void finish();

  // `slot` is a decimal text. Returns nothing if no line answers for it.
  std::optional<std::string_view> first_of(std::string_view slot) const;

 private:
  // Up to so many lines are looked at one by one.
  static constexpr std::size_t few_lines = 16;

  std::vector<std::pair<std::string_view, std::string_view>> lines_;
  digit_ends slots_;  // the digits before the colon of each line, if there are more
};

// Can read one block after the other, and needs no new memory for each. For one thread.
class slot_fields {
 public:
  static constexpr std::string_view member_definition =
      R"((?<!\d)(\d++):dpa_intf_t\smifh\s=>\s(\w+))";
  static constexpr std::string_view npu_definition = R"({}:uint8_t mbr_npu_id\s=>\s(\d+))";
  static constexpr std::string_view weight_definition = R"({}:uint16_t\s+weight\s+=>\s+(\d+))";
  // In letters of any case.
  static constexpr std::string_view port_class_definition =
      R"((?<={}:uint16_t port_class_id =>\s)\d+)";

  // Forgets the last block. `block` must stay as long as something is looked up.
  void read(std::string_view block);

  // Slot and handle of each member, in order: what `member_definition` finds.
  const std::vector<std::pair<std::string_view, std::string_view>>& members() const {
    return members_;
  }
  // The NPU and the weight of the member in a slot.
  std::optional<std::string_view> npu_of(std::string_view slot) const {
    return npus_.first_of(slot);
  }
  std::optional<std::string_view> weight_of(std::string_view slot) const {
    return weights_.first_of(slot);
  }
  // The VLAN domain on the NPU with that number.
  std::optional<std::string_view> port_class_of(std::string_view npu) const {
    return port_classes_.first_of(npu);
  }

 private:
  void clear();
  void read_line(std::string_view block, std::size_t colon);
  bool read_member(std::string_view block, std::string_view slot, std::size_t colon);

  std::vector<std::pair<std::string_view, std::string_view>> members_;
  std::size_t members_end_ = 0;  // the end of the last member's handle
  slot_values npus_;
  slot_values weights_;
  slot_values port_classes_;
};

}  // namespace tessel
