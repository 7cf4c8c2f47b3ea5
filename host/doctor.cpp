#include "doctor.h"

#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string_view>

#include "audit_files.h"
#include "audit_lock.h"
#include "command_line/one_line.h"
#include "leftovers.h"
#include "platform.h"
#include "programs.h"

namespace tessel_host {

namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;

enum class level { ok, warn, fail };

struct report {
  const examination& how;
  level worst = level::ok;

  void add(level found, const std::string& what, const std::string& remedy = "") {
    constexpr const char* words[] = {"ok  ", "warn", "fail"};
    worst = std::max(worst, found);
    std::fprintf(how.to, "%s %s%s%s\n", words[static_cast<int>(found)],
                 command_line::one_line(what).c_str(), remedy.empty() ? "" : "; ", remedy.c_str());
    if (std::fflush(how.to) != 0 || std::ferror(how.to) != 0) throw doctor_unheard(errno);
  }
};

std::string seconds_shown(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f s", seconds);
  return text;
}

program_result run(const report& shown, const std::vector<std::string>& words) {
  return run_programs({words}, shown.how.for_tool).front();
}

std::string in_tool_folder(std::string_view tool) {
  return std::string(tool_folder) + std::string(tool);
}

bool is_program(const std::string& file) {
  return ::access(file.c_str(), X_OK) == 0;
}

bool is_on_path(std::string_view name) {
  return !find_on_path(name).empty();
}

// The lines of a text that hold `word`.
std::vector<std::string> lines_with(const std::string& text, std::string_view word) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.find(word) != line.npos) found.push_back(line);
  return found;
}

std::string examine_model(report& shown) {
  const program_result version = run(shown, {in_tool_folder("sw_version_show")});
  const std::string remedy = "run this on the route processor of a router that the audit knows";
  if (!version.is_good()) {
    shown.add(level::fail, "machine: sw_version_show: " + version.complaint(), remedy);
    return {};
  }
  std::string model = model_in(version.out);
  if (model.empty()) {
    const auto named = lines_with(version.out, "processor");
    shown.add(level::fail,
              "machine: the audit does not know it: " +
                  (named.empty() ? "sw_version_show names no processor" : named.front()),
              remedy);
  } else {
    shown.add(level::ok, "machine: " + model);
  }
  return model;
}

void examine_tools(report& shown) {
  std::string missing;
  for (const platform_tool& tool : platform_tools) {
    const bool is_there = tool.place == tool_place::nodes ||
                          (tool.place == tool_place::folder ? is_program(in_tool_folder(tool.name))
                                                            : is_on_path(tool.name));
    if (!is_there)
      missing += " " + (tool.place == tool_place::folder ? in_tool_folder(tool.name)
                                                         : std::string(tool.name));
  }
  for (const char* const tool : {"/bin/sh", "/bin/grep", "/bin/rm"})
    if (!is_program(tool) && !is_on_path(std::string_view(tool).substr(5)))
      missing += std::string(" ") + tool;
  for (const char* const tool : {"sort", "uniq"})
    if (!is_on_path(tool)) missing += std::string(" ") + tool;
  if (missing.empty()) return shown.add(level::ok, "tools: all are there");
  shown.add(level::fail, "tools: missing or not executable:" + missing,
            "set PATH as for the router's own shell, and check the installation");
}

std::vector<listed_node> examine_nodes(report& shown, const std::string& model) {
  const auto known = std::find_if(router_models.begin(), router_models.end(),
                                  [&](const router_model& one) { return one.name == model; });
  if (known == router_models.end()) return {};
  if (known->is_single_node) return {{"0/RP0/CPU0", std::string(address_of_single_node)}};
  const program_result listing = run(shown, {in_tool_folder("plat_nodes_show"), "-v"});
  auto nodes = nodes_in(listing.out, model);
  if (!listing.is_good() || nodes.empty()) {
    shown.add(level::fail,
              "nodes: plat_nodes_show -v: " +
                  (listing.is_good() ? "it lists no active node" : listing.complaint()),
              "check the platform's manager on this route processor");
  } else {
    shown.add(level::ok, "nodes: " + std::to_string(nodes.size()) + " take part");
  }
  return nodes;
}

