// One program under many names: called tessel-lab it is the lab's command line, under any other
// name it is the tool of that name: the one that answers, or the one that passes on and keeps.
#include <string>
#include <string_view>
#include <vector>

#include "lab/commands/command_line.h"
#include "lab/tool/record_call.h"
#include "lab/tool/serve.h"

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  if (words.empty()) return lab::usage_status;
  const std::string_view name = std::string_view{words.front()};
  if (name.substr(name.rfind('/') + 1) != "tessel-lab")
    return lab::is_recording() ? lab::record_call(words) : lab::serve(words);
  return lab::run_command_line({words.begin() + 1, words.end()});
}
