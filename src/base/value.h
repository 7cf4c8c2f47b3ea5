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

#include <atomic>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/here.h"

namespace tessel {

class value;
class map;
class record;
class row_keys;
using value_list = std::vector<value>;

enum class value_kind : std::uint8_t { none, integer, text, map, list, record };

// A text as a key, in the form in which maps hold and compare keys: two words. A short text, up to
// 15 bytes, is in the words; they refer to a longer one, which must stay as long as the key is
// used. The compiler makes the key of a literal, so a constant field name costs nothing.
class text_key {
 public:
  text_key(std::string_view text) {
    if (text.size() <= longest_short) {
      first_ = first_word(text);
      tag_ = second_word(text) | tag_of(form::short_text, text.size());
    } else {
      text_ = text.data();
      tag_ = tag_of(form::borrowed_text) | text.size();
    }
  }
  text_key(const std::string& text) : text_key(std::string_view(text)) {}
  template <class Pointer>
  requires std::same_as<Pointer, const char*> text_key(const Pointer& text)
      : text_key(std::string_view(text)) {}
  template <std::size_t Size>
  consteval text_key(const char (&text)[Size]) {
    constexpr std::size_t length = Size - 1;
    if constexpr (length <= longest_short) {
      std::uint64_t words[2] = {0, 0};
      for (std::size_t at = 0; at < length; ++at) {
        words[at / word] |= std::uint64_t{static_cast<unsigned char>(text[at])} << 8 * (at % word);
      }
      first_ = words[0];
      tag_ = words[1] | tag_of(form::short_text, length);
    } else {
      text_ = text;
      tag_ = tag_of(form::literal_text) | length;
    }
  }

  bool is_short() const { return held() == form::short_text; }
  std::string_view text() const& {
    if (is_short()) return {reinterpret_cast<const char*>(this), tag_ >> length_shift};
    return {text_, tag_ & most_length};
  }
  std::uint32_t hash() const;

 private:
  friend class value;
  friend class map;
  friend value make_text(std::initializer_list<std::string_view> parts);

  // How a value, or a key, holds its content. Counted objects are the last forms.
  enum class form : std::uint8_t {
    none,
    integer,
    short_text,     // in the words, with its length in the highest bits of the tag
    literal_text,   // never freed
    borrowed_text,  // only of keys: somebody else's
    long_text,
    shared_text,
    map,
    list,
    record,
  };
  static constexpr std::size_t word = sizeof(std::uint64_t);
  static constexpr std::size_t longest_short = 15;
  static constexpr unsigned form_shift = 56;
  static constexpr unsigned length_shift = 60;
  static constexpr std::uint64_t most_length = (std::uint64_t{1} << form_shift) - 1;

  static constexpr std::uint64_t tag_of(form kind, std::size_t length = 0) {
    return std::uint64_t{length} << length_shift | static_cast<std::uint64_t>(kind) << form_shift;
  }
  form held() const { return static_cast<form>(tag_ >> form_shift & 0xf); }

  // The first eight bytes of a short text and the others, padded with zeros. They are read in
  // overlapping pieces, because a copy of a length that the compiler does not know takes longer.
  static std::uint64_t first_word(std::string_view text) {
    const std::size_t size = text.size();
    if (size >= word) return piece<std::uint64_t>(text.data());
    constexpr std::size_t half = sizeof(std::uint32_t);
    if (size >= half) {
      const std::size_t last = size - half;
      return piece<std::uint32_t>(text.data()) |
             std::uint64_t{piece<std::uint32_t>(text.data() + last)} << 8 * last;
    }
    if (size == 0) return 0;
    const std::size_t middle = size / 2;
    return piece<std::uint8_t>(text.data()) |
           std::uint64_t{piece<std::uint8_t>(text.data() + middle)} << 8 * middle |
           std::uint64_t{piece<std::uint8_t>(text.data() + size - 1)} << 8 * (size - 1);
  }
  static std::uint64_t second_word(std::string_view text) {
    const std::size_t size = text.size();
    if (size <= word) return 0;
    return piece<std::uint64_t>(text.data() + size - word) >> 8 * (2 * word - size);
  }
  template <class Word>
  static Word piece(const char* from) {
    Word read = 0;
    std::memcpy(&read, from, sizeof read);
    return read;
  }

