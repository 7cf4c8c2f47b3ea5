// What router this is, and which switch chips its nodes carry.
#pragma once

#include <string_view>

#include "base/text.h"

namespace tessel {

// The router type that the version banner names, asked of the platform once and kept in `router`.
// Returns `invalid` for an unknown model, and after a failure, which is logged and counted. Main
// thread, before workers start.
int get_router_type();

// The first unit behind each node's head in the list of units: node name and chip model. The plain
// form; on a line of many heads it would read the line once for each.
inline constexpr std::string_view first_unit_definition =
    "Node ID: (\\w+\\/\\w+\\/CPU0)(?:\n|\n*.*\n)\\w+\\s\\d+\\s\\w+\\s(BCM\\d{4})";
matches first_units_of(std::string_view unit_list);

// Asks the chips of all nodes at once what they are, and enters `asic`, `npu_list` and
// `asic_supported` in the node records. Returns SUCCESS; ERROR after printing and counting a
// failure. An unsupported chip is a note, not a failure. Main thread, after `nodeinfo_init`.
int check_asic_support();

// SUCCESS if the node's chip is a Jericho2, else ERROR. An unknown node is printed and counted, and
// passes as another chip. Any thread.
int is_j2(std::string_view nodename);

}  // namespace tessel
