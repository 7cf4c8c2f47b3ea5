// The view of the bundle manager's agents (PD). Per bundle and node it has the LAG id, the global
// port and the NPU mask; per member the NPU, the member id and the system port.
//
//   Bundle-Ether12                              {"BE12": {
//   (two header lines)                            "members": {"0/0/CPU0": {"0/0/0/1": {
//   0/0/CPU0  0x1  0x4c000001  0x3                   "npu": "0", "memid": "0x0", "sysport": "0x21",
//   Node: 0/0/CPU0                                   "Visited": 0, ...}}},
//   (three header lines)                          "0/0/CPU0": {"lagid": "0x1", ...},
//   0  0  0x21  Hu0/0/0/1                         "Visited": 0, "Node Description": ...}}
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// The map of bundles in `text`, in which node names already have their usual form. Throws `failure`
// if a value that must be a number is not one.
value parse_bundle_info_PD(std::string_view text);

// Runs the dump command and replaces `bdlInfoPD` with the map of bundles. Before that, and after a
// failure, `bdlInfoPD` holds the command's text, with or without the usual names of nodes, or ERROR
// if the command failed. Returns SUCCESS, or ERROR after counting and logging a failure. Called on
// a worker of collection.
int dump_parse_bundle_info_PD();

}  // namespace tessel
