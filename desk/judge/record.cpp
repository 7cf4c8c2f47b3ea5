#include "desk/judge/record.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

namespace desk {

namespace {

// Most messages show a value and the one that was known before. Of the others only those of other
// tools, or of unknown wording, say something in their text that the code does not.
std::string values_of(const finding& one) {
  if (one.reported.empty() && !one.known.empty()) return one.known;
  if (!one.reported.empty() && one.known.empty()) return one.reported;
  if (!one.reported.empty()) return fmt::format("{}, known {}", one.reported, one.known);
  const bool is_foreign = one.kind == finding_kind::health || one.code == "TC-000";
  return is_foreign ? one.text : std::string();
}

// The newest messages stand in the file itself, older ones in its backup.
std::string name_of_log(std::string_view file) {
  if (file.ends_with(".log.1")) file.remove_suffix(2);
  return std::string(file);
}

struct intake {
  const judged_run& of;
  run_record& into;
  std::unordered_map<std::string, std::size_t> known{};  // by fingerprint
  std::vector<std::set<std::string>> values{};           // of into.findings
  std::vector<bool> is_taken{};                          // by finding

  explicit intake(const judged_run& from, run_record& record) : of(from), into(record) {
    is_taken.assign(from.of.findings.size(), false);
  }
};

std::size_t group_at(intake& in, const std::string& mark) {
  const auto [at, is_new] = in.known.try_emplace(mark, in.into.findings.size());
  if (is_new) {
    in.into.findings.emplace_back().fingerprint = mark;
    in.values.emplace_back();
  }
  return at->second;
}

void take_finding(intake& in, std::size_t index, const std::string& cause) {
  if (in.is_taken[index]) return;
  in.is_taken[index] = true;
  const finding& one = in.of.of.findings[index];
  const std::size_t at = group_at(in, fingerprint(one));
  known_finding& group = in.into.findings[at];
  if (group.count++ == 0) {
    group.code = one.code;
    group.bundle = one.object.bundle;
    group.node = one.node;
    group.npu = one.npu;
    group.of = one.of;
    group.log = name_of_log(one.log);
    group.title = title_of(one);
    group.cause = cause;
    group.is_doubt = is_doubt(one) && !is_scale(one);
  }
  in.values[at].insert(values_of(one));
}

// What the report sees in the snapshot, and no message reports.
void take_silent(intake& in, const cause& one) {
  finding of_cause;
  of_cause.object = one.object;
  of_cause.node = one.node;
  of_cause.npu = one.npu;
  of_cause.of = one.first;
  const std::size_t at = group_at(in, fingerprint(of_cause));
  known_finding& group = in.into.findings[at];
  group.bundle = one.object.bundle;
  group.node = one.node;
  group.npu = one.npu;
  group.of = one.first;
  group.title = one.title;
  group.cause = one.title;
  group.is_doubt = !is_difference(in.of.of, one);
  for (const difference& each : one.differences)
    for (const witness& w : each.witnesses)
      if (w.is_odd) in.values[at].insert(std::string(words_for(w)));
}

void take_findings_of(intake& in) {
  // A note that is normal is no finding.
  for (const std::size_t index : in.of.unexplained) in.is_taken[index] = true;
  for (const cause& one : in.of.causes) {
    for (const std::size_t index : one.findings) take_finding(in, index, one.title);
    if (one.findings.empty()) take_silent(in, one);
  }
  for (std::size_t i = 0; i < in.is_taken.size(); ++i) take_finding(in, i, {});
  for (std::size_t i = 0; i < in.values.size(); ++i)
    in.into.findings[i].values = fmt::format("{}", fmt::join(in.values[i], "; "));
}

}  // namespace

run_record record_of(const judged_run& of) {
  run_record made;
  made.router = of.of.router;
  made.origin = of.of.origin;
  made.started = of.of.started;
  made.end = of.of.end;
  made.bundles = of.bundles.size();
  for (const bundle_verdict& one : of.bundles) {
    made.known_bundles.insert(one.bundle);
    if (!one.not_judged.empty()) made.open_bundles.insert(one.bundle);
    if (one.is == verdict::differs) ++made.differing;
  }
  for (const coverage& one : of.of.covered)
    if (is_hole(one)) made.holes.push_back({one.of, one.node, one.npu});
  made.lost_logs.insert(of.of.lost_logs.begin(), of.of.lost_logs.end());
  made.lost_logs.insert(of.of.cut_logs.begin(), of.of.cut_logs.end());
  constexpr const char* stale_log = "tessel_stale_entries.log";
  const bool has_lost_logs = !made.lost_logs.empty();
  // Not looked for is not gone.
  if (of.of.stale != stale_search::done) made.lost_logs.insert(stale_log);
  intake in(of, made);
  take_findings_of(in);
  made.is_torn =
      std::any_of(made.findings.begin(), made.findings.end(), [](const known_finding& one) {
        return one.is_doubt && one.bundle.empty() && one.node.empty();
      });
  made.is_open = made.end != run_end::complete || !made.open_bundles.empty() || has_lost_logs ||
                 std::any_of(made.findings.begin(), made.findings.end(),
                             [](const known_finding& one) { return one.is_doubt; });
  return made;
}

bool would_show(const run_record& run, const known_finding& one) {
  if (run.end != run_end::complete) return false;
  if (run.lost_logs.contains(one.log)) return false;
  // A value is compared with those of other nodes, so whatever keeps a bundle from being judged may
  // hide what is wrong with it.
  if (!one.bundle.empty() && run.known_bundles.contains(one.bundle))
    return !run.open_bundles.contains(one.bundle);
  if (run.is_torn) return false;
  return std::none_of(run.holes.begin(), run.holes.end(), [&](const run_record::hole& hole) {
    return hole.node.empty() || one.node.empty() || hole.node == one.node;
  });
}

}  // namespace desk
