#include "desk/show/nagios.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>

#include "desk/judge/judged_run.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/keys.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

constexpr std::size_t longest_line = 1024;

bool is_grave(finding_kind kind) {
  return kind == finding_kind::inconsistency || kind == finding_kind::programming;
}

// The judge also finds differences that the audit did not report. A difference in what the router
// is about to delete is none yet.
bool is_grave(const run& of, const cause& why) {
  const auto kind_is = [&](finding_kind kind) {
    return [&of, kind](std::size_t finding) { return of.findings[finding].kind == kind; };
  };
  return !why.differences.empty() && std::none_of(why.findings.begin(), why.findings.end(),
                                                  kind_is(finding_kind::delay_delete));
}

bool is_grave(const judged_run& of) {
  return std::any_of(all_finding_kinds.begin(), all_finding_kinds.end(),
                     [&](finding_kind kind) {
                       return is_grave(kind) && total_of_faults(of.of, kind) > 0;
                     }) ||
         std::any_of(of.causes.begin(), of.causes.end(),
                     [&](const cause& each) { return is_grave(of.of, each); });
}

bool has_doubts(const judged_run& of) {
  return !of.is_wholly_judged || total(of, verdict::not_judged) > 0 ||
         total(of.of, finding_kind::failure) > 0 ||
         std::any_of(of.causes.begin(), of.causes.end(),
                     [](const cause& each) { return each.findings.empty(); });
}

service_state state_of(const judged_run& of) {
  using enum finding_kind;
  if (is_grave(of)) return service_state::critical;
  if (of.of.end != run_end::complete) return service_state::unknown;
  for (const auto kind : {stale, health, delay_delete})
    if (total_of_faults(of.of, kind) > 0) return service_state::warning;
  const auto& all = of.of.findings;
  if (std::any_of(all.begin(), all.end(), is_scale)) return service_state::warning;
  if (has_doubts(of)) return service_state::unknown;
  return of.causes.empty() ? service_state::ok : service_state::warning;
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

// What to look at first: the causes, or else a reason why a bundle was not judged, or a mark.
std::string details_of(const judged_run& of) {
  std::string text;
  for (const auto& each : of.causes)
    text += fmt::format("{} {}", text.empty() ? ":" : ";", nagios_text(each.title));
  if (!text.empty()) return text;
  for (const auto& bundle : of.bundles)
    if (bundle.is == verdict::not_judged && !bundle.not_judged.empty())
      return fmt::format(": {}: {}", nagios_text(bundle.bundle),
                         nagios_text(bundle.not_judged.front()));
  return of.of.marks.empty() ? "" : ": " + nagios_text(of.of.marks.front());
}

// Value, warning and critical threshold, minimum. A threshold of 0 is passed by the first finding,
// so what is no fault counts among all findings only.
std::string performance_of(const judged_run& of) {
  std::size_t findings = 0;
  for (const auto kind : all_finding_kinds) findings += total(of.of, kind);
  std::string data = fmt::format("findings={};;;0", findings);
  for (const auto kind : all_finding_kinds) {
    const bool is_for_people = kind == finding_kind::note || kind == finding_kind::failure;
    const std::string_view thresholds = is_grave(kind) ? ";0" : is_for_people ? ";" : "0;";
    data += fmt::format(" {}={};{};0", key_for(kind), total_of_faults(of.of, kind), thresholds);
  }
  for (const auto is : all_verdicts)
    data += fmt::format(" bundles_{}={};;;0", key_for(is), total(of, is));
  if (const auto seconds = seconds_of(of.of)) data += fmt::format(" time={:.3f}s;;;0", *seconds);
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
  const std::string_view end = sentence_for(of.of.end);
  const std::string text =
      fmt::format("TESSEL {} - {}{}{}{}", word_of(state), end, end.empty() ? "" : ", ",
                  sentence_for_bundles(of), details_of(of));
  out << shortened(text, longest_line - data.size()) << data;
  return state;
}

}  // namespace desk