std::uint64_t count_chips(report& shown) {
  const program_result units =
      run(shown, {in_tool_folder("asic_shell_show"), "-c", "show unit", "-u", "all", "-n", "A"});
  const std::uint64_t chips = lines_with(units.out, "BCM88").size();
  if (chips > 0) {
    shown.add(level::ok, "chips: " + std::to_string(chips));
  } else {
    shown.add(level::fail,
              "chips: asic_shell_show: " + (units.is_good() ? "it lists none" : units.complaint()),
              "check the chips' driver on the line cards");
  }
  return chips;
}

// An estimate, because the number of bundles and sub-bundles is not known yet. With 9216
// sub-bundles a chip takes 2.2 to 3 MiB of captures and as much of debug log (16 chips: 45 MiB, 47
// chips: 151 MiB), and 256 bundles of 32 members on one chip take 21 MiB of logs.
std::uint64_t bytes_needed(std::uint64_t chips) {
  return (24 + 3 * std::max<std::uint64_t>(chips, 1)) * mebibyte;
}

void examine_space(report& shown, const char* folder, const char* of, std::uint64_t needed) {
  struct statvfs state {};
  if (::statvfs(folder, &state) != 0)
    return shown.add(level::fail, std::string("space: there is no ") + folder, "make the folder");
  const std::uint64_t blocks = ::geteuid() == 0 ? state.f_bfree : state.f_bavail;
  const std::uint64_t free = blocks * state.f_frsize;
  const std::string what =
      std::string("space: ") + folder + " has " + std::to_string(free / mebibyte) + " MiB; " + of +
      " of a router of this size may take " + std::to_string(needed / mebibyte) + " MiB";
  if (::access(folder, W_OK) != 0)
    return shown.add(level::fail,
                     std::string("space: ") + folder + " cannot be written: " + cause_of(errno),
                     "run the audit as root, where that may write");
  if (state.f_blocks == 0 || free >= needed) return shown.add(level::ok, what);
  shown.add(free >= needed / 8 ? level::warn : level::fail, what,
            "remove what is not needed there");
}

void examine_captures(report& shown) {
  const std::string in_the_way = captures_in_the_way();
  if (in_the_way.empty())
    return shown.add(level::ok, "captures: nothing is in their place in /tmp");
  shown.add(level::fail, "captures: in their place the audit cannot replace " + in_the_way,
            "remove what is there");
}

void examine_compiler(report& shown) {
  const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  void* const page =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED)
    return shown.add(level::warn, "patterns: the system allows no compiled ones",
                     "allow this program writable and executable memory, or let the audit take "
                     "longer");
  ::munmap(page, size);
  shown.add(level::ok, "patterns: they can be compiled");
}

// The audit logs in on a node once at a time; nodes may share an address.
std::uint64_t most_logins_on_one(const std::vector<listed_node>& nodes) {
  std::map<std::string, std::uint64_t> logins;
  std::uint64_t most = 1;
  for (const listed_node& node : nodes) most = std::max(most, ++logins[node.address]);
  return most;
}

void examine_server(report& shown, const std::vector<listed_node>& nodes) {
  const std::string program = is_program("/usr/sbin/sshd") ? "/usr/sbin/sshd" : "sshd";
  const auto lines = lines_with(run(shown, {program, "-T"}).out, "maxstartups ");
  const std::uint64_t most = most_logins_on_one(nodes);
  const std::string needs = "the audit begins " + std::to_string(most) + " at once on a server";
  if (lines.empty())
    return shown.add(level::ok, "logins: sshd -T does not say how many may begin; " + needs);
  const std::uint64_t limit =
      std::strtoull(lines.front().c_str() + lines.front().find(' '), nullptr, 10);
  const std::string what = "logins: " + std::to_string(limit) + " may begin at once here; " + needs;
  if (limit > most) return shown.add(level::ok, what);
  shown.add(level::warn, what, "raise MaxStartups in sshd_config on the nodes");
}

bool is_address(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF.:") == text.npos;
}

// A shell's start-up file may print other lines.
std::string missing_in(const std::string& printed, const std::vector<std::string>& tools) {
  const auto lines = lines_with(printed, tool_folder);
  std::string missing;
  for (const std::string& tool : tools)
    if (std::find(lines.begin(), lines.end(), tool) != lines.end()) missing += " " + tool;
  return missing;
}

