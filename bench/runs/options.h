// The command line of tessel-bench.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

struct options {
  std::vector<std::string> sizes;
  std::vector<std::string> families;
  std::vector<bool> hqos;
  std::string latency;    // as for tessel-lab
  std::string callgrind;  // the file to write
  unsigned repeat = 1;
  bool help = false;
};

struct bad_options : std::runtime_error {
  using std::runtime_error::runtime_error;
};

extern const char* const help_text;

// What is not named means all of it. Throws `bad_options`.
options parse_options(int argc, char** argv);

}  // namespace bench
