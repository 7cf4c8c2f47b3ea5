#include "desk/show/summary.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/model/findings.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

constexpr std::size_t causes_on_a_screen = 8;
constexpr std::size_t bundles_on_a_screen = 40;
constexpr std::size_t bytes_of_a_message = 400;
constexpr std::size_t witnesses_of_a_cause = 12;
constexpr std::size_t marks_on_a_screen = 4;
constexpr std::size_t margin = 3;

struct view {
  const judged_run& of;
  const summary_options& how;
  const terminal& on;
  std::ostream& out;
};

void show_head(const view& v) {
  const run& of = v.of.of;
  v.out << fmt::format(
      "Audit of {}{}\n",
      of.started.empty() ? "an unknown time" : of.started.substr(0, of.started.find(',')),
      of.origin.empty() ? "" : fmt::format(", read from {}", printable(of.origin)));
  if (of.end == run_end::stopped)
    v.out << toned(v.on, tone::doubt, "The run stopped before it had compared everything.") << '\n';
  if (of.end == run_end::cut_off)
    v.out << toned(v.on, tone::doubt, "The logs end in the middle of the run.") << '\n';
  const std::size_t agree = total(v.of, verdict::agrees);
  const std::size_t differ = total(v.of, verdict::differs);
  const std::size_t open = total(v.of, verdict::not_judged);
  const auto findings = static_cast<std::size_t>(
      std::count_if(of.findings.begin(), of.findings.end(), counts_as_finding));
  v.out << fmt::format(
      "{}: {}, {}, {}. {}.\n", counted(v.of.bundles.size(), "bundle", "bundles"),
      toned(v.on, tone::good, agree == 1 ? "1 agrees" : fmt::format("{} agree", agree)),
      toned(v.on, differ != 0 ? tone::bad : tone::plain,
            differ == 1 ? "1 differs" : fmt::format("{} differ", differ)),
      toned(v.on, open != 0 ? tone::doubt : tone::plain, fmt::format("{} not judged", open)),
      counted(findings, "finding", "findings"));
}

void show_witnesses(const view& v, const difference& of) {
  std::size_t left = witnesses_of_a_cause;
  std::size_t more = 0;
  // The odd ones always; of the others as many as a screen takes.
  for (const witness& one : of.witnesses) {
    if (!one.is_odd && left == 0 && !v.how.shows_all) {
      ++more;
      continue;
    }
    if (!one.is_odd && left != 0) --left;
    const std::string place = one.node.empty()  ? "router"
                              : one.npu.empty() ? one.node
                                                : fmt::format("{} NPU {}", one.node, one.npu);
    const std::string line = fmt::format(
        "{:{}}{} {} {} {}", "", margin + 2, padded(word_for(layer_of(one.from)), 6),
        padded(tool_of(one.from), 26), padded(printable(place), 18), printable(words_for(one)));
    v.out << (one.is_odd ? toned(v.on, tone::bad, line + "  <-- odd") : line) << '\n';
  }
  if (more != 0) v.out << fmt::format("{:{}}and {} more\n", "", margin + 2, more);
}

void show_findings(const view& v, const std::vector<std::size_t>& findings) {
  for (const std::size_t index : findings) {
    const finding& one = v.of.of.findings[index];
    const std::string line = one.line == 0 ? one.log : fmt::format("{}:{}", one.log, one.line);
    const std::string text = printable(one.text);
    const std::string_view start =
        v.how.shows_all ? std::string_view(text) : start_of(text, bytes_of_a_message);
    v.out << fmt::format("{:{}}{} {} {}{}\n", "", margin + 2, one.code, line, start,
                         start.size() < text.size() ? "..." : "");
  }
}

void show_cause(const view& v, std::size_t number, const cause& of) {
  const std::string head = fmt::format("{}. ", number);
  v.out << head << toned(v.on, tone::strong, wrapped(printable(of.title), v.on.width, head.size()))
        << '\n';
  std::vector<std::string> facts = {fmt::format("{}: {}", word_for(of.how_sure), of.why)};
  if (of.first != layer::none)
    facts.push_back(fmt::format(
        "{} {}",
        of.differences.empty() ? "layer" : "first layer that differs:", word_for(of.first)));
  facts.push_back(counted(of.findings.size(), "message", "messages"));
  v.out << std::string(margin, ' ')
        << wrapped(printable(fmt::format("{}", fmt::join(facts, "; "))), v.on.width, margin)
        << '\n';
  const std::size_t shown = v.how.shows_all ? of.differences.size() : 1;
  for (std::size_t i = 0; i < of.differences.size() && i < shown; ++i) {
    // The title names the first one, unless it is about the node.
    if (i != 0 || of.object != of.differences[i].object)
      v.out << fmt::format("{:{}}{} {}:\n", "", margin, printable(of.differences[i].object.name),
                           word_for(of.differences[i].what));
    show_witnesses(v, of.differences[i]);
  }
  if (shown < of.differences.size())
    v.out << fmt::format("{:{}}and {}; --all shows everything\n", "", margin,
                         counted(of.differences.size() - shown, "more difference of the same place",
                                 "more differences of the same place"));
  if (v.how.shows_all || (of.differences.empty() && of.findings.size() == 1))
    show_findings(v, of.findings);
  if (!of.next.empty()) v.out << fmt::format("{:{}}next: {}\n", "", margin, printable(of.next));
}

