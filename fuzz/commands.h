// A replacement for base/command.cpp that answers the audit's commands from memory. No process is
// ever started, whatever command line the text under test leads to.
#pragma once

#include <string>
#include <vector>

namespace fuzz {

// A command whose line contains `part` prints `text`. The first entry that matches decides; an
// empty part matches every line. A command without an entry prints nothing, as an unknown command
// does.
struct command_answer {
  std::string part;
  std::string text;
};

// Sets the answers to all later commands. Not while a command is running.
void answer_commands(std::vector<command_answer> answers);

// The command lines that `step` runs, exactly as it writes them.
std::vector<std::string> commands_asked_by(void (*step)());

}  // namespace fuzz
