#include "desk/commands/options.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <utility>

#include "command_line/command_line.h"

namespace desk {

namespace {

constexpr const char* description =
    "tessel-report reads what an audit left and answers: which bundle, which node, since which "
    "layer, how sure, what next.";

constexpr const char* footer =
    R"(Without a command it shows the summary. A RUN is a folder with the logs of an
audit, where DIR@N means the run with that number in `tessel-report runs`; a
recorded router; or a report in JSON.

Exit status of a command that reads a run (not of nagios; of runs always 0):
  0  Nothing was found, and everything was judged.
  1  Something was found: any finding, or what --fail-on names.
  2  The call was wrong, or there is no run to read.
  3  Nothing was found, but something was not judged.)";

// A number from 1; otherwise throws what to do.
std::size_t number_in(const std::string& text, const char* advice) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number == 0)
    throw command_line::bad_value(advice);
  return number;
}

// The operator's words for `fail_on`.
fail_on fail_on_named(const std::string& word) {
  if (word == "any") return fail_on::any;
  if (word == "new") return fail_on::is_new;
  if (word == "confirmed") return fail_on::confirmed;
  if (word == "never") return fail_on::never;
  throw command_line::bad_value("use any, new, confirmed or never");
}

// The machine's own, or nothing if it has none that tells it from others.
std::string host_name() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return {};
  const std::string found = name.data();
  return found == "(none)" || found == "localhost" ? std::string() : found;
}

struct format_command {
  const char* name;
  command of;
  const char* help;
};

constexpr format_command formats[] = {
    {"json", command::json, "Write everything as JSON; its schema is report.schema.json"},
    {"junit", command::junit, "Write a test case for each bundle, for a build server"},
    {"sarif", command::sarif, "Write SARIF 2.1.0, for tools that track findings"},
    {"prometheus", command::prometheus, "Write metrics for a textfile collector"},
    {"nagios", command::nagios,
     "Write one line for a monitoring plug-in, and end with its statuses: 0 ok, 1 warning, 2 "
     "critical, 3 unknown"},
    {"html", command::html, "Write one page that needs nothing else: matrix, dossiers, coverage"}};

using parsed_commands = std::vector<std::pair<const CLI::App*, command>>;

// The commands that write a file.
parsed_commands add_formats(CLI::App& app, std::string& output) {
  parsed_commands added;
  for (const format_command& one : formats) {
    auto& made = command_line::add_command(app, one.name, "Formats", one.help);
    command_line::add_value(made, "--output", "FILE",
                            "the file to write, which appears whole or not at all. Default: "
                            "standard output",
                            [&output](const auto& text) { output = text; });
    added.emplace_back(&made, one.of);
  }
  return added;
}

// Logs that nobody named are those of this machine, so its name is the router's.
void name_router(const CLI::App& app, report_options& parsed) {
  for (const char* option : {"--router", "--logs", "--capture"})
    if (app.count(option) != 0) return;
  const bool names_runs = !parsed.places.empty() || parsed.keeps_nothing;
  if (!names_runs) parsed.router = host_name();
}

void add_input_options(CLI::App& app, report_options& parsed) {
  command_line::add_value(app, "--logs", "DIR",
                          "the folder with the logs of the audit. Default: /var/log",
                          [&parsed](const auto& text) { parsed.logs = text; });
  command_line::add_value(app, "--router", "NAME",
                          "the name of the router in what is written. Default: the name of this "
                          "machine if the logs are its own, otherwise none",
                          [&parsed](const auto& text) { parsed.router = text; });
  command_line::add_value(
      app, "--capture", "FILE",
      "a recorded router, as a folder or packed, instead of logs: it is audited "
      "again, by tessel-lab",
      [&parsed](const auto& text) { parsed.capture = text; });
  command_line::add_value(app, "--journal", "FILE",
                          "the journal that tessel-host --journal wrote of the run. Default: "
                          "tessel_journal.jsonl in the folder of the logs, if it is there",
                          [&parsed](const auto& text) { parsed.journal = text; });
  command_line::add_value(app, "--run", "N",
                          "an older run, by its number in `tessel-report runs`; shows its findings "
                          "only, because the snapshot is that of the last run",
                          [&parsed](const auto& text) {
                            parsed.run = number_in(
                                text, "not the number of a run; tessel-report runs lists them");
                          });
  command_line::add_value(
      app, "--fail-on", "FINDINGS",
      "the findings that make a command end with 1: any, new (diff, confirm, history and merge "
      "only), confirmed (in all runs that diff, confirm or history compares), or never. Not for "
      "nagios. Default: any",
      [&parsed](const auto& word) { parsed.when = fail_on_named(word); });
  command_line::add_flag(app, "--short", "a line for each cause", parsed.is_short);
  command_line::add_flag(app, "--all", "every cause, bundle and message", parsed.shows_all);
}

