#include "lab/base/error.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "command_line/one_line.h"

namespace lab {
lab_error::lab_error(std::string_view what) : std::runtime_error(command_line::one_line(what)) {}

void fail(const std::string& what) {
  throw lab_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

}  // namespace lab
