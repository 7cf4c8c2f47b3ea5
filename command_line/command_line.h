// The common parts of the command lines of tessel-host and tessel-lab, on top of CLI11: declaring
// options and operands, the layout of the help, and one line per mistake.
//
//     CLI::App app("tessel-host audits ...", "tessel-host");
//     command_line::set_up(app);
//     command_line::add_value(app, "--library", "FILE", "load this one",
//                             [&](const auto& text) {...});
//     const command_line::words parsed = command_line::parse(app, arguments);
//     if (parsed.help) ...
//
// A source that includes this header compiles slowly: include it in one source per program. Two
// threads must not call these functions for the same app.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "command_line/usage_error.h"

namespace command_line {

// Says why an option refuses a value. `parse` turns it into a `usage_error`.
class bad_value : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Sets the rules of both programs: the last of equal options counts; -h and --help show the help,
// whose usage line ends with `usage_end`. Call it before adding options and commands.
void set_up(CLI::App& app, const std::string& usage_end = "");

// Adds a command, shown below the heading `group`.
CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& group,
                      const std::string& help, const std::string& usage_end = "");

// Adds an option whose value the help calls `label`. `take` gets each given value in order, also an
// empty one, and throws `bad_value` to refuse it.
using taker = std::function<void(const std::string& value)>;
CLI::Option* add_value(CLI::App& app, const std::string& name, const std::string& label,
                       const std::string& help, taker take);

// Adds an option that takes no value.
CLI::Option* add_flag(CLI::App& app, const std::string& name, const std::string& help, bool& given);

// Adds a required operand. The words fill the operands in the order in which they were added.
CLI::Option* add_operand(CLI::App& app, const std::string& name, const std::string& help,
                         std::string& value);

// Adds an operand that takes several words, `least` at least.
CLI::Option* add_operands(CLI::App& app, const std::string& name, const std::string& help,
                          std::size_t least, std::vector<std::string>& values);

// The targets of the words after "--", by command; for other commands "--" is an unknown option.
using rest_places = std::map<const CLI::App*, std::vector<std::string>*>;

// Reads the words after the program's name. `--name value` and `--name=value` are the same; options
// may come before, between and after operands. A value may be empty or start with one dash, but not
// with two. Returns the help text if it was requested. Throws `usage_error`.
std::optional<std::string> parse(CLI::App& app, const std::vector<std::string>& arguments,
                                 const rest_places& rests = {});

// The error for a parsed command line, worded for the command that it names, or else for the app.
usage_error complaint(const CLI::App& app, const std::string& what);

}  // namespace command_line
