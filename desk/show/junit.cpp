#include "desk/show/junit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "desk/judge/judged_run.h"
#include "desk/show/escape.h"
#include "desk/show/figures.h"
#include "desk/show/keys.h"
#include "desk/show/phrases.h"

namespace desk {

namespace {

struct test_case {
  enum class outcome : std::uint8_t { passed, failed, skipped } is = outcome::passed;
  std::string_view class_name;
  std::string name;
  std::string_view type;  // of a failure
  std::string message;    // in one line
  std::string text;
};
using outcome = test_case::outcome;

std::string_view type_of(const run& of, const std::vector<std::size_t>& findings) {
  return findings.empty() ? "not_read" : key_for(of.findings[findings.front()].kind);
}

void add_line(std::string& to, std::string_view line) {
  to.append(line).append("\n");
}

// A finding stands at each bundle that it concerns, and a text from a tool may have any length.
std::string shortened(const std::string& text) {
  constexpr std::size_t most = 4096;
  if (text.size() <= most) return text;
  return fmt::format("{} ... ({} bytes in all, see the log)",
                     std::string_view(text).substr(0, most), text.size());
}

void add_findings(std::string& to, const run& of, const std::vector<std::size_t>& findings) {
  for (const std::size_t each : findings) {
    const auto& found = of.findings[each];
    add_line(to, fmt::format("  {} {}", found.code, shortened(found.text)));
    if (!found.log.empty() && found.line > 0)
      add_line(to, fmt::format("    {}:{}", found.log, found.line));
  }
}

void add_cause(std::string& to, const run& of, const cause& why) {
  add_line(to, why.title);
  if (!why.why.empty()) add_line(to, "  " + why.why);
  if (!why.next.empty()) add_line(to, "  next: " + why.next);
  add_findings(to, of, why.findings);
}

std::string joined(const std::vector<std::string>& texts) {
  return fmt::format("{}", fmt::join(texts, "; "));
}

test_case case_of(const judged_run& of, const bundle_verdict& bundle) {
  test_case made;
  made.class_name = "tessel.bundle";
  made.name = bundle.bundle;
  if (bundle.is == verdict::not_judged) {
    made.is = outcome::skipped;
    made.message = joined(bundle.not_judged);
  }
  if (bundle.is != verdict::differs) return made;
  made.is = outcome::failed;
  made.type = "difference";
  std::vector<std::string> titles;
  for (const std::size_t each : bundle.causes) {
    titles.push_back(of.causes[each].title);
    add_cause(made.text, of.of, of.causes[each]);
  }
  for (const auto& each : bundle.not_judged) add_line(made.text, "not judged: " + each);
  made.message = joined(titles);
  return made;
}

test_case case_of_end(const run& of) {
  test_case made;
  made.class_name = "tessel.router";
  made.name = "result table";
  if (of.end == run_end::complete) return made;
  made.is = outcome::failed;
  made.type = key_for(of.end);
  made.message = sentence_for(of.end);
  for (const auto& mark : of.marks) add_line(made.text, mark);
  return made;
}

test_case case_of(const run& of, const cause& why) {
  test_case made;
  made.is = is_of_notation(of, why) ? outcome::skipped : outcome::failed;
  made.class_name = "tessel.router";
  made.name = made.message = why.title;
  made.type = type_of(of, why.findings);
  add_cause(made.text, of, why);
  return made;
}

// Findings without a cause that are no normal notes; nothing if there are none.
std::vector<test_case> case_of_unexplained(const judged_run& of) {
  std::vector<std::size_t> findings;
  for (const std::size_t each : of.unexplained)
    if (of.of.findings[each].kind != finding_kind::note) findings.push_back(each);
  if (findings.empty()) return {};
  test_case made;
  made.is = outcome::failed;
  made.class_name = "tessel.router";
  made.name = "findings without a cause";
  made.type = type_of(of.of, findings);
  made.message = fmt::format("{} {} without a cause", findings.size(),
                             findings.size() == 1 ? "finding" : "findings");
  add_findings(made.text, of.of, findings);
  return {made};
}

std::vector<test_case> cases_of(const judged_run& of) {
  std::vector<test_case> cases = {case_of_end(of.of)};
  std::vector<bool> is_shown(of.causes.size());
  for (const auto& bundle : of.bundles) {
    cases.push_back(case_of(of, bundle));
    if (bundle.is != verdict::differs) continue;
    for (const std::size_t each : bundle.causes) is_shown[each] = true;
  }
  for (std::size_t i = 0; i < of.causes.size(); ++i)
    if (!is_shown[i]) cases.push_back(case_of(of.of, of.causes[i]));
  for (auto& each : case_of_unexplained(of)) cases.push_back(std::move(each));
  return cases;
}

void show_case(const test_case& each, std::ostream& out) {
  out << fmt::format("    <testcase classname=\"{}\" name=\"{}\"", each.class_name, xml(each.name));
  switch (each.is) {
    case outcome::passed:
      out << "/>\n";
      return;
    case outcome::skipped:
      out << fmt::format(">\n      <skipped message=\"{}\"/>\n", xml(each.message));
      break;
    case outcome::failed:
      out << fmt::format(">\n      <failure type=\"{}\" message=\"{}\">{}</failure>\n", each.type,
                         xml(each.message), xml_text(each.text));
      break;
  }
  out << "    </testcase>\n";
}

std::size_t count(const std::vector<test_case>& cases, outcome is) {
  return static_cast<std::size_t>(std::count_if(
      cases.begin(), cases.end(), [&](const test_case& each) { return each.is == is; }));
}

// As the standard for times writes it; the zone is the router's, which logs do not name.
std::string time_stamp(const run& of) {
  if (!epoch_milliseconds(of.started)) return "";
  std::string time = of.started.substr(0, of.started.find(','));
  time[time.find(' ')] = 'T';
  return fmt::format(" timestamp=\"{}\"", time);
}

std::string name_of(const run& of) {
  if (!of.router.empty()) return of.router;
  return of.origin.empty() ? "router" : of.origin;
}

}  // namespace

void show_junit(const judged_run& of, std::ostream& out) {
  const auto cases = cases_of(of);
  const std::string figures = fmt::format("tests=\"{}\" failures=\"{}\" errors=\"0\"", cases.size(),
                                          count(cases, outcome::failed));
  const auto seconds = seconds_of(of.of);
  const std::string time = seconds ? fmt::format(" time=\"{:.3f}\"", *seconds) : "";
  out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << fmt::format("<testsuites name=\"tessel\" {}{}>\n", figures, time)
      << fmt::format("  <testsuite name=\"{}\" {} skipped=\"{}\"{}{}>\n", xml(name_of(of.of)),
                     figures, count(cases, outcome::skipped), time, time_stamp(of.of));
  for (const auto& each : cases) show_case(each, out);
  out << "  </testsuite>\n</testsuites>\n";
}

}  // namespace desk
