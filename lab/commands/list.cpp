#include <fmt/format.h>

#include <cstdlib>

#include "lab/commands/commands.h"
#include "lab/describe/description.h"
#include "lab/faults/faults.h"
#include "lab/faults/ssh_faults.h"

namespace lab {

int list_command() {
  for (const std::string& name : router_names())
    fmt::print("{:<24} {}\n", name, load_router(name).description);
  return EXIT_SUCCESS;
}

namespace {

// For random choices of faults: an argued fault does nothing without its argument, and an ending
// fault hides most others.
const char* kind_of(const fault& f) {
  if (f.takes_argument) return "argued";
  return f.stops_from == phase::none ? "plain" : "ending";
}

}  // namespace

int faults_command(const faults_options& o) {
  for (const fault& f : fault_catalogue())
    if (o.kinds) {
      fmt::print("{}\t{}\n", f.name, kind_of(f));
    } else {
      fmt::print("{:<24} {}\n{:<24}   {}\n", f.name, f.description, "",
                 f.finding.empty() ? "no finding" : f.finding);
      for (const by_product& line : lines_beside(f)) fmt::print("{:<24}   {}\n", "", line.finding);
    }
  if (!o.kinds)
    for (const ssh_fault& f : ssh_faults())
      fmt::print("{:<24} {}\n{:<24}   {}\n", f.name, f.description, "", f.finding);
  return EXIT_SUCCESS;
}

}  // namespace lab
