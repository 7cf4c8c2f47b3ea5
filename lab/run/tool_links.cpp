#include "lab/run/tool_links.h"

#include <unistd.h>

#include "lab/base/error.h"

namespace lab {

void place_tools(const held& program, const std::vector<std::string>& tools) {
  bind_file(program, tools_program);
  for (const std::string& tool : tools) {
    const std::string link = "/opt/nos/bin/" + tool;
    if (symlink(tools_program, link.c_str()) != 0) fail(link);
  }
}

}  // namespace lab
