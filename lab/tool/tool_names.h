// The platform's tools that the audit calls.
#pragma once

#include <string>
#include <vector>

namespace lab {

// Every tool in the lab's bin folder.
const std::vector<std::string>& tool_names();

}  // namespace lab
