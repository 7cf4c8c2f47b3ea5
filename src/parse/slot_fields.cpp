#include "parse/slot_fields.h"

namespace tessel {

const slot_fields::field slot_fields::npu = {
    R"({}:uint8_t mbr_npu_id\s=>\s(\d+))",
    constant(R"((?<!\d)(\d*+):uint8_t mbr_npu_id\s=>\s(\d+))")};

const slot_fields::field slot_fields::weight = {
    R"({}:uint16_t\s+weight\s+=>\s+(\d+))",
    constant(R"((?<!\d)(\d*+):uint16_t\s+weight\s+=>\s+(\d+))")};

const slot_fields::field slot_fields::port_class = {
    R"((?<={}:uint16_t port_class_id =>\s)\d+)",
    constant(R"((?<!\d)(\d*+):uint16_t port_class_id =>\s(\d+))", letter_case::ignored)};

slot_fields::slot_fields(const field& which, std::string_view block) {
  const matches found = findall(which.all, block);
  lines_.reserve(found.size());
  for (std::size_t at = 0; at < found.size(); ++at) lines_.emplace_back(found[at][0], found[at][1]);
}

std::optional<std::string_view> slot_fields::first_of(std::string_view slot) const {
  for (const auto& [digits, content] : lines_) {
    if (digits.ends_with(slot)) return content;
  }
  return std::nullopt;
}

}  // namespace tessel
