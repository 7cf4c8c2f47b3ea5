// Stale entries, which the configuration does not explain, and the bundle manager's own check.
#include <fmt/format.h>

#include <cstddef>
#include <string>

#include "lab/faults/sites.h"

namespace lab {
namespace {

// A port that belongs to no bundle, on the node of a member.
std::string foreign_port(const member& m) {
  return m.port.substr(0, m.port.find('/')) + "/" + "0/0/60";
}

bool hold_foreign_port(router& r, planted_fault& p, const char* field, const site& s,
                       bool central) {
  if (!s) return false;
  note_place(p, central ? site{s.b, nullptr, nullptr} : s, name_of(*s.b));
  hold(r, field, p.object, p.node, foreign_port(*s.m));
  return true;
}

// Not in a bundle that another fault leaves without members: this would give it one again.
bool plant_stale_pi(router& r, planted_fault& p) {
  const auto whole = [&](const site& s) {
    return !is_absent(r, "pi.member", port_tail(s.m->port));
  };
  return hold_foreign_port(r, p, "pi.extra-member", find_site(r, p, whole), true);
}
bool plant_stale_pd(router& r, planted_fault& p) {
  return hold_foreign_port(r, p, "pd.extra-member", find_site(r, p, anywhere), false);
}
bool plant_stale_dpa(router& r, planted_fault& p) {
  return hold_foreign_port(r, p, "dpa.extra-member", find_site(r, p, anywhere), false);
}

bool plant_stale_chip(router& r, planted_fault& p) {
  const site s = find_site(r, p, has_chip);
  if (!s) return false;
  note_place(p, {nullptr, nullptr, s.n}, "");
  hold_on_npu(r, p, "chip.extra-lag", "*", s, "999");
  return true;
}

bool plant_health_info(router& r, planted_fault&) {
  r.health = r.health == "errors" || r.health == "mixed" ? "mixed" : "info";
  return true;
}

bool plant_health_errors(router& r, planted_fault&) {
  if (r.bundles.empty()) return false;
  r.health = r.health == "info" || r.health == "mixed" ? "mixed" : "errors";
  return true;
}

bool plant_health_mixed(router& r, planted_fault&) {
  if (r.bundles.empty()) return false;
  r.health = "mixed";
  return true;
}

// The output of a large router: the filter drops the lines between these empty ones, and one line
// names all bundles.
bool edit_health_line(capture& c, const router&, planted_fault&) {
  constexpr std::size_t empty_lines = 3000;
  constexpr int bundles = 600;
  std::string& report = answer_to(c, local_place, "lagmgr_health");
  report.insert(0, std::string(empty_lines, '\n'));
  report += "   out of step:";
  for (int number = 1; number <= bundles; ++number)
    report += fmt::format(" Bundle-Ether{}", number);
  report += '\n';
  return true;
}

constexpr fault table[] = {
    {.name = "stale-pi",
     .description = "the bundle manager holds a member that is not configured",
     .finding = "Number of stale entries in PI 1",
     .at = checkpoint::stale,
     .hides = reach::nothing,
     .counted = false,
     .plant = plant_stale_pi},
    {.name = "stale-bme",
     .description = "a node's agent holds a member that is not configured",
     .finding = "Number of stale entries in BME 1",
     .at = checkpoint::stale,
     .hides = reach::nothing,
     .counted = false,
     .plant = plant_stale_pd},
    {.name = "stale-dpa",
     .description = "a forwarding object holds a member that is not configured",
     .finding = "Number of stale entries in DPA 1",
     .at = checkpoint::stale,
     .hides = reach::nothing,
     .counted = false,
     .plant = plant_stale_dpa},
    {.name = "stale-bcm",
     .description = "a chip holds a LAG that is not configured",
     .finding = "Number of stale entries in BCM 1",
     .at = checkpoint::stale,
     .hides = reach::nothing,
     .counted = false,
     .plant = plant_stale_chip},
    {.name = "health-info",
     .description =
         "the bundle manager's own check adds an information block, which the audit leaves out",
     .harms = "lagmgr_health",
     .at = checkpoint::health_bundles,
     .hides = reach::nothing,
     .counted = false,
     .plant = plant_health_info},
    {.name = "health-errors",
     .description = "the bundle manager's own check names bundles",
     .finding = "Bundle-Ether{}",
     .harms = "lagmgr_health",
     .at = checkpoint::health_bundles,
     .hides = reach::router,
     .counted = false,
     .plant = plant_health_errors},
    {.name = "health-mixed",
     .description =
         "the bundle manager's own check adds information and names bundles, several on one line",
     .finding = "Bundle-Ether{}",
     .harms = "lagmgr_health",
     .at = checkpoint::health_bundles,
     .hides = reach::router,
     .counted = false,
     .plant = plant_health_mixed},
    {.name = "health-overlong",
     .description = "the bundle manager's own check prints thousands of empty lines and names "
                    "600 bundles in one line",
     .finding = "Bundle-Ether{}",
     .harms = "lagmgr_health",
     .at = checkpoint::health_bundles,
     .hides = reach::router,
     .counted = false,
     .edit = edit_health_line},
};

}  // namespace

std::span<const fault> hygiene_faults() {
  return table;
}

}  // namespace lab
