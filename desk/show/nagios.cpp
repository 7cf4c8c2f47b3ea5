#include "desk/show/nagios.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <string>
#include <string_view>

#include "desk/judge/judged_run.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/keys.h"

namespace desk {

namespace {

constexpr std::size_t longest_line = 1024;

bool is_grave(finding_kind kind) {
  return kind == finding_kind::inconsistency || kind == finding_kind::programming;
}

// Notes of a healthy router belong to no cause, and a failure is no fault of the router.
bool warns(const judged_run& of) {
  using enum finding_kind;
  for (const auto kind : {stale, health, delay_delete})
    if (total(of.of, kind) > 0) return true;
  return std::any_of(of.causes.begin(), of.causes.end(), [&](const cause& each) {
    return std::any_of(each.findings.begin(), each.findings.end(),
                       [&](std::size_t finding) { return of.of.findings[finding].kind == note; });
  });
}

service_state state_of(const judged_run& of) {
  for (const auto kind : all_finding_kinds)
    if (is_grave(kind) && total(of.of, kind) > 0) return service_state::critical;
  if (of.of.end != run_end::complete) return service_state::unknown;
  if (warns(of)) return service_state::warning;
  const bool is_whole = of.is_wholly_judged && total(of, verdict::not_judged) == 0;
  return is_whole ? service_state::ok : service_state::unknown;
}

std::string_view word_of(service_state state) {
  switch (state) {
    case service_state::ok:
      return "OK";
    case service_state::warning:
      return "WARNING";
    case service_state::critical:
      return "CRITICAL";
    case service_state::unknown:
      break;
  }
  return "UNKNOWN";
}

std::string_view end_of(run_end end) {
  switch (end) {
    case run_end::complete:
      return "";
    case run_end::stopped:
      return "the audit stopped before its end, ";
    case run_end::cut_off:
      return "the logs end in the middle of the run, ";
    case run_end::unknown:
      break;
  }
  return "it is not known whether the audit came to its end, ";
}

std::string bundles_of(const judged_run& of) {
  const std::size_t differ = total(of, verdict::differs);
  const std::size_t not_judged = total(of, verdict::not_judged);
  const auto all = of.bundles.size();
  const std::string_view noun = all == 1 ? "bundle" : "bundles";
  std::string text;
  if (differ == 0 && not_judged == 0)
    text = fmt::format("{} {} {}", all, noun, all == 1 ? "agrees" : "agree");
  else if (differ == 0)
    text = fmt::format("{} of {} {} not judged", not_judged, all, noun);
  else if (not_judged == 0)
    text = fmt::format("{} of {} {} {}", differ, all, noun, differ == 1 ? "differs" : "differ");
  else
    text = fmt::format("{} of {} {} {}, {} not judged", differ, all, noun,
                       differ == 1 ? "differs" : "differ", not_judged);
  return text;
}

// What to look at first: the causes, or else a reason why a bundle was not judged, or a mark.
std::string details_of(const judged_run& of) {
  std::string text;
  for (const auto& each : of.causes)
    text += fmt::format("{} {}", text.empty() ? ":" : ";", nagios_text(each.title));
  if (!text.empty()) return text;
  for (const auto& bundle : of.bundles)
    if (!bundle.not_judged.empty())
      return fmt::format(": {}: {}", nagios_text(bundle.bundle),
                         nagios_text(bundle.not_judged.front()));
  return of.of.marks.empty() ? "" : ": " + nagios_text(of.of.marks.front());
}

// Value, warning and critical threshold, minimum. A threshold of 0 is passed by the first finding.
std::string performance_of(const judged_run& of) {
  std::size_t findings = 0;
  for (const auto kind : all_finding_kinds) findings += total(of.of, kind);
  std::string data = fmt::format("findings={};;;0", findings);
  for (const auto kind : all_finding_kinds) {
    const bool is_for_people = kind == finding_kind::note || kind == finding_kind::failure;
    const std::string_view thresholds = is_grave(kind) ? ";0" : is_for_people ? ";" : "0;";
    data += fmt::format(" {}={};{};0", key_for(kind), total(of.of, kind), thresholds);
  }
  for (const auto is : all_verdicts)
    data += fmt::format(" bundles_{}={};;;0", key_for(is), total(of, is));
  if (std::isfinite(of.of.seconds) && of.of.seconds >= 0)
    data += fmt::format(" time={:.3f}s;;;0", of.of.seconds);
  return data;
}

std::string shortened(const std::string& text, std::size_t bytes) {
  constexpr std::string_view more = "...";
  if (text.size() <= bytes) return text;
  return std::string(start_of(text, bytes - more.size())).append(more);
}

}  // namespace

service_state show_nagios(const judged_run& of, std::ostream& out) {
  const service_state state = state_of(of);
  const std::string data = fmt::format(" | {}\n", performance_of(of));
  const std::string text = fmt::format("TESSEL {} - {}{}{}", word_of(state), end_of(of.of.end),
                                       bundles_of(of), details_of(of));
  out << shortened(text, longest_line - data.size()) << data;
  return state;
}

}  // namespace desk
