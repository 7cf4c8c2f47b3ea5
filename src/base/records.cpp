#include "base/records.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/constants.h"
#include "base/failure.h"

namespace tessel {

namespace {

// The field's content, or null.
template <class Fields>
auto* content_of(Fields& fields, std::string_view field) {
  const text_key sought(field);
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [&sought](const auto& each) { return sought.is(each.name); });
  return found == fields.end() ? nullptr : &found->content;
}

template <class Fields>
auto& content_in(Fields& fields, std::string_view field, here where) {
  auto* content = content_of(fields, field);
  if (content == nullptr) throw failure(fmt::format("no field {}", brief_text(field)), where);
  return *content;
}

}  // namespace

record::record(const std::vector<std::pair<std::string, value>>& fields) {
  fields_.reserve(fields.size());
  for (const auto& [name, content] : fields) fields_.push_back({name, content});
}

record::record(const record& other) {
  const std::lock_guard lock(other.mutex_);
  fields_ = other.fields_;
}

value& record::slot(std::string_view field, here where) {
  return content_in(fields_, field, where);
}

value record::get(std::string_view field, here where) const {
  const std::lock_guard lock(mutex_);
  return content_in(fields_, field, where);
}

void record::set(std::string_view field, value content) {
  const std::lock_guard lock(mutex_);
  if (value* held = content_of(fields_, field)) {
    *held = std::move(content);
  } else {
    fields_.push_back({field, std::move(content)});
  }
}

std::optional<value> record::expect(std::string_view field, const value& reported, here where) {
  return in_one_step(
      field,
      [&reported](value& held) -> std::optional<value> {
        if (held == DEFAULT) held = reported;
        if (held == reported) return std::nullopt;
        return held;
      },
      where);
}

value record::fields_as_map() const {
  value fields = make_ordered_map();
  const std::lock_guard lock(mutex_);
  fields.as_map().reserve(fields_.size());
  for (const named_value& each : fields_) fields.as_map().put(each.name, each.content);
  return fields;
}

memberInfo::memberInfo()
    : record({{"name", DEFAULT},
              {"ifh", DEFAULT},
              {"pp_port", DEFAULT},
              {"npu_id", DEFAULT},
              {"npu_core", DEFAULT},
              {"voq", DEFAULT},
              {"memid", DEFAULT},
              {"nodename", DEFAULT},
              {"mtu", DEFAULT},
              {"vlan_domain", make_map()}}) {}

subBundles::subBundles()
    : record({{"ifh", DEFAULT},
              {"lagid", DEFAULT},
              {"llif", DEFAULT},
              {"glif", DEFAULT},
              {"rif", DEFAULT},
              {"is_l2", DEFAULT},
              {"delPending", DEFAULT},
              {"encap", make_list()}}) {}

// A shared map, because the nodes' threads set their VLAN domains in it one after the other.
Bundles::Bundles()
    : record({{"ifh", DEFAULT},
              {"lagid", DEFAULT},
              {"llif", DEFAULT},
              {"glif", DEFAULT},
              {"rif", DEFAULT},
              {"vlan_domain", make_shared_map(map::order::plain)},
              {"mac", DEFAULT},
              {"mtu", DEFAULT},
              {"is_l2", DEFAULT},
              {"sub_bundles", make_map()},
              {"members", make_map()},
              {"delPending", DEFAULT},
              {"untagged", DEFAULT}}) {}

value Bundles::fields_as_map() const {
  value wrapped = make_ordered_map();
  wrapped.as_map().set(ODICT, record::fields_as_map());
  return wrapped;
}

}  // namespace tessel
