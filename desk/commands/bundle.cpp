#include <fmt/format.h>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/show/coverage_view.h"
#include "desk/show/dossier.h"
#include "desk/show/escape.h"

namespace desk {

int bundle_command(const report_options& options, std::ostream& out) {
  const judged_run& judged = load_and_judge(options);
  const auto bundle = bundle_meant(judged, options.word);
  if (!bundle)
    throw no_run(
        fmt::format("the run has no bundle, member, handle or LAG id {}; the summary with "
                    "--all lists the bundles",
                    options.word));
  const std::string sub = unknown_sub_bundle(judged.of, options.word);
  if (!sub.empty())
    out << fmt::format("The run has no sub-bundle {}; this is {}.\n\n", printable(sub), *bundle);
  show_dossier(judged, *bundle, standard_output(), out);
  show_marks(judged.of, standard_output(), out);
  return status_of(judged, options);
}

}  // namespace desk
