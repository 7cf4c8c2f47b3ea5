#include "lab/commands/command_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "lab/base/child.h"
#include "lab/base/messages.h"
#include "lab/base/mounts.h"
#include "lab/commands/commands.h"

namespace lab {
namespace {

struct subcommand {
  const char* name;
  const char* help;  // its lines, as --help shows them
  int (*run)(const std::vector<std::string>& arguments);
};

constexpr std::array subcommands{
    subcommand{"list", "  tessel-lab list                           the described routers\n",
               list_command},
    subcommand{"faults",
               "  tessel-lab faults                         the faults that can be planted\n"
               "      --kinds                               names and kinds alone, for programs\n",
               faults_command},
    subcommand{
        "expect",
        "  tessel-lab expect ROUTER                  what the audit must find, a line a fault\n"
        "      --fault NAME                          plant a fault; may be repeated\n",
        expect_command},
    subcommand{"render",
               "  tessel-lab render ROUTER OUT              write what the router's tools print\n"
               "      --fault NAME                          plant a fault; may be repeated\n",
               render_command},
    subcommand{"generate",
               "  tessel-lab generate OUT                   the same for a healthy router made up\n"
               "      --type TYPE                           birch unless given\n"
               "      --cards N --npus N                    line cards, NPUs of each\n"
               "      --bundles N --members N               bundles, members of each\n"
               "      --l2-subs N --l3-subs N               sub-bundles of the whole router\n"
               "      --family old|j2|mixed                 its chips, mixed unless given\n"
               "      --hqos                                with hierarchical QoS\n"
               "      --seed N                              of what is left to chance\n",
               generate_command},
    subcommand{
        "run",
        "  tessel-lab run ROUTER|CAPTURE|PACKED      audit it in a namespace of its own\n"
        "      --fault NAME                          plant a fault; may be repeated\n"
        "      --logs DIR                            leave the logs there\n"
        "      --host FILE                           tessel-host beside this program unless "
        "given\n"
        "      --library FILE                        libtessel.so beside this program unless "
        "given\n"
        "      --keep-calls FILE                     list every tool call there\n"
        "      --real-ssh                            nodes in network namespaces, behind OpenSSH\n"
        "      --latency CLASS=TIME,...              tools answer late: "
        "ssh=150ms,chip=0.3s,all=5ms\n"
        "      --record OUT                          record that router while it is audited\n"
        "      -- HOST ARGS                          for the host\n",
        run_command},
    subcommand{
        "record",
        "  tessel-lab record OUT                     audit the router that this is, and keep what\n"
        "                                            its tools print as a capture\n"
        "      --logs DIR                            leave the logs there, not in /var/log\n"
        "      --host FILE, --library FILE           as for run\n"
        "      -- HOST ARGS                          for the host\n",
        record_command},
    subcommand{
        "pack",
        "  tessel-lab pack CAPTURE PACKED            make one compressed file of a capture\n",
        pack_command},
    subcommand{"unpack", "  tessel-lab unpack PACKED OUT              make a capture of it again\n",
               unpack_command},
    subcommand{
        "redact",
        "  tessel-lab redact CAPTURE OUT             a capture without addresses, descriptions\n"
        "                                            and secrets, with the same findings\n",
        redact_command},
    subcommand{
        "diff",
        "  tessel-lab diff A B                       which layers, nodes and bundles changed\n"
        "                                            between two captures; status 0: none,\n"
        "                                            1: some, 2: a capture cannot be read\n",
        diff_command},
};

int help() {
  fmt::print("tessel-lab: a router when there is none\n\n");
  for (const subcommand& one : subcommands) fmt::print("{}", one.help);
  fmt::print(
      "  tessel-lab --help | --version\n"
      "\n"
      "ROUTER is a name from the list or a file that ends in .toml; CAPTURE is a folder that "
      "render,\nrecord or unpack wrote, PACKED a file that pack wrote. A fault is NAME, NAME@3 for "
      "the\nfourth place that suits it, NAME=ARGUMENT if it takes one.\n");
  return EXIT_SUCCESS;
}

int run_subcommand(const std::vector<std::string>& arguments) {
  const std::string& name = arguments.front();
  if (name == "--help") return help();
  if (name == "--version") {
    fmt::print("tessel-lab {}\n", TESSEL_LAB_VERSION);
    return EXIT_SUCCESS;
  }
  const auto* known = std::find_if(subcommands.begin(), subcommands.end(),
                                   [&](const subcommand& one) { return name == one.name; });
  if (known == subcommands.end())
    throw usage_error(fmt::format("unknown command \"{}\"; see tessel-lab --help", name));
  return known->run(arguments);
}

}  // namespace

int run_command_line(const std::vector<std::string>& arguments) {
  try {
    if (arguments.empty()) throw usage_error("no command; see tessel-lab --help");
    const int status = run_subcommand(arguments);
    flush_output();
    return status;
  } catch (const usage_error& failure) {
    fmt::print(stderr, "tessel-lab: {}\n", failure.what());
    return usage_status;
  } catch (const no_privileges& missing) {
    fmt::print(stderr, "tessel-lab: {}\n", missing.what);
    return missing_privileges;
  } catch (const std::exception& failure) {
    fmt::print(stderr, "tessel-lab: {}\n", message_of(failure));
    return EXIT_FAILURE;
  }
}

}  // namespace lab
