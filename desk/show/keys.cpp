#include "desk/show/keys.h"

#include <cstddef>

namespace desk {

namespace {

// In the order of the enumerators; a test holds each against its enumerator.
template <std::size_t N, typename Value>
std::string_view at(const std::array<std::string_view, N>& keys, Value of) {
  return keys[static_cast<std::size_t>(of)];
}

}  // namespace

std::string_view key_for(layer of) {
  static constexpr std::array<std::string_view, 6> keys = {"config", "pi",  "pd",
                                                           "dpa",    "bcm", "none"};
  return at(keys, of);
}

std::string_view key_for(field of) {
  static constexpr std::array<std::string_view, 15> keys = {
      "presence",  "handle",      "lag_id",      "lif",  "rif",           "mac",      "mtu", "npu",
      "member_id", "system_port", "vlan_domain", "type", "encapsulation", "deletion", "none"};
  return at(keys, of);
}

std::string_view key_for(source of) {
  static constexpr std::array<std::string_view, 15> keys = {
      "running_config", "bundle_manager", "interfaces",  "interface_db", "agent",
      "lagport",        "l1port",         "l2port",      "l2intf",       "l3intf",
      "chip_lag",       "chip_mtu",       "chip_domain", "chip_entry",   "none"};
  return at(keys, of);
}

std::string_view key_for(object_kind of) {
  static constexpr std::array<std::string_view, 7> keys = {"router", "node",       "chip", "bundle",
                                                           "member", "sub_bundle", "entry"};
  return at(keys, of);
}

std::string_view key_for(coverage_state of) {
  static constexpr std::array<std::string_view, 7> keys = {
      "read", "partly", "empty", "failed", "not_understood", "never_asked", "unknown"};
  return at(keys, of);
}

std::string_view key_for(finding_kind of) {
  static constexpr std::array<std::string_view, 7> keys = {
      "inconsistency", "programming", "delay_delete", "stale", "health", "failure", "note"};
  return at(keys, of);
}

std::string_view key_for(run_end of) {
  static constexpr std::array<std::string_view, 4> keys = {"complete", "stopped", "cut_off",
                                                           "unknown"};
  return at(keys, of);
}

std::string_view key_for(verdict of) {
  static constexpr std::array<std::string_view, 3> keys = {"agrees", "differs", "not_judged"};
  return at(keys, of);
}

std::string_view key_for(sureness of) {
  static constexpr std::array<std::string_view, 5> keys = {"named", "majority", "tie", "two_nodes",
                                                           "unknown"};
  return at(keys, of);
}

std::string_view key_for(decltype(witness::is) of) {
  static constexpr std::array<std::string_view, 3> keys = {"holds", "absent", "not_read"};
  return at(keys, of);
}

}  // namespace desk
