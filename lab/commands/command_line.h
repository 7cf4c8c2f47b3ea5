// The command line of tessel-lab.
#pragma once

#include <string>
#include <vector>

#include "command_line/usage_error.h"

namespace lab {

using command_line::usage_status;

// Runs a subcommand; `arguments` do not include the program's own name. Returns the exit status: 0,
// 64 for a bad command line, 77 for a missing right, 1 for any other failure; `run` and `record`
// return the host's status; `diff` returns 1 for captures that differ and 2 for one that it cannot
// read. Each failure is one line on standard error.
int run_command_line(const std::vector<std::string>& arguments);

}  // namespace lab