  // The last byte of `tag_`, on a little-endian machine, holds the form. A short text fills the 15
  // bytes before it; of another text the tag has the length below the form.
  union {
    std::uint64_t first_;
    const char* text_;
  };
  std::uint64_t tag_;
};

static_assert(std::endian::native == std::endian::little && sizeof(text_key) == 16);

// What several values share, with the number of these values.
class counted {
 public:
  counted() = default;
  counted(const counted&) = delete;
  counted& operator=(const counted&) = delete;
  void add_user() { users_.fetch_add(1, std::memory_order_relaxed); }
  // True if that was the last one. The only user needs no exchange with others.
  bool remove_user() {
    return users_.load(std::memory_order_acquire) == 1 ||
           users_.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }

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
  bool is_text() const { return held() >= form::short_text && held() <= form::shared_text; }
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
  value at(text_key key, here where = here::current()) const;
  // The entry, or nothing. Throws `failure` as `contains` does.
  std::optional<value> get(text_key key, here where = here::current()) const;
  // The same as `at` without a copy, good until the next insert into the map, which must not be a
  // shared one.
  const value& in(text_key key, here where = here::current()) const;
  // True if a map holds `key`. Throws `failure` if this is not a map, so that a text or ERROR in
  // the place of a store is never searched.
  bool contains(text_key key, here where = here::current()) const;

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
  friend class row_keys;
  friend value make_list(value_list items);
  friend value make_text(std::initializer_list<std::string_view> parts);

  // Nearly all fields of the router's tables are short texts, which need no memory of their own.
  // Longer ones are counted objects that all copies share.
  using form = text_key::form;
  struct list_object;
  struct record_object;
  struct long_text_object;
  struct shared_text_object;

  static constexpr std::uint64_t tag_of(form kind) { return text_key::tag_of(kind); }
  static value refer_to(std::string_view text);
  // A value that owns what it needs of the key.
  static value of_key(const text_key& key);
  value(form kind, counted* object)
      : first_(std::bit_cast<std::int64_t>(object)), tag_(tag_of(kind)) {}

  form held() const { return static_cast<form>(tag_ >> text_key::form_shift & 0xf); }
  bool is_counted() const { return held() >= form::long_text; }
  bool is(const text_key& key) const {
    if (key.is_short()) return is_short(key);
    return is_text() && held() != form::short_text && view() == key.text();
  }
  bool is_short(text_key key) const {
    return static_cast<std::uint64_t>(first_) == key.first_ && tag_ == key.tag_;
  }
  // Where `key` is in a list of keys; `count` if it is not there.
  static std::size_t place_of(text_key key, const value* keys, std::size_t count) {
    std::size_t at = 0;
    if (key.is_short()) {
      while (at < count && !keys[at].is_short(key)) ++at;
    } else {
      while (at < count && !keys[at].is(key)) ++at;
    }
    return at;
  }
  std::int64_t number() const { return std::atomic_ref(first_).load(std::memory_order_relaxed); }
  // Null for an empty map that nobody has asked for.
  counted* object() const {
    return std::bit_cast<counted*>(std::atomic_ref(first_).load(std::memory_order_acquire));
  }
  void store(std::int64_t number) {
    std::atomic_ref(first_).store(number, std::memory_order_relaxed);
  }
  std::string_view view() const {
    if (held() != form::short_text) return long_view();
    return {reinterpret_cast<const char*>(this), tag_ >> text_key::length_shift};
  }
  std::string_view long_view() const;
  void share(const value& other) {
    tag_ = other.tag_;
    if (!other.is_counted()) {
      first_ = other.number();
      return;
    }
    counted* shared = other.object();
    if (shared == nullptr) shared = other.ask_for_map();
    shared->add_user();
    first_ = std::bit_cast<std::int64_t>(shared);
  }
  void take(value& other) {
    first_ = other.number();
    tag_ = std::exchange(other.tag_, 0);
  }
  void drop() {
    if (!is_counted()) return;
    counted* const held_object = object();
    if (held_object != nullptr && held_object->remove_user()) destroy();
  }
  void destroy();
  counted* ask_for_map() const;
  // The map, or null if nobody has asked for it or this is not a map.
  const map* made_map() const;
  [[noreturn]] static void no_entry(const text_key& key, const value& found, here where);
  [[noreturn]] static void no_map(const value& found, here where);
  [[noreturn]] static void no_map_to_search(const text_key& key, const value& found, here where);

