#include <string>
#include <vector>

#include "lab/base/complain.h"
#include "lab/commands/command_line.h"

int main(int argc, char** argv) {
  lab::hold_standard_streams();
  const std::vector<std::string> words(argv, argv + argc);
  if (words.empty()) return lab::usage_status;
  return lab::run_command_line({words.begin() + 1, words.end()});
}
