#include "lab/commands/command_line.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "command_line/command_line.h"
#include "lab/base/complain.h"
#include "lab/base/messages.h"
#include "lab/base/namespaces.h"
#include "lab/commands/commands.h"
#include "lab/tool/ended_call.h"

namespace lab {
namespace {

constexpr const char* of_routers = "Routers and faults";
constexpr const char* of_audits = "Audits";
constexpr const char* of_captures = "Captures";

constexpr const char* router_help =
    "a name from `tessel-lab list`, or a description: a file whose name ends in .toml";
constexpr const char* new_folder_help = "the folder to make; it must not exist";
constexpr const char* any_capture_help = "a capture, packed or not";

constexpr const char* host_arguments_end = "[-- HOST_ARGUMENT...]";
constexpr const char* host_arguments_footer =
    "Words after -- go to the host, for example: -- --node-id 4352\n"
    "The exit status is the host's; see tessel-host --help.";

// The action of each command, to call after its options are read.
using actions = std::map<const CLI::App*, std::function<int()>>;

// The options of all commands.
struct lab_options {
  faults_options faults;
  expect_options expect;
  render_options render;
  generate_options generate;
  run_options run;
  record_options record;
  capture_options pack, unpack;
  redact_options redact;
  info_options info;
  diff_options diff;
};

unsigned number_of(const std::string& text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc{} || stop != end)
    throw command_line::bad_value(
        fmt::format("not a number from 0 to {}", std::numeric_limits<unsigned>::max()));
  return number;
}

chip_mix family_named(const std::string& name) {
  if (name == "old") return chip_mix::older;
  if (name == "j2") return chip_mix::jericho2;
  if (name == "mixed") return chip_mix::mixed;
  throw command_line::bad_value("not one of old, j2, mixed");
}

std::vector<std::string> name_kinds_in(const std::string& text) {
  std::vector<std::string> kinds;
  std::istringstream words(text);
  for (std::string word; std::getline(words, word, ',');) {
    if (word != "vrf" && word != "acl" && word != "trustpoint" && word != "all")
      throw command_line::bad_value("not of vrf, acl, trustpoint, all, with commas between them");
    kinds.push_back(word);
  }
  if (kinds.empty()) throw command_line::bad_value("names no kind");
  return kinds;
}

CLI::Option* add_text(CLI::App& app, const std::string& name, const std::string& label,
                      const std::string& help, std::optional<std::string>& value) {
  return command_line::add_value(app, name, label, help,
                                 [&value](const std::string& text) { value = text; });
}

CLI::Option* add_number(CLI::App& app, const std::string& name, const std::string& help,
                        std::optional<unsigned>& value) {
  return command_line::add_value(app, name, "N", help,
                                 [&value](const std::string& text) { value = number_of(text); });
}

CLI::Option* add_faults(CLI::App& app, std::vector<std::string>& faults) {
  return command_line::add_value(
      app, "--fault", "FAULT",
      "plant a fault that `tessel-lab faults` lists; may be repeated. NAME plants it in the first "
      "place that suits it, NAME@3 in the fourth; NAME=ARGUMENT passes the argument that some "
      "faults "
      "take",
      [&faults](const std::string& text) { faults.push_back(text); });
}

void add_programs(CLI::App& app, program_options& programs) {
  add_text(app, "--host", "FILE", "the host to run. Default: tessel-host next to this program",
           programs.host)
      ->group("Programs");
  add_text(app, "--library", "FILE",
           "the library to audit with. Default: libtessel.so next to this program, or the one of "
           "its installation",
           programs.library)
      ->group("Programs");
}

void add_list(CLI::App& app, lab_options&, actions& commands) {
  CLI::App& list = command_line::add_command(app, "list", of_routers, "List the described routers");
  commands[&list] = list_command;
}

void add_faults_command(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.faults;
  CLI::App& faults = command_line::add_command(
      app, "faults", of_routers, "List the faults that can be planted and what they raise");
  command_line::add_flag(faults, "--kinds",
                         "one line per fault for programs: its name and its kind, plain, argued "
                         "(takes an argument) or ending (ends the audit)",
                         o.kinds);
  commands[&faults] = [&o] { return faults_command(o); };
}

void add_expect(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.expect;
  CLI::App& expect =
      command_line::add_command(app, "expect", of_routers,
                                "List the findings that the audit must report, one line per fault");
  command_line::add_operand(expect, "ROUTER", router_help, o.router);
  add_faults(expect, o.faults);
  command_line::add_flag(
      expect, "--places",
      "instead, show where each fault was planted, for programs: its name, layer (config, PI, PD, "
      "DPA, BCM; tool or machine where none is concerned), node, NPU, bundle and member or "
      "sub-bundle (without a bundle: the tool, file or folder); separated by tabs, - for none",
      o.places);
  commands[&expect] = [&o] { return expect_command(o); };
}

void add_render(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.render;
  CLI::App& render = command_line::add_command(app, "render", of_routers,
                                               "Write what a router's tools print, as a capture");
  command_line::add_operand(render, "ROUTER", router_help, o.router);
  command_line::add_operand(render, "OUT", new_folder_help, o.out);
  add_faults(render, o.faults);
  commands[&render] = [&o] { return render_command(o); };
}

void add_generate(CLI::App& app, lab_options& all, actions& commands) {
  constexpr const char* size = "Size (defaults depend on the type)";
  auto& o = all.generate;
  CLI::App& generate = command_line::add_command(
      app, "generate", of_routers, "Generate a healthy router of any size and write its capture");
  command_line::add_operand(generate, "OUT", new_folder_help, o.out);
  command_line::add_value(generate, "--type", "TYPE",
                          "aspen, birch, cedar, cedarl, dogwood, elm, fir or gorse. Default: birch",
                          [&o](const std::string& text) { o.type = text; });
  command_line::add_value(generate, "--family", "FAMILY",
                          "the chips: old, j2 or mixed. Default: mixed",
                          [&o](const std::string& text) { o.family = family_named(text); });
  command_line::add_flag(generate, "--hqos", "use hierarchical QoS", o.hqos);
  add_number(generate, "--seed", "the seed of the random choices. Default: 1", o.seed);
  add_number(generate, "--cards", "line cards", o.cards)->group(size);
  add_number(generate, "--npus", "NPUs per line card", o.npus)->group(size);
  add_number(generate, "--bundles", "bundles", o.bundles)->group(size);
  add_number(generate, "--members", "members per bundle", o.members)->group(size);
  add_number(generate, "--l2-subs", "layer 2 sub-bundles of the whole router", o.l2_subs)
      ->group(size);
  add_number(generate, "--l3-subs", "layer 3 sub-bundles of the whole router", o.l3_subs)
      ->group(size);
  commands[&generate] = [&o] { return generate_command(o); };
}

void add_run(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.run;
  CLI::App& run = command_line::add_command(
      app, "run", of_audits, "Audit a simulated or recorded router in a private namespace",
      host_arguments_end);
  command_line::add_operand(run, "ROUTER|CAPTURE|PACKED",
                            "a name from `tessel-lab list` or a .toml file; a capture; or a packed "
                            "capture",
                            o.source);
  add_faults(run, o.faults);
  add_text(run, "--latency", "CLASS=TIME,...",
           "let the tools answer late: ssh=150ms,chip=0.3s,all=5ms", o.latency);
  command_line::add_flag(run, "--real-ssh",
                         "put each node into a network namespace behind an OpenSSH server; needs "
                         "root, OpenSSH and iproute2",
                         o.real_ssh);
  add_text(run, "--logs", "DIR",
           "the folder for the audit's logs; made if needed. Default: a new folder, whose name is "
           "shown",
           o.logs)
      ->group("Output");
  add_text(run, "--keep-calls", "FILE", "list every tool call in this file", o.calls)
      ->group("Output");
  add_text(run, "--record", "OUT", "record a capture of the router while it is audited", o.record)
      ->group("Output");
  add_programs(run, o.programs);
  run.footer(host_arguments_footer);
  commands[&run] = [&o] { return run_command(o); };
}

void add_record(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.record;
  CLI::App& record = command_line::add_command(
      app, "record", of_audits,
      "Audit the router that this runs on and keep what its tools print as a capture",
      host_arguments_end);
  command_line::add_operand(record, "OUT", new_folder_help, o.out);
  add_text(record, "--logs", "DIR",
           "the folder for the audit's logs; made if needed. Default: /var/log", o.logs);
  add_text(record, record_shown_option, "NAME", "", o.shown)->group("");
  add_programs(record, o.programs);
  record.footer(host_arguments_footer);
  commands[&record] = [&o] { return record_command(o); };
}

void add_pack(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.pack;
  CLI::App& pack =
      command_line::add_command(app, "pack", of_captures, "Compress a capture into one file");
  command_line::add_operand(pack, "CAPTURE",
                            "a folder that render, generate, record or unpack wrote", o.from);
  command_line::add_operand(pack, "PACKED", "the file to make; it must not exist", o.out);
  commands[&pack] = [&o] { return pack_command(o); };
}

void add_unpack(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.unpack;
  CLI::App& unpack = command_line::add_command(app, "unpack", of_captures,
                                               "Turn a packed capture back into a folder");
  command_line::add_operand(unpack, "PACKED", "a file that pack wrote", o.from);
  command_line::add_operand(unpack, "OUT", new_folder_help, o.out);
  commands[&unpack] = [&o] { return unpack_command(o); };
}

void add_redact(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.redact;
  CLI::App& redact = command_line::add_command(
      app, "redact", of_captures,
      "Copy a capture without addresses, descriptions and secrets; its findings stay the same");
  command_line::add_operand(redact, "CAPTURE", any_capture_help, o.from);
  command_line::add_operand(redact, "OUT", new_folder_help, o.out);
  command_line::add_value(redact, "--names", "KIND,...",
                          "also replace these names: vrf, acl, trustpoint or all",
                          [&o](const std::string& text) { o.names = name_kinds_in(text); });
  add_text(redact, "--mapping", "FILE",
           "write what was replaced by what into this file, which only its user can read; keep it",
           o.mapping);
  command_line::add_flag(redact, "--verify",
                         "audit both captures, and make OUT only if the findings are the same",
                         o.verify);
  add_programs(redact, o.programs);
  redact.footer(
      "Exit status:\n"
      "  0   OUT is made; with --verify, all findings are the same.\n"
      "  1   OUT is not made.\n"
      "  2   OUT is made, and no difference found, but some findings could not be\n"
      "      compared: they change between two audits of the same capture, or were\n"
      "      rotated away with the oldest lines of a log.");
  commands[&redact] = [&o] { return redact_command(o); };
}

void add_info(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.info;
  CLI::App& info = command_line::add_command(
      app, "info", of_captures, "Show where a capture comes from and whether it is complete");
  command_line::add_operand(info, "CAPTURE", any_capture_help, o.capture);
  info.footer(
      "Exit status:\n"
      "  0   The capture is complete.\n"
      "  1   It is damaged, or cannot be read.");
  commands[&info] = [&o] { return info_command(o); };
}

void add_diff(CLI::App& app, lab_options& all, actions& commands) {
  auto& o = all.diff;
  CLI::App& diff =
      command_line::add_command(app, "diff", of_captures,
                                "Show which layers changed between two captures, on which nodes "
                                "and for which bundles");
  command_line::add_operand(diff, "A", any_capture_help, o.before);
  command_line::add_operand(diff, "B", "the capture to compare it with", o.after);
  command_line::add_flag(diff, "--values",
                         "also show the lines that differ: - in A only, + in B only", o.values);
  command_line::add_flag(diff, "--all", "show everything, however long it is", o.all);
  diff.footer(
      "Exit status:\n"
      "  0   Nothing changed.\n"
      "  1   Something changed.\n"
      "  2   A capture cannot be read.");
  commands[&diff] = [&o] { return diff_command(o); };
}

constexpr std::array add_commands{
    add_list,   add_faults_command, add_expect, add_render, add_generate, add_run,
    add_record, add_pack,           add_unpack, add_redact, add_info,     add_diff};

int obey(const std::vector<std::string>& arguments) {
  CLI::App app(
      "tessel-lab simulates a router: it answers every tool call of the audit, for a router that a "
      "file describes or for one that was recorded.",
      "tessel-lab");
  command_line::set_up(app);
  app.require_subcommand(0, 1);
  app.footer("tessel-lab COMMAND --help explains a command.");
  bool version = false;
  command_line::add_flag(app, "--version", "show the version", version);
  lab_options options;
  actions commands;
  for (const auto add : add_commands) add(app, options, commands);

  const command_line::rest_places host_arguments{
      {app.get_subcommand("run"), &options.run.host_arguments},
      {app.get_subcommand("record"), &options.record.host_arguments}};
  if (const auto help = command_line::parse(app, arguments, host_arguments)) {
    fmt::print("{}", *help);
    return EXIT_SUCCESS;
  }
  if (version) {
    fmt::print("tessel-lab {}\n", TESSEL_LAB_VERSION);
    return EXIT_SUCCESS;
  }
  const auto chosen = std::as_const(app).get_subcommands();
  if (chosen.empty()) throw command_line::complaint(app, "no command");
  return commands.at(chosen.front())();
}

}  // namespace

int run_command_line(const std::vector<std::string>& arguments) {
  try {
    const int status = obey(arguments);
    flush_output();
    return status;
  } catch (const usage_error& failure) {
    complain(fmt::format("tessel-lab: {}", failure.what()));
    return usage_status;
  } catch (const no_privileges& missing) {
    complain(fmt::format("tessel-lab: {}", missing.what));
    return missing_privileges;
  } catch (const std::exception& failure) {
    complain(fmt::format("tessel-lab: {}", message_of(failure)));
    return EXIT_FAILURE;
  }
}

}  // namespace lab
