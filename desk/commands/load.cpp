#include "desk/commands/load.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "desk/commands/replay.h"
#include "desk/judge/judge.h"
#include "desk/model/chip_cells.h"
#include "desk/model/coverage.h"
#include "desk/model/layers.h"
#include "desk/read/line_reader.h"

namespace desk {

namespace {

constexpr std::string_view debug_log = "tessel_debug.log";

// A capture is audited anew, now; its journal is of the run that was recorded, and it has the
// chips' tables that the snapshot lacks.
enum class journal_from : std::uint8_t { logs, capture };

// The dump of the nodes is the last thing that a run writes.
bool has_last_dump(const run& of) {
  const auto nodes = of.stores.find("VM information");
  return nodes != of.stores.end() && nodes->second != store_cut_off;
}

// The chips' tables are only there if the run came as far as the check of stale entries, and that
// may fail before it keeps them.
run_end end_of(const run& of, const run_in_logs& logs) {
  if (!of.has_snapshot) {
    // Killed behind its configuration; one that came to bundle health could not keep a snapshot.
    const bool is_cut = of.has_parsed_configuration && !has_come_to_health(logs);
    return is_cut ? run_end::cut_off : run_end::unknown;
  }
  if (!has_last_dump(of)) return run_end::cut_off;
  return of.has_chip_tables || has_come_to_health(logs) ? run_end::complete : run_end::stopped;
}

// A run that cannot begin the debug log ends and leaves the snapshot of the one before. So what the
// snapshot shows of its run, the other logs must show of this one: with the chips' tables it came
// to the check of bundle health, and what stops a run that has read its configuration is a message.
bool may_be_of(const run& snapshot, const log_set& logs, const run_in_logs& last) {
  if (snapshot.has_chip_tables) return may_have_come_to_health(logs, last);
  const bool has_stopped = has_last_dump(snapshot) && !snapshot.objects.empty();
  return !has_stopped || may_have_messages(logs, last);
}

// One beside the logs may have been left by an earlier run.
bool is_of_run(const journal& found, const std::string& path, run& of, bool is_named) {
  if (may_be_of(found, of.started)) return true;
  of.marks.push_back(fmt::format(
      "{}: its run began at {}, the run in the logs at {}, so it {}", path, found.time, of.started,
      is_named ? "may be of another run" : "is left out; name it with --journal to use it"));
  return is_named;
}

std::string usual_journal(const report_options& options) {
  return options.logs + "/tessel_journal.jsonl";
}

// A journal that was named must be there. `known` is it, if it was read before.
void read_commands(run& of, const report_options& options, journal_from where,
                   std::optional<journal> known) {
  const std::string usual = usual_journal(options);
  if (options.journal.empty() && !file_exists(usual)) return;
  const std::string& path = options.journal.empty() ? usual : options.journal;
  try {
    journal found = known ? std::move(*known) : read_journal(path);
    const bool is_named = !options.journal.empty();
    if (where == journal_from::logs && !is_of_run(found, path, of, is_named)) return;
    of.marks.insert(of.marks.end(), found.marks.begin(), found.marks.end());
    of.log_of_commands = std::move(found);
    of.has_journal = true;
  } catch (const read_error& error) {
    if (!options.journal.empty()) throw no_run(error.what());
    of.marks.emplace_back(error.what());
  }
}

std::optional<journal> journal_of(const report_options& options) {
  try {
    return read_journal(options.journal.empty() ? usual_journal(options) : options.journal);
  } catch (const read_error&) {
    return {};  // which a later reader says
  }
}

// Commands that come behind the start of all logs. A run that ended before has removed files only.
bool has_gone_on(const journal& found, const run_in_logs& last) {
  return may_be_of(found, last.started) &&
         std::any_of(found.commands.begin(), found.commands.end(),
                     [](const journal_command& one) { return !one.command.starts_with("rm "); });
}

// The journal tells where it is in doubt which starts in the logs are of the last run; only then it
// is read.
log_set load_logs_and(std::optional<journal>& of_commands, const report_options& options) {
  log_set logs = read_logs(options.logs);
  if (logs.exception.runs.empty() && logs.inconsistent.runs.empty()) {
    const std::string& why = logs.exception.marks.empty() ? std::string("it has no run in it")
                                                          : logs.exception.marks.front();
    throw no_run(
        fmt::format("no run of the audit in {}: {}; name the folder of its logs with --logs",
                    options.logs, why));
  }
  const std::vector<run_in_logs> runs = runs_in(logs);
  if (doubt_about(runs, runs.size() - 1).empty()) return logs;
  of_commands = journal_of(options);
  logs.has_gone_on = of_commands && has_gone_on(*of_commands, runs.back());
  return logs;
}

std::size_t back_of(const report_options& options, std::size_t runs) {
  if (options.run == 0) return 0;
  if (options.run > runs)
    throw no_run(fmt::format("the logs in {} have {} runs, there is no run {}", options.logs, runs,
                             options.run));
  return runs - options.run;
}

}  // namespace

const judged_run& load_and_judge(const report_options& options) {
  static auto* const kept = new std::deque<judged_run>;  // never destroyed
  return kept->emplace_back(judge(load_run(options)));
}

int status_of(const judged_run& of, const report_options& options) {
  return options.when == fail_on::never ? status_nothing_found : exit_status(of);
}

log_set load_logs(const report_options& options) {
  std::optional<journal> of_commands;
  return load_logs_and(of_commands, options);
}

namespace {

// `facts` are those of the capture that was audited; without one there are none.
run empty_run(const report_options& options, const recorded* facts) {
  run of;
  of.origin = options.logs;
  of.router = options.router;
  of.keeps_questions = facts != nullptr;
  if (facts != nullptr) of.router_type = facts->type;
  return of;
}

run run_with_snapshot(const report_options& options, const recorded* facts, const log_set& logs,
                      const run_in_logs& last) {
  run of = empty_run(options, facts);
  if (!has_begun_debug_log(logs, last)) {
    of.marks.push_back(fmt::format(
        "{}: the run ended before it began this log, which is of an earlier run", debug_log));
    return of;
  }
  try {
    read_layers(of, fmt::format("{}/{}", options.logs, debug_log));
    if (!of.has_snapshot)
      of.marks.push_back(fmt::format("{} holds no snapshot: only messages are known", debug_log));
  } catch (const read_error& error) {
    of.marks.emplace_back(error.what());
  }
  if (!of.has_snapshot || may_be_of(of, logs, last)) return of;
  of = empty_run(options, facts);
  of.marks.push_back(
      fmt::format("{}: its snapshot is left out, because no other log shows that this run came so "
                  "far: it is unknown of which run it is",
                  debug_log));
  return of;
}

run load_from_logs(const report_options& options, const recorded* facts) {
  std::optional<journal> of_commands;
  const log_set logs = load_logs_and(of_commands, options);
  const std::vector<run_in_logs> runs = runs_in(logs);
  const std::size_t back = back_of(options, runs.size());
  const run_in_logs& last = runs.back();  // without one, the logs were not loaded
  run of = back == 0 ? run_with_snapshot(options, facts, logs, last) : empty_run(options, facts);
  of.is_last = back == 0;
  if (back != 0)
    of.marks.emplace_back("an older run: its findings only, the snapshot is that of the last run");
  read_findings(of, logs, runs, back);
  if (back == 0) read_debug_notes(of);
  if (back == 0) read_stale_entries(of, options.logs, runs.size());
  if (back == 0)
    read_commands(of, options, facts == nullptr ? journal_from::logs : journal_from::capture,
                  std::move(of_commands));
  if (facts != nullptr) read_chips(of, facts->folder);
  of.end = back == 0 ? end_of(of, last) : run_end::unknown;
  fill_coverage(of);
  return of;
}

run load_replayed(report_options options) {
  const temporary_folder folder;
  options.logs = folder.path() + "/logs";
  const std::string capture = std::exchange(options.capture, "");
  const recorded facts = replay(capture, options.logs);
  run of = load_from_logs(options, &facts);
  of.origin = capture;
  // When the router was audited, not when its capture was.
  if (!facts.began.empty()) of.started = facts.began;
  return of;
}

}  // namespace

run load_run(const report_options& options) {
  return options.capture.empty() ? load_from_logs(options, nullptr) : load_replayed(options);
}

}  // namespace desk
