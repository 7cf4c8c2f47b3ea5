// The small tagged value that stores, records and tool output are made of.
//
//   value entry = make_map();
//   entry.as_map().set("lagid", "0x1");
//   entry.as_map().set("Visited", 0);
//   entry.at("lagid") == "0x1"         // true
//   entry.at("Visited") == "0"         // false: an integer never equals a text
//   entry.at("mtu")                    // throws failure: no key 'mtu'
//
// Threads: one thread fills a map and then publishes it with one insert. From then on its structure
// is frozen, and all threads read it without a lock. Two changes stay possible and are free of
// races: integer entries (`map::update`) and the visited mark (`map::mark_visited`). Only a map
// made with `make_shared_map` takes inserts from several threads; it locks itself.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/here.h"

namespace tessel {

class value;
class map;
class record;
using value_list = std::vector<value>;

enum class value_kind : std::uint8_t { none, integer, text, map, list, record };

// What several values share, with the number of these values.
class counted {
 public:
  counted() = default;
  counted(const counted&) = delete;
  counted& operator=(const counted&) = delete;
  void add_user() { users_.fetch_add(1, std::memory_order_relaxed); }
  // True if that was the last one.
  bool remove_user() { return users_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

 private:
  std::atomic<std::uint32_t> users_ = 1;
};

class value {
 public:
  value() = default;
  value(int number) : value(std::int64_t{number}) {}
  value(std::int64_t number) : first_(number), tag_(tag_of(form::integer)) {}
  value(const char* text) : value(std::string_view(text)) {}
  value(std::string_view text);
  value(const std::string& text) : value(std::string_view(text)) {}
  value(std::string&& text);
  value(std::shared_ptr<const std::string> text);
  value(std::shared_ptr<record> object);
  explicit value(std::unique_ptr<map> entries);
  explicit value(std::unique_ptr<value_list> items);
  // A text that is never freed. The value only refers to it.
  template <std::size_t Size>
  static value literal(const char (&text)[Size]) {
    return refer_to({text, Size - 1});
  }

  value(const value& other) { share(other); }
  // The moved-from value has kind none.
  value(value&& other) noexcept { take(other); }
  value& operator=(const value& other);
  value& operator=(value&& other) noexcept;
  ~value() { drop(); }

  value_kind kind() const;
  bool is_integer() const { return held() == form::integer; }
  bool is_text() const { return held() >= form::short_text; }
  bool is_map() const { return held() == form::map; }
  bool is_list() const { return held() == form::list; }
  bool is_record() const { return held() == form::record; }

  // False for none, the integer 0, and an empty text, map or list.
  bool truthy() const;

  // The content as one kind. Each throws `failure`, naming what it found, if the value is another
  // kind. A text is a view into this value, or a copy if the value is a temporary.
  std::int64_t as_integer(here where = here::current()) const;
  std::string_view as_text(here where = here::current()) const&;
  std::string as_text(here where = here::current()) &&;
  // One shared text for all copies of a value, and for all short values with this text.
  std::shared_ptr<const std::string> as_shared_text(here where = here::current()) const;
  map& as_map(here where = here::current()) const;
  value_list& as_list(here where = here::current()) const;
  record& as_record(here where = here::current()) const;

  // The entry of a map under `key`. Throws `failure` if there is no such key or this is not a map.
  value at(std::string_view key, here where = here::current()) const;
  // The entry, or nothing. Throws `failure` as `contains` does.
  std::optional<value> get(std::string_view key, here where = here::current()) const;
  // The same as `at` without a copy, good until the next insert into the map, which must not be a
  // shared one.
  const value& in(std::string_view key, here where = here::current()) const;
  // True if a map holds `key`. Throws `failure` if this is not a map, so that a text or ERROR in
  // the place of a store is never searched.
  bool contains(std::string_view key, here where = here::current()) const;

  // Compares kind and content; a record equals only itself.
  friend bool operator==(const value& left, const value& right);
  friend bool operator==(const value& left, std::string_view right) {
    return left.is_text() && left.view() == right;
  }
  friend bool operator==(const value& left, const std::string& right) {
    return left == std::string_view(right);
  }
  friend bool operator==(const value& left, const char* right) {
    return left == std::string_view(right);
  }
  friend bool operator==(const value& left, std::int64_t right) {
    return left.is_integer() && left.number() == right;
  }
  friend bool operator==(const value& left, int right) { return left == std::int64_t{right}; }

