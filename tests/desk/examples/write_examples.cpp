// Writes each machine format of each example run into a folder: healthy.json, healthy.sarif, ...;
// and into merge/ below it, what is made of many routers.
#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "desk/show/html.h"
#include "desk/show/json.h"
#include "desk/show/junit.h"
#include "desk/show/merge.h"
#include "desk/show/nagios.h"
#include "desk/show/output.h"
#include "desk/show/prometheus.h"
#include "desk/show/sarif.h"
#include "tests/desk/example_runs.h"

namespace {

using view = void (*)(const desk::judged_run&, std::ostream&);

constexpr std::array<std::pair<const char*, view>, 6> views = {{
    {"json", desk::show_json},
    {"sarif", desk::show_sarif},
    {"xml", desk::show_junit},
    {"prom", desk::show_prometheus},
    {"nagios",
     [](const desk::judged_run& of, std::ostream& out) { (void)desk::show_nagios(of, out); }},
    {"html", desk::show_html},
}};

void write_merged(const std::string& folder) {
  std::filesystem::create_directory(folder);
  const std::array<std::pair<std::string, std::vector<desk::merged_router>>, 3> networks = {{
      {"network", desk::routers_of_a_network()},
      {"hostile", desk::hostile_routers()},
      {"many", desk::many_routers(500)},
  }};
  for (const auto& [name, routers] : networks) {
    desk::write_output(folder + name + ".json",
                       [&](std::ostream& out) { desk::show_merged_json(routers, out); });
    desk::write_output(folder + name + ".html",
                       [&](std::ostream& out) { desk::show_merged_html(routers, out); });
  }
}

}  // namespace

int main(int count, char** words) try {
  if (count != 2) {
    std::fputs("usage: write_examples FOLDER\n", stderr);
    return 64;
  }
  const std::array<std::pair<std::string, desk::judged_run>, 6> runs = {{
      {"healthy", desk::healthy_run()},
      {"faults", desk::run_with_faults()},
      {"not_judged", desk::run_not_judged()},
      {"stopped", desk::run_that_stopped()},
      {"hostile", desk::hostile_run()},
      {"large", desk::large_run(1000, 48)},
  }};
  for (const auto& run : runs)
    for (const auto& each : views)
      desk::write_output(std::string(words[1]) + "/" + run.first + "." + each.first,
                         [&](std::ostream& out) { each.second(run.second, out); });
  write_merged(std::string(words[1]) + "/merge/");
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "write_examples: %s\n", error.what());
  return 1;
}
