// Command lines for a person to type, with names, addresses and numbers that the router's tools
// printed. Somebody may have put there what a shell would run. A value that the audit takes into no
// command line of its own comes into none of these; they are the list of nodes then, which shows
// it.
#pragma once

#include <string>
#include <string_view>

#include "desk/model/run.h"

namespace desk {

inline constexpr std::string_view list_of_nodes = "/opt/nos/bin/plat_nodes_show -v";

// A tool of the node itself. `call` consists of literals.
[[nodiscard]] std::string command_on_node(const node& at, std::string_view call);

// What the shell of the node's chips, or of one of them, is asked. `asked` may hold what the router
// printed.
[[nodiscard]] std::string command_on_chips(const node& at, std::string_view npu,
                                           std::string_view asked);

[[nodiscard]] std::string command_for_id(std::string_view node_name);

}  // namespace desk
