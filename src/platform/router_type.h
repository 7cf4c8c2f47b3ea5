// The router type, and the switch chips on its nodes.
#pragma once

#include <string_view>

#include "base/text.h"

namespace tessel {

// The router type that the version banner names. The platform is asked once; the answer is kept in
// `router`. Returns `invalid` for an unknown model, and after a failure, which is logged and
// counted. Main thread, before workers start.
int get_router_type();

// Finds the first unit after each node's head in the list of units: node name and chip model. This
// is the plain form; it would read a line with many heads once per head.
inline constexpr std::string_view first_unit_definition =
    "Node ID: (\\w+\\/\\w+\\/CPU0)(?:\n|\n*.*\n)\\w+\\s\\d+\\s\\w+\\s(BCM\\d{4})";
matches first_units_of(std::string_view unit_list);

// Asks the chips of all nodes for their type in one command and enters `asic`, `npu_list` and
// `asic_supported` in the node records. Returns SUCCESS, or ERROR after printing and counting a
// failure. An unsupported chip is a note, not a failure. Main thread, after `nodeinfo_init`.
int check_asic_support();

// SUCCESS if the node's chip is a Jericho2, else ERROR. An unknown node is printed and counted, and
// treated as a node with another chip. Any thread.
int is_j2(std::string_view nodename);

}  // namespace tessel
