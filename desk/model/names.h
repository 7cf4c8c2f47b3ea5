// The words of the desk: layers, fields and the tools that a value comes from.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace desk {

// From the top down. A layer further down is programmed from the one above it.
enum class layer : std::uint8_t { config, pi, pd, dpa, bcm, none };
inline constexpr std::array all_layers = {layer::config, layer::pi, layer::pd, layer::dpa,
                                          layer::bcm};

// What is compared. `presence` is that an object is held at all.
enum class field : std::uint8_t {
  presence,
  handle,
  lag_id,
  lif,
  rif,
  mac,
  mtu,
  npu,
  member_id,
  system_port,
  vlan_domain,
  type,
  encapsulation,
  deletion,
  weight,
  weight_limit,
  sem,  // the entry of an object in a chip's tables of frames
  none
};

// Where a value was read: one table of one tool.
enum class source : std::uint8_t {
  running_config,  // cfg_render
  bundle_manager,  // lagmgr_table_show
  interfaces,      // iface_show
  interface_db,    // ifmgr_show
  agent,           // lagmgr_agent_show
  lagport,         // fwd_object_show -t ...
  l1port,
  l2port,
  l2intf,
  l3intf,
  chip_lag,     // asic_shell_show, the chip's LAGs
  chip_mtu,     // ... its MTUs
  chip_domain,  // ... its VLAN domains
  chip_entry,   // ... its SEM, LIF and VSI tables
  none
};

[[nodiscard]] layer layer_of(source from);

// The words that a person reads: "DPA", "LAG id", "fwd_object_show -t l2port".
[[nodiscard]] std::string_view word_for(layer of);
[[nodiscard]] std::string_view word_for(field of);
[[nodiscard]] std::string_view tool_of(source from);

}  // namespace desk
