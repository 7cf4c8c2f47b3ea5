// The command line of tessel-lab.
#pragma once

#include <string>
#include <vector>

#include "command_line/usage_error.h"

namespace lab {

using command_line::usage_status;

// Runs a subcommand; `arguments` come without the program's own name. Returns the status to exit
// with: 0, 64 for a command line that cannot be understood, 1 for any other failure, and of `run`
// the status of the host. Each failure is one line on standard error.
int run_command_line(const std::vector<std::string>& arguments);

}  // namespace lab
