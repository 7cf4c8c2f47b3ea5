#include "base/value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
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
constexpr std::size_t first_room = 4;           // entries of a map that grows
constexpr text_key visited("Visited");

bool is_visited(const text_key& key) {
  return key.text() == visited.text();
}

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

// Memory for rows, blocks and texts. The C library enlarges the heap of each thread but the first
// one page by page, with a system call for each that stops the other threads' page faults. So a
// thread makes room for many objects at once, and less than what the library would give back. Where
// there is no such room, the objects may still fit, and the reserve for failures is not for it.
void* allocated(std::size_t size) {
  constexpr std::size_t room = std::size_t{96} * 1024;
  thread_local std::size_t left = 0;
  left -= std::min(left, size + 2 * sizeof(void*));  // with what the library adds
  if (left == 0) {
    void* volatile made = std::malloc(room);  // volatile, or the compiler drops both calls
    std::free(made);
    left = room;
  }
  return ::operator new(size);
}

[[noreturn]] void wrong_kind(std::string_view wanted, const value& found, here where) {
  throw failure(fmt::format("{} expected, found {}", wanted, brief(found)), where);
}

[[noreturn]] void no_key(const text_key& key, here where) {
  throw failure(fmt::format("no key {}", brief_text(key.text())), where);
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
  explicit long_text_object(std::size_t length) : size(static_cast<std::uint32_t>(length)) {}
  char* characters() { return reinterpret_cast<char*>(this + 1); }
  std::string_view view() { return {characters(), size}; }

  static constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
  static long_text_object* make(std::size_t length) {
    return new (allocated(sizeof(long_text_object) + length)) long_text_object(length);
  }
  static void free(long_text_object* object) {
    object->~long_text_object();
    ::operator delete(object);
  }

  std::uint32_t size;
};

value::value(std::string_view text) {
  if (text.size() <= text_key::longest_short) {
    const text_key key(text);
    first_ = static_cast<std::int64_t>(key.first_);
    tag_ = key.tag_;
  } else if (text.size() <= long_text_object::most) {
    long_text_object* const made = long_text_object::make(text.size());
    std::memcpy(made->characters(), text.data(), text.size());
    *this = value(form::long_text, made);
  } else {
    *this = value(std::make_shared<const std::string>(text));
  }
}

value::value(std::string&& text) {
  *this = text.size() < least_shared_text
              ? value(std::string_view(text))
              : value(std::make_shared<const std::string>(std::move(text)));
}

value::value(std::shared_ptr<const std::string> text) {
  // A key is found by its form too: a short text has one form only.
  *this = text->size() <= text_key::longest_short
              ? value(std::string_view(*text))
              : value(form::shared_text, new shared_text_object(std::move(text)));
}
value::value(std::shared_ptr<record> object)
    : value(form::record, new record_object(std::move(object))) {}

value value::refer_to(std::string_view text) {
  if (text.size() <= text_key::longest_short) return text;
  value made;
  made.first_ = std::bit_cast<std::int64_t>(text.data());
  made.tag_ = tag_of(form::literal_text) | text.size();
  return made;
}

