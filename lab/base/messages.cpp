#include "lab/base/messages.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <system_error>

#include "command_line/one_line.h"
#include "lab/base/error.h"

namespace lab {

namespace fs = std::filesystem;

std::string message_of(const std::exception& failure) {
  const auto* of_system = dynamic_cast<const std::system_error*>(&failure);
  if (of_system != nullptr && std::ferror(stdout) != 0)
    return fmt::format("standard output: {}", of_system->code().message());
  const auto* of_files = dynamic_cast<const fs::filesystem_error*>(&failure);
  if (of_files == nullptr) return failure.what();
  // The second path is the one that could not be made.
  const fs::path& file = of_files->path2().empty() ? of_files->path1() : of_files->path2();
  return fmt::format("{}: {}", file.string(), of_files->code().message());
}

std::string reported_as(std::string message, const fs::path& building, const std::string& shown) {
  const std::string text = building.string();
  for (std::size_t at = 0; (at = message.find(text, at)) != std::string::npos; at += shown.size())
    message.replace(at, text.size(), shown);
  return message;
}

std::string on_one_line(std::string_view text) {
  return command_line::one_line(text);
}

void report_as(const fs::path& building, const std::string& shown,
               const std::function<void()>& action) try {
  action();
} catch (const std::exception& failure) {
  if (dynamic_cast<const lab_error*>(&failure) == nullptr &&
      dynamic_cast<const fs::filesystem_error*>(&failure) == nullptr)
    throw;
  throw lab_error(reported_as(message_of(failure), building, shown));
}

void flush_output() {
  if (std::fflush(stdout) != 0)
    throw lab_error(fmt::format("standard output: {}", std::strerror(errno)));
}

}  // namespace lab
