#include "desk/judge/judge.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "desk/judge/differences.h"
#include "desk/judge/judging.h"
#include "desk/model/coverage.h"

namespace desk {

namespace {

// A run that left nothing but its start lines shows on the console why.
void add_early_end(judged_run& into) {
  if (!into.causes.empty() || into.of.has_begun_all_logs() || into.of.end == run_end::complete)
    return;
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

// What one cause has to do with one bundle.
struct share {
  std::size_t cause = 0;
  std::size_t findings = 0;
  bool differs = false;
};

// All bundles together list so many causes that leave every bundle in doubt: thousands of bundles
// times thousands of failures would not fit into memory.
constexpr std::size_t most_doubts_listed = 300'000;

// The causes of each bundle, and those that leave every bundle in doubt; both in their order.
struct shares {
  std::unordered_map<std::string, std::vector<share>> of_bundle;
  std::vector<std::size_t> doubts;
  std::size_t listed = 0;             // of the doubts, in each bundle
  std::vector<std::string> not_read;  // for any bundle, a phrase each
};

share& share_at(shares& of, const std::string& bundle, std::size_t cause) {
  auto& all = of.of_bundle[bundle];
  return all.empty() || all.back().cause != cause ? all.emplace_back(share{cause, 0, false})
                                                  : all.back();
}

// Messages that name no bundle, as many at a place as bundles that it lacks: each bundle has one.
void share_without_entry(shares& made, const judging& at, std::size_t cause) {
  const desk::cause& of = at.into.causes[cause];
  std::set<std::pair<std::string, layer>> places;
  for (const std::size_t f : of.findings) {
    const finding& one = at.of().findings[f];
    if (one.code == "TC-101" && one.object.bundle.empty() &&
        at.findings.is_one_each(one.node, one.of))
      places.emplace(one.node, one.of);
  }
  if (places.empty()) return;
  for (const difference& each : of.differences)
    for (const witness& w : each.witnesses)
      if (is_bundle_without_entry(each, w) && places.contains({w.node, layer_of(w.from)}))
        ++share_at(made, each.object.bundle, cause).findings;
}

// Messages about too much weight that name no bundle. Those with the same numbers can be of the
// same bundles, so they count as one. Where no bundle has the numbers, none can be ruled out.
void share_weights(shares& made, judging& at, std::size_t cause) {
  std::set<std::tuple<std::string_view, std::string_view, std::string_view>> known;
  for (const std::size_t f : at.into.causes[cause].findings) {
    const finding& one = at.of().findings[f];
    if (!is_of_unknown_weight(one)) continue;
    if (!known.emplace(one.reported, one.known, one.node).second) continue;
    const std::vector<std::string> bundles = bundles_of_weight(at, one);
    for (const std::string& bundle : bundles) ++share_at(made, bundle, cause).findings;
    const bool is_listed = !made.doubts.empty() && made.doubts.back() == cause;
    if (bundles.empty() && !is_listed) made.doubts.push_back(cause);
  }
}

shares shares_of(judging& at) {
  shares made;
  const auto& causes = at.into.causes;
  for (std::size_t i = 0; i < causes.size(); ++i) {
    const cause& one = causes[i];
    for (const difference& each : one.differences)
      share_at(made, each.object.bundle, i).differs = true;
    for (const std::size_t f : one.findings) {
      const finding& explained = at.of().findings[f];
      if (is_of_unknown_weight(explained)) continue;
      share& of = share_at(made, explained.object.bundle, i);
      if (!is_of_notation(explained)) ++of.findings;
      of.differs = of.differs || !is_doubt(explained);
    }
    share_weights(made, at, i);
    share_without_entry(made, at, i);
    const bool is_listed = !made.doubts.empty() && made.doubts.back() == i;
    if (!is_listed && is_doubt_of_all(at.of(), one)) made.doubts.push_back(i);
  }
  for (const std::string& log : at.of().lost_logs)
    made.not_read.push_back(fmt::format("the messages in {}", log));
  for (const std::string& log : at.of().cut_logs)
    made.not_read.push_back(fmt::format("the messages that {} has lost", log));
  for (const coverage& hole : at.of().covered)
    if (is_hole(hole))
      made.not_read.push_back(fmt::format("{} of {}", word_for(hole.of), words_for_place(hole)));
  return made;
}

void judge_bundle(judging& at, const shares& all, const std::string& name) {
  bundle_verdict made;
  made.bundle = name;
  const auto found = all.of_bundle.find(name);
  static const std::vector<share> none;
  const auto& own = found == all.of_bundle.end() ? none : found->second;
  auto doubt = all.doubts.begin();
  const auto last = doubt + static_cast<std::ptrdiff_t>(all.listed);
  const auto add_doubts_before = [&](std::size_t cause) {
    for (; doubt != last && *doubt < cause; ++doubt)
      made.not_judged.push_back(at.into.causes[*doubt].title);
  };
  for (const share& one : own) {
    add_doubts_before(one.cause);
    if (doubt != last && *doubt == one.cause) ++doubt;
    const cause& of = at.into.causes[one.cause];
    made.causes.push_back(one.cause);
    made.findings += one.findings;
    if (one.differs) {
      made.is = verdict::differs;
      made.first = std::min(made.first, of.first);
    } else {
      made.not_judged.push_back(of.title);
    }
  }
  add_doubts_before(at.into.causes.size());
  if (all.doubts.size() > all.listed)
    made.not_judged.push_back(
        fmt::format("{} more causes that name no bundle", all.doubts.size() - all.listed));
  made.not_judged.insert(made.not_judged.end(), all.not_read.begin(), all.not_read.end());
  if (made.is != verdict::differs && made.not_judged.empty()) made.is = verdict::agrees;
  at.into.bundles.push_back(std::move(made));
}

void judge_bundles(judging& at) {
  std::set<std::string> names;
  for (const object& one : at.of().objects)
    if (one.kind == object_kind::bundle && one.is_configured) names.insert(one.name);
  // A note that is normal may name a bundle that is not configured.
  const std::set<std::size_t> normal(at.into.unexplained.begin(), at.into.unexplained.end());
  for (std::size_t i = 0; i < at.of().findings.size(); ++i) {
    const std::string& bundle = at.of().findings[i].object.bundle;
    if (!bundle.empty() && !normal.contains(i)) names.insert(bundle);
  }
  std::vector<std::string> sorted(names.begin(), names.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return number_of_bundle(a) < number_of_bundle(b);
  });
  shares all = shares_of(at);
  const std::size_t bundles = std::max<std::size_t>(sorted.size(), 1);
  all.listed = std::min(all.doubts.size(), most_doubts_listed / bundles);
  for (const std::string& name : sorted) judge_bundle(at, all, name);
}

// What differs before what could not be judged; of either the uppermost layer first.
void sort_causes(judged_run& of) {
  struct ranked {
    int kind;
    layer first;
    cause of;
  };
  std::vector<ranked> all;
  for (cause& one : of.causes) {
    const int kind = is_difference(of.of, one) ? 0 : 1;
    all.push_back({kind, one.first, std::move(one)});
  }
  std::stable_sort(all.begin(), all.end(), [](const ranked& a, const ranked& b) {
    return std::tie(a.kind, a.first) < std::tie(b.kind, b.first);
  });
  of.causes.clear();
  for (ranked& one : all) of.causes.push_back(std::move(one.of));
}

}  // namespace

judged_run judge(run of) {
  judged_run made;
  made.of = std::move(of);
  judging at{made, find_differences(made.of)};
  at.is_explained.assign(made.of.findings.size(), false);
  set_unmarked_aside(at);
  add_holes(at);
  take_differences(at);
  take_findings(at);
  add_early_end(made);
  std::sort(made.unexplained.begin(), made.unexplained.end());
  sort_causes(made);
  judge_bundles(at);
  made.is_wholly_judged =
      std::all_of(made.bundles.begin(), made.bundles.end(),
                  [](const bundle_verdict& one) { return one.not_judged.empty(); }) &&
      made.causes.empty() && made.of.lost_logs.empty() && made.of.cut_logs.empty() &&
      made.of.end == run_end::complete;
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
