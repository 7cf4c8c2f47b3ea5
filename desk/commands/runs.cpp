#include <fmt/format.h>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"

namespace desk {

int runs_command(const report_options& options, std::ostream& out) {
  if (!options.capture.empty())
    throw no_run("a capture is one run; --logs names a folder with the logs of several");
  const log_set logs = load_logs(options);
  const auto runs = runs_in(logs);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    const std::string& started = runs[i].started;
    out << fmt::format("{:4}  {}{}\n", i + 1,
                       started.empty() ? "its start was rotated away" : started,
                       i + 1 == runs.size() ? "  the last one" : "");
    for (const std::string& note : {doubt_about(runs, i), span_of(runs[i])})
      if (!note.empty()) out << fmt::format("      {}\n", note);
  }
  return status_nothing_found;
}

}  // namespace desk
