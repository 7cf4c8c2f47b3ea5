// What the measured process does, seen from inside it: the program that loads the library has
// functions of the C library's names in front of the C library's own, so every call of the library
// passes here first. Any thread may call them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

// Seconds of the clock that does not jump.
double now();

struct command_seen {
  std::string line;  // as given to the shell
  double begin = 0;
  double end = 0;  // 0 while it runs
};

struct observed {
  std::size_t threads_started = 0;
  std::size_t most_threads = 1;  // alive at once, with the first one
  std::size_t most_commands = 0;
  // The kernel gives the lowest free number, so the highest number that it gave shows how many
  // descriptors were open at that moment.
  std::size_t most_descriptors = 0;
  std::vector<command_seen> commands;
};

// All up to now.
observed what_was_observed();

}  // namespace bench
