// The stand-in tools in the lab's private /opt: tessel-lab-tool, and a link to it per tool.
#pragma once

#include <string>
#include <vector>

#include "lab/base/namespaces.h"

namespace lab {

// The path of tessel-lab-tool there.
inline constexpr const char* tools_program = "/opt/nos/libexec/tessel-lab-tool";

// Binds the program there and makes the tools in /opt/nos/bin; both folders exist. Throws
// `lab_error` or `no_privileges`.
void place_tools(const held& program, const std::vector<std::string>& tools);

}  // namespace lab
