#include "arguments.h"

#include <tessel/tessel.h>

#include <charconv>
#include <system_error>
#include <utility>
#include <vector>

#include "command_line/command_line.h"

namespace tessel_host {

namespace {

constexpr const char* description =
    "tessel-host runs one audit of the router's link bundles: it loads the Tessel Checker library "
    "and calls its entry points in order.";

constexpr const char* exit_statuses =
    R"(Exit status:
  0   The audit ended by itself. Its output says whether it was complete: six
      times "Done" and the result table; "TESSEL Stopped" or "Log ERROR" if not.
      Findings do not change the status; they are in /var/log/tessel_*.log.
  1   The audit stopped before it collected anything.
  2   The audit was aborted; its traceback is on standard error.
  4   The audit had not come to its end at its --deadline and was ended, or
      --wait had waited until then for another one.
      With --check: the audit did not complete, for whatever reason but a
      signal that has stopped it, another audit, or a library that is not there.
  64  An argument was wrong.
  69  The library could not be loaded, or lacks an entry point; or there is no
      tessel-report for --report, --check or --json.
  73  The file for the journal or the support file could not be made, or the one
      for the report in JSON cannot be.
  74  --help, --version or doctor could not write to standard output.
  75  Another audit is running on this machine, or a process that may be none
      holds its lock; the message names the process.
If a signal ends the audit or the host, the host ends by this signal, and a
shell shows 128 and its number.)";

std::string file_named(const std::string& text) {
  if (text.empty()) throw command_line::bad_value("the value is empty; name a file");
  return text;
}

std::uint32_t node_id_of(const std::string& text) {
  if (const auto number = read_node_id(text)) return *number;
  throw command_line::bad_value(
      "not a node id; give a decimal number, or a hexadecimal one after 0x, from 0 to 4294967295");
}

std::chrono::seconds seconds_of(const std::string& text) {
  constexpr std::uint32_t a_day = 24 * 60 * 60;
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc{} && stop == text.data() + text.size() && number >= 1 && number <= a_day)
    return std::chrono::seconds(number);
  throw command_line::bad_value("not a number of seconds; give a whole one from 1 to 86400");
}

void add_watching(CLI::App& app, host_arguments& parsed) {
  command_line::add_value(
      app, "--command-timeout", "SECONDS",
      "end each command that takes longer, with what it has started; the audit goes on with what "
      "it has printed until then. The commands have no terminal then, so ssh cannot ask for a "
      "password. If one was ended, --check ends with 3 at least. Default: a command may take as "
      "long as it likes",
      [&](const auto& text) { parsed.command_timeout = seconds_of(text); });
  command_line::add_value(app, "--deadline", "SECONDS",
                          "end the whole audit if it takes longer, with its tools, and remove its "
                          "files in /tmp. The time counts from the start of this program, so "
                          "waiting for another audit is a part of it. The report behind the "
                          "audit is not",
                          [&](const auto& text) { parsed.deadline = seconds_of(text); });
  command_line::add_flag(app, "--wait",
                         "if another audit is running on this machine, wait for its end, until the "
                         "--deadline at most. Default: say so and end",
                         parsed.wait);
}

void add_reports(CLI::App& app, host_arguments& parsed) {
  command_line::add_flag(app, "--report",
                         "show behind the audit what it means: the summary of tessel-report",
                         parsed.report.shows_summary);
  command_line::add_flag(app, "--check",
                         "end with the status of the report: 0 nothing was found and everything "
                         "was judged, 1 something was found, 3 something was not judged, 4 the "
                         "audit did not complete",
                         parsed.report.checks);
  command_line::add_value(
      app, "--json", "FILE",
      "write the report in JSON to this file; a message says so if the audit leaves no report",
      [&](const auto& text) { parsed.report.json = file_named(text); });
  command_line::add_value(
      app, "--support-file", "FILE",
      "pack the logs, the journal and what doctor says into this file, and what the commands have "
      "printed if the audit crashes, is aborted or ended; one that ends by itself removes that, "
      "and tessel-lab record keeps it. It is made however the audit ends but by a signal to this "
      "program. It holds the "
      "router's configuration and addresses; only its owner may read it",
      [&](const auto& text) { parsed.support_file = file_named(text); });
}

