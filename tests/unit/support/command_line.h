// Captures the exact command line that the audit passes to the shell. It makes the capture file
// impossible to create, so that the log names the command that could not be run.
//
//   EXPECT_EQ(command_line_of("running_cfg", [] { dump_running_config(); }), " cfg_render ...");
//
// The logs must be open.
#pragma once

#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "support/fake_router.h"

namespace tessel {

inline std::string command_line_of(std::string_view suffix, const std::function<void()>& body) {
  const std::string capture = fmt::format("/tmp/tessel_{}.log", suffix);
  std::filesystem::remove(capture);
  std::filesystem::create_directory(capture);
  body();
  std::filesystem::remove(capture);
  const std::string head =
      fmt::format("cannot open {}: Is a directory: execution failed for ", capture);
  std::string line;
  for (const std::string& message : messages(LOG_FILE_EXCEPTION)) {
    if (message.starts_with(head)) line = message.substr(head.size());
  }
  EXPECT_NE(line, "") << "no command was run with the capture suffix " << suffix;
  return line;
}

}  // namespace tessel