value value::of_key(const text_key& key) {
  if (key.held() == form::borrowed_text) return key.text();
  if (!key.is_short()) return refer_to(key.text());
  value made;
  made.first_ = static_cast<std::int64_t>(key.first_);
  made.tag_ = key.tag_;
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
      map::destroy(static_cast<map*>(object()));
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
      return {std::bit_cast<const char*>(number()), tag_ & text_key::most_length};
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
      return object() != nullptr && !as_map().empty();
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

// The first one that asks makes the map; of several threads one.
counted* value::ask_for_map() const {
  value made = map::held(map::make(map::order::plain));
  counted* const entries = made.object();
  std::int64_t held_before = 0;
  if (!std::atomic_ref(first_).compare_exchange_strong(held_before, made.first_,
                                                       std::memory_order_acq_rel)) {
    return std::bit_cast<counted*>(held_before);
  }
  made.tag_ = 0;
  return entries;
}

value_list& value::as_list(here where) const {
  if (!is_list()) wrong_kind("a list", *this, where);
  return static_cast<list_object*>(object())->items;
}

record& value::as_record(here where) const {
  if (!is_record()) wrong_kind("a record", *this, where);
  return *static_cast<record_object*>(object())->object;
}

void value::no_map(const value& found, here where) {
  wrong_kind("a map", found, where);
}

void value::no_map_to_search(const text_key& key, const value& found, here where) {
  throw failure(
      fmt::format("{} looked for in {}: a map is expected", brief_text(key.text()), brief(found)),
      where);
}

void value::no_entry(const text_key& key, const value& found, here where) {
  if (found.is_map()) no_key(key, where);
  throw failure(
      fmt::format("no key {} in {}: a map is expected", brief_text(key.text()), brief(found)),
      where);
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
  const std::string_view whole = text();
  if (!is_short()) return static_cast<std::uint32_t>(std::hash<std::string_view>()(whole));
  if (whole.empty()) return 0;
  std::uint64_t first = first_;
  std::uint64_t second = tag_;
  const auto last = static_cast<unsigned char>(whole.back());
  const std::size_t place = whole.size() - 1;
  (place < word ? first : second) ^= std::uint64_t{last} << 8 * (place % word);
  return mixed(first, second) + hexadecimal_digit(last);
}

// What a map keeps apart from itself: keys, contents and, if there is room for more than
// `scan_limit`, the index. It has a free slot always.
struct map::block {
  value* keys() { return reinterpret_cast<value*>(this + 1); }
  value* contents() { return keys() + capacity; }
  // A slot is 0 if it is free; otherwise it has position + 1 in the bits of the mask, and the hash
  // in the others.
  std::uint32_t* index() { return reinterpret_cast<std::uint32_t*>(contents() + capacity); }

  static block* make(std::size_t capacity) {
    std::size_t slots = capacity > scan_limit ? 4 * scan_limit : 0;
    while (3 * slots < 4 * capacity && slots > 0) slots *= 2;
    const std::size_t size =
        sizeof(block) + 2 * capacity * sizeof(value) + slots * sizeof(std::uint32_t);
    auto* const made = new (allocated(size))
        block{static_cast<std::uint32_t>(capacity), static_cast<std::uint32_t>(slots)};
    std::fill_n(made->index(), slots, 0U);
    return made;
  }

  std::uint32_t capacity;
  std::uint32_t slots;
};

struct map::shared_map : map {
  explicit shared_map(order kind) : map(kind, access::shared) {}
  mutable std::shared_mutex mutex;
};

map::map(const row_keys& keys, std::span<value> contents, order kind)
    : size_(static_cast<std::uint32_t>(contents.size())),
      order_(kind),
      access_(access::unlocked),
      shape_(shape::row),
      keys_(keys.keys_) {
  std::uninitialized_move(contents.begin(), contents.end(), this->contents());
}

map::~map() {
  std::destroy_n(contents(), size_);
  if (is_row() || keys_ == nullptr) return;
  block* const held = own_block();
  std::destroy_n(held->keys(), size_);
  ::operator delete(held);
}

map* map::make(order kind, access threads) {
  if (threads == access::unlocked) return new (::operator new(sizeof(map))) map(kind);
  return new (::operator new(sizeof(shared_map))) shared_map(kind);
}

// Null is an empty map that nobody has asked for.
value map::held(map* made) {
  return {value::form::map, made};
}

void map::destroy(map* which) {
  if (which->access_ == access::unlocked) {
    which->~map();
  } else {
    static_cast<shared_map*>(which)->~shared_map();
  }
  ::operator delete(which);
}

map::block* map::own_block() const {
  return reinterpret_cast<block*>(const_cast<value*>(keys_)) - 1;
}

const value* map::contents() const {
  if (is_row()) return reinterpret_cast<const value*>(this + 1);
  return keys_ == nullptr ? nullptr : own_block()->contents();
}

std::shared_mutex& map::guard() const {
  return static_cast<const shared_map*>(this)->mutex;
}

std::shared_lock<std::shared_mutex> map::reading() const {
  return is_locked() ? std::shared_lock(guard()) : std::shared_lock<std::shared_mutex>();
}

std::unique_lock<std::shared_mutex> map::writing() const {
  return is_locked() ? std::unique_lock(guard()) : std::unique_lock<std::shared_mutex>();
}

inline std::size_t map::position(const text_key& key) const {
  if (shape_ == shape::indexed) {
    const std::size_t guessed = guessed_position(key);
    return guessed != npos ? guessed : indexed_position(key, key.hash());
  }
  const std::size_t found = value::place_of(key, keys_, size_);
  return found == size_ ? npos : found;
}

inline std::size_t map::guessed_position(const text_key& key) const {
  const std::uint32_t last = last_found_.load(std::memory_order_relaxed);
  if (last < size_ && keys_[last].is(key)) return last;
  const std::uint32_t next = last + 1;
  if (next >= size_ || !keys_[next].is(key)) return npos;
  last_found_.store(next, std::memory_order_relaxed);
  return next;
}

std::size_t map::indexed_position(const text_key& key, std::uint32_t hash) const {
  const std::uint32_t held = *slot_of(key, hash);
  if (held == 0) return npos;
  const std::uint32_t found = (held & (own_block()->slots - 1)) - 1;
  last_found_.store(found, std::memory_order_relaxed);
  return found;
}

// The slot that holds `key`, or the free slot where it would go.
inline const std::uint32_t* map::slot_of(const text_key& key, std::uint32_t hash) const {
  block* const held = own_block();
  std::uint32_t* const index = held->index();
  const std::uint32_t mask = held->slots - 1;
  std::uint32_t at = hash & mask;
  while (index[at] != 0 &&
         (((index[at] ^ hash) & ~mask) != 0 || !keys_[(index[at] & mask) - 1].is(key))) {
    at = (at + 1) & mask;
  }
  return &index[at];
}

// Only of keys that are not in the index, so the first free slot is theirs.
void map::enter(std::size_t at, std::uint32_t hash) {
  block* const held = own_block();
  std::uint32_t* const index = held->index();
  const std::uint32_t mask = held->slots - 1;
  std::uint32_t slot = hash & mask;
  while (index[slot] != 0) slot = (slot + 1) & mask;
  index[slot] = (hash & ~mask) | static_cast<std::uint32_t>(at + 1);
}

// Moves the entries into a block of their own with this room.
void map::move_into(std::size_t capacity) {
  block* const next = block::make(capacity);
  std::uninitialized_move_n(contents(), size_, next->contents());
  if (is_row()) {
    std::uninitialized_copy_n(keys_, size_, next->keys());
  } else if (keys_ != nullptr) {
    // What was moved from is none, which needs no destructor.
    std::uninitialized_move_n(own_block()->keys(), size_, next->keys());
    ::operator delete(own_block());
  }
  keys_ = next->keys();
  shape_ = next->slots > 0 ? shape::indexed : shape::small;
  if (shape_ != shape::indexed) return;
  for (std::size_t at = 0; at < size_; ++at) enter(at, text_key(keys_[at].view()).hash());
}

std::size_t map::size() const {
  const auto lock = reading();
  const bool extra = holds_late_mark() && position(visited) == npos;
  return size_ + (extra ? 1 : 0);
}

const value& map::late_mark() {
  static const value& mark = *new value(1);
  return mark;
}

inline const value* map::find_here(const text_key& key) const {
  if (holds_late_mark() && is_visited(key)) return &late_mark();
  const std::size_t at = position(key);
  return at == npos ? nullptr : contents() + at;
}

const value* map::look_up(text_key key) const {
  if (is_locked()) throw failure("a map that still grows gives copies only");
  return find_here(key);
}

bool map::contains(text_key key) const {
  const auto lock = reading();
  return find_here(key) != nullptr;
}

// Copies the entry to `found`. False if there is none.
bool map::copy_to(value& found, text_key key) const {
  if (!is_locked()) return copy_here(found, key);
  const auto lock = reading();
  return copy_here(found, key);
}

bool map::copy_here(value& found, const text_key& key) const {
  const value* const entry = find_here(key);
  if (entry == nullptr) return false;
  found = *entry;
  return true;
}

value map::find(text_key key) const {
  value found;
  copy_to(found, key);
  return found;
}

std::optional<value> map::get(text_key key) const {
  std::optional<value> found(std::in_place);
  if (!copy_to(*found, key)) found.reset();
  return found;
}

value map::at(text_key key, here where) const {
  value found;
  if (!copy_to(found, key)) no_key(key, where);
  return found;
}

void map::set(text_key key, value content) {
  insert_or_replace(key, nullptr, std::move(content));
}

void map::put(const value& key, value content) {
  insert_or_replace(key.as_text(), &key, std::move(content));
}

// `key` is the value to keep, or null if there is only `sought`.
void map::insert_or_replace(const text_key& sought, const value* key, value content) {
  const auto lock = writing();
  const std::uint32_t hash = shape_ == shape::indexed ? sought.hash() : 0;
  const std::size_t at =
      shape_ == shape::indexed ? indexed_position(sought, hash) : position(sought);
  if (at != npos) {
    contents()[at] = std::move(content);
  } else {
    append(key == nullptr ? value::of_key(sought) : *key, hash, std::move(content));
  }
}

// `hash` is that of the key if the map has an index.
void map::append(value key, std::uint32_t hash, value content) {
  if (is_row() || keys_ == nullptr || size_ == own_block()->capacity) {
    const bool was_indexed = shape_ == shape::indexed;
    move_into(std::max<std::size_t>(first_room, 2 * std::size_t{size_}));
    if (!was_indexed && shape_ == shape::indexed) hash = text_key(key.view()).hash();
  }
  block* const held = own_block();
  std::construct_at(held->keys() + size_, std::move(key));
  std::construct_at(held->contents() + size_, std::move(content));
  ++size_;
  if (shape_ == shape::indexed) enter(size_ - 1, hash);
}

void map::reserve(std::size_t entries) {
  const auto lock = writing();
  const std::size_t room = is_row() || keys_ == nullptr ? size_ : own_block()->capacity;
  if (entries > room) move_into(entries);
}

void map::update(text_key key, std::int64_t number, here where) {
  const auto lock = reading();
  const std::size_t at = position(key);
  if (at == npos) no_key(key, where);
  value& content = contents()[at];
  if (!content.is_integer()) wrong_kind("an integer", content, where);
  content.store(number);
}

void map::erase(text_key key) {
  const auto lock = writing();
  const std::size_t at = position(key);
  if (at == npos) return;
  if (is_row()) move_into(size_);
  const auto close_gap = [this, at](value* list) {
    std::move(list + at + 1, list + size_, list + at);
    std::destroy_at(list + size_ - 1);
  };
  close_gap(own_block()->keys());
  close_gap(contents());
  --size_;
  move_into(own_block()->capacity);
}

void map::freeze() {
  if (is_locked()) access_ = access::frozen;
}

void map::mark_visited() {
  const auto lock = reading();
  const std::size_t at = position(visited);
  if (at != npos && contents()[at].is_integer()) {
    contents()[at].store(1);
  } else {
    late_mark_.store(true, std::memory_order_relaxed);
  }
}

std::vector<std::pair<std::string, value>> map::items() const {
  const auto lock = reading();
  std::vector<std::pair<std::string, value>> copy;
  copy.reserve(size_ + std::size_t{1});
  walk([&copy](std::string_view key, const value& content) { copy.emplace_back(key, content); });
  return copy;
}

std::vector<std::string> map::keys() const {
  const auto lock = reading();
  std::vector<std::string> names;
  names.reserve(size_ + std::size_t{1});
  walk([&names](std::string_view key, const value&) { names.emplace_back(key); });
  return names;
}

row_keys::row_keys(std::initializer_list<std::string_view> keys) {
  if (keys.size() > most) {
    throw failure(fmt::format("a row of {} keys; at most {} are possible", keys.size(), most));
  }
  for (const std::string_view key : keys) {
    if (std::find(keys_, keys_ + size_, key) != keys_ + size_) {
      throw failure(fmt::format("a row with two keys {}", brief_text(key)));
    }
    keys_[size_++] = value::refer_to(key);
  }
}

value make_map(std::size_t expected_entries) {
  if (expected_entries == 0) return map::held(nullptr);
  value entries = map::held(map::make(map::order::plain));
  // The number comes from a tool's text, which may be nonsense.
  entries.as_map().reserve(std::min(expected_entries, most_room));
  return entries;
}

value make_ordered_map() {
  return map::held(map::make(map::order::ordered));
}

value make_shared_map(map::order kind) {
  return map::held(map::make(kind, map::access::shared));
}

value make_row(const row_keys& keys, std::span<value> contents, map::order kind) {
  if (contents.size() != keys.size()) {
    throw failure(fmt::format("{} contents for a row of {}", contents.size(), keys.size()));
  }
  void* const memory = allocated(sizeof(map) + contents.size() * sizeof(value));
  return map::held(new (memory) map(keys, contents, kind));
}

value make_list(value_list items) {
  return {value::form::list, new value::list_object(std::move(items))};
}

value make_text(std::initializer_list<std::string_view> parts) {
  std::size_t size = 0;
  for (const std::string_view part : parts) size += part.size();
  if (size <= text_key::longest_short || size > value::long_text_object::most) {
    return joined(parts);
  }
  auto* const made = value::long_text_object::make(size);
  char* at = made->characters();
  for (const std::string_view part : parts) at = std::copy(part.begin(), part.end(), at);
  return {value::form::long_text, made};
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
