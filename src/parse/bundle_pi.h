// The bundle manager's own (PI) database: the existing bundles with handle, MAC, MTU and members.
//
//   Bundle-Ether12
//   Bundle interface handle BE12 (0x3000120)          {"BE12": {"mtu": "1514",
//   MAC address 0011.2233.4455                           "mac": "0011.2233.4455",
//   Operational MTU 1514                                 "members": {"0/0/0/1": {"mifh": "0x60",
//   Member interface Hu0/0/0/1 (0x60)                       "Visited": 0, ...}},
//                                                        "Visited": 0, ..., "ifh": "0x3000120"}}
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// Defines a member's line: its name and its handle.
inline constexpr std::string_view member_line_definition =
    R"(Member interface\s+(\w+\d+\/\d+\/\d+.*?)\s\((\w+))";

// The map of bundles in `text`. A bundle without a member is left out, with a note. Returns ERROR,
// counted and logged, if a bundle has no MAC line or no MTU line. Throws `failure` if a value that
// must be a number is not one.
value parse_bundle_info_PI(std::string_view text);

// Runs the dump command and replaces `bdlInfoPI` with the map of bundles that have a member. Before
// that, and after a failure, `bdlInfoPI` holds the command's text. Returns SUCCESS; ERROR, after
// logging and counting, for a bundle without a MAC or MTU line and for any other failure. Called on
// a worker of collection.
int dump_parse_bundle_info_PI();

}  // namespace tessel
