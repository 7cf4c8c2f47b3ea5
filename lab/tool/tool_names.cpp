#include "lab/tool/tool_names.h"

namespace lab {

const std::vector<std::string>& tool_names() {
  static const std::vector<std::string> names{"asic_shell_show",
                                              "board_api_probe",
                                              "cfg_render",
                                              "fwd_object_show",
                                              "iface_show",
                                              "ifmgr_show",
                                              "lagmgr_agent_show",
                                              "lagmgr_health",
                                              "lagmgr_table_show",
                                              "node_id_convert",
                                              "plat_nodes_show",
                                              "qos_voq_show",
                                              "ssh",
                                              "sw_version_show"};
  return names;
}

}  // namespace lab
