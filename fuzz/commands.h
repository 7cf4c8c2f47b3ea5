// The audit's commands as a fuzzer answers them: from memory. Stands in for base/command.cpp, so
// that no process is ever started, whatever the text under test makes of a command line.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

// Who is asked a command whose line holds `part` prints `text`; the first in the list decides, and
// an empty part fits every line. All others print nothing, as an unknown command does.
struct command_answer {
  std::string part;
  std::string text;
};

// What all commands from now on are answered with. Not while one is running.
void answer_commands(std::vector<command_answer> answers);

// The command lines that `step` asks, as it writes them.
std::vector<std::string> commands_asked_by(void (*step)());

}  // namespace fuzz
