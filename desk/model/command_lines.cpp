#include "desk/model/command_lines.h"

#include <fmt/format.h>

#include "src/base/failure.h"
#include "src/base/filled_line.h"

namespace desk {

namespace {

using tessel::filled_line;
using tessel::filling;

std::string checked(const filled_line& line) {
  try {
    return line.text();
  } catch (const tessel::failure&) {
    return std::string(list_of_nodes);
  }
}

}  // namespace

std::string command_on_node(const node& at, std::string_view call) {
  const std::string form = fmt::format("ssh {{}} /opt/nos/bin/{}", call);
  return checked(filled_line(std::string_view(form), {{filling::address, at.address}}));
}

std::string command_on_chips(const node& at, std::string_view npu, std::string_view asked) {
  const std::string_view of_npu = npu.empty() ? std::string_view("all") : npu;
  return checked(filled_line(R"(/opt/nos/bin/asic_shell_show -c "{}" -u {} -n {})",
                             {{filling::chip_command, std::string(asked)},
                              {filling::npu, std::string(of_npu)},
                              {filling::node_id, at.id}}));
}

std::string command_for_id(std::string_view node_name) {
  return checked(
      filled_line("node_id_convert -I {}", {{filling::node_name, std::string(node_name)}}));
}

}  // namespace desk
