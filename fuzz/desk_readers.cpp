#include "desk_readers.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "desk/commands/load.h"
#include "desk/judge/judge.h"
#include "desk/model/findings.h"
#include "desk/model/layers.h"
#include "desk/model/run_logs.h"
#include "desk/read/journal.h"
#include "desk/read/line_reader.h"
#include "desk/show/coverage_view.h"
#include "desk/show/dossier.h"
#include "desk/show/html.h"
#include "desk/show/json.h"
#include "desk/show/junit.h"
#include "desk/show/merge.h"
#include "desk/show/nagios.h"
#include "desk/show/prometheus.h"
#include "desk/show/sarif.h"
#include "desk/show/summary.h"
#include "desk/store/report_file.h"

namespace fuzz {

namespace {

constexpr std::string_view exception_log = "tessel_exception.log";
constexpr std::string_view inconsistency_log = "tessel_inconsistencies.log";
constexpr std::string_view programming_log = "tessel_programming_error.log";
constexpr std::string_view deletion_log = "tessel_delay_delete.log";
constexpr std::string_view health_log = "tessel_bundle_health.log";
constexpr std::string_view stale_log = "tessel_stale_entries.log";
constexpr std::string_view debug_log = "tessel_debug.log";
constexpr std::string_view journal = "tessel_journal.jsonl";
constexpr std::string_view report_json = "report.json";

[[noreturn]] void broken(const char* what) {
  std::fprintf(stderr, "fuzz_desk: %s\n", what);
  std::abort();
}

void write(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) broken("cannot write a log");
}

// What a run wrote into a log to which all append is of one run, and the runs keep the log's order.
void check_order(const desk::log_set& logs, const std::vector<desk::run_in_logs>& runs) {
  const auto all = desk::all_of(logs);
  for (std::size_t log = 0; log + 1 < all.size(); ++log) {
    auto next = all.at(log)->runs.begin();
    const auto end = all.at(log)->runs.end();
    for (const desk::run_in_logs& one : runs)
      if (one.in.at(log) != nullptr && (next == end || one.in.at(log) != &*next++))
        broken("runs that are not in the order of a log");
    if (next != end) broken("a part of a log that is of no run");
  }
}

void finding_logs(const std::string& folder) {
  const desk::log_set logs = desk::read_logs(folder);
  const std::vector<desk::run_in_logs> runs = desk::runs_in(logs);
  check_order(logs, runs);
  for (std::size_t back = 0; back < std::min<std::size_t>(runs.size(), 2); ++back) {
    desk::run of;
    desk::read_findings(of, logs, runs, back);
    for (const desk::finding& one : of.findings)
      if (one.code.empty()) broken("a finding without a code");
  }
}

void stale_entries(const std::string& folder) {
  desk::run of;
  desk::read_stale_entries(of, folder, 1);
}

void snapshot(const std::string& folder) {
  desk::run of;
  desk::read_layers(of, folder + "/" + std::string(debug_log));
  desk::read_debug_notes(of);
}

void commands_of_run(const std::string& folder) {
  if (desk::read_journal(folder + "/" + std::string(journal)).seconds < 0)
    broken("a run that ended before it began");
}

// The views for a terminal hold no control characters, whatever the logs hold.
void check_text(const std::string& text) {
  const auto is_control = [](char byte) {
    return (static_cast<unsigned char>(byte) < ' ' && byte != '\n') || byte == '\x7f';
  };
  if (std::any_of(text.begin(), text.end(), is_control)) broken("a control character in a view");
}

void show_as_text(const desk::judged_run& of) {
  std::ostringstream out;
  const desk::terminal on;
  desk::show_summary(of, {false, true}, on, out);
  desk::show_summary(of, {true, false}, on, out);
  desk::show_coverage(of, on, out);
  if (!of.bundles.empty()) desk::show_dossier(of, of.bundles.front().bundle, on, out);
  check_text(out.str());
}

std::string show_as_json(const desk::judged_run& of,
                         void (*show)(const desk::judged_run&, std::ostream&)) {
  std::ostringstream out;
  show(of, out);
  std::string text = out.str();
  if (!nlohmann::json::accept(text)) broken("JSON that is none");
  return text;
}

void check_read_back(const std::string& text, const std::string& folder) {
  const std::string path = folder + "/written.json";
  write(path, text);
  if (show_as_json(desk::read_report(path), desk::show_json) != text)
    broken("a report that is not read back as it was written");
}

void show_as_line(const desk::judged_run& of) {
  std::ostringstream out;
  (void)desk::show_nagios(of, out);
  const std::string line = out.str();
  if (std::count(line.begin(), line.end(), '\n') != 1 || line.back() != '\n')
    broken("a plug-in's output of several lines");
  check_text(line);
}

void show_all(const desk::judged_run& judged, const std::string& folder) {
  const int status = desk::exit_status(judged);
  if (status != 0 && status != 1 && status != 3) broken("an exit status that nobody promises");
  show_as_text(judged);
  check_read_back(show_as_json(judged, desk::show_json), folder);
  (void)show_as_json(judged, desk::show_sarif);
  show_as_line(judged);
  std::ostringstream rest;
  desk::show_junit(judged, rest);
  desk::show_prometheus(judged, rest);
  desk::show_html(judged, rest);
}

void whole_report(const std::string& folder) {
  desk::report_options options;
  options.logs = folder;
  try {
    show_all(desk::judge(desk::load_run(options)), folder);
  } catch (const desk::no_run&) {
    // Refused in one line.
  }
}

void show_among_others(desk::judged_run judged) {
  std::vector<desk::merged_router> routers(2);
  routers[0].name = routers[1].trouble = judged.of.router + judged.of.origin;
  routers[0].new_causes.assign(judged.causes.size(), true);
  routers[0].earlier.resize(1);
  routers[0].of = std::move(judged);
  desk::keep_for_merge(routers[0].of);
  desk::sort_routers(routers);
  std::ostringstream text;
  desk::show_merged_text(routers, {false, true}, {}, text);
  check_text(text.str());
  std::ostringstream rest;
  desk::show_merged_json(routers, rest);
  if (!nlohmann::json::accept(rest.str())) broken("JSON that is none");
  desk::show_merged_html(routers, rest);
}

void earlier_report(const std::string& folder) {
  desk::judged_run judged;
  try {
    judged = desk::read_report(folder + "/" + std::string(report_json));
  } catch (const desk::read_error& error) {
    check_text(std::string(error.what()) + "\n");
    return;
  }
  show_all(judged, folder);
  show_among_others(std::move(judged));
}

const std::vector<desk_reader>& all_readers() {
  static const std::vector<desk_reader> made = {
      {"finding_logs",
       {exception_log, inconsistency_log, programming_log, deletion_log, health_log},
       finding_logs},
      {"stale_entries", {stale_log}, stale_entries},
      {"debug_log", {debug_log}, snapshot},
      {"journal", {journal}, commands_of_run},
      {"report",
       {exception_log, inconsistency_log, programming_log, deletion_log, health_log, stale_log,
        debug_log},
       whole_report},
      {"earlier_report", {report_json}, earlier_report},
  };
  return made;
}

}  // namespace

std::span<const desk_reader> desk_readers() {
  return all_readers();
}

void run(const desk_reader& reader, std::string_view input, const std::string& folder) {
  for (const std::string_view log : reader.logs) {
    const std::size_t end = std::min(input.find(log_separator), input.size());
    write(folder + "/" + std::string(log), input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  reader.read(folder);
}

}  // namespace fuzz
