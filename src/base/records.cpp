#include "base/records.h"

#include <fmt/format.h>

#include <utility>

#include "base/constants.h"
#include "base/failure.h"

namespace tessel {

namespace {

const value unset = DEFAULT;

const row_keys& fields_of_member() {
  static const row_keys& fields =
      *new row_keys{"name", "ifh",   "pp_port",  "npu_id", "npu_core",
                    "voq",  "memid", "nodename", "mtu",    "vlan_domain"};
  return fields;
}

const row_keys& fields_of_sub_bundle() {
  static const row_keys& fields =
      *new row_keys{"ifh", "lagid", "llif", "glif", "rif", "is_l2", "delPending", "encap"};
  return fields;
}

const row_keys& fields_of_bundle() {
  static const row_keys& fields =
      *new row_keys{"ifh", "lagid", "llif",        "glif",    "rif",        "vlan_domain", "mac",
                    "mtu", "is_l2", "sub_bundles", "members", "delPending", "untagged"};
  return fields;
}

}  // namespace

record::record(const row_keys& fields, value_list contents)
    : fields_(fields), contents_(std::move(contents)) {
  if (contents_.size() == fields_.size()) return;
  throw failure(fmt::format("{} contents for {} fields", contents_.size(), fields_.size()));
}

record::record(const record& other) : fields_(other.fields_) {
  const std::lock_guard lock(other.mutex_);
  contents_ = other.contents_;
  more_ = other.more_;
}

// Null if there is no such field.
value* record::content_of(const text_key& field) {
  const std::size_t place = fields_.position(field);
  if (place < contents_.size()) return &contents_[place];
  for (auto& [name, content] : more_) {
    if (name == field.text()) return &content;
  }
  return nullptr;
}

value& record::slot(const text_key& field, here where) {
  value* const content = content_of(field);
  if (content != nullptr) return *content;
  throw failure(fmt::format("no field {}", brief_text(field.text())), where);
}

value record::get(text_key field, here where) const {
  const std::lock_guard lock(mutex_);
  return const_cast<record*>(this)->slot(field, where);
}

void record::set(text_key field, value content) {
  const std::lock_guard lock(mutex_);
  if (value* const held = content_of(field)) {
    *held = std::move(content);
  } else {
    more_.emplace_back(field.text(), std::move(content));
  }
}

std::optional<value> record::expect(text_key field, const value& reported, here where) {
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
  const std::lock_guard lock(mutex_);
  value_list copy = contents_;
  value fields = make_row(fields_, copy, map::order::ordered);
  for (const auto& [name, content] : more_) fields.as_map().put(name, content);
  return fields;
}

memberInfo::memberInfo()
    : record(fields_of_member(),
             {unset, unset, unset, unset, unset, unset, unset, unset, unset, make_map()}) {}

subBundles::subBundles()
    : record(fields_of_sub_bundle(),
             {unset, unset, unset, unset, unset, unset, unset, make_list()}) {}

// A shared map, because the nodes' threads set their VLAN domains in it one after the other.
Bundles::Bundles()
    : record(fields_of_bundle(),
             {unset, unset, unset, unset, unset, make_shared_map(map::order::plain), unset, unset,
              unset, make_map(), make_map(), unset, unset}) {}

value Bundles::fields_as_map() const {
  value wrapped = make_ordered_map();
  wrapped.as_map().set(ODICT, record::fields_as_map());
  return wrapped;
}

}  // namespace tessel
