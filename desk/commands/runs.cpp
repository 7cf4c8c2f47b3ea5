#include <fmt/format.h>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"

namespace desk {

int runs_command(const report_options& options, std::ostream& out) {
  if (!options.capture.empty())
    throw no_run("a capture is one run; --logs names a folder with the logs of several");
  const auto starts = starts_of(load_logs(options));
  for (std::size_t i = 0; i < starts.size(); ++i)
    out << fmt::format("{:4}  {}{}\n", i + 1,
                       starts[i].empty() ? "its start was rotated away" : starts[i],
                       i + 1 == starts.size() ? "  the last one" : "");
  return status_nothing_found;
}

}  // namespace desk
