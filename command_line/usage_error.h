// The failure that ends a program with `usage_status`.
#pragma once

#include <stdexcept>
#include <string>

namespace command_line {

inline constexpr int usage_status = 64;

// A bad command line, in one line: the command, the word and what is wrong with it; as a rule also
// where the options are explained. Control characters are written as "\x0a".
class usage_error : public std::runtime_error {
 public:
  explicit usage_error(const std::string& what);
};

}  // namespace command_line