void show_causes(const view& v) {
  const std::size_t shown = v.how.shows_all || v.how.is_short
                                ? v.of.causes.size()
                                : std::min(v.of.causes.size(), causes_on_a_screen);
  for (std::size_t i = 0; i < shown; ++i) {
    if (v.how.is_short) {
      v.out << printable(v.of.causes[i].title) << '\n';
      continue;
    }
    v.out << '\n';
    show_cause(v, i + 1, v.of.causes[i]);
  }
  if (shown < v.of.causes.size())
    v.out << fmt::format("\nand {}; --all shows everything\n",
                         counted(v.of.causes.size() - shown, "more cause", "more causes"));
}

void show_bundles(const view& v) {
  std::size_t listed = 0;
  for (const bundle_verdict& one : v.of.bundles) {
    if (one.is == verdict::agrees && !v.how.shows_all) continue;
    if (one.is == verdict::not_judged && !v.how.shows_all && one.causes.empty()) continue;
    if (++listed > bundles_on_a_screen && !v.how.shows_all) continue;
    if (listed == 1) v.out << "\nBundles:\n";
    const tone in = one.is == verdict::agrees    ? tone::good
                    : one.is == verdict::differs ? tone::bad
                                                 : tone::doubt;
    v.out << fmt::format("  {} {}", padded(printable(one.bundle), 10),
                         toned(v.on, in, word_for(one.is)));
    if (one.first != layer::none) v.out << fmt::format(" from {} on", word_for(one.first));
    if (one.findings != 0)
      v.out << fmt::format(", {}", counted(one.findings, "message", "messages"));
    v.out << '\n';
  }
  if (listed > bundles_on_a_screen && !v.how.shows_all)
    v.out << fmt::format("  and {}; --all shows everything\n",
                         counted(listed - bundles_on_a_screen, "more", "more"));
  const auto same =
      std::count_if(v.of.bundles.begin(), v.of.bundles.end(), [](const bundle_verdict& one) {
        return one.is == verdict::not_judged && one.causes.empty();
      });
  if (same != 0 && !v.how.shows_all)
    v.out << fmt::format("\n{} not wholly judged: tessel-report coverage shows what was not read\n",
                         counted(static_cast<std::size_t>(same), "bundle was", "bundles were"));
}

// The audit's own table counts entries as stale that are not.
void show_unmarked(const view& v) {
  const auto& all = v.of.of.findings;
  const auto number = static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [](const finding& one) { return one.code == code_of_unmarked; }));
  if (number == 0) return;
  const std::string text = fmt::format(
      "{} in tessel_stale_entries.log {} not stale: with hierarchical QoS the audit marks no LAG "
      "of a sub-bundle in the chips ({}); --all shows {}.",
      counted(number, "entry", "entries"), number == 1 ? "is" : "are", code_of_unmarked,
      number == 1 ? "it" : "them");
  v.out << '\n' << wrapped(text, v.on.width, 0) << '\n';
}

void show_unexplained(const view& v) {
  if (v.of.unexplained.empty()) return;
  v.out << "\nMessages without a cause, normal if they are notes:\n";
  show_findings(v, v.of.unexplained);
}

void show_marks(const view& v) {
  const auto& marks = v.of.of.marks;
  const std::size_t shown =
      v.how.shows_all ? marks.size() : std::min(marks.size(), marks_on_a_screen);
  for (std::size_t i = 0; i < shown; ++i)
    v.out << toned(v.on, tone::doubt, "partial: ") << printable(marks[i]) << '\n';
  if (shown < marks.size()) v.out << fmt::format("partial: and {} more\n", marks.size() - shown);
}

}  // namespace

void show_summary(const judged_run& of, const summary_options& how, const terminal& on,
                  std::ostream& out) {
  const view v{of, how, on, out};
  show_head(v);
  show_marks(v);
  show_causes(v);
  if (!how.is_short) show_bundles(v);
  if (how.shows_all) show_unexplained(v);
  if (!how.shows_all && !how.is_short) show_unmarked(v);
  // Where something was found, nobody takes the rest for clean.
  if (!how.is_short && of.of.stale == stale_search::skipped &&
      (how.shows_all || total(of, verdict::differs) == 0))
    out << '\n' << sentence_for_stale << '\n';
}

}  // namespace desk
