#include "parse/slot_fields.h"

#include "base/cursor.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t npos = std::string_view::npos;

// The digits that end at `end`.
std::string_view digits_before(std::string_view text, std::size_t end) {
  std::size_t start = end;
  while (start > 0 && text[start - 1] >= '0' && text[start - 1] <= '9') --start;
  return text.substr(start, end - start);
}

// Steps over `expected`, which has no capital letter, in letters of any case.
bool skip_any_case(cursor& at, std::string_view expected) {
  for (const char wanted : expected) {
    const std::string_view next = at.one();
    if (next.empty()) return false;
    const char c = next[0];
    if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c) != wanted) return false;
  }
  return true;
}

// Each of these reads the value of a field whose line goes on at the cursor; empty if it is none.
std::string_view npu_at(cursor at) {
  if (!at.skip("uint8_t mbr_npu_id") || !at.skip_blank()) return {};
  return at.skip("=>") && at.skip_blank() ? at.digits() : std::string_view();
}

std::string_view weight_at(cursor at) {
  if (!at.skip("uint16_t") || !at.skip_blanks() || !at.skip("weight")) return {};
  return at.skip_blanks() && at.skip("=>") && at.skip_blanks() ? at.digits() : std::string_view();
}

std::string_view port_class_at(cursor at) {
  if (!skip_any_case(at, "uint16_t port_class_id =>")) return {};
  return at.skip_blank() ? at.digits() : std::string_view();
}

std::string_view member_at(cursor& at) {
  if (!at.skip("dpa_intf_t") || !at.skip_blank() || !at.skip("mifh")) return {};
  return at.skip_blank() && at.skip("=>") && at.skip_blank() ? at.word() : std::string_view();
}

}  // namespace

void slot_values::clear() {
  lines_.clear();
  slots_.clear();
}

void slot_values::add(std::string_view slot, std::string_view content) {
  lines_.emplace_back(slot, content);
}

void slot_values::finish() {
  if (lines_.size() <= few_lines) return;
  for (std::size_t at = 0; at < lines_.size(); ++at) slots_.add(lines_[at].first, at);
}

std::optional<std::string_view> slot_values::first_of(std::string_view slot) const {
  if (lines_.size() > few_lines) {
    const auto first = slots_.first_of(slot);
    return first ? std::optional(lines_[*first].second) : std::nullopt;
  }
  for (const auto& [digits, content] : lines_) {
    if (digits.ends_with(slot)) return content;
  }
  return std::nullopt;
}

void slot_fields::clear() {
  members_.clear();
  members_end_ = 0;
  for (slot_values* each : {&npus_, &weights_, &port_classes_}) each->clear();
}

void slot_fields::read(std::string_view block) {
  clear();
  for (std::size_t colon = block.find(':'); colon != npos; colon = block.find(':', colon + 1)) {
    read_line(block, colon);
  }
  for (slot_values* each : {&npus_, &weights_, &port_classes_}) each->finish();
}

void slot_fields::read_line(std::string_view block, std::size_t colon) {
  const std::string_view slot = digits_before(block, colon);
  if (read_member(block, slot, colon)) return;
  const cursor at(block, colon + 1);
  if (const std::string_view npu = npu_at(at); !npu.empty()) {
    npus_.add(slot, npu);
  } else if (const std::string_view weight = weight_at(at); !weight.empty()) {
    weights_.add(slot, weight);
  } else if (const std::string_view port_class = port_class_at(at); !port_class.empty()) {
    port_classes_.add(slot, port_class);
  }
}

// The digits of a handle are no slot, even if a colon follows at once.
bool slot_fields::read_member(std::string_view block, std::string_view slot, std::size_t colon) {
  if (slot.empty() || colon <= members_end_) return false;
  cursor at(block, colon + 1);
  const std::string_view handle = member_at(at);
  if (handle.empty()) return false;
  members_.emplace_back(slot, handle);
  members_end_ = at.place();
  return true;
}

}  // namespace tessel