  // As in text_key. `first_` may also be the integer or a pointer. An empty map, of which the
  // tables have hundreds of thousands, is made when it is asked for or shared; until then the
  // pointer is null.
  alignas(8) mutable std::int64_t first_ = 0;
  std::uint64_t tag_ = 0;
};

static_assert(sizeof(value) == 16);

// Text keys in insertion order; larger maps look keys up by hash. A `value` holds a map by
// reference: two values can be the same map. A row, made with `make_row`, shares its keys with all
// rows of its sort until another key joins them or one is erased; nothing else tells it from any
// other map.
class map : public counted {
 public:
  enum class order : std::uint8_t { plain, ordered };

  map() : map(order::plain) {}
  ~map();

  // True if inserts come from several threads, so that every look-up takes a lock.
  bool is_locked() const { return access_ == access::shared; }
  // Only the stale-entry check uses the difference: it does not enter ordered maps.
  bool is_ordered() const { return order_ == order::ordered; }
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(text_key key) const;

  // The entry under `key`. Throws `failure` naming the key if there is none.
  value at(text_key key, here where = here::current()) const;
  // The entry under `key`, or none.
  value find(text_key key) const;
  // The same, but also apart from an entry that holds none.
  std::optional<value> get(text_key key) const;
  // The entry itself, or null if there is none. Throws `failure` if the map is shared, because an
  // insert may move its entries.
  const value* look_up(text_key key) const;

  // Inserts, or replaces in place. A map that is not shared takes this only before it is published.
  void set(text_key key, value content);
  // The same for a key that is a text value.
  void put(const value& key, value content);
  // Makes room for this many entries. Only before the map is published.
  void reserve(std::size_t entries);
  // Overwrites an integer entry with `number`, at any time, from any thread. Throws `failure` if
  // there is no integer entry `key`.
  void update(text_key key, std::int64_t number, here where = here::current());
  // Removes `key` if present. Only before the map is published. No phase removes entries; tests do,
  // to make the gaps that phases have to cope with.
  void erase(text_key key);
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
  // The keys of a row, and its content under one of them. Null for any other map, also for a row
  // that got "Visited" late.
  const row_keys* shared_keys() const;
  const value& content_at(std::size_t position) const { return contents()[position]; }

 private:
  friend class value;
  friend value make_map(std::size_t expected_entries);
  friend value make_ordered_map();
  friend value make_shared_map(map::order kind);
  friend value make_row(const row_keys& keys, std::span<value> contents, map::order kind);

  enum class access : std::uint8_t { unlocked, shared, frozen };
  enum class shape : std::uint8_t { small, indexed, row };
  struct block;
  struct shared_map;
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  explicit map(order kind, access threads = access::unlocked) : order_(kind), access_(threads) {}
  map(const row_keys& keys, std::span<value> contents, order kind);
  static map* make(order kind, access threads = access::unlocked);
  static value held(map* made);
  static void destroy(map* which);

  std::shared_lock<std::shared_mutex> reading() const;
  std::unique_lock<std::shared_mutex> writing() const;
  std::shared_mutex& guard() const;
  static const value& late_mark();
  bool holds_late_mark() const { return late_mark_.load(std::memory_order_relaxed); }
  bool is_row() const { return shape_ == shape::row; }
  block* own_block() const;
  const value* contents() const;
  value* contents() { return const_cast<value*>(std::as_const(*this).contents()); }
  inline std::size_t position(const text_key& key) const;
  inline std::size_t guessed_position(const text_key& key) const;
  std::size_t indexed_position(const text_key& key, std::uint32_t hash) const;
  inline const value* find_here(const text_key& key) const;
  bool copy_to(value& found, text_key key) const;
  bool copy_here(value& found, const text_key& key) const;
  inline const std::uint32_t* slot_of(const text_key& key, std::uint32_t hash) const;
  void enter(std::size_t at, std::uint32_t hash);
  void append(value key, std::uint32_t hash, value content);
  void insert_or_replace(const text_key& sought, const value* key, value content);
  void move_into(std::size_t capacity);
  template <class Step>
  void walk(Step step) const;

