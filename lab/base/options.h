// What a subcommand's command line is made of: options that take a value, options that stand for
// themselves, operands, and what stands behind "--".
//
//     const option_values o = parse_options(arguments, {.with_value = {"--logs"}, .rest = true});
//     o.value_of("--logs");   // the last one given, empty if none was
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace lab {

// A command line that cannot be understood: one line; the program ends with `usage_status`.
struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct option_names {
  std::vector<std::string> with_value{};
  std::vector<std::string> flags{};
  bool rest = false;  // "--" and words behind it are allowed
};

struct option_values {
  std::string command;
  std::vector<std::string> operands;
  std::vector<std::string> rest;
  std::map<std::string, std::vector<std::string>> values;  // of every option that was given

  bool has(const std::string& name) const { return values.contains(name); }
  std::string value_of(const std::string& name) const;
  std::vector<std::string> all_of(const std::string& name) const;
};

// `arguments` begin with the subcommand's name. Throws `usage_error` for an unknown option or one
// that lacks its value.
option_values parse_options(const std::vector<std::string>& arguments, const option_names& names);

// Throws `usage_error` unless there are as many operands; `what` names them, "ROUTER OUT".
void expect_operands(const option_values& o, std::size_t count, const char* what);

// Returns an unsigned decimal value of an option, `otherwise` if it was not given. Throws
// `usage_error` for anything else.
unsigned number_of(const option_values& o, const std::string& name, unsigned otherwise);

}  // namespace lab
