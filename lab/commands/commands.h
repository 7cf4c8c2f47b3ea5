// The subcommands of tessel-lab, one source each. A subcommand gets its command line with its own
// name in front, and returns the status to exit with; it throws `usage_error` or `lab_error` where
// it cannot do what it was told.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/base/options.h"
#include "lab/model/router.h"

namespace lab {

int list_command(const std::vector<std::string>& arguments);
int faults_command(const std::vector<std::string>& arguments);
int expect_command(const std::vector<std::string>& arguments);
int render_command(const std::vector<std::string>& arguments);
int generate_command(const std::vector<std::string>& arguments);
int run_command(const std::vector<std::string>& arguments);
int record_command(const std::vector<std::string>& arguments);
int pack_command(const std::vector<std::string>& arguments);
int unpack_command(const std::vector<std::string>& arguments);
int redact_command(const std::vector<std::string>& arguments);
int diff_command(const std::vector<std::string>& arguments);

// What several of them share ---------------------------------------------------------------------

// The described router of that name or file, with these faults, "name" or "name=argument".
router faulty_router(const std::string& name, const std::vector<std::string>& faults);

std::filesystem::path own_program();

// The host and the library that --host and --library name, or those that belong to this program;
// absolute. Throws `lab_error` that names the option if there is no such file.
std::filesystem::path host_of(const option_values& o);
std::filesystem::path library_of(const option_values& o);

}  // namespace lab
