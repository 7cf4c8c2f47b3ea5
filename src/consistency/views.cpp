#include "consistency/views.h"

#include <utility>

#include "base/constants.h"
#include "platform/router_type.h"
#include "run/state.h"

namespace tessel {

node_view::node_view(std::string nodename) : name(std::move(nodename)), DPA(st().DPA.get()) {
  const store_part node = store_part(st().nodeinfo.get()).at(name);
  asic_supported = node.at("asic_supported");
  act_standby = node.at("act_standby");
  npu_list_ = node.at("npu_list");
  asic_ = node.at("asic");
  has_jericho2_ = asic_.found() != nullptr && is_j2(name) != ERROR;
  objects = store_part(DPA).at(name);
  lagport = objects.at("lagport");
  l2port = objects.at("l2port");
  l2intf = objects.at("l2intf");
  l3intf = objects.at("l3intf");
  const store_part npus = store_part(st().BCM.get()).at(name);
  if (npu_list_.found() == nullptr || !npu_list_.found()->is_list()) return;
  for (const value& npu : npu_list_.found()->as_list()) {
    const store_part tables = npu.is_text() ? npus.at(npu.as_text()) : store_part();
    chips_.push_back({npu, tables, tables.at(has_jericho2_ ? "tm_lag" : "diag_lag")});
  }
}

const std::vector<chip_view>& node_view::chips(here where) const {
  npu_list_.get(where).as_list(where);
  return chips_;
}

bool node_view::is_jericho2() const {
  return asic_.found() == nullptr ? is_j2(name) != ERROR : has_jericho2_;
}

bundle_view::bundle_view(std::string bundle)
    : name(std::move(bundle)),
      hqos(store_part(st().tesselDb).at("hqos")),
      element_(store_part(st().tesselDb).at(name)),
      members_(element_.field("members")),
      sub_bundles_(element_.field("sub_bundles")) {}

record& bundle_view::element(here where) const {
  return element_.get(where).as_record(where);
}

record& bundle_view::sub_bundle(std::string_view sub, here where) const {
  return sub_bundles(where).in(sub, where).as_record(where);
}

}  // namespace tessel