 private:
  friend class map;
  friend class text_key;

  // Texts of up to 15 bytes are kept in the value itself: nearly all fields of the router's tables
  // are that short. Longer ones are counted objects that all copies share.
  enum class form : std::uint8_t {
    none,
    integer,
    map,
    list,
    record,
    short_text,    // in the value, with its length in the highest bits of the tag
    literal_text,  // never freed
    long_text,
    shared_text,
  };
  static constexpr std::size_t longest_short_text = 15;
  static constexpr unsigned form_shift = 56;
  static constexpr unsigned length_shift = 60;
  struct list_object;
  struct record_object;
  struct long_text_object;
  struct shared_text_object;

  static constexpr std::uint64_t tag_of(form kind, std::size_t length = 0) {
    return std::uint64_t{length} << length_shift | static_cast<std::uint64_t>(kind) << form_shift;
  }
  static value refer_to(std::string_view text);
  value(form kind, counted* object)
      : first_(std::bit_cast<std::int64_t>(object)), tag_(tag_of(kind)) {}

  form held() const { return static_cast<form>(tag_ >> form_shift & 0xf); }
  bool is_counted() const {
    const form kind = held();
    return (kind >= form::map && kind <= form::record) || kind >= form::long_text;
  }
  std::int64_t number() const {
    return std::atomic_ref(const_cast<std::int64_t&>(first_)).load(std::memory_order_relaxed);
  }
  counted* object() const { return std::bit_cast<counted*>(number()); }
  void store(std::int64_t number) {
    std::atomic_ref(first_).store(number, std::memory_order_relaxed);
  }
  std::string_view view() const {
    if (held() != form::short_text) return long_view();
    return {reinterpret_cast<const char*>(this), tag_ >> length_shift};
  }
  std::string_view long_view() const;
  void share(const value& other) {
    first_ = other.number();
    tag_ = other.tag_;
    if (is_counted()) object()->add_user();
  }
  void take(value& other) {
    first_ = other.number();
    tag_ = std::exchange(other.tag_, 0);
  }
  void drop() {
    if (is_counted() && object()->remove_user()) destroy();
  }
  void destroy();

  // The last byte of `tag_`, on a little-endian machine, holds the form. `first_` is the integer or
  // a pointer; a short text fills the 15 bytes before the last one, padded with zeros; a literal
  // has its length below the form.
  std::int64_t first_ = 0;
  std::uint64_t tag_ = 0;
};

static_assert(std::endian::native == std::endian::little && sizeof(value) == 16);

// A key as maps compare it: two words, or a view if it is longer.
class text_key {
 public:
  explicit text_key(std::string_view text) : text_(text) {
    if (text.size() > value::longest_short_text) return;
    const std::size_t in_first = std::min(text.size(), sizeof first_);
    first_ = std::bit_cast<std::int64_t>(bytes_of(text.substr(0, in_first)));
    tag_ = bytes_of(text.substr(in_first)) | value::tag_of(value::form::short_text, text.size());
  }
  std::uint32_t hash() const;
  bool is(const value& key) const {
    if (key.held() == value::form::short_text) return key.first_ == first_ && key.tag_ == tag_;
    return tag_ == 0 && key.view() == text_;
  }

 private:
  friend class value;

  // Up to eight bytes, padded with zeros. They are read in overlapping pieces, because a copy of a
  // length that the compiler does not know takes longer.
  static std::uint64_t bytes_of(std::string_view text) {
    const std::size_t size = text.size();
    if (size == sizeof(std::uint64_t)) return piece<std::uint64_t>(text.data());
    if (size >= sizeof(std::uint32_t)) {
      const std::size_t last = size - sizeof(std::uint32_t);
      return piece<std::uint32_t>(text.data()) |
             std::uint64_t{piece<std::uint32_t>(text.data() + last)} << 8 * last;
    }
    std::uint64_t bytes = 0;
    for (std::size_t at = 0; at < size; ++at) {
      bytes |= std::uint64_t{static_cast<unsigned char>(text[at])} << 8 * at;
    }
    return bytes;
  }
  template <class Word>
  static Word piece(const char* from) {
    Word word = 0;
    std::memcpy(&word, from, sizeof word);
    return word;
  }

  std::int64_t first_ = 0;
  std::uint64_t tag_ = 0;  // 0 if the text is not short
  std::string_view text_;
};

// Text keys in insertion order; larger maps look keys up by hash. A `value` holds a map by
// reference: two values can be the same map.
class map : public counted {
 public:
  enum class order : std::uint8_t { plain, ordered };
  enum class access : std::uint8_t { unlocked, shared };

