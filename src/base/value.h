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
#include <cstdint>
#include <memory>
#include <mutex>
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

class value {
 public:
  value() = default;
  value(int number) : value(std::int64_t{number}) {}
  value(std::int64_t number) : kind_(value_kind::integer), number_(number) {}
  value(const char* text) : value(std::string(text)) {}
  value(std::string_view text) : value(std::string(text)) {}
  value(std::string text);
  value(std::shared_ptr<map> entries);
  value(std::shared_ptr<value_list> items);
  value(std::shared_ptr<record> object);

  value(const value& other) : kind_(other.kind_), number_(other.number()), object_(other.object_) {}
  // The moved-from value has kind none.
  value(value&& other) noexcept
      : kind_(std::exchange(other.kind_, value_kind::none)),
        number_(other.number()),
        object_(std::move(other.object_)) {}
  value& operator=(const value& other);
  value& operator=(value&& other) noexcept;
  ~value() = default;

  value_kind kind() const { return kind_; }
  bool is_integer() const { return kind_ == value_kind::integer; }
  bool is_text() const { return kind_ == value_kind::text; }
  bool is_map() const { return kind_ == value_kind::map; }
  bool is_list() const { return kind_ == value_kind::list; }
  bool is_record() const { return kind_ == value_kind::record; }

  // False for none, the integer 0, and an empty text, map or list.
  bool truthy() const;

  // The content as one kind. Each throws `failure`, naming what it found, if the value is another
  // kind.
  std::int64_t as_integer(here where = here::current()) const;
  const std::string& as_text(here where = here::current()) const;
  std::shared_ptr<const std::string> as_shared_text(here where = here::current()) const;
  map& as_map(here where = here::current()) const;
  value_list& as_list(here where = here::current()) const;
  record& as_record(here where = here::current()) const;

  // The entry of a map under `key`. Throws `failure` if there is no such key or this is not a map.
  value at(std::string_view key, here where = here::current()) const;
  // True if a map holds `key`. Throws `failure` if this is not a map, so that a text or ERROR in
  // the place of a store is never searched.
  bool contains(std::string_view key, here where = here::current()) const;

  // Compares kind and content; a record equals only itself.
  friend bool operator==(const value& left, const value& right);
  friend bool operator==(const value& left, std::string_view right) {
    return left.is_text() && left.as_text() == right;
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
  std::int64_t number() const {
    return std::atomic_ref(const_cast<std::int64_t&>(number_)).load(std::memory_order_relaxed);
  }

  value_kind kind_ = value_kind::none;
  std::int64_t number_ = 0;
  std::shared_ptr<void> object_;
};

// Text keys in insertion order; larger maps look keys up by hash. A `value` holds a map by
// reference: two values can be the same map.
class map {
 public:
  enum class order : std::uint8_t { plain, ordered };
  enum class access : std::uint8_t { frozen, shared };

  explicit map(order kind = order::plain, access threads = access::frozen);

  // Only the stale-entry check uses the difference: it does not enter ordered maps.
  bool is_ordered() const { return order_ == order::ordered; }
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(std::string_view key) const;

  // The entry under `key`. Throws `failure` naming the key if there is none.
  value at(std::string_view key, here where = here::current()) const;
  // The entry under `key`, or none.
  value find(std::string_view key) const;

  // Inserts, or replaces in place. A map that is not shared takes this only before it is published.
  void set(std::string_view key, value content);
  // Overwrites an integer entry with `number`, at any time, from any thread. Throws `failure` if
  // there is no integer entry `key`.
  void update(std::string_view key, std::int64_t number, here where = here::current());
  // Removes `key` if present. Only before the map is published. No phase removes entries; tests do,
  // to make the gaps that phases have to cope with.
  void erase(std::string_view key);

  // Sets "Visited" to the integer 1, as a new last entry if it is absent; at any time, from any
  // thread.
  void mark_visited();

  // A copy of the entries in order, and of the keys alone.
  std::vector<std::pair<std::string, value>> items() const;
  std::vector<std::string> keys() const;

 private:
  struct entry {
    std::string key;
    value content;
  };
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  std::shared_lock<std::shared_mutex> reading() const;
  std::unique_lock<std::shared_mutex> writing() const;
  bool holds_late_mark() const;
  std::size_t position(std::string_view key) const;
  std::size_t slot_of(std::string_view key) const;
  void rebuild_index();

  std::vector<entry> entries_;        // frozen once published; guarded by guard_ if that is set
  std::vector<std::uint32_t> index_;  // open addressing into entries_, position + 1; empty if small
  std::unique_ptr<std::shared_mutex> guard_;
  std::atomic<bool> late_mark_ = false;  // "Visited" was set on a map that was published without it
  order order_;
};

value make_map();
value make_ordered_map();
// A map that takes inserts from several threads at once.
value make_shared_map(map::order kind = map::order::ordered);
value make_list(value_list items = {});

// `content` for the text of a failure: a text is quoted, and a long one is cut.
std::string brief(const value& content);
std::string brief_text(std::string_view text);

}  // namespace tessel
