// What the snapshot says of objects that are known only once all of it has been read: the
// forwarding layer knows handles, the chips LAG ids, neither knows names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "desk/model/run.h"

namespace desk {

// How a chip names a member of a LAG: an older one by its id in the LAG, Jericho2 by the global
// port, which ends with the system port.
enum class member_name : std::uint8_t { id, system_port };

class lag_holders;

// The largest router gives one and a half million, so each takes few bytes. Not for two threads.
class pending_values {
 public:
  // Of the bundle or sub-bundle with this handle.
  void add(text_id handle, field what, source from, std::int16_t node, std::int16_t npu,
           text_id text) {
    value& made = by_handle_.emplace_back();
    made.key = handle;
    made.of = {what, from, node, npu, text};
  }
  // Of the member with its own handle, in the bundle with this one.
  void add_of_member(text_id handle, text_id member, field what, source from, std::int16_t node,
                     std::int16_t npu, text_id text) {
    value_of_member& made = of_members_.emplace_back();
    made.key = handle;
    made.member = member;
    made.of = {what, from, node, npu, text};
  }
  // A chip has this LAG.
  void add_lag(text_id lag, std::int16_t node, std::int16_t npu) {
    open_chip({node, npu});
    lags_.push_back({lag, 0, member_name::id, true});
    ++open_.lags;
  }
  // This LAG of a chip has a member of that name.
  void add_lag_member(text_id lag, std::int16_t node, std::int16_t npu, member_name by,
                      text_id name);

  // Gives each value to all objects that it is of, in the order in which they came, those with a
  // handle first; of chips that list the same, all values of one line together. What is of none
  // is dropped. A LAG or a member in a chip becomes the value `present`; where many objects have
  // the same LAG id or name, it is of none, with a mark.
  void attach(run& into, text_id present);

 private:
  struct value {
    // The text of a handle while the dumps are read; from find_objects on, in its place, the number
    // of the object, or one that none has: there are too many values for both.
    std::uint32_t key = 0;
    cell of;
  };
  struct value_of_member : value {
    text_id member = 0;  // its handle; the key begins as that of the bundle
  };
  struct chip {
    std::int16_t node = no_place;
    std::int16_t npu = no_place;
    bool operator==(const chip&) const = default;
  };
  struct chip_lag {
    text_id lag;
    std::uint32_t members;  // so many of the next names are of its members
    member_name by;
    bool is_entry;  // the LAG itself, not only members of it
    bool operator==(const chip_lag&) const = default;
  };
  // Chips that follow each other and list the same, as those of one family mostly do: so many of
  // the next chips, and the LAGs and names of one of them.
  struct chips_alike {
    std::size_t chips = 0;
    std::size_t lags = 0;
    std::size_t names = 0;
  };

  void open_chip(chip at) {
    if (at == chip_) return;
    close_chip();
    chip_ = at;
  }
  void close_chip();
  [[nodiscard]] bool is_like_last() const;
  void find_objects(const run& of);
  // Calls `take` with an object and the chips that list it.
  template <class Take>
  void for_each_in_chips(lag_holders& holders, Take take) const;

  // None of them moves when it grows.
  std::deque<value> by_handle_;
  std::deque<value_of_member> of_members_;
  std::deque<chip_lag> lags_;
  std::deque<text_id> names_;
  std::deque<chips_alike> alike_;
  std::vector<chip> chips_;
  chip chip_;         // whose lines are being read
  chips_alike open_;  // what it has listed so far
};

}  // namespace desk
