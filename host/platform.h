// What the audit expects of the machine it runs on. A test holds it against the sources of the
// library, with which the host shares none.
#pragma once

#include <array>
#include <string_view>

namespace tessel_host {

struct router_model {
  std::string_view name;  // a part of the line in which the version tool names the processor
  bool is_single_node;    // it has no list of nodes
};

// In the order in which they are looked for; the first that is found counts.
inline constexpr std::array<router_model, 9> router_models = {{
    {"TR-BIRCH", false},
    {"TR-BIRCH1", false},
    {"TR-ASPEN", false},
    {"TR-CEDAR ()", false},
    {"TRCEDARX", true},
    {"TRCEDAR", true},
    {"TR-ELM1", true},
    {"FIR", false},
    {"TR-DOGWOOD-R8", false},
}};
// The only one on which standby nodes take part.
inline constexpr std::string_view model_with_standby = "TR-ASPEN";
inline constexpr std::string_view address_of_single_node = "192.0.0.4";

inline constexpr std::string_view tool_folder = "/opt/nos/bin/";

enum class tool_place { folder, search_path, nodes };

struct platform_tool {
  std::string_view name;
  tool_place place;  // of this machine, or in the folder on each node
};

inline constexpr std::array<platform_tool, 14> platform_tools = {{
    {"asic_shell_show", tool_place::folder},
    {"board_api_probe", tool_place::nodes},
    {"cfg_render", tool_place::search_path},
    {"fwd_object_show", tool_place::nodes},
    {"iface_show", tool_place::search_path},
    {"ifmgr_show", tool_place::search_path},
    {"lagmgr_agent_show", tool_place::search_path},
    {"lagmgr_health", tool_place::search_path},
    {"lagmgr_table_show", tool_place::search_path},
    {"node_id_convert", tool_place::search_path},
    {"plat_nodes_show", tool_place::folder},
    {"qos_voq_show", tool_place::search_path},
    {"ssh", tool_place::search_path},
    {"sw_version_show", tool_place::folder},
}};

}  // namespace tessel_host
