#include "desk/show/series.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "desk/show/phrases.h"

namespace desk {

namespace {

constexpr std::size_t lines_of_a_section = 10;
constexpr std::size_t margin = 2;

struct view {
  const series& of;
  const series_options& how;
  const terminal& on;
  std::ostream& out;
};

// What one reason explains, as one line: findings that share a cause and a fate.
struct item {
  std::vector<const tracked_finding*> findings;
};

const std::string& title_of(const known_finding& one) {
  return one.cause.empty() ? one.title : one.cause;
}

std::string time_of(const run_record& run) {
  return run.started.empty() ? "an unknown time"
                             : printable(run.started.substr(0, run.started.find(',')));
}

std::string words_for(const run_record& run) {
  std::string words =
      fmt::format("{}, {}", counted(run.bundles, "bundle", "bundles"),
                  run.differing == 1 ? "1 differs" : fmt::format("{} differ", run.differing));
  if (!run.open_bundles.empty()) words += fmt::format(", {} not judged", run.open_bundles.size());
  if (run.end == run_end::stopped) words += ", it stopped before its end";
  if (run.end == run_end::cut_off) words += ", its logs end in the middle";
  return words;
}

void show_run(const view& v, std::string_view label, const run_record& run) {
  const std::string head = fmt::format("{}  ", label);
  v.out << head
        << wrapped(fmt::format("{}  {}: {}", time_of(run), printable(run.origin), words_for(run)),
                   v.on.width, head.size())
        << '\n';
}

// ---- Findings as lines --------------------------------------------------------------------------

std::vector<item> items_of(const std::vector<const tracked_finding*>& findings) {
  std::vector<item> items;
  std::map<std::tuple<std::string_view, std::vector<sighting>, change>, std::size_t> known;
  for (const tracked_finding* one : findings) {
    const auto [at, is_new] =
        known.try_emplace({title_of(one->latest), one->in, change_of(*one)}, items.size());
    if (is_new) items.emplace_back();
    items[at->second].findings.push_back(one);
  }
  return items;
}

std::string codes_of(const item& of) {
  std::set<std::string> codes;
  std::size_t messages = 0;
  for (const tracked_finding* one : of.findings) {
    if (!one->latest.code.empty()) codes.insert(one->latest.code);
    messages += one->latest.count;
  }
  if (messages == 0) return "no message";
  constexpr std::size_t shown = 3;
  const auto end =
      std::next(codes.begin(), static_cast<std::ptrdiff_t>(std::min(codes.size(), shown)));
  return fmt::format("{}: {}{}", counted(messages, "message", "messages"),
                     fmt::join(codes.begin(), end, ", "), codes.size() > shown ? ", ..." : "");
}

std::string line_of(const item& of) {
  return fmt::format("{} ({})", printable(title_of(of.findings.front()->latest)), codes_of(of));
}

// What was there before, unless it is too long for a line.
std::string former_values(const tracked_finding& one) {
  const auto last = one.values_in.size() - 1;
  for (std::size_t run = last; run-- > 0;)
    if (one.in[run] == sighting::seen) return one.values_in[run];
  return {};
}

void show_details(const view& v, const item& of, bool has_changed) {
  const std::string indent(margin + 2, ' ');
  for (const tracked_finding* one : of.findings) {
    if (v.how.shows_all && !one->latest.code.empty())
      v.out << indent
            << wrapped(fmt::format("{} {}", one->latest.code, printable(one->latest.title)),
                       v.on.width, indent.size())
            << '\n';
    if (has_changed)
      v.out << indent
            << wrapped(fmt::format("before: {}; now: {}", printable(former_values(*one)),
                                   printable(one->values_in.back())),
                       v.on.width, indent.size())
            << '\n';
  }
}

using mark_of = std::string (*)(const item& of);

void show_section(const view& v, std::string_view title, tone in,
                  const std::vector<const tracked_finding*>& findings, bool has_changed,
                  mark_of mark) {
  if (findings.empty()) return;
  v.out << '\n' << title << ":\n";
  const std::vector<item> items = items_of(findings);
  const std::size_t shown =
      v.how.shows_all ? items.size() : std::min(items.size(), lines_of_a_section);
  for (std::size_t i = 0; i < shown; ++i) {
    const std::string indent(margin, ' ');
    v.out << indent
          << toned(v.on, in, wrapped(mark(items[i]) + line_of(items[i]), v.on.width, margin))
          << '\n';
    show_details(v, items[i], has_changed);
  }
  if (shown < items.size())
    v.out << fmt::format("{:{}}and {} more; --all shows everything\n", "", margin,
                         items.size() - shown);
}

std::string no_mark(const item&) {
  return {};
}

// What could not be verified is no finding that comes or goes.
std::vector<const tracked_finding*> wrong_ones(const series& of) {
  std::vector<const tracked_finding*> found;
  for (const tracked_finding& one : of.findings)
    if (!one.latest.is_doubt) found.push_back(&one);
  return found;
}

constexpr std::string_view title_of_doubts = "Could not be verified";

std::vector<const tracked_finding*> doubts_now(const series& of) {
  std::vector<const tracked_finding*> found;
  for (const tracked_finding& one : of.findings)
    if (one.latest.is_doubt && one.in.back() == sighting::seen) found.push_back(&one);
  return found;
}

// ---- Two runs -----------------------------------------------------------------------------------

struct fate {
  change is;
  std::string_view word;   // in the line of counts
  std::string_view title;  // of its section
  tone in;
};
constexpr std::array fates = {
    fate{change::is_new, "new", "New", tone::bad},
    fate{change::changed, "changed", "Changed", tone::bad},
    fate{change::persisting, "persisting", "Persisting", tone::plain},
    fate{change::gone, "gone", "Gone", tone::good},
    fate{change::not_judged, "not judged now", "Not judged now, so nobody knows", tone::doubt}};

std::string mark_of_new(const item& of) {
  return may_be_older(*of.findings.front()) ? "(not judged before) " : "";
}

std::string mark_of_doubt(const item& of) {
  return change_of(*of.findings.front()) == change::is_new ? "(new) " : "";
}

// ---- Several runs -------------------------------------------------------------------------------

std::string signs_of(const item& of) {
  std::string signs;
  for (const sighting in : of.findings.front()->in) {
    signs += in == sighting::seen ? '+' : in == sighting::absent ? '-' : '?';
    signs += ' ';
  }
  return signs + ' ';
}

void show_numbered_runs(const view& v) {
  const std::size_t width = std::to_string(v.of.runs.size()).size();
  for (std::size_t i = 0; i < v.of.runs.size(); ++i)
    show_run(v, fmt::format("{:>{}}", i + 1, width), v.of.runs[i]);
}

// ---- A store ------------------------------------------------------------------------------------

std::string_view word_for(change is) {
  switch (is) {
    case change::is_new:
      return "new";
    case change::changed:
      return "changed";
    case change::persisting:
      return "persisting";
    case change::back:
      return "back";
    case change::gone:
      return "gone";
    case change::not_judged:
      break;
  }
  return "not judged";
}

tone tone_of(change is) {
  switch (is) {
    case change::gone:
      return tone::faint;
    case change::not_judged:
      return tone::doubt;
    case change::persisting:
      return tone::plain;
    default:
      return tone::bad;
  }
}

void show_history_item(const view& v, const item& of) {
  const tracked_finding& one = *of.findings.front();
  const auto first = std::find(one.in.begin(), one.in.end(), sighting::seen) - one.in.begin();
  const auto last = one.in.rend() - std::find(one.in.rbegin(), one.in.rend(), sighting::seen) - 1;
  const std::string from = time_of(v.of.runs[static_cast<std::size_t>(first)]);
  const std::string to = time_of(v.of.runs[static_cast<std::size_t>(last)]);
  const change is = change_of(one);
  constexpr std::size_t width_of_word = 10;
  v.out << fmt::format("{}  {}{}, in {} of {} runs\n",
                       toned(v.on, tone_of(is), padded(word_for(is), width_of_word)), from,
                       first == last ? "" : fmt::format(" to {}", to),
                       std::count(one.in.begin(), one.in.end(), sighting::seen), one.in.size())
        << std::string(margin, ' ') << wrapped(line_of(of), v.on.width, margin) << '\n';
}

}  // namespace

void show_diff(const series& of, const series_options& how, const terminal& on, std::ostream& out) {
  const view v{of, how, on, out};
  show_run(v, "before", of.runs.front());
  show_run(v, "now   ", of.runs.back());
  if (of.runs.back().started < of.runs.front().started)
    out << toned(on, tone::doubt, "note: the second run is the older one") << '\n';
  std::map<change, std::vector<const tracked_finding*>> by_fate;
  for (const tracked_finding* one : wrong_ones(of)) by_fate[change_of(*one)].push_back(one);
  std::vector<std::string> counts;
  counts.reserve(std::size(fates));
  for (const fate& each : fates)
    counts.push_back(fmt::format("{} {}", by_fate[each.is].size(), each.word));
  out << wrapped(fmt::format("{}.", fmt::join(counts, ", ")), on.width, 0) << '\n';
  if (how.is_short) return;
  for (const fate& each : fates)
    show_section(v, each.title, each.in, by_fate[each.is], each.is == change::changed,
                 each.is == change::is_new ? mark_of_new : no_mark);
  show_section(v, title_of_doubts, tone::doubt, doubts_now(of), false, mark_of_doubt);
}

void show_confirm(const series& of, const series_options& how, const terminal& on,
                  std::ostream& out) {
  const view v{of, how, on, out};
  show_numbered_runs(v);
  std::vector<const tracked_finding*> confirmed;
  std::vector<const tracked_finding*> moving;
  for (const tracked_finding* one : wrong_ones(of))
    (is_confirmed(*one) ? confirmed : moving).push_back(one);
  out << fmt::format("{} confirmed, {} moving.\n", confirmed.size(), moving.size());
  if (how.is_short) return;
  show_section(v, "Confirmed, in all runs", tone::bad, confirmed, false, no_mark);
  show_section(v, "Moving (+ seen, - not there, ? not judged)", tone::plain, moving, false,
               signs_of);
  show_section(v, title_of_doubts, tone::doubt, doubts_now(of), false, signs_of);
}

void show_history(const series& of, const series_options& how, const terminal& on,
                  std::ostream& out) {
  const view v{of, how, on, out};
  const std::string name =
      of.runs.back().router.empty() ? "A router without a name" : printable(of.runs.back().router);
  out << fmt::format("{}: {}, {} to {}\n", name, counted(of.runs.size(), "run", "runs"),
                     time_of(of.runs.front()), time_of(of.runs.back()));
  show_run(v, "last", of.runs.back());
  const std::vector<item> items = items_of(wrong_ones(of));
  if (how.is_short) return;
  if (!items.empty()) out << '\n';
  constexpr std::size_t lines = 30;
  const std::size_t shown = how.shows_all ? items.size() : std::min(items.size(), lines);
  for (std::size_t i = 0; i < shown; ++i) {
    show_history_item(v, items[i]);
    show_details(v, items[i], false);
  }
  if (shown < items.size())
    out << fmt::format("and {} more; --all shows everything\n", items.size() - shown);
  show_section(v, title_of_doubts, tone::doubt, doubts_now(of), false, mark_of_doubt);
}

}  // namespace desk
