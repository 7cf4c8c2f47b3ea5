#include <fmt/format.h>

#include <cstdlib>
#include <exception>

#include "lab/base/complain.h"
#include "lab/base/messages.h"
#include "lab/capture/archive.h"
#include "lab/capture/diff.h"
#include "lab/commands/commands.h"

namespace lab {

int diff_command(const diff_options& o) {
  constexpr int some_changed = 1;
  constexpr int trouble = 2;
  try {
    const auto changes = changes_between(read_capture(o.before), read_capture(o.after));
    fmt::print("{}", change_report(changes, {.values = o.values, .all = o.all}));
    flush_output();
    return changes.empty() ? EXIT_SUCCESS : some_changed;
  } catch (const std::exception& failure) {
    complain(fmt::format("tessel-lab: {}", message_of(failure)));
    return trouble;
  }
}

}  // namespace lab
