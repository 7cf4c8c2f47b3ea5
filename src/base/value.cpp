#include "base/value.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

#include "base/failure.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t scan_limit = 8;     // up to this size a linear search is faster than hashing
constexpr std::size_t brief_limit = 100;  // bytes of a value that a message quotes
constexpr std::string_view visited = "Visited";

[[noreturn]] void wrong_kind(std::string_view wanted, const value& found, here where) {
  throw failure(fmt::format("{} expected, found {}", wanted, brief(found)), where);
}

bool equal_maps(const map& left, const map& right) {
  if (left.size() != right.size()) return false;
  for (const auto& [key, content] : left.items()) {
    if (!right.contains(key) || !(right.at(key) == content)) return false;
  }
  return true;
}

}  // namespace

value::value(std::string text)
    : kind_(value_kind::text), object_(std::make_shared<std::string>(std::move(text))) {}
value::value(std::shared_ptr<map> entries) : kind_(value_kind::map), object_(std::move(entries)) {}
value::value(std::shared_ptr<value_list> items)
    : kind_(value_kind::list), object_(std::move(items)) {}
value::value(std::shared_ptr<record> object)
    : kind_(value_kind::record), object_(std::move(object)) {}

value& value::operator=(const value& other) {
  if (this != &other) *this = value(other);
  return *this;
}

value& value::operator=(value&& other) noexcept {
  if (this == &other) return *this;
  kind_ = std::exchange(other.kind_, value_kind::none);
  number_ = other.number();
  object_ = std::move(other.object_);
  return *this;
}

bool value::truthy() const {
  switch (kind_) {
    case value_kind::none:
      return false;
    case value_kind::integer:
      return number() != 0;
    case value_kind::text:
      return !as_text().empty();
    case value_kind::map:
      return !as_map().empty();
    case value_kind::list:
      return !as_list().empty();
    case value_kind::record:
      return true;
  }
  return false;
}

std::int64_t value::as_integer(here where) const {
  if (!is_integer()) wrong_kind("an integer", *this, where);
  return number();
}

const std::string& value::as_text(here where) const {
  if (!is_text()) wrong_kind("a text", *this, where);
  return *static_cast<const std::string*>(object_.get());
}

std::shared_ptr<const std::string> value::as_shared_text(here where) const {
  if (!is_text()) wrong_kind("a text", *this, where);
  return std::static_pointer_cast<const std::string>(object_);
}

map& value::as_map(here where) const {
  if (!is_map()) wrong_kind("a map", *this, where);
  return *static_cast<map*>(object_.get());
}

value_list& value::as_list(here where) const {
  if (!is_list()) wrong_kind("a list", *this, where);
  return *static_cast<value_list*>(object_.get());
}

record& value::as_record(here where) const {
  if (!is_record()) wrong_kind("a record", *this, where);
  return *static_cast<record*>(object_.get());
}

value value::at(std::string_view key, here where) const {
  if (!is_map()) {
    throw failure(fmt::format("no key {} in {}: a map is expected", brief_text(key), brief(*this)),
                  where);
  }
  return as_map().at(key, where);
}

bool value::contains(std::string_view key, here where) const {
  if (!is_map()) {
    throw failure(
        fmt::format("{} looked for in {}: a map is expected", brief_text(key), brief(*this)),
        where);
  }
  return as_map().contains(key);
}

bool operator==(const value& left, const value& right) {
  if (left.kind_ != right.kind_) return false;
  switch (left.kind_) {
    case value_kind::none:
      return true;
    case value_kind::integer:
      return left.number() == right.number();
    case value_kind::text:
      return left.as_text() == right.as_text();
    case value_kind::list:
      return left.as_list() == right.as_list();
    case value_kind::map:
      return left.object_ == right.object_ || equal_maps(left.as_map(), right.as_map());
    case value_kind::record:
      return left.object_ == right.object_;
  }
  return false;
}

map::map(order kind, access threads) : order_(kind) {
  if (threads == access::shared) guard_ = std::make_unique<std::shared_mutex>();
}

std::shared_lock<std::shared_mutex> map::reading() const {
  return guard_ ? std::shared_lock(*guard_) : std::shared_lock<std::shared_mutex>();
}

std::unique_lock<std::shared_mutex> map::writing() const {
  return guard_ ? std::unique_lock(*guard_) : std::unique_lock<std::shared_mutex>();
}

bool map::holds_late_mark() const {
  return late_mark_.load(std::memory_order_relaxed);
}

std::size_t map::position(std::string_view key) const {
  if (index_.empty()) {
    for (std::size_t at = 0; at < entries_.size(); ++at) {
      if (entries_[at].key == key) return at;
    }
    return npos;
  }
  const std::uint32_t held = index_[slot_of(key)];
  return held == 0 ? npos : held - 1;
}