// The commands that write text, by their parsed application.
parsed_commands add_views(CLI::App& app, std::string& word) {
  constexpr const char* views = "Commands";
  const auto add = [&](const char* name, const char* help) -> CLI::App& {
    return command_line::add_command(app, name, views, help);
  };
  auto& summary = add("summary",
                      "Show verdicts, causes and what to do next, on one screen; --short or --all, "
                      "less or more");
  auto& bundle = add("bundle", "Show one bundle, all layers side by side");
  command_line::add_operand(
      bundle, "NAME", "a bundle (BE12 or 12), a member (0/0/0/1), a handle or a LAG id", word);
  auto& coverage = add("coverage", "Show what was read of each node and layer, and what was not");
  auto& explain = add("explain",
                      "Explain a message of the audit: what it means, how sure it is, what to look "
                      "at next");
  command_line::add_operand(explain, "CODE|LINE", "a code such as TC-104, or a line of a log",
                            word);
  auto& runs = add("runs", "List the runs in the logs");
  return {{&summary, command::summary},
          {&bundle, command::bundle},
          {&coverage, command::coverage},
          {&explain, command::explain},
          {&runs, command::runs}};
}

// The commands that compare runs.
parsed_commands add_comparisons(CLI::App& app, report_options& parsed) {
  constexpr const char* comparisons = "Several runs";
  auto& diff = command_line::add_command(
      app, "diff", comparisons, "Compare two runs: what is new, changed, persisting, gone");
  command_line::add_operands(diff, "RUN", "the earlier run, and the later one", 2, parsed.places);
  auto& confirm = command_line::add_command(
      app, "confirm", comparisons, "Show what is found in all of several runs, and what moves");
  command_line::add_operands(confirm, "RUN", "the runs, the oldest first", 2, parsed.places);
  auto& history = command_line::add_command(
      app, "history", comparisons,
      "Keep runs in a store, and show when each finding was seen first and last");
  command_line::add_operands(history, "RUN",
                             "the runs to keep. Default: the one that --logs or --capture names", 0,
                             parsed.places);
  command_line::add_value(history, "--store", "FILE",
                          "the store, one SQLite file, which is made if it is missing",
                          [&parsed](const auto& text) { parsed.store = text; });
  command_line::add_value(history, "--newest", "N",
                          "drop all but the newest N runs of the router. Default: keep all",
                          [&parsed](const auto& text) {
                            parsed.newest = number_in(text, "not a number of runs; the least is 1");
                          });
  command_line::add_flag(history, "--only-show", "keep no run, only show the store",
                         parsed.keeps_nothing);
  return {{&diff, command::diff}, {&confirm, command::confirm}, {&history, command::history}};
}

merge_format format_named(const std::string& word) {
  if (word == "text") return merge_format::text;
  if (word == "json") return merge_format::json;
  if (word == "html") return merge_format::html;
  throw command_line::bad_value("use text, json or html");
}

