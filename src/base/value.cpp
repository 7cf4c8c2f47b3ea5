#include "base/value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <new>

#include "base/failure.h"
#include "base/text.h"

namespace tessel {

namespace {

constexpr std::size_t scan_limit = 8;     // up to this size a linear search is faster than hashing
constexpr std::size_t brief_limit = 100;  // bytes of a value that a message quotes
constexpr std::size_t most_room = 16384;  // entries for which a new map makes room
constexpr std::size_t least_shared_text = 256;  // shorter texts are copied, not moved
constexpr std::string_view visited = "Visited";
const text_key visited_key(visited);

// The bits of a short key, mixed so that all of them count in the lowest ones.
std::uint32_t mixed(std::uint64_t first, std::uint64_t second) {
  __extension__ using product = unsigned __int128;
  const product bits = product{first ^ 0x9e3779b97f4a7c15U} * (second ^ 0xbf58476d1ce4e5b9U);
  const auto folded = static_cast<std::uint64_t>(bits ^ bits >> 64);
  return static_cast<std::uint32_t>(folded ^ folded >> 32);
}

// The value of a hexadecimal digit; some small number for any other character.
std::uint32_t hexadecimal_digit(unsigned char c) {
  return (c & 0xfU) + 9U * (c >> 6U);
}

// The shared copy of a text that values keep themselves: the same one as long as somebody uses it,
// because texts are told apart by their addresses (text_index.h). Only the raw tables of chips that
// hold next to nothing are that short, so few copies are made.
std::shared_ptr<const std::string> shared_copy(std::string_view text) {
  static std::mutex& mutex = *new std::mutex;
  static auto& copies = *new std::map<std::string, std::weak_ptr<const std::string>, std::less<>>;
  const std::lock_guard lock(mutex);
  const auto found = copies.find(text);
  if (found != copies.end()) {
    if (auto in_use = found->second.lock()) return in_use;
  }
  auto copy = std::make_shared<const std::string>(text);
  copies.insert_or_assign(*copy, copy);
  return copy;
}

[[noreturn]] void wrong_kind(std::string_view wanted, const value& found, here where) {
  throw failure(fmt::format("{} expected, found {}", wanted, brief(found)), where);
}

[[noreturn]] void no_map_for(std::string_view key, const value& found, here where) {
  throw failure(fmt::format("no key {} in {}: a map is expected", brief_text(key), brief(found)),
                where);
}

[[noreturn]] void no_map_to_search(std::string_view key, const value& found, here where) {
  throw failure(
      fmt::format("{} looked for in {}: a map is expected", brief_text(key), brief(found)), where);
}

bool equal_maps(const map& left, const map& right) {
  if (left.size() != right.size()) return false;
  for (const auto& [key, content] : left.items()) {
    if (!right.contains(key) || !(right.at(key) == content)) return false;
  }
  return true;
}

}  // namespace

struct value::list_object : counted {
  explicit list_object(value_list list) : items(std::move(list)) {}
  value_list items;
};

struct value::record_object : counted {
  explicit record_object(std::shared_ptr<record> kept) : object(std::move(kept)) {}
  std::shared_ptr<record> object;
};

struct value::shared_text_object : counted {
  explicit shared_text_object(std::shared_ptr<const std::string> kept) : text(std::move(kept)) {}
  std::shared_ptr<const std::string> text;
};

// The characters follow the object in the same piece of memory.
struct value::long_text_object : counted {
  explicit long_text_object(std::size_t length) : size(length) {}
  char* characters() { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() { return {characters(), size}; }

  static long_text_object* make(std::string_view text) {
    void* memory = ::operator new(sizeof(long_text_object) + text.size());
    auto* made = new (memory) long_text_object(text.size());
    std::memcpy(made->characters(), text.data(), text.size());
    return made;
  }
  static void free(long_text_object* object) {
    object->~long_text_object();
    ::operator delete(object);
  }

  std::size_t size;
};

value::value(std::string_view text) {
  if (text.size() <= longest_short_text) {
    const text_key key(text);
    first_ = key.first_;
    tag_ = key.tag_;
  } else {
    *this = value(form::long_text, long_text_object::make(text));
  }
}

value::value(std::string&& text) {
  *this = text.size() < least_shared_text
              ? value(std::string_view(text))
              : value(std::make_shared<const std::string>(std::move(text)));
}

value::value(std::shared_ptr<const std::string> text) {
  // A key is found by its form too: a short text has one form only.
  *this = text->size() <= longest_short_text
              ? value(std::string_view(*text))
              : value(form::shared_text, new shared_text_object(std::move(text)));
}
value::value(std::unique_ptr<map> entries) : value(form::map, entries.release()) {}
value::value(std::unique_ptr<value_list> items)
    : value(form::list, new list_object(std::move(*items))) {}
value::value(std::shared_ptr<record> object)
    : value(form::record, new record_object(std::move(object))) {}

value value::refer_to(std::string_view text) {
  if (text.size() <= longest_short_text) return text;
  value made;
  made.first_ = std::bit_cast<std::int64_t>(text.data());
  made.tag_ = tag_of(form::literal_text) | text.size();
  return made;
}

value& value::operator=(const value& other) {
  if (this != &other) *this = value(other);
  return *this;
}

value& value::operator=(value&& other) noexcept {
  if (this == &other) return *this;
  // `other` may be part of what this value is the last to hold.
  const value held_before(std::move(*this));
  take(other);
  return *this;
}

void value::destroy() {
  switch (held()) {
    case form::map:
      delete static_cast<map*>(object());
      break;
    case form::list:
      delete static_cast<list_object*>(object());
      break;
    case form::record:
      delete static_cast<record_object*>(object());
      break;
    case form::shared_text:
      delete static_cast<shared_text_object*>(object());
      break;
    default:
      long_text_object::free(static_cast<long_text_object*>(object()));
  }
}

value_kind value::kind() const {
  switch (held()) {
    case form::none:
      return value_kind::none;
    case form::integer:
      return value_kind::integer;
    case form::map:
      return value_kind::map;
    case form::list:
      return value_kind::list;
    case form::record:
      return value_kind::record;
    default:
      return value_kind::text;
  }
}

std::string_view value::long_view() const {
  switch (held()) {
    case form::literal_text:
      return {std::bit_cast<const char*>(number()), tag_ & ~(std::uint64_t{0xff} << form_shift)};
    case form::long_text:
      return static_cast<long_text_object*>(object())->view();
    default:
      return *static_cast<shared_text_object*>(object())->text;
  }
}

bool value::truthy() const {
  switch (kind()) {
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

std::string_view value::as_text(here where) const& {
  if (!is_text()) wrong_kind("a text", *this, where);
  return view();
}

std::string value::as_text(here where) && {
  const value& kept = *this;
  return std::string(kept.as_text(where));
}

std::shared_ptr<const std::string> value::as_shared_text(here where) const {
  if (!is_text()) wrong_kind("a text", *this, where);
  if (held() == form::shared_text) return static_cast<shared_text_object*>(object())->text;
  return shared_copy(view());
}

map& value::as_map(here where) const {
  if (!is_map()) wrong_kind("a map", *this, where);
  return *static_cast<map*>(object());
}

value_list& value::as_list(here where) const {
  if (!is_list()) wrong_kind("a list", *this, where);
  return static_cast<list_object*>(object())->items;
}

record& value::as_record(here where) const {
  if (!is_record()) wrong_kind("a record", *this, where);
  return *static_cast<record_object*>(object())->object;
}

value value::at(std::string_view key, here where) const {
  if (!is_map()) no_map_for(key, *this, where);
  return as_map().at(key, where);
}

bool value::contains(std::string_view key, here where) const {
  if (!is_map()) no_map_to_search(key, *this, where);
  return as_map().contains(key);
}

std::optional<value> value::get(std::string_view key, here where) const {
  if (!is_map()) no_map_to_search(key, *this, where);
  return as_map().get(key);
}

const value& value::in(std::string_view key, here where) const {
  if (!is_map()) no_map_for(key, *this, where);
  const value* found = as_map().look_up(key);
  if (found == nullptr) throw failure(fmt::format("no key {}", brief_text(key)), where);
  return *found;
}

bool operator==(const value& left, const value& right) {
  if (left.kind() != right.kind()) return false;
  switch (left.kind()) {
    case value_kind::none:
      return true;
    case value_kind::integer:
      return left.number() == right.number();
    case value_kind::text:
      return left.view() == right.view();
    case value_kind::list:
      return left.as_list() == right.as_list();
    case value_kind::map:
      return left.object() == right.object() || equal_maps(left.as_map(), right.as_map());
    case value_kind::record:
      return &left.as_record() == &right.as_record();
  }
  return false;
}

// Keys that differ only in the last digit get slots side by side: the tables number their rows, and
// the checks look up one row after the other.
std::uint32_t text_key::hash() const {
  if (tag_ == 0) return static_cast<std::uint32_t>(std::hash<std::string_view>()(text_));
  if (text_.empty()) return 0;
  auto first = static_cast<std::uint64_t>(first_);
  std::uint64_t second = tag_;
  const auto last = static_cast<unsigned char>(text_.back());
  const std::size_t place = text_.size() - 1;
  constexpr std::size_t word = sizeof first;
  (place < word ? first : second) ^= std::uint64_t{last} << 8 * (place % word);
  return mixed(first, second) + hexadecimal_digit(last);
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

std::size_t map::position(const text_key& key) const {
  if (index_.empty()) {
    for (std::size_t at = 0; at < entries_.size(); ++at) {
      if (key.is(entries_[at].key)) return at;
    }
    return npos;
  }
  if (const std::size_t guessed = guessed_position(key); guessed != npos) return guessed;
  const std::uint32_t held = index_[slot_of(key, key.hash())].place;
  if (held == 0) return npos;
  last_found_.store(held - 1, std::memory_order_relaxed);
  return held - 1;
}

std::size_t map::guessed_position(const text_key& key) const {
  const std::uint32_t last = last_found_.load(std::memory_order_relaxed);
  if (last < entries_.size() && key.is(entries_[last].key)) return last;
  const std::uint32_t next = last + 1;
  if (next >= entries_.size() || !key.is(entries_[next].key)) return npos;
  last_found_.store(next, std::memory_order_relaxed);
  return next;
}

// The slot that holds `key`, or the free slot where it would go.
std::size_t map::slot_of(const text_key& key, std::uint32_t hash) const {
  const std::size_t mask = index_.size() - 1;
  std::size_t at = hash & mask;
  while (index_[at].place != 0 &&
         (index_[at].hash != hash || !key.is(entries_[index_[at].place - 1].key))) {
    at = (at + 1) & mask;
  }
  return at;
}

void map::rebuild_index(std::size_t entries) {
  index_.clear();
  if (entries <= scan_limit) return;
  std::size_t slots = 4 * scan_limit;
  while (3 * slots < 4 * entries) slots *= 2;
  index_.resize(slots);
  for (std::size_t at = 0; at < entries_.size(); ++at) enter(at, text_key(entries_[at].key.view()));
}

void map::enter(std::size_t at, const text_key& key) {
  const std::uint32_t hash = key.hash();
  index_[slot_of(key, hash)] = {hash, static_cast<std::uint32_t>(at + 1)};
}

std::size_t map::size() const {
  const auto lock = reading();
  const bool extra = holds_late_mark() && position(visited_key) == npos;
  return entries_.size() + (extra ? 1 : 0);
}

bool map::contains(std::string_view key) const {
  const auto lock = reading();
  return position(text_key(key)) != npos || (key == visited && holds_late_mark());
}

const value& map::late_mark() {
  static const value& mark = *new value(1);
  return mark;
}

const value* map::find_here(std::string_view key) const {
  if (holds_late_mark() && key == visited) return &late_mark();
  const std::size_t at = position(text_key(key));
  return at == npos ? nullptr : &entries_[at].content;
}

const value* map::look_up(std::string_view key) const {
  if (guard_) throw failure("a map that still grows gives copies only");
  return find_here(key);
}

value map::find(std::string_view key) const {
  const auto lock = reading();
  const value* found = find_here(key);
  return found == nullptr ? value() : *found;
}

std::optional<value> map::get(std::string_view key) const {
  const auto lock = reading();
  const value* found = find_here(key);
  return found == nullptr ? std::nullopt : std::optional(*found);
}

value map::at(std::string_view key, here where) const {
  const auto lock = reading();
  const value* found = find_here(key);
  if (found == nullptr) throw failure(fmt::format("no key {}", brief_text(key)), where);
  return *found;
}

void map::set(std::string_view key, value content) {
  const auto lock = writing();
  const text_key sought(key);
  const std::size_t at = position(sought);
  if (at != npos) {
    entries_[at].content = std::move(content);
  } else {
    append(sought, value(key), std::move(content));
  }
}

void map::put(const value& key, value content) {
  const auto lock = writing();
  const text_key sought(key.as_text());
  const std::size_t at = position(sought);
  if (at != npos) {
    entries_[at].content = std::move(content);
  } else {
    append(sought, key, std::move(content));
  }
}

void map::append(const text_key& sought, value key, value content) {
  entries_.push_back({std::move(key), std::move(content)});
  const std::size_t size = entries_.size();
  if (index_.empty() && size <= scan_limit) return;
  if (3 * index_.size() < 4 * size) {
    rebuild_index(size);
  } else {
    enter(size - 1, sought);
  }
}

void map::reserve(std::size_t entries) {
  const auto lock = writing();
  entries_.reserve(entries);
  if (entries > entries_.size()) rebuild_index(entries);
}

void map::update(std::string_view key, std::int64_t number, here where) {
  const auto lock = reading();
  const std::size_t at = position(text_key(key));
  if (at == npos) throw failure(fmt::format("no key {}", brief_text(key)), where);
  value& content = entries_[at].content;
  if (!content.is_integer()) wrong_kind("an integer", content, where);
  content.store(number);
}

void map::erase(std::string_view key) {
  const auto lock = writing();
  const std::size_t at = position(text_key(key));
  if (at == npos) return;
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
  rebuild_index(entries_.size());
}

void map::freeze() {
  guard_.reset();
}

void map::mark_visited() {
  const auto lock = reading();
  const std::size_t at = position(visited_key);
  if (at != npos && entries_[at].content.is_integer()) {
    entries_[at].content.store(1);
  } else {
    late_mark_.store(true, std::memory_order_relaxed);
  }
}

std::vector<std::pair<std::string, value>> map::items() const {
  const auto lock = reading();
  std::vector<std::pair<std::string, value>> copy;
  copy.reserve(entries_.size() + 1);
  walk([&copy](std::string_view key, const value& content) { copy.emplace_back(key, content); });
  return copy;
}

std::vector<std::string> map::keys() const {
  const auto lock = reading();
  std::vector<std::string> names;
  names.reserve(entries_.size() + 1);
  walk([&names](std::string_view key, const value&) { names.emplace_back(key); });
  return names;
}

value make_map(std::size_t expected_entries) {
  auto made = std::make_unique<map>();
  // The number comes from a tool's text, which may be nonsense.
  if (expected_entries > 0) made->reserve(std::min(expected_entries, most_room));
  return value(std::move(made));
}
value make_ordered_map() {
  return value(std::make_unique<map>(map::order::ordered));
}
value make_shared_map(map::order kind) {
  return value(std::make_unique<map>(kind, map::access::shared));
}
value make_list(value_list items) {
  return value(std::make_unique<value_list>(std::move(items)));
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
