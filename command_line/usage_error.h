// The failure that ends a program with `usage_status`.
#pragma once

#include <stdexcept>
#include <string>

namespace command_line {

inline constexpr int usage_status = 64;

// A bad command line, in one line: the command, the word, what is wrong with it, and where the
// options are explained. Control characters are written as "\x0a".
class usage_error : public std::runtime_error {
 public:
  explicit usage_error(const std::string& what);
};

// The error for a command of a program, or for the program itself if `command` is empty:
// "COMMAND: WHAT; see PROGRAM COMMAND --help".
usage_error complaint(const std::string& program, const std::string& command,
                      const std::string& what);

}  // namespace command_line
