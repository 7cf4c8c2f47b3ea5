#include "lab/base/error.h"

#include <fmt/format.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>

namespace lab {
namespace {

std::string one_line(std::string_view text) {
  std::string line;
  for (const char c : text)
    if (std::iscntrl(static_cast<unsigned char>(c)) != 0)
      line += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    else
      line += c;
  return line;
}

}  // namespace

lab_error::lab_error(std::string_view what) : std::runtime_error(one_line(what)) {}

void fail(const std::string& what) {
  throw lab_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

}  // namespace lab
