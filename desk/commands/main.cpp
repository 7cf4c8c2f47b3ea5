#include <malloc.h>

#include <algorithm>
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

// A monitoring system reads any other status of its plug-in as an alarm.
int status_of_failure(const std::vector<std::string>& words) {
  constexpr int unknown_service = 3;
  const bool is_plugin = std::find(words.begin(), words.end(), "nagios") != words.end();
  return is_plugin ? unknown_service : desk::status_wrong_call;
}

void complain(std::string_view message) {
  const std::string line = command_line::one_line(message);
  std::fprintf(stderr, "tessel-report: %s\n", line.c_str());
}

// A run of the largest router takes 70 MiB, which grow and end together. Pages that the heap gives
// back on the way would only be taken, and cleared, again.
void keep_freed_pages() {
  constexpr int most_in_heap = 32 << 20;  // more, and mallopt refuses
  constexpr int never = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, most_in_heap);
  mallopt(M_TRIM_THRESHOLD, never);
}

}  // namespace

int main(int argc, char** argv) {
  keep_freed_pages();
  const std::vector<std::string> words(argv, argv + argc);
  try {
    const std::vector<std::string> arguments(words.empty() ? words.begin() : words.begin() + 1,
                                             words.end());
    const int status = desk::run_command(desk::parse_options(arguments), std::cout);
    std::cout.flush();
    if (std::cout) return status;
    complain("cannot write to standard output");
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return status_of_failure(words);
}
