// The one kind of failure that a user of the lab meets.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace lab {

// What went wrong, in one line that names file and place; the command line prints it and ends.
// Names and texts of any origin stand in it: what would end the line or steer the terminal is
// written as "\x0a".
struct lab_error : std::runtime_error {
  explicit lab_error(std::string_view what);
};

// Throws `lab_error` with `what` and the text of errno.
[[noreturn]] void fail(const std::string& what);

}  // namespace lab
