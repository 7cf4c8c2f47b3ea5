#include <fmt/format.h>

#include <cstdlib>

#include "commands.h"
#include "description.h"
#include "faults.h"

namespace lab {

int list_command(const std::vector<std::string>& arguments) {
  expect_operands(parse_options(arguments, {}), 0, "nothing");
  for (const std::string& name : router_names())
    fmt::print("{:<24} {}\n", name, load_router(name).description);
  return EXIT_SUCCESS;
}

int faults_command(const std::vector<std::string>& arguments) {
  expect_operands(parse_options(arguments, {}), 0, "nothing");
  for (const fault& f : fault_catalogue())
    fmt::print("{:<24} {}\n{:<24}   {}\n", f.name, f.description, "",
               f.finding.empty() ? "no finding" : f.finding);
  return EXIT_SUCCESS;
}

}  // namespace lab
