#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "command_line/one_line.h"
#include "command_line/usage_error.h"
#include "desk/commands/commands.h"

namespace {

int complain(std::string_view message) {
  const std::string line = command_line::one_line(message);
  std::fprintf(stderr, "tessel-report: %s\n", line.c_str());
  return desk::status_wrong_call;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> words(argv, argv + argc);
    const std::vector<std::string> arguments(words.empty() ? words.begin() : words.begin() + 1,
                                             words.end());
    const int status = desk::run_command(desk::parse_options(arguments), std::cout);
    std::cout.flush();
    return std::cout ? status : complain("cannot write to standard output");
  } catch (const std::exception& error) {
    return complain(error.what());
  }
}
