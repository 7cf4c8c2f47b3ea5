#include "desk/show/prometheus.h"

#include <fmt/format.h>

#include <cmath>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "desk/judge/judged_run.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/keys.h"

namespace desk {

namespace {

void head(std::ostream& out, std::string_view name, std::string_view help) {
  out << fmt::format("# HELP {0} {1}\n# TYPE {0} gauge\n", name, help);
}

void single(std::ostream& out, std::string_view name, std::string_view help,
            const std::string& value) {
  head(out, name, help);
  out << fmt::format("{} {}\n", name, value);
}

std::string seconds(std::int64_t milliseconds) {
  return fmt::format("{:.3f}", static_cast<double>(milliseconds) / 1000);
}

void show_findings(const run& of, std::ostream& out) {
  head(out, "tessel_findings", "Findings of the audit by kind.");
  for (const auto kind : all_finding_kinds)
    out << fmt::format("tessel_findings{{kind=\"{}\"}} {}\n", key_for(kind),
                       total_of_faults(of, kind));
}

void show_bundles(const judged_run& of, std::ostream& out) {
  head(out, "tessel_bundles", "Bundles of the router by verdict.");
  for (const auto is : all_verdicts)
    out << fmt::format("tessel_bundles{{verdict=\"{}\"}} {}\n", key_for(is), total(of, is));

  // Two names can be the same label once their broken bytes are replaced.
  std::map<std::string, std::size_t> findings;
  for (const auto& bundle : of.bundles)
    if (bundle.findings > 0) findings[prometheus_label(bundle.bundle)] += bundle.findings;
  if (findings.empty()) return;
  head(out, "tessel_bundle_findings", "Findings of each bundle that has some.");
  for (const auto& [bundle, count] : findings)
    out << fmt::format("tessel_bundle_findings{{bundle=\"{}\"}} {}\n", bundle, count);
}

void show_coverage(const run& of, std::ostream& out) {
  std::map<std::pair<layer, coverage_state>, std::size_t> answers;
  for (const auto layer_of : all_layers)
    for (const auto state : all_coverage_states) answers[{layer_of, state}] = 0;
  for (const auto& each : of.covered) ++answers[{each.of, each.state}];

  head(out, "tessel_coverage", "Nodes and chips of each layer by what came of asking them.");
  for (const auto& [key, count] : answers)
    out << fmt::format("tessel_coverage{{layer=\"{}\",state=\"{}\"}} {}\n", key_for(key.first),
                       key_for(key.second), count);
}

void show_times(const run& of, std::ostream& out) {
  const auto start = start_of(of);
  const auto length = seconds_of(of);
  if (start)
    single(out, "tessel_run_start_time_seconds",
           "Start of the run; without a journal by the router's clock, read as UTC.",
           seconds(*start));
  if (start && length)
    single(out, "tessel_run_completion_time_seconds", "End of the run.",
           seconds(*start + std::llround(*length * 1000)));
  if (length)
    single(out, "tessel_run_seconds", "How long the run took.", fmt::format("{:.3f}", *length));
}

}  // namespace

void show_prometheus(const judged_run& of, std::ostream& out) {
  show_findings(of.of, out);
  show_bundles(of, out);
  show_coverage(of.of, out);
  single(out, "tessel_run_complete", "1 if the audit came to its result table, otherwise 0.",
         of.of.end == run_end::complete ? "1" : "0");
  show_times(of.of, out);
}

}  // namespace desk