  // The position at which the last key was found. The checks ask for the rows in the order in which
  // the router lists them, so the next key is often there or right behind. Only a guess.
  mutable std::atomic<std::uint32_t> last_found_ = 0;
  std::uint32_t size_ = 0;
  std::atomic<bool> late_mark_ = false;  // "Visited" was set on a map that was published without it
  order order_;
  access access_;
  shape shape_ = shape::small;
  // Of a row, the shared keys; the contents follow the map in the same piece of memory. Otherwise
  // the keys in the map's own block, which also has the contents and the index. Frozen once
  // published; guarded if the map is shared.
  const value* keys_ = nullptr;
};

static_assert(sizeof(map) == 24);

// The keys of a sort of rows. Make them once, and never destroy them:
//
//   static const row_keys& keys = *new row_keys{"gport", "is_active"};
//   value row = make_row(keys, cells[1], cells[2]);
class row_keys {
 public:
  static constexpr std::size_t most = 16;

  // Different keys, at most `most`, each a text that is never freed. Throws `failure` for any
  // others.
  row_keys(std::initializer_list<std::string_view> keys);
  std::size_t size() const { return size_; }
  std::string_view operator[](std::size_t at) const { return keys_[at].view(); }
  // Where `key` is; size() if it is not there.
  std::size_t position(text_key key) const { return value::place_of(key, keys_, size_); }

 private:
  friend class map;
  value keys_[most];  // first, because a row refers to them
  std::size_t size_ = 0;
};

static_assert(std::is_standard_layout_v<row_keys>);

inline const row_keys* map::shared_keys() const {
  if (!is_row() || holds_late_mark()) return nullptr;
  return reinterpret_cast<const row_keys*>(keys_);
}

inline const map* value::made_map() const {
  return is_map() ? static_cast<const map*>(object()) : nullptr;
}

inline value value::at(text_key key, here where) const {
  value found;
  const map* const entries = made_map();
  if (entries == nullptr || !entries->copy_to(found, key)) no_entry(key, *this, where);
  return found;
}

inline const value& value::in(text_key key, here where) const {
  const map* const entries = made_map();
  const value* const found = entries == nullptr ? nullptr : entries->look_up(key);
  if (found == nullptr) no_entry(key, *this, where);
  return *found;
}

inline bool value::contains(text_key key, here where) const {
  if (!is_map()) no_map_to_search(key, *this, where);
  const map* const entries = made_map();
  return entries != nullptr && entries->contains(key);
}

inline std::optional<value> value::get(text_key key, here where) const {
  if (!is_map()) no_map_to_search(key, *this, where);
  const map* const entries = made_map();
  return entries == nullptr ? std::nullopt : entries->get(key);
}

inline map& value::as_map(here where) const {
  if (!is_map()) no_map(*this, where);
  counted* const entries = object();
  return *static_cast<map*>(entries == nullptr ? ask_for_map() : entries);
}

template <class Step>
void map::for_each(Step step) const {
  if (!is_locked()) {
    walk(step);
    return;
  }
  for (const auto& [key, content] : items()) step(std::string_view(key), content);
}

template <class Step>
void map::walk(Step step) const {
  bool is_marked = holds_late_mark();
  const value* content = contents();
  for (const value* key = keys_; key != keys_ + size_; ++key, ++content) {
    if (is_marked && *key == "Visited") {
      step(key->view(), late_mark());
      is_marked = false;
    } else {
      step(key->view(), *content);
    }
  }
  if (is_marked) step(std::string_view("Visited"), late_mark());
}

value make_map(std::size_t expected_entries = 0);
value make_ordered_map();
// A map that takes inserts from several threads at once.
value make_shared_map(map::order kind = map::order::ordered);
// A map with these keys and contents, which are moved from. Throws `failure` if their numbers
// differ.
value make_row(const row_keys& keys, std::span<value> contents,
               map::order kind = map::order::plain);
template <class... Contents>
requires(std::convertible_to<Contents, value>&&...) value
    make_row(const row_keys& keys, Contents&&... contents) {
  value list[] = {value(std::forward<Contents>(contents))...};
  return make_row(keys, std::span<value>(list));
}
value make_list(value_list items = {});
// The parts, one after the other, as one text.
value make_text(std::initializer_list<std::string_view> parts);

// `content` for the text of a failure: a text is quoted, and a long one is cut.
std::string brief(const value& content);
std::string brief_text(std::string_view text);

}  // namespace tessel
