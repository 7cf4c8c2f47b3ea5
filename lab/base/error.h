// The one kind of failure that a user of the lab meets.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace lab {

// One line that says what went wrong, in which file and where; the command line prints it and
// exits. It may quote names and texts of any origin, so control characters are written as "\x0a".
struct lab_error : std::runtime_error {
  explicit lab_error(std::string_view what);
};

// Throws `lab_error` with `what` and the text of errno.
[[noreturn]] void fail(const std::string& what);

}  // namespace lab
