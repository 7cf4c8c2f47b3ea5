// The three records that hold what the configuration says about a bundle.
//
//   auto bundle = std::make_shared<Bundles>();
//   bundle->get("lagid");                    // "Not set"
//   bundle->expect("lagid", "0x1");          // stored; "0x1" agrees from now on
//   bundle->expect("lagid", "0x2");          // returns "0x1", what the record holds
//   bundle->get("lag");                      // throws failure: no field 'lag'
//
// Threads: each operation is one step under the record's own lock. Any thread may call any of them.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/brief_mutex.h"
#include "base/value.h"

namespace tessel {

class record {
 public:
  virtual ~record() = default;
  record& operator=(const record&) = delete;

  // Throws `failure` with the field's name if it was never declared or set.
  value get(text_key field, here where = here::current()) const;
  // Sets or adds a field.
  void set(text_key field, value content);

  // Applies the expected-value rule in one step: a field that is not set takes `reported`; a field
  // that is set must equal `reported`. Returns nothing if they agree, otherwise what the record
  // holds. Throws `failure` if there is no such field.
  std::optional<value> expect(text_key field, const value& reported, here where = here::current());

  // Calls `step` with the field under the lock, so that a test and a write are one step. Throws
  // `failure` if there is no such field.
  template <class Step>
  auto in_one_step(text_key field, Step step, here where = here::current()) {
    const std::lock_guard lock(mutex_);
    return step(slot(field, where));
  }

  // The fields in declaration order, the form in which they are serialised.
  virtual value fields_as_map() const;

 protected:
  // The declared fields, which all records of a sort share, and the content of each. Throws
  // `failure` if their numbers differ.
  record(const row_keys& fields, value_list contents);
  record(const record& other);

 private:
  value* content_of(const text_key& field);
  value& slot(const text_key& field, here where);

  mutable brief_mutex mutex_;
  const row_keys& fields_;
  value_list contents_;                        // guarded by mutex_
  std::vector<std::pair<value, value>> more_;  // fields that were set, not declared; the same
};

// One physical member port: name, ifh, pp_port, npu_id, npu_core, voq, memid, nodename, mtu,
// vlan_domain. It is copied into its bundle, so that the store keeps what the forwarding object
// said.
class memberInfo : public record {
 public:
  memberInfo();
  memberInfo(const memberInfo&) = default;
};

// One sub-interface of a bundle: ifh, lagid, llif, glif, rif, is_l2, delPending, encap.
class subBundles : public record {
 public:
  subBundles();
};

// One main bundle: ifh, lagid, llif, glif, rif, vlan_domain, mac, mtu, is_l2, sub_bundles, members,
// delPending, untagged. Serialised as one entry "Data" that holds the fields.
class Bundles : public record {
 public:
  static constexpr std::string_view ODICT = "Data";
  Bundles();
  value fields_as_map() const override;
};

}  // namespace tessel