// One of the given options that only who watches an audit can heed; empty if there is none.
std::string option_of_who_watches(const host_arguments& parsed) {
  if (parsed.progress == true) return "--progress";
  if (parsed.command_timeout) return "--command-timeout";
  if (parsed.deadline) return "--deadline";
  if (parsed.wait) return "--wait";
  if (parsed.report.shows_summary) return "--report";
  if (parsed.report.checks) return "--check";
  if (parsed.report.json) return "--json";
  if (parsed.support_file) return "--support-file";
  return {};
}

void refuse_for_in_process(const CLI::App& app, const host_arguments& parsed) {
  const std::string option = option_of_who_watches(parsed);
  if (parsed.in_process && !option.empty())
    throw command_line::complaint(app,
                                  option + " needs a host that watches; leave out --in-process");
}

// Nobody is to wait for a file that doctor does not write. A library and a node id change nothing
// of what it looks at.
void refuse_for_doctor(const CLI::App& app, const host_arguments& parsed) {
  std::string option = option_of_who_watches(parsed);
  if (parsed.journal) option = "--journal";
  if (parsed.in_process) option = "--in-process";
  if (!option.empty()) throw command_line::complaint(app, option + " is for an audit");
}

}  // namespace

host_arguments parse_arguments(std::span<const char* const> arguments) {
  host_arguments parsed;
  bool version = false;
  bool progress = false;
  bool no_progress = false;
  CLI::App app(description, "tessel-host");
  command_line::set_up(app);
  app.footer(exit_statuses);
  command_line::add_value(app, "--library", "FILE",
                          "the library to load: a path, or a name without a slash, which the "
                          "dynamic linker looks up. Default: libtessel.so next to this program, "
                          "else the one of its installation, else the one that the dynamic linker "
                          "finds",
                          [&](const auto& text) { parsed.library = file_named(text); });
  command_line::add_value(app, "--node-id", "N",
                          "the node id of this route processor, a 32-bit number, decimal or "
                          "hexadecimal after 0x. Default: 4096",
                          [&](const auto& text) { parsed.node_id = node_id_of(text); });
  command_line::add_value(
      app, "--journal", "FILE",
      "write a journal of the commands that the audit runs to this file, a "
      "line of JSON when one starts and one when it ends. Replaces its content; "
      "only its owner may read it",
      [&](const auto& text) { parsed.journal = file_named(text); });
  command_line::add_flag(app, "--progress",
                         "show on standard error how many commands run and are done, in all and on "
                         "each node and chip, and which is the slowest: on a terminal in one line "
                         "that is redrawn, else in a line every ten seconds. Default on a "
                         "terminal, unless standard output is the same one",
                         progress);
  command_line::add_flag(app, "--no-progress", "show none", no_progress);
  add_watching(app, parsed);
  add_reports(app, parsed);
  const auto& doctor = command_line::add_command(
      app, "doctor", "Commands",
      "Look at this machine before an audit: tools, room, nodes. Status 0 if all is well, 1 if "
      "there is a warning, 2 if something fails");
  command_line::add_flag(app, "--in-process",
                         "run the audit in this process, for a debugger: nobody watches it, its "
                         "tools live on if it is ended, and it runs beside another audit",
                         parsed.in_process);
  command_line::add_flag(app, "--version", "show the version", version);

  auto help = command_line::parse(app, {arguments.begin(), arguments.end()});
  if (progress) parsed.progress = true;
  if (no_progress) parsed.progress = false;
  if (help) {
    parsed.action = host_action::help;
    parsed.help = std::move(*help);
  } else if (version) {
    parsed.action = host_action::version;
  } else if (doctor.parsed()) {
    refuse_for_doctor(app, parsed);
    parsed.action = host_action::doctor;
  } else {
    refuse_for_in_process(app, parsed);
  }
  return parsed;
}

std::optional<std::uint32_t> read_node_id(std::string_view text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  std::uint32_t number = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

int status_of_returned_run(std::int32_t result) {
  return result == TESSEL_STOPPED_EARLY ? 1 : 2;
}

returned_run describe_returned_run(std::int32_t result, const std::string& cause) {
  const std::string head = "the audit did not complete: ";
  const int status = status_of_returned_run(result);
  if (result == TESSEL_STOPPED_EARLY)
    return {head + "it stopped before it collected anything; " + cause, status};
  if (result == TESSEL_ABORTED)
    return {head + "it was aborted by the failure in the traceback above", status};
  return {head + "tessel_run returned " + std::to_string(result) + ", which it never should",
          status};
}

}  // namespace tessel_host