  explicit map(order kind = order::plain, access threads = access::unlocked);

  // True if inserts come from several threads, so that every look-up takes a lock.
  bool is_locked() const { return guard_ != nullptr; }
  // Only the stale-entry check uses the difference: it does not enter ordered maps.
  bool is_ordered() const { return order_ == order::ordered; }
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(std::string_view key) const;

  // The entry under `key`. Throws `failure` naming the key if there is none.
  value at(std::string_view key, here where = here::current()) const;
  // The entry under `key`, or none.
  value find(std::string_view key) const;
  // The same, but also apart from an entry that holds none.
  std::optional<value> get(std::string_view key) const;
  // The entry itself, or null if there is none. Throws `failure` if the map is shared, because an
  // insert may move its entries.
  const value* look_up(std::string_view key) const;

  // Inserts, or replaces in place. A map that is not shared takes this only before it is published.
  void set(std::string_view key, value content);
  // The same for a key that is a text value.
  void put(const value& key, value content);
  // Makes room for this many entries. Only before the map is published.
  void reserve(std::size_t entries);
  // Overwrites an integer entry with `number`, at any time, from any thread. Throws `failure` if
  // there is no integer entry `key`.
  void update(std::string_view key, std::int64_t number, here where = here::current());
  // Removes `key` if present. Only before the map is published. No phase removes entries; tests do,
  // to make the gaps that phases have to cope with.
  void erase(std::string_view key);
  // Ends the inserts into a shared map, and with them the locking. Call it when no other thread
  // uses the map.
  void freeze();

  // Sets "Visited" to the integer 1, as a new last entry if it is absent; at any time, from any
  // thread.
  void mark_visited();

  // A copy of the entries in order, and of the keys alone.
  std::vector<std::pair<std::string, value>> items() const;
  std::vector<std::string> keys() const;
  // Calls `step` with key and content of each entry in order. In a frozen map both are the entry's
  // own and stay as long as the map.
  template <class Step>
  void for_each(Step step) const;

 private:
  struct entry {
    value key;
    value content;
  };
  struct slot {
    std::uint32_t hash;
    std::uint32_t place;  // position + 1; 0 if free
  };
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  std::shared_lock<std::shared_mutex> reading() const;
  std::unique_lock<std::shared_mutex> writing() const;
  static const value& late_mark();
  bool holds_late_mark() const { return late_mark_.load(std::memory_order_relaxed); }
  std::size_t position(const text_key& key) const;
  std::size_t guessed_position(const text_key& key) const;
  const value* find_here(std::string_view key) const;
  std::size_t slot_of(const text_key& key, std::uint32_t hash) const;
  void append(const text_key& sought, value key, value content);
  void enter(std::size_t at, const text_key& key);
  void rebuild_index(std::size_t entries);
  template <class Step>
  void walk(Step step) const;

  // The position at which the last key was found. The checks ask for the rows in the order in which
  // the router lists them, so the next key is often there or right behind. Only a guess.
  mutable std::atomic<std::uint32_t> last_found_ = 0;
  std::atomic<bool> late_mark_ = false;  // "Visited" was set on a map that was published without it
  order order_;
  std::vector<entry> entries_;  // frozen once published; guarded by guard_ if that is set
  std::vector<slot> index_;     // open addressing into entries_; empty if small
  std::unique_ptr<std::shared_mutex> guard_;
};

template <class Step>
void map::for_each(Step step) const {
  if (!guard_) {
    walk(step);
    return;
  }
  for (const auto& [key, content] : items()) step(std::string_view(key), content);
}

template <class Step>
void map::walk(Step step) const {
  bool is_marked = holds_late_mark();
  for (const entry& each : entries_) {
    if (is_marked && each.key == "Visited") {
      step(each.key.view(), late_mark());
      is_marked = false;
    } else {
      step(each.key.view(), each.content);
    }
  }
  if (is_marked) step(std::string_view("Visited"), late_mark());
}

value make_map(std::size_t expected_entries = 0);
value make_ordered_map();
// A map that takes inserts from several threads at once.
value make_shared_map(map::order kind = map::order::ordered);
value make_list(value_list items = {});

// `content` for the text of a failure: a text is quoted, and a long one is cut.
std::string brief(const value& content);
std::string brief_text(std::string_view text);

}  // namespace tessel
