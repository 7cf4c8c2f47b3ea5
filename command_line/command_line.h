// What the command lines of tessel-host and tessel-lab share, on top of CLI11: how an option and an
// operand are declared, how help reads, and that every mistake is one line.
//
//     CLI::App app("tessel-host audits ...", "tessel-host");
//     command_line::set_up(app);
//     command_line::add_value(app, "--library", "FILE", "load this one", [&](const auto& text)
//     {...}); const command_line::words parsed = command_line::parse(app, arguments); if
//     (parsed.help) ...
//
// A source that includes this one compiles slowly: keep to one for each program. No function may be
// called by two threads for the same app.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "command_line/usage_error.h"

namespace command_line {

// A value that an option refuses: what is wrong with it. `parse` makes a `usage_error` of it.
class bad_value : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The rules of both programs: the last one of equal options counts, -h and --help show the help,
// whose usage line ends with `usage_end`. Call it before options and commands are added.
void set_up(CLI::App& app, const std::string& usage_end = "");

// Adds a command, shown below the heading `group`.
CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& group,
                      const std::string& help, const std::string& usage_end = "");

// Adds an option whose value the help calls `label`. `take` gets each value given, in order, also
// an empty one, and throws `bad_value` to refuse it.
using taker = std::function<void(const std::string& value)>;
CLI::Option* add_value(CLI::App& app, const std::string& name, const std::string& label,
                       const std::string& help, taker take);

// Adds an option that takes no value.
CLI::Option* add_flag(CLI::App& app, const std::string& name, const std::string& help, bool& given);

// Adds an operand that has to be given. Operands are filled in the order in which they are added.
CLI::Option* add_operand(CLI::App& app, const std::string& name, const std::string& help,
                         std::string& value);

// Where the words after "--" go, by the command that takes them; for others "--" is an unknown
// option.
using rest_places = std::map<const CLI::App*, std::vector<std::string>*>;

// Reads the words after the program's name. `--name value` and `--name=value` are the same; options
// may stand before, between and after operands. A value may be empty or start with one dash, not
// with two. Returns the help text if it was asked for. Throws `usage_error`.
std::optional<std::string> parse(CLI::App& app, const std::vector<std::string>& arguments,
                                 const rest_places& rests = {});

// What is wrong with a command line that was parsed, for the command that it named or the app.
usage_error complaint(const CLI::App& app, const std::string& what);

}  // namespace command_line
