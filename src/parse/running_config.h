// The running configuration, the reference against which every other layer is compared.
//
//   interface Bundle-Ether12                    tesselDb = {"hqos": 0, "BE12": Bundles(
//    mtu 1514                                     members {"0/0/CPU0": {"0/0/0/1": memberInfo}},
//   !                                             is_l2 0,
//   interface Bundle-Ether12.100 l2transport      sub_bundles {"BE12.100": subBundles(
//    encapsulation dot1q 100                        is_l2 1, encap ["100"])})}
//   !
//   interface HundredGigE0/0/0/1
//    bundle id 12 mode active
//   !
//
// All functions run on the main thread, after the workers of collection have ended.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/value.h"

namespace tessel {

// The stanzas of a configuration, each one long line.
class parsed_config {
 public:
  // Throws `failure` if `run_cfg` is no text.
  explicit parsed_config(const value& run_cfg);
  parsed_config(const parsed_config&) = delete;
  parsed_config& operator=(const parsed_config&) = delete;

  const std::vector<std::string_view>& stanzas() const { return stanzas_; }
  // The full names of the ports in the stanzas that hold "bundle id NUMBER " with the blank, each
  // once, of breakout ports first. Throws `failure` if a stanza cannot be searched.
  std::vector<std::string> ports_with_bundle_id(std::string_view number) const;

 private:
  struct port_names {
    std::vector<std::string> of_five_numbers;
    std::vector<std::string> of_four_numbers;
  };
  void index_bundle_ids();
  const std::vector<std::size_t>& positions_of(std::string_view number) const;
  const port_names& ports_of(std::size_t position) const;

  std::string text_;                       // what the views point into
  std::vector<std::string_view> stanzas_;  // in order
  // What stands between "bundle id " and the next blank, to stanza positions.
  std::unordered_map<std::string_view, std::vector<std::size_t>> by_bundle_id_;
  // By stanza position, each searched when it is first asked for: a stanza may hold the ids of many
  // bundles.
  mutable std::unordered_map<std::size_t, port_names> ports_;
};

// `run_cfg` without its line ends, each together with the indented "!" behind it if there is one:
// without all matches of "\n\s+!|\n". What is left of "!" stands between stanzas.
std::string without_line_ends(std::string_view run_cfg);

// What the searches of a stanza's text mean; the braces take the interface head. Only the second's
// groups are looked at, of the others whether there is a match.
inline constexpr std::string_view l2_definition = "{}.*l2transport";
inline constexpr std::string_view tagged_definition =
    R"([^\s]{}.*(encapsulation|l2transport encapsulation) )"
    R"((dot1q \d+ second-dot1q \d+|dot1ad \w+ dot1q \d+|dot1q \d+|dot1ad \d+))";
inline constexpr std::string_view keyword_definition =
    R"([^\s]{}.*(encapsulation|l2transport encapsulation))";
inline constexpr std::string_view untagged_definition = "{} l2transport.*encapsulation.*(untagged)";

// Fills `tesselDb`, `bundle_dict` and the scale figures, and removes `run_cfg`. Returns SUCCESS in
// every case: a failure is logged and counted, and what stands in `tesselDb` by then stays.
int parse_running_config();

// The distinct interface heads ("interface Bundle-Ether12"), in the order of first appearance, and
// the list text form of all stanzas with a bundle in them. Fills `bundle_dict`. Two empty ones
// after logging and counting a failure.
std::pair<std::vector<std::string>, std::string> get_bundles(const parsed_config& config);

// 1 if `l2_cfg` shows the interface `bundle` as layer 2, else 0; 0 too after a failure.
int get_bundle_type(const value& l2_cfg, std::string_view bundle);

// The full names of the ports in bundle `bundle` ("BE12"), each once: a list, or ERROR after
// logging and counting a failure.
value get_members(std::string_view bundle, const parsed_config& config);

// The node that owns the port with tail `rsip` and its `memberInfo` as `voq_usage` holds it; ERROR
// twice, after logging and counting, for a port that the forwarding layer does not know.
std::pair<value, value> get_member_pp_port(std::string_view mName, std::string_view rsip);

// The VLAN tags of a sub-interface as decimal texts, outer first; or the one entry "untagged"; or
// an empty list. ERROR if it has no encapsulation (a note, added to `info`) and after a failure.
value get_encap_id(const value& encap_cfg, std::string_view sbName);

}  // namespace tessel
