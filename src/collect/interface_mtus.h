// The interface manager's status listing: the MTU of each interface.
//
//   HundredGigE0/0/0/1 is up, line protocol is up       {"0/0/0/1": "1514"}
//     MTU 1514 bytes
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// What to find in the listing: the number that ends an interface's name, then words and blanks over
// any number of lines, up to the last MTU among them. Searching with this pattern would take time
// quadratic in the length of a listing without MTU lines.
inline constexpr std::string_view interface_mtu_definition =
    "([0-9\\/]+)\\s+is\\s+[\\w+,\\s+[\\w\\s]*\n\\s+MTU\\s+(\\w+)";

// Maps interface number ("0/0/0/1") to MTU, both texts. The result is that of all matches of the
// definition, where the last match of a number wins, but found in one pass. Any thread.
value parse_interface_mtus(std::string_view listing);

}  // namespace tessel
