#include "lab/tool/ended_call.h"

#include <fmt/format.h>

namespace lab {

std::string call_line(const ended_call& c) {
  return fmt::format("{} {} {} {} {} {} {} {}\n", c.begin, c.duration, c.status, c.bytes, c.problem,
                     c.number, c.place, c.file);
}

std::string real_tool_path(const std::string& work, bool has_folder, const std::string& tool) {
  return fmt::format("{}/real/{}/{}", work, has_folder ? "folder" : "path", tool);
}

}  // namespace lab
