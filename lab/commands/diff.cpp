#include <fmt/format.h>

#include <cstdlib>
#include <exception>

#include "lab/base/messages.h"
#include "lab/capture/archive.h"
#include "lab/capture/diff.h"
#include "lab/commands/commands.h"

namespace lab {

int diff_command(const std::vector<std::string>& arguments) {
  constexpr int some_changed = 1;
  constexpr int trouble = 2;
  const option_values o = parse_options(arguments, {});
  expect_operands(o, 2, "A B");
  try {
    const auto changes = changes_between(read_capture(o.operands[0]), read_capture(o.operands[1]));
    fmt::print("{}", change_report(changes));
    flush_output();
    return changes.empty() ? EXIT_SUCCESS : some_changed;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-lab: {}\n", message_of(failure));
    return trouble;
  }
}

}  // namespace lab
