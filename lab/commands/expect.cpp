#include <fmt/format.h>

#include <cstdlib>

#include "lab/commands/commands.h"
#include "lab/faults/faults.h"
#include "lab/faults/ssh_faults.h"

namespace lab {

// For programs: the name, "shown", "hidden" or "none", and the finding, separated by tabs; a hidden
// finding is followed by the reason why it may be missing.
int expect_command(const expect_options& o) {
  std::vector<std::string> faults = o.faults;
  for (const planted_ssh_fault& one : take_ssh_faults(faults))
    fmt::print("{}\tshown\t{}\n", one.name, one.finding);
  for (const expectation& one : expected_findings(faulty_router(o.router, faults)))
    fmt::print("{}\t{}\t{}{}{}\n", one.name,
               one.finding.empty()  ? "none"
               : one.hidden.empty() ? "shown"
                                    : "hidden",
               one.finding, one.hidden.empty() ? "" : "\t", one.hidden);
  return EXIT_SUCCESS;
}

}  // namespace lab