void examine_login(report& shown, const listed_node& node, const program_result& login,
                   const std::vector<std::string>& tools) {
  const std::string head = "node " + node.name + " (" + node.address + "): ";
  if (login.is_good()) {
    const std::string missing = missing_in(login.out, tools);
    if (missing.empty()) return shown.add(level::ok, head + seconds_shown(login.seconds));
    return shown.add(level::fail, head + "missing or not executable:" + missing,
                     "check the platform's tools on the node");
  }
  constexpr int failed_to_connect = 255;
  const bool is_tool = WIFEXITED(login.wait_status) && !login.is_timed_out &&
                       WEXITSTATUS(login.wait_status) != failed_to_connect;
  shown.add(level::fail, head + login.complaint(),
            is_tool ? "check the platform's tools on the node"
                    : "check that the node is up and takes this user's key: ssh " + node.address);
}

// The login itself, and the tools that the audit calls there.
void examine_logins(report& shown, const std::vector<listed_node>& nodes) {
  std::vector<std::string> tools;
  std::string test = "for f in";
  for (const platform_tool& tool : platform_tools) {
    if (tool.place != tool_place::nodes) continue;
    tools.push_back(in_tool_folder(tool.name));
    test += " " + tools.back();
  }
  test += "; do test -x $f || echo $f; done";
  std::vector<std::vector<std::string>> lines;
  std::vector<listed_node> asked;
  for (const listed_node& node : nodes) {
    if (!is_address(node.address)) {
      shown.add(level::fail, "node " + node.name + ": \"" + node.address + "\" is no address",
                "check plat_nodes_show -v");
      continue;
    }
    asked.push_back(node);
    lines.push_back({"ssh", "-o", "BatchMode=yes", "-o", "StrictHostKeyChecking=no", "-o",
                     "LogLevel=ERROR", node.address, test});
  }
  const auto logins = run_programs(lines, shown.how.for_node);
  for (std::size_t at = 0; at < logins.size(); ++at)
    examine_login(shown, asked[at], logins[at], tools);
}

void examine_lock(report& shown) {
  const lock_holder holder = find_lock_holder();
  if (holder.process == 0) return shown.add(level::ok, "audits: none is running");
  if (!holder.stranger.empty())
    return shown.add(level::warn, "audits: " + describe_stranger(holder),
                     "end it, or run the next audit with --wait");
  shown.add(level::warn, "audits: one is running (process " + std::to_string(holder.process) + ")",
            "run the next one with --wait");
}

}  // namespace

std::string model_in(const std::string& version) {
  const auto lines = lines_with(version, "processor");
  for (const std::string& line : lines) {
    const std::size_t end = line.find("processor", 1);
    if (end == line.npos) continue;
    const std::string_view text = std::string_view(line).substr(0, end);
    for (const router_model& model : router_models)
      if (text.find(model.name) != text.npos) return std::string(model.name);
    return {};
  }
  return {};
}

std::vector<listed_node> nodes_in(const std::string& listing, const std::string& model) {
  std::vector<listed_node> nodes;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    const bool is_active = line.find("ACTIVE") != line.npos;
    const bool takes_part =
        is_active || (model == model_with_standby && line.find("STANDBY") != line.npos);
    std::istringstream text(line);
    std::vector<std::string> columns;
    for (std::string column; text >> column;) columns.push_back(column);
    if (takes_part && columns.size() > 6 && columns[4] == "FINAL")
      nodes.push_back({columns[0], columns[6]});
  }
  return nodes;
}

int examine_machine(const examination& how) {
  report shown{how};
  const std::string model = examine_model(shown);
  examine_tools(shown);
  const auto nodes = examine_nodes(shown, model);
  const std::uint64_t chips = model.empty() ? 0 : count_chips(shown);
  examine_space(shown, log_folder, "the logs", bytes_needed(chips));
  examine_space(shown, capture_folder, "the captures", bytes_needed(chips));
  examine_captures(shown);
  examine_compiler(shown);
  if (!nodes.empty()) examine_server(shown, nodes);
  examine_logins(shown, nodes);
  if (how.sees_other_audits) examine_lock(shown);
  return static_cast<int>(shown.worst);
}

}  // namespace tessel_host
