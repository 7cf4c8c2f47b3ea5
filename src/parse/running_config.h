// The running configuration, the reference for every other layer.
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

#include "base/memory_limit.h"
#include "base/value.h"

namespace tessel {

// The stanzas of a configuration, each as one long line.
class parsed_config {
 public:
  // Throws `failure` if `run_cfg` is not a text, or if the outputs that are held leave no room for
  // it a second time.
  explicit parsed_config(const value& run_cfg);
  parsed_config(const parsed_config&) = delete;
  parsed_config& operator=(const parsed_config&) = delete;

  // The whole configuration as one long line.
  std::string_view text() const { return text_; }
  const std::vector<std::string_view>& stanzas() const { return stanzas_; }
  // The full names of the ports in the stanzas that contain "bundle id NUMBER " (with the blank),
  // each once, breakout ports first. Throws `failure` if a stanza cannot be searched.
  std::vector<std::string> ports_with_bundle_id(std::string_view number) const;

 private:
  struct port_names {
    std::vector<std::string> of_five_numbers;
    std::vector<std::string> of_four_numbers;
  };
  void index_bundle_ids();
  const std::vector<std::size_t>& positions_of(std::string_view number) const;
  const port_names& ports_of(std::size_t position) const;

  text_share share_;                       // of `text_`
  std::string text_;                       // what the views point into
  std::vector<std::string_view> stanzas_;  // in order
  // Maps the text between "bundle id " and the next blank to stanza positions.
  std::unordered_map<std::string_view, std::vector<std::size_t>> by_bundle_id_;
  // By stanza position. Each stanza is searched only at the first request and only once, because it
  // may contain the ids of many bundles.
  mutable std::unordered_map<std::size_t, port_names> ports_;
};

// `run_cfg` without its line ends. An indented "!" after a line end is removed with it: all matches
// of "\n\s+!|\n" are removed. The remaining "!" separate the stanzas.
std::string without_line_ends(std::string_view run_cfg);

// Fills `tesselDb`, `bundle_dict` and the scale figures, and clears `run_cfg`. Always returns
// SUCCESS: a failure is logged and counted, and what is already in `tesselDb` stays.
int parse_running_config();

// The distinct interface heads ("interface Bundle-Ether12"), in order of first appearance, and the
// list text form of all stanzas that contain a bundle. Fills `bundle_dict`. Both are empty after a
// failure, which is logged and counted.
std::pair<std::vector<std::string>, std::string> get_bundles(const parsed_config& config);

// 1 if `l2_cfg` shows the interface `bundle` as layer 2, else 0; also 0 after a failure.
int get_bundle_type(const value& l2_cfg, std::string_view bundle);

// The full names of the ports in bundle `bundle` ("BE12"), each once: a list, or ERROR after
// logging and counting a failure.
value get_members(std::string_view bundle, const parsed_config& config);

// The node that owns the port with tail `rsip`, and the port's `memberInfo` from `voq_usage`. Both
// are ERROR, after logging and counting, if the forwarding layer does not know the port.
std::pair<value, value> get_member_pp_port(std::string_view mName, std::string_view rsip);

// The VLAN tags of a sub-interface as decimal texts, outer first; or the one entry "untagged"; or
// an empty list. Returns ERROR if it has no encapsulation (a note, added to `info`) and after a
// failure.
value get_encap_id(const value& encap_cfg, std::string_view sbName);

}  // namespace tessel
