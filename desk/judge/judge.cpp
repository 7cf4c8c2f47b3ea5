#include "desk/judge/judge.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <tuple>

#include "desk/judge/differences.h"
#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

namespace desk {

namespace {

// A run that left nothing but its start lines shows on the console why.
void add_early_end(judged_run& into) {
  if (!into.causes.empty() || into.of.has_snapshot || into.of.end == run_end::complete) return;
  if (!into.of.is_last) return;
  cause made;
  if (!into.of.unwritten.empty()) {
    made.title = fmt::format("the run ended at its start: it could not write /var/log/{}",
                             into.of.unwritten.front());
    made.how_sure = sureness::named;
    made.why = "the log has no start of this run";
    made.next = "df /var/log; ls -l /var/log";
    into.causes.push_back(std::move(made));
    return;
  }
  made.title = "the run ended at its start: the machine, its list of chips, or a log file";
  const auto& marks = into.of.marks;
  const auto unread = std::find_if(marks.begin(), marks.end(), [](const std::string& mark) {
    return mark.starts_with("cannot read");
  });
  if (unread != marks.end()) made.title += fmt::format(": {}", shortened(*unread));
  made.why = "the console shows the reason, the logs do not";
  made.next = "/opt/nos/bin/sw_version_show; df /var/log";
  into.causes.push_back(std::move(made));
}

std::uint64_t number_of_bundle(std::string_view name) {
  constexpr std::size_t prefix = 2;  // "BE"
  std::uint64_t number = 0;
  if (name.size() > prefix)
    std::from_chars(name.data() + prefix, name.data() + name.size(), number);
  return number;
}

// Something that could not be verified, and nothing says of which bundle.
bool is_doubt_of_all(const run& of, const cause& one) {
  return one.object.bundle.empty() && !is_difference(of, one) &&
         std::all_of(one.findings.begin(), one.findings.end(),
                     [&](std::size_t f) { return of.findings[f].object.bundle.empty(); });
}

void judge_bundle(judging& at, const std::string& name) {
  bundle_verdict made;
  made.bundle = name;
  for (std::size_t i = 0; i < at.into.causes.size(); ++i) {
    const cause& one = at.into.causes[i];
    const bool is_its_own = one.object.bundle == name && !one.differences.empty();
    const bool has_finding = std::any_of(one.findings.begin(), one.findings.end(), [&](auto f) {
      return at.of().findings[f].object.bundle == name && !is_doubt(at.of().findings[f]);
    });
    const auto of_bundle = [&](std::size_t f) { return at.of().findings[f].object.bundle == name; };
    const auto count = static_cast<std::size_t>(
        std::count_if(one.findings.begin(), one.findings.end(), of_bundle));
    if (!is_its_own && count == 0) {
      if (is_doubt_of_all(at.of(), one)) made.not_judged.push_back(one.title);
      continue;
    }
    made.causes.push_back(i);
    made.findings += count;
    if (is_its_own || has_finding) {
      made.is = verdict::differs;
      made.first = std::min(made.first, one.first);
    } else {
      made.not_judged.push_back(one.title);
    }
  }
  for (const std::string& log : at.of().lost_logs)
    made.not_judged.push_back(fmt::format("the messages in {}", log));
  for (const coverage& hole : at.of().covered)
    if (is_hole(hole))
      made.not_judged.push_back(fmt::format("{} of {}", word_for(hole.of), words_for_place(hole)));
  if (made.is != verdict::differs && made.not_judged.empty()) made.is = verdict::agrees;
  at.into.bundles.push_back(std::move(made));
}

void judge_bundles(judging& at) {
  std::set<std::string> names;
  for (const object& one : at.of().objects)
    if (one.kind == object_kind::bundle && one.is_configured) names.insert(one.name);
  for (const finding& one : at.of().findings)
    if (!one.object.bundle.empty()) names.insert(one.object.bundle);
  std::vector<std::string> sorted(names.begin(), names.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return number_of_bundle(a) < number_of_bundle(b);
  });
  for (const std::string& name : sorted) judge_bundle(at, name);
}

// What differs before what could not be judged; of either the uppermost layer first.
void sort_causes(judged_run& of) {
  const auto rank = [&](const cause& one) {
    return std::make_tuple(is_difference(of.of, one) ? 0 : 1, one.first);
  };
  std::stable_sort(of.causes.begin(), of.causes.end(),
                   [&](const cause& a, const cause& b) { return rank(a) < rank(b); });
}

}  // namespace

judged_run judge(run of) {
  judged_run made;
  made.of = std::move(of);
  judging at{made, find_differences(made.of)};
  at.is_explained.assign(made.of.findings.size(), false);
  add_holes(at);
  take_differences(at);
  take_findings(at);
  add_early_end(made);
  sort_causes(made);
  judge_bundles(at);
  made.is_wholly_judged =
      std::all_of(made.bundles.begin(), made.bundles.end(),
                  [](const bundle_verdict& one) { return one.not_judged.empty(); }) &&
      made.causes.empty() && made.of.lost_logs.empty() && made.of.end == run_end::complete;
  return made;
}

int exit_status(const judged_run& of) {
  const bool has_findings = std::any_of(of.causes.begin(), of.causes.end(), [&](const cause& one) {
    return is_difference(of.of, one);
  });
  if (has_findings) return 1;
  return of.is_wholly_judged ? 0 : 3;
}

}  // namespace desk
