// The VLAN domain table of one earlier chip, read once and looked up by core and port.
//
//   IHP_VTT_IN_PP_PORT_CONFIG.IHP0[3]: <PROFILE=0x1,VLAN_DOMAIN=0x10,...>
//   vlan_domain_of(table, "0", "3")   // "0x10"
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tessel {

// Defines one search of a table; the braces take core and port.
inline constexpr std::string_view vlan_domain_definition =
    R"(\w+.IHP{}\[{}\]:\s<\w+=\w+,VLAN_DOMAIN=(\w+),)";

// The domain in the first row of `core` and `port`, as printed; nothing if there is no such row.
// Throws `failure` if the table cannot be searched. Any thread.
std::optional<std::string> vlan_domain_of(const std::shared_ptr<const std::string>& table,
                                          std::string_view core, std::string_view port);

}  // namespace tessel
