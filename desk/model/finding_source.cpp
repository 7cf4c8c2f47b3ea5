#include "desk/model/finding_source.h"

#include <algorithm>
#include <array>

namespace desk {

namespace {

// Where neither the field nor the object says it.
struct source_of_code {
  std::string_view code;
  source from;
};
constexpr std::array sources_of_codes = std::to_array<source_of_code>({
    {"TC-103", source::interface_db},
    {"TC-112", source::l2intf},
    {"TC-207", source::l2intf},
    {"TC-612", source::l1port},
    {"TC-613", source::l2port},
    {"TC-614", source::l3intf},
    {"TC-714", source::l1port},
    {"TC-715", source::l2port},
    {"TC-716", source::l2intf},
    {"TC-717", source::l3intf},
    {"TC-724", source::l1port},
    {"TC-743", source::interfaces},
    {"TC-744", source::interface_db},
    {"TC-747", source::l2port},
    {"TC-749", source::l2intf},
});

// The interface of a sub-bundle is its l2intf object, that of a bundle its l2port object.
source source_in_dpa(const finding& one) {
  const bool is_sub = one.object.kind == object_kind::sub_bundle;
  switch (one.what) {
    case field::mtu:
    case field::npu:
      return source::l1port;
    case field::rif:
      return is_sub ? source::l3intf : source::l2port;
    case field::lif:
    case field::mac:
      return is_sub ? source::l2intf : source::l2port;
    default:
      return source::lagport;
  }
}

source source_in_chip(field what) {
  switch (what) {
    case field::mtu:
      return source::chip_mtu;
    case field::vlan_domain:
      return source::chip_domain;
    case field::rif:
    case field::mac:
    case field::lif:
      return source::chip_entry;
    default:
      return source::chip_lag;
  }
}

// Unknown without a snapshot; each type has interface objects of its own.
bool may_be_of_type(const run& of, const object_ref& bundle, std::string_view type) {
  const object* one = of.find(bundle.kind, bundle.bundle, bundle.name);
  return one == nullptr || std::none_of(one->cells.begin(), one->cells.end(), [&](const cell& c) {
           return c.what == field::type && of.texts.text(c.value) != type;
         });
}

}  // namespace

source source_of(const finding& one) {
  const auto* const known =
      std::find_if(sources_of_codes.begin(), sources_of_codes.end(),
                   [&](const source_of_code& each) { return each.code == one.code; });
  if (known != sources_of_codes.end()) return known->from;
  switch (one.of) {
    case layer::config:
      return source::running_config;
    case layer::pi:
      return source::bundle_manager;
    case layer::pd:
      return source::agent;
    case layer::dpa:
      return source_in_dpa(one);
    case layer::bcm:
      return source_in_chip(one.what);
    case layer::none:
      break;
  }
  return source::none;
}

std::string_view node_of_value(const run& of, const finding& one) {
  if (one.node.empty() || source_of(one) != source::l1port) return one.node;
  const object* member = of.find(object_kind::member, one.object.bundle, one.object.name);
  if (member == nullptr) return one.node;
  const auto at = of.places.find(static_cast<std::size_t>(member - of.objects.data()));
  const bool is_known = at != of.places.end() && at->second.node != no_place;
  return is_known ? std::string_view(of.nodes[static_cast<std::size_t>(at->second.node)].name)
                  : std::string_view(one.node);
}

source other_source_of(const run& of, const finding& one) {
  if (one.code == "TC-112") return source::lagport;
  if (one.object.kind != object_kind::bundle || one.of != layer::dpa) return source::none;
  // What a bundle's l3intf or l2intf object has is reported as that of its l2port object.
  if (one.code == "TC-106" && may_be_of_type(of, one.object, "layer 3")) return source::l3intf;
  const bool is_lif = one.code == "TC-108" || one.code == "TC-109";
  return is_lif && may_be_of_type(of, one.object, "layer 2") ? source::l2intf : source::none;
}

}  // namespace desk
