#include "parse/block_fields.h"

#include <algorithm>

#include "base/cursor.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view arrow = "=>";

// Calls `read` with a cursor behind each occurrence of `head` until it returns true.
template <class Read>
void at_first(std::string_view block, std::string_view head, Read read) {
  for (std::size_t at = block.find(head); at != npos; at = block.find(head, at + 1)) {
    if (read(cursor(block, at + head.size()))) return;
  }
}

// Calls `step` with name and value of each line of the block. The value is a run of characters that
// belong to a set.
template <class Belongs, class Step>
void walk_lines(std::string_view block, bool may_be_empty, Belongs belongs, Step step) {
  std::size_t done = 0;  // the end of the last line's value
  for (std::size_t at = block.find(arrow); at != npos; at = block.find(arrow, at + arrow.size())) {
    if (at == 0 || at - 1 <= done || !is_white_space(block[at - 1])) continue;
    const std::size_t name_end = at - 1;
    std::size_t name = name_end;
    while (name > done && is_word(block[name - 1])) --name;
    // A name that begins inside the last value is not a whole word.
    if (name == name_end || (name > 0 && is_word(block[name - 1]))) continue;
    cursor behind(block, at + arrow.size());
    if (!behind.skip_blank()) continue;
    const std::string_view content = behind.run(belongs);
    if (content.empty() && !may_be_empty) continue;
    done = behind.place();
    step(block.substr(name, name_end - name), content);
  }
}

template <class Step>
void walk_lines(field_lines::values kind, std::string_view block, Step step) {
  if (kind == field_lines::values::words) {
    walk_lines(
        block, false, [](char c) { return is_word(c); }, step);
  } else {
    walk_lines(
        block, true, [](char c) { return is_word(c) || c == ':'; }, step);
  }
}

}  // namespace

field_lines::field_lines(values kind, std::string_view block) {
  walk_lines(kind, block, [this](std::string_view name, std::string_view content) {
    lines_.emplace_back(name, content);
  });
}

std::optional<std::string_view> field_lines::last_of(std::string_view name) const {
  const auto found = std::find_if(lines_.rbegin(), lines_.rend(),
                                  [name](const auto& line) { return line.first == name; });
  return found == lines_.rend() ? std::nullopt : std::optional(found->second);
}

void last_values::read(std::string_view block) {
  for (wanted& each : wanted_) each.last.reset();
  walk_lines(kind_, block, [this](std::string_view name, std::string_view content) {
    for (wanted& each : wanted_) {
      if (each.name == name) each.last = content;
    }
  });
}

std::optional<lagport_head> lagport_head_of(std::string_view block) {
  std::optional<lagport_head> head;
  at_first(block, "dpa_intf_t", [&head](cursor at) {
    const bool begins = at.skip_blank() && at.skip("intf") && at.skip_blank() && at.skip(arrow);
    if (!begins || !at.skip_blank()) return false;
    const std::string_view ifh = at.word();
    if (ifh.empty() || !at.skip("\n") || !at.skip_blanks() || at.word().empty()) return false;
    if (!at.skip(" lag_id") || !at.skip_blank() || !at.skip("=")) return false;
    if (!at.skip_other_than('\n') || !at.skip_blank()) return false;
    const std::string_view lagid = at.word();
    if (!lagid.empty()) head = {ifh, lagid};
    return head.has_value();
  });
  return head;
}

std::string_view member_limit_of(std::string_view block) {
  std::string_view limit;
  at_first(block, "uint32_t max_member_count", [&limit](cursor at) {
    if (at.skip_blanks() && at.skip(arrow) && at.skip_blanks()) limit = at.digits();
    return !limit.empty();
  });
  return limit;
}

std::string_view interface_handle_of(std::string_view block) {
  std::string_view handle;
  at_first(block, "@dpa_intf_t", [&handle](cursor at) {
    const bool begins = at.skip_blanks() && at.skip("intf") && at.skip_blanks();
    if (begins && at.skip(arrow) && at.skip_blanks()) handle = at.word();
    return !handle.empty();
  });
  return handle;
}

}  // namespace tessel
