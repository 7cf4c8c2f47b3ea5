// What the checks of the consistency pass read of a node and of a bundle again and again. The pass
// makes both once, because it compares every object with every node: a hundred thousand checks that
// each walk from the root of every store would mostly look up the same few names.
//
// The stores are complete when collection ends, and so are the nodes' flags, and what the running
// configuration says about a bundle when parsing ends. A view has nothing that changes later; the
// checks read the other fields of the records when they need them.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <vector>

#include "base/here.h"
#include "base/records.h"
#include "base/value.h"
#include "checks/store_part.h"

namespace tessel {

// One chip of a node.
struct chip_view {
  value npu;
  store_part tables;
  store_part lags;  // `tm_lag` of Jericho2, `diag_lag` of the earlier chips
};

// A node. Its name converts, so that a check can be called for one node by itself. Constant once
// made: any thread. Making it throws nothing about the stores; a gap is a failure where it is read.
class node_view {
 public:
  template <class Text>
  requires std::convertible_to<const Text&, std::string_view> node_view(const Text& nodename)
      : node_view(std::string(std::string_view(nodename))) {}
  explicit node_view(std::string nodename);

  // True if the chips are Jericho2. A node that does not say is reported each time, by is_j2.
  bool is_jericho2() const;
  // The chips in the order of `npu_list`. Throws `failure` if the node has no such list.
  const std::vector<chip_view>& chips(here where = here::current()) const;

  std::string name;
  value DPA;                  // of all nodes
  store_part asic_supported;  // the node's record
  store_part act_standby;
  store_part objects;  // the node in DPA
  store_part lagport;
  store_part l2port;
  store_part l2intf;
  store_part l3intf;

 private:
  store_part npu_list_;
  std::vector<chip_view> chips_;
  store_part asic_;
  bool has_jericho2_ = false;
};

// A configured bundle. Its name converts, as a node's does. Constant once made: any thread.
class bundle_view {
 public:
  template <class Text>
  requires std::convertible_to<const Text&, std::string_view> bundle_view(const Text& bundle)
      : bundle_view(std::string(std::string_view(bundle))) {}
  explicit bundle_view(std::string bundle);

  // Each throws `failure` if the bundle is not configured or has no such field.
  record& element(here where = here::current()) const;
  const value& members(here where = here::current()) const { return members_.get(where); }
  const value& sub_bundles(here where = here::current()) const { return sub_bundles_.get(where); }
  record& sub_bundle(std::string_view sub, here where = here::current()) const;

  std::string name;
  store_part hqos;  // of the whole router

 private:
  store_part element_;
  store_part members_;
  store_part sub_bundles_;
};

}  // namespace tessel
