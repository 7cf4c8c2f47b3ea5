// A part of a store that many checks need and that is looked up once for all of them.
//
//   const store_part objects = store_part(st().DPA.get()).at("0/0/CPU0");
//   const store_part lagport = objects.at("lagport");     // fails not here
//   lagport.get()                                         // throws failure: no key '0/0/CPU0'
//
// Only for stores that no longer change.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "base/here.h"
#include "base/value.h"

namespace tessel {

// A gap in a store has to fail in each check that needs what is missing, and in its own handler. So
// a look-up that fails is kept like one that succeeds. Constant once made: any thread.
class store_part {
 public:
  store_part() = default;
  explicit store_part(value content) : content_(std::move(content)) {}

  // The entry under `key`, or what failed on the way to it.
  store_part at(std::string_view key) const;
  // The same for a record's field, which must be one that no check sets.
  store_part field(std::string_view name) const;
  // Throws the `failure` that the look-ups met, as if they were made at `where`.
  const value& get(here where = here::current()) const;
  // The content, or null if a look-up failed.
  const value* found() const { return failed_.empty() ? &content_ : nullptr; }

 private:
  template <class LookUp>
  store_part looked_up(LookUp look_up) const;

  value content_;
  std::string failed_;  // the text of the failure
};

}  // namespace tessel
