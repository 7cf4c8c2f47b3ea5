#include "desk/commands/series.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <set>
#include <system_error>
#include <utility>

#include "desk/commands/load.h"
#include "desk/judge/judge.h"
#include "desk/show/terminal.h"
#include "desk/store/report_file.h"

namespace desk {

namespace {

namespace fs = std::filesystem;

// A report in JSON begins with a brace, a packed capture does not.
bool is_report(const std::string& file) {
  std::ifstream from(file, std::ios::binary);
  char first = 0;
  return from.get(first) && first == '{';
}

// "DIR@2", unless there is a folder of that name.
void take_number(report_options& of_run, std::string& place) {
  std::error_code error;
  const std::size_t at = place.rfind('@');
  if (at == std::string::npos || fs::exists(place, error)) return;
  const std::string digits = place.substr(at + 1);
  const auto [end, failure] =
      std::from_chars(digits.data(), digits.data() + digits.size(), of_run.run);
  if (failure != std::errc{} || end != digits.data() + digits.size() || of_run.run == 0)
    throw no_run(
        fmt::format("no run {}: behind the last @ stands no number of a run; tessel-report "
                    "runs lists them",
                    place));
  place.resize(at);
}

judged_run load_judged(std::string place, const report_options& options) {
  report_options of_run = options;
  of_run.capture.clear();
  take_number(of_run, place);
  std::error_code error;
  if (fs::is_regular_file(place, error)) {
    if (is_report(place)) {
      judged_run read = read_report(place);
      if (!options.router.empty()) read.of.router = options.router;
      return read;
    }
    of_run.capture = place;
  } else if (fs::exists(fs::path(place) / "manifest", error)) {
    of_run.capture = place;
  } else {
    of_run.logs = place;
  }
  return judge(load_run(of_run));
}

bool is_wrong(const tracked_finding& one) {
  return !one.latest.is_doubt;
}

bool is_new_now(const tracked_finding& one) {
  const change is = change_of(one);
  return is == change::is_new || is == change::back;
}

}  // namespace

run_record load_record(const std::string& place, const report_options& options) {
  run_record made = record_of(load_judged(place, options));
  made.origin = place;
  return made;
}

series load_series(const report_options& options, std::ostream& out) {
  std::vector<run_record> runs;
  std::set<std::string> routers;
  for (const std::string& place : options.places) {
    runs.push_back(load_record(place, options));
    if (!runs.back().router.empty()) routers.insert(runs.back().router);
  }
  if (routers.size() > 1)
    out << fmt::format("note: these are runs of different routers: {}\n",
                       printable(fmt::format("{}", fmt::join(routers, ", "))));
  return track(std::move(runs));
}

int status_of(const series& of, fail_on when, counted_runs counted) {
  const auto has = [&](auto&& wanted) {
    return std::any_of(of.findings.begin(), of.findings.end(),
                       [&](const tracked_finding& one) { return is_wrong(one) && wanted(one); });
  };
  const bool all = counted == counted_runs::all;
  switch (when) {
    case fail_on::never:
      return status_nothing_found;
    case fail_on::any:
      if (has([&](const auto& one) { return all || one.in.back() == sighting::seen; }))
        return status_findings;
      break;
    case fail_on::is_new:
      if (has(is_new_now)) return status_findings;
      break;
    case fail_on::confirmed:
      if (has(is_confirmed)) return status_findings;
      break;
  }
  const auto is_open = [](const run_record& run) { return run.is_open; };
  const bool has_open =
      all ? std::any_of(of.runs.begin(), of.runs.end(), is_open) : is_open(of.runs.back());
  return has_open ? status_not_judged : status_nothing_found;
}

}  // namespace desk
