#include <fmt/format.h>

#include "desk/commands/commands.h"
#include "desk/commands/load.h"
#include "desk/judge/judge.h"
#include "desk/show/coverage_view.h"
#include "desk/show/dossier.h"

namespace desk {

int bundle_command(const report_options& options, std::ostream& out) {
  const judged_run judged = judge(load_run(options));
  const auto bundle = bundle_meant(judged, options.word);
  if (!bundle)
    throw no_run(
        fmt::format("the run has no bundle, member, handle or LAG id {}; the summary with "
                    "--all lists the bundles",
                    options.word));
  show_dossier(judged, *bundle, standard_output(), out);
  show_marks(judged.of, standard_output(), out);
  return status_of(judged, options);
}

}  // namespace desk
