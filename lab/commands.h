// The subcommands of tessel-lab, one source each. A subcommand gets its command line with its own
// name in front, and returns the status to exit with; it throws `usage_error` or `lab_error` where
// it cannot do what it was told.
#pragma once

#include <string>
#include <vector>

#include "options.h"
#include "router.h"

namespace lab {

int list_command(const std::vector<std::string>& arguments);
int faults_command(const std::vector<std::string>& arguments);
int expect_command(const std::vector<std::string>& arguments);
int render_command(const std::vector<std::string>& arguments);
int run_command(const std::vector<std::string>& arguments);

// What several of them share ---------------------------------------------------------------------

// The described router of that name or file, with these faults, "name" or "name=argument".
router faulty_router(const std::string& name, const std::vector<std::string>& faults);

}  // namespace lab
