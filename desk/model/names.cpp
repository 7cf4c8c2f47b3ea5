#include "desk/model/names.h"

namespace desk {

layer layer_of(source from) {
  switch (from) {
    case source::running_config:
      return layer::config;
    case source::bundle_manager:
    case source::interfaces:
    case source::interface_db:
      return layer::pi;
    case source::agent:
      return layer::pd;
    case source::lagport:
    case source::l1port:
    case source::l2port:
    case source::l2intf:
    case source::l3intf:
      return layer::dpa;
    case source::chip_lag:
    case source::chip_mtu:
    case source::chip_domain:
    case source::chip_entry:
      return layer::bcm;
    case source::none:
      break;
  }
  return layer::none;
}

std::string_view word_for(layer of) {
  switch (of) {
    case layer::config:
      return "config";
    case layer::pi:
      return "PI";
    case layer::pd:
      return "PD";
    case layer::dpa:
      return "DPA";
    case layer::bcm:
      return "BCM";
    case layer::none:
      break;
  }
  return "";
}

std::string_view word_for(field of) {
  switch (of) {
    case field::presence:
      return "presence";
    case field::handle:
      return "handle";
    case field::lag_id:
      return "LAG id";
    case field::lif:
      return "global LIF";
    case field::rif:
      return "RIF";
    case field::mac:
      return "MAC";
    case field::mtu:
      return "MTU";
    case field::npu:
      return "NPU";
    case field::member_id:
      return "member id";
    case field::system_port:
      return "system port";
    case field::vlan_domain:
      return "VLAN domain";
    case field::type:
      return "type";
    case field::encapsulation:
      return "encapsulation";
    case field::deletion:
      return "delayed delete";
    case field::weight:
      return "weight";
    case field::weight_limit:
      return "weight limit";
    case field::sem:
      return "SEM entry";
    case field::none:
      break;
  }
  return "";
}

std::string_view tool_of(source from) {
  switch (from) {
    case source::running_config:
      return "cfg_render";
    case source::bundle_manager:
      return "lagmgr_table_show";
    case source::interfaces:
      return "iface_show";
    case source::interface_db:
      return "ifmgr_show";
    case source::agent:
      return "lagmgr_agent_show";
    case source::lagport:
      return "fwd_object_show -t lagport";
    case source::l1port:
      return "fwd_object_show -t l1port";
    case source::l2port:
      return "fwd_object_show -t l2port";
    case source::l2intf:
      return "fwd_object_show -t l2intf";
    case source::l3intf:
      return "fwd_object_show -t l3intf";
    case source::chip_lag:
    case source::chip_mtu:
    case source::chip_domain:
    case source::chip_entry:
      return "asic_shell_show";
    case source::none:
      break;
  }
  return "";
}

}  // namespace desk
