#include "desk/commands/options.h"

#include <charconv>
#include <utility>

#include "command_line/command_line.h"

namespace desk {

namespace {

constexpr const char* description =
    "tessel-report reads what an audit left and answers: which bundle, which node, since which "
    "layer, how sure, what next.";

constexpr const char* footer = R"(Without a command it shows the summary.

Exit status of every command that reads a run:
  0  Nothing was found, and everything was judged.
  1  Something was found.
  2  The call was wrong, or there is no run to read.
  3  Nothing was found, but something was not judged.)";

std::size_t number_of_run(const std::string& text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number == 0)
    throw command_line::bad_value("not the number of a run; tessel-report runs lists them");
  return number;
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

void add_input_options(CLI::App& app, report_options& parsed) {
  command_line::add_value(app, "--logs", "DIR",
                          "the folder with the logs of the audit. Default: /var/log",
                          [&parsed](const auto& text) { parsed.logs = text; });
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
                          [&parsed](const auto& text) { parsed.run = number_of_run(text); });
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

  if (auto help = command_line::parse(app, words)) {
    parsed.of = command::help;
    parsed.help = std::move(*help);
    return parsed;
  }
  if (version) parsed.of = command::version;
  for (const auto& [one, of] : commands)
    if (one->parsed()) parsed.of = of;
  return parsed;
}

}  // namespace desk
