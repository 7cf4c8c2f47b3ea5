// The interface manager's status listing: which interface has which MTU.
//
//   HundredGigE0/0/0/1 is up, line protocol is up       {"0/0/0/1": "1514"}
//     MTU 1514 bytes
#pragma once

#include <string_view>

#include "base/value.h"

namespace tessel {

// What the listing is searched for: the number that an interface's name ends in, then words and
// blanks of any number of lines, up to the last MTU among them. Searching a long listing without
// MTU lines that way takes time with the square of its length.
inline constexpr std::string_view interface_mtu_definition =
    "([0-9\\/]+)\\s+is\\s+[\\w+,\\s+[\\w\\s]*\n\\s+MTU\\s+(\\w+)";

// Interface number ("0/0/0/1") to MTU, both texts, as all matches of the definition give them, the
// last of a number winning; found in one pass. Any thread.
value parse_interface_mtus(std::string_view listing);

}  // namespace tessel
