#include "checks/store_part.h"

#include "base/failure.h"
#include "base/records.h"

namespace tessel {

template <class LookUp>
store_part store_part::looked_up(LookUp look_up) const {
  if (!failed_.empty()) return *this;
  try {
    return store_part(look_up());
  } catch (const failure& error) {
    store_part missing;
    missing.failed_ = error.what();
    return missing;
  }
}

store_part store_part::at(std::string_view key) const {
  return looked_up([&] { return content_.at(key); });
}

store_part store_part::field(std::string_view name) const {
  return looked_up([&] { return content_.as_record().get(name); });
}

const value& store_part::get(here where) const {
  if (!failed_.empty()) throw failure(failed_, where);
  return content_;
}

}  // namespace tessel
