#include "commands.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

#include "base/command.h"
#include "base/dump.h"

namespace fuzz {

namespace {

std::vector<command_answer>& known_answers() {
  static std::vector<command_answer> answers;
  return answers;
}

// Where commands are noted, or null.
std::vector<std::string>* notes = nullptr;

}  // namespace

void answer_commands(std::vector<command_answer> answers) {
  known_answers() = std::move(answers);
}

std::vector<std::string> commands_asked_by(void (*step)()) {
  struct noting {
    explicit noting(std::vector<std::string>& asked) { notes = &asked; }
    ~noting() { notes = nullptr; }
    noting(const noting&) = delete;
    noting& operator=(const noting&) = delete;
  };
  std::vector<std::string> asked;
  const noting until_the_end(asked);
  step();
  return asked;
}

}  // namespace fuzz

namespace tessel {

value execute(std::string_view cmd, std::string_view) {
  if (fuzz::notes != nullptr) fuzz::notes->emplace_back(cmd);
  for (const auto& [part, text] : fuzz::known_answers()) {
    if (cmd.find(part) != std::string_view::npos) return text;
  }
  return "";
}

value execute_bcmd(std::string_view bcmd, const value& npu_id, const value& nodeid, const value&,
                   std::string_view, std::string_view) {
  return execute(
      fmt::format("asic_shell_show -c \"{}\" -u {} -n {}", bcmd, plain(npu_id), plain(nodeid)));
}

}  // namespace tessel