// The slot that holds `key`, or the free slot where it would go.
std::size_t map::slot_of(std::string_view key) const {
  const std::size_t mask = index_.size() - 1;
  std::size_t slot = std::hash<std::string_view>()(key) & mask;
  while (index_[slot] != 0 && entries_[index_[slot] - 1].key != key) slot = (slot + 1) & mask;
  return slot;
}

void map::rebuild_index() {
  index_.clear();
  if (entries_.size() <= scan_limit) return;
  // Half full only after the number of entries has doubled.
  std::size_t slots = 8 * scan_limit;
  while (slots < 4 * (entries_.size() + 1)) slots *= 2;
  index_.resize(slots);
  for (std::size_t at = 0; at < entries_.size(); ++at) {
    index_[slot_of(entries_[at].key)] = static_cast<std::uint32_t>(at + 1);
  }
}

std::size_t map::size() const {
  const auto lock = reading();
  const bool extra = holds_late_mark() && position(visited) == npos;
  return entries_.size() + (extra ? 1 : 0);
}

bool map::contains(std::string_view key) const {
  const auto lock = reading();
  return position(key) != npos || (key == visited && holds_late_mark());
}

value map::find(std::string_view key) const {
  const auto lock = reading();
  if (key == visited && holds_late_mark()) return 1;
  const std::size_t at = position(key);
  return at == npos ? value() : entries_[at].content;
}

value map::at(std::string_view key, here where) const {
  const auto lock = reading();
  if (key == visited && holds_late_mark()) return 1;
  const std::size_t found = position(key);
  if (found == npos) throw failure(fmt::format("no key {}", brief_text(key)), where);
  return entries_[found].content;
}

void map::set(std::string_view key, value content) {
  const auto lock = writing();
  const std::size_t at = position(key);
  if (at != npos) {
    entries_[at].content = std::move(content);
    return;
  }
  entries_.push_back({std::string(key), std::move(content)});
  if (2 * entries_.size() > index_.size()) {
    rebuild_index();
  } else {
    index_[slot_of(key)] = static_cast<std::uint32_t>(entries_.size());
  }
}

void map::update(std::string_view key, std::int64_t number, here where) {
  const auto lock = reading();
  const std::size_t at = position(key);
  if (at == npos) throw failure(fmt::format("no key {}", brief_text(key)), where);
  value& content = entries_[at].content;
  if (!content.is_integer()) wrong_kind("an integer", content, where);
  std::atomic_ref(content.number_).store(number, std::memory_order_relaxed);
}

void map::erase(std::string_view key) {
  const auto lock = writing();
  const std::size_t at = position(key);
  if (at == npos) return;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
  rebuild_index();
}

void map::mark_visited() {
  const auto lock = reading();
  const std::size_t at = position(visited);
  if (at != npos && entries_[at].content.is_integer()) {
    std::atomic_ref(entries_[at].content.number_).store(1, std::memory_order_relaxed);
  } else {
    late_mark_.store(true, std::memory_order_relaxed);
  }
}

std::vector<std::pair<std::string, value>> map::items() const {
  const auto lock = reading();
  std::vector<std::pair<std::string, value>> copy;
  copy.reserve(entries_.size() + 1);
  for (const entry& each : entries_) copy.emplace_back(each.key, each.content);
  if (!holds_late_mark()) return copy;
  const std::size_t at = position(visited);
  if (at != npos) {
    copy[at].second = 1;
  } else {
    copy.emplace_back(std::string(visited), 1);
  }
  return copy;
}

std::vector<std::string> map::keys() const {
  const auto lock = reading();
  std::vector<std::string> names;
  names.reserve(entries_.size() + 1);
  for (const entry& each : entries_) names.push_back(each.key);
  if (holds_late_mark() && position(visited) == npos) names.emplace_back(visited);
  return names;
}

value make_map() {
  return std::make_shared<map>();
}
value make_ordered_map() {
  return std::make_shared<map>(map::order::ordered);
}
value make_shared_map(map::order kind) {
  return std::make_shared<map>(kind, map::access::shared);
}
value make_list(value_list items) {
  return std::make_shared<value_list>(std::move(items));
}

std::string brief_text(std::string_view text) {
  if (text.size() <= brief_limit) return quoted(text);
  return fmt::format("{}... ({} bytes)", quoted(text.substr(0, brief_limit)), text.size());
}

std::string brief(const value& content) {
  switch (content.kind()) {
    case value_kind::none:
      return "nothing";
    case value_kind::integer:
      return fmt::format("the integer {}", content.as_integer());
    case value_kind::text:
      return "the text " + brief_text(content.as_text());
    case value_kind::map:
      return fmt::format("a map of {}", content.as_map().size());
    case value_kind::list:
      return fmt::format("a list of {}", content.as_list().size());
    case value_kind::record:
      return "a record";
  }
  return "";
}

}  // namespace tessel
