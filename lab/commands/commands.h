// The subcommands of tessel-lab, one source each. A subcommand gets the values of its command line
// and returns the exit status. It throws `usage_error` for values that do not go together, and
// `lab_error` for any other failure.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "command_line/usage_error.h"
#include "lab/model/generate.h"
#include "lab/model/router.h"

namespace lab {

using command_line::usage_error;

// The error for a command line whose values do not go together.
inline usage_error wrong_values(const std::string& command, const std::string& what) {
  return command_line::complaint("tessel-lab", command, what);
}

int list_command();

struct faults_options {
  bool kinds = false;
};
int faults_command(const faults_options& o);

struct expect_options {
  std::string router;
  std::vector<std::string> faults;
  bool places = false;
};
int expect_command(const expect_options& o);

struct render_options {
  std::string router;
  std::string out;
  std::vector<std::string> faults;
};
int render_command(const render_options& o);

struct generate_options {
  std::string out;
  std::string type = "birch";
  // A size that is not given comes from `default_request` of the type.
  std::optional<unsigned> cards, npus, bundles, members, l2_subs, l3_subs, seed;
  std::optional<chip_mix> family;
  bool hqos = false;
};
int generate_command(const generate_options& o);

// By default, the host and the library of this program.
struct program_options {
  std::optional<std::string> host;
  std::optional<std::string> library;
};

struct run_options {
  std::string source;  // a router, a capture or a packed one
  std::vector<std::string> faults;
  program_options programs;
  std::optional<std::string> logs;
  std::optional<std::string> calls;
  std::optional<std::string> record;
  std::optional<std::string> latency;
  bool real_ssh = false;
  std::vector<std::string> host_arguments;
};
int run_command(const run_options& o);

struct record_options {
  std::string out;
  std::optional<std::string> shown;  // as messages name it
  program_options programs;
  std::optional<std::string> logs;
  std::vector<std::string> host_arguments;
};
int record_command(const record_options& o);

struct capture_options {
  std::string from;
  std::string out;
};
int pack_command(const capture_options& o);
int unpack_command(const capture_options& o);

struct redact_options {
  std::string from;
  std::string out;
  std::vector<std::string> names;  // kinds: "vrf", "acl", "trustpoint", "all"
  std::optional<std::string> mapping;
  bool verify = false;
  program_options programs;
};
int redact_command(const redact_options& o);

struct info_options {
  std::string capture;
};
int info_command(const info_options& o);

struct diff_options {
  std::string before;
  std::string after;
  bool values = false;
  bool all = false;
};
int diff_command(const diff_options& o);

// What several of them share ---------------------------------------------------------------------

// The described router of that name or file, with these faults: "name" or "name=argument".
router faulty_router(const std::string& name, const std::vector<std::string>& faults);

std::filesystem::path own_program();

// The program that stands in for a router's tools; it belongs beside this one. Throws `lab_error`
// that says what to do if it is missing or cannot be executed.
std::filesystem::path tool_program();

// The host and the library that the options name, or those of this program, as absolute paths.
// Throws `lab_error` that names the option if there is no such file.
std::filesystem::path host_of(const program_options& o);
std::filesystem::path library_of(const program_options& o);

}  // namespace lab