parsed_commands add_merge(CLI::App& app, report_options& parsed) {
  auto& merge = command_line::add_command(app, "merge", "Several routers",
                                          "Put the reports of many routers together");
  command_line::add_operands(merge, "FILE",
                             "reports that tessel-report json wrote; of several of one router the "
                             "latest counts, and shows what is new since the one before",
                             1, parsed.reports);
  command_line::add_value(merge, "--format", "FORMAT",
                          "text, json (its schema is merge.schema.json) or html. Default: as the "
                          "name after --output ends, otherwise text",
                          [&parsed](const auto& word) { parsed.as = format_named(word); });
  command_line::add_value(merge, "--output", "FILE",
                          "the file to write, which appears whole or not at all. Default: "
                          "standard output",
                          [&parsed](const auto& text) { parsed.output = text; });
  return {{&merge, command::merge}};
}

// Options that say which run is read, or what it is called, are not for files that say so.
void check_merge(const CLI::App& app, const report_options& parsed) {
  for (const char* option : {"--logs", "--capture", "--journal", "--run", "--router"})
    if (app.count(option) != 0)
      throw command_line::complaint(
          app, std::string(option) + " is for a run; merge takes reports in JSON only");
  if (parsed.when == fail_on::confirmed)
    throw command_line::complaint(app, "--fail-on confirmed compares runs; use any, new or never");
}

bool compares_runs(command of) {
  return of == command::diff || of == command::confirm || of == command::history;
}

// The rules that concern several words of a call.
void check_together(const CLI::App& app, const report_options& parsed) {
  if (parsed.of == command::merge) return check_merge(app, parsed);
  const bool compares = parsed.when == fail_on::is_new || parsed.when == fail_on::confirmed;
  if (compares && !compares_runs(parsed.of))
    throw command_line::complaint(
        app, "--fail-on new and confirmed compare runs: use diff, confirm, history or merge");
  if (parsed.of == command::nagios && parsed.when != fail_on::any)
    throw command_line::complaint(app, "--fail-on is not for nagios, which has its own statuses");
  if (parsed.of == command::diff && parsed.places.size() != 2)
    throw command_line::complaint(app, "two runs are compared; confirm takes more");
  if (parsed.of == command::confirm && parsed.places.size() < 2)
    throw command_line::complaint(app, "nothing is confirmed by one run; name two or more");
  if (!parsed.places.empty() && (app.count("--logs") != 0 || app.count("--capture") != 0))
    throw command_line::complaint(app, "--logs and --capture name one run; name each as RUN");
  if (app.count("--capture") != 0 && (app.count("--logs") != 0 || parsed.run != 0))
    throw command_line::complaint(
        app, "--capture names a run, and its only one: --logs and --run are for logs");
  if (!parsed.places.empty() && (parsed.run != 0 || !parsed.journal.empty()))
    throw command_line::complaint(
        app, "--run and --journal are for one run; name an older one as DIR@N");
  if (parsed.of != command::history) return;
  if (parsed.store.empty())
    throw command_line::complaint(
        app, "the option --store FILE is needed, the file that keeps the runs");
  if (parsed.keeps_nothing && (!parsed.places.empty() || parsed.newest != 0))
    throw command_line::complaint(app, "--only-show keeps no runs, so it takes none");
}

}  // namespace

report_options parse_options(const std::vector<std::string>& words) {
  report_options parsed;
  bool version = false;
  CLI::App app(description, "tessel-report");
  command_line::set_up(app);
  app.require_subcommand(0, 1);
  app.footer(footer);
  app.fallthrough();
  add_input_options(app, parsed);
  command_line::add_flag(app, "--version", "show the version", version);
  parsed_commands commands = add_views(app, parsed.word);
  const parsed_commands written = add_formats(app, parsed.output);
  commands.insert(commands.end(), written.begin(), written.end());
  const parsed_commands compared = add_comparisons(app, parsed);
  commands.insert(commands.end(), compared.begin(), compared.end());
  const parsed_commands merged = add_merge(app, parsed);
  commands.insert(commands.end(), merged.begin(), merged.end());

  if (auto help = command_line::parse(app, words)) {
    parsed.of = command::help;
    parsed.help = std::move(*help);
    return parsed;
  }
  name_router(app, parsed);
  if (version) parsed.of = command::version;
  for (const auto& [one, of] : commands)
    if (one->parsed()) parsed.of = of;
  if (!version) check_together(app, parsed);
  return parsed;
}

}  // namespace desk
