#include "lab/run/real_ssh.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/files.h"
#include "lab/base/namespaces.h"
#include "lab/base/processes.h"
#include "lab/run/tool_links.h"
#include "lab/tool/latency.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// In the audit's /opt. A node sees its own folder of these as /opt/nos/ssh.
constexpr const char* nodes_folder = "/opt/nos/nodes";
constexpr const char* home = "/opt/nos/home";

fs::path folder_of(const ssh_node& node) {
  return fs::path(nodes_folder) / node.address;
}

// Programs ---------------------------------------------------------------------------------------

std::string program_path(const std::string& name) {
  for (const char* folder : {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"}) {
    std::string path = folder + name;
    if (access(path.c_str(), X_OK) == 0 && fs::is_regular_file(path)) return path;
  }
  return {};
}

std::string text_of(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// A program's error output, as part of one line.
std::string complaint_in(const fs::path& log) {
  std::string text = text_of(log);
  text.erase(std::find_if(text.rbegin(), text.rend(), [](char c) { return c != '\n' && c != '\r'; })
                 .base(),
             text.end());
  std::erase(text, '\r');
  std::replace(text.begin(), text.end(), '\n', ';');
  return text.empty() ? "no complaint" : text;
}

int run_to_end(const std::function<int()>& action) {
  int wait_status = 0;
  if (collect(start(action), wait_status) < 0) fail("waitpid");
  return status_of(wait_status);
}

// Runs a program to its end. Returns its error output if it failed, else nothing.
std::string complaint_of(const std::vector<std::string>& words, const fs::path& log) {
  const int status = run_to_end([&] {
    const descriptor out = open_file(log, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (dup2(out.number(), STDOUT_FILENO) < 0 || dup2(out.number(), STDERR_FILENO) < 0)
      return EXIT_FAILURE;
    try {
      execute_program(words);
    } catch (const lab_error&) {
      return EXIT_FAILURE;
    }
  });
  if (status == EXIT_SUCCESS) return {};
  return fmt::format("{}: {}", words.front(), complaint_in(log));
}

void make_key(const fs::path& file) {
  const std::string complaint = complaint_of(
      {program_path("ssh-keygen"), "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", file.string()},
      file.string() + ".log");
  if (!complaint.empty()) throw lab_error(complaint);
}

// If no veth pair can be made, the kernel lacks support or the user lacks the right.
void set_up_network(const fs::path& script) {
  const std::string complaint =
      complaint_of({program_path("ip"), "-batch", script.string()}, script.string() + ".log");
  if (!complaint.empty()) throw no_privileges{"the nodes' network cannot be made: " + complaint};
}

// What the machine has ---------------------------------------------------------------------------

// The server forks processes that give up root. A user namespace with a single user does not allow
// that.
bool can_become(uid_t user, gid_t group) {
  return run_to_end([&] {
           const bool became = setgroups(1, &group) == 0 && setresgid(group, group, group) == 0 &&
                               setresuid(user, user, user) == 0;
           return became ? EXIT_SUCCESS : EXIT_FAILURE;
         }) == EXIT_SUCCESS;
}

struct account {
  uid_t user = 0;
  gid_t group = 0;
};

// Reads the machine's own file only, so that no name service is asked.
std::optional<account> account_of(std::string_view name) {
  std::ifstream accounts("/etc/passwd");
  for (std::string line; std::getline(accounts, line);) {
    if (!line.starts_with(fmt::format("{}:", name))) continue;
    account found;
    // name:password:user:group:...
    const std::size_t second = line.find(':', name.size() + 1);
    if (second != std::string::npos &&
        std::sscanf(line.c_str() + second + 1, "%u:%u", &found.user, &found.group) == 2)
      return found;
  }
  return std::nullopt;
}

// What the machine keeps for its own ssh -------------------------------------------------

// Neither the client nor the servers read or write a file of the machine: accounts, home and
// settings are the lab's own. The machine's root may be locked, have another shell, or own a
// matching key.
void cover_the_machine() {
  const auto server = account_of("sshd");
  if (!server) throw no_privileges{"there is no user sshd"};
  const std::string accounts =
      fmt::format("root:x:0:0:root:{}:/bin/sh\nsshd:x:{}:{}::/run/sshd:/usr/sbin/nologin\n", home,
                  server->user, server->group);
  const fs::path folder = "/opt/nos/etc";
  make_folder(folder);
  write_whole(folder / "passwd", accounts);
  write_whole(folder / "shadow", "root:*:19000:0:99999:7:::\nsshd:*:19000:0:99999:7:::\n");
  if (chmod((folder / "shadow").c_str(), 0600) != 0) fail(folder.string());
  held(folder / "passwd").bind_to("/etc/passwd");
  if (fs::exists("/etc/shadow")) held(folder / "shadow").bind_to("/etc/shadow");

  constexpr unsigned long harmless = MS_NODEV | MS_NOSUID;
  if (fs::is_directory("/etc/ssh"))
    mount_or_fail("tmpfs", "/etc/ssh", "tmpfs", harmless, "mode=0755");
  mount_or_fail("tmpfs", "/run", "tmpfs", harmless, "mode=0755");
  make_folder("/run/sshd");
  mount_or_fail("proc", "/proc", "proc", harmless | MS_NOEXEC, nullptr);
}

void give_client_its_key() {
  make_folder(home);
  const fs::path folder = fs::path(home) / ".ssh";
  make_folder(folder);
  if (chmod(folder.c_str(), 0700) != 0) fail(folder.string());
  make_key(folder / "id_ed25519");
}

// The inside of a node ---------------------------------------------------------------------------

// Every login runs this in place of its command. The server of a connection is the parent of the
// login's shell. When it sleeps and the client has acknowledged all it sent, exactly half of the
// output has arrived; then the script kills it.
constexpr const char* close_amid_output = R"(#!/bin/sh
sh -c "$SSH_ORIGINAL_COMMAND" >/tmp/answer.$$
head -c $(($(wc -c </tmp/answer.$$) / 2)) /tmp/answer.$$
set -- $SSH_CONNECTION
client=$(printf ':%04X' "$2")
tries=0
until grep -q '^State:.S' /proc/$PPID/status &&
  grep -q ":0016 [0-9A-F]*$client 01 00000000:" /proc/net/tcp; do
  tries=$((tries + 1))
  [ $tries -lt 2000 ] || break
done
kill -9 $PPID
)";

// The audit connects to all nodes at once, and many times to one: the server must not turn any
// connection away, as it would at random from the tenth unfinished login on. The default key
// exchange, meant to keep secrets for decades, takes six times the processor time of this one.
std::string server_settings(const ssh_node& node, bool calls_are_kept) {
  std::string text = fmt::format(
      "ListenAddress {}\n"
      "HostKey /opt/nos/ssh/host_key\n"
      "AuthorizedKeysFile /opt/nos/ssh/authorized_keys\n"
      "PermitRootLogin prohibit-password\n"
      "PasswordAuthentication no\n"
      "KbdInteractiveAuthentication no\n"
      "KexAlgorithms curve25519-sha256\n"
      "UsePAM no\n"
      "UseDNS no\n"
      "PermitUserRC no\n"
      "PidFile none\n"
      "MaxStartups 10000\n"
      "MaxSessions 10000\n",
      node.address);
  // The server uses only the first line of a kind.
  std::string variables;
  if (calls_are_kept) variables += " TESSEL_LAB_CALLS=/opt/nos/calls";
  if (const char* given = std::getenv(latency_variable))
    variables += fmt::format(" {}={}", latency_variable, given);
  if (!variables.empty()) text += "SetEnv" + variables + "\n";
  if (node.answer == node_answer::half) text += "ForceCommand exec /opt/nos/ssh/close\n";
  return text;
}

void write_server_files(const ssh_node& node, const fs::path& folder, bool calls_are_kept) {
  fs::copy_file(fs::path(home) / ".ssh" / "id_ed25519.pub", folder / "authorized_keys");
  make_key(folder / "host_key");
  write_whole(folder / "settings", server_settings(node, calls_are_kept));
  write_whole(folder / "close", close_amid_output);
  if (chmod((folder / "close").c_str(), 0755) != 0) fail((folder / "close").string());
}

// Builds the node's own /opt while the audit's is still visible.
void cover_with_own_folders(const ssh_node& node, const std::vector<std::string>& tools,
                            bool calls_are_kept) {
  const held program(tools_program);
  const held answers(fs::path("/opt/nos/capture") / node.address);
  const held own(folder_of(node));
  const held calls(calls_are_kept ? "/opt/nos/calls" : "/dev/null");
  constexpr unsigned long harmless = MS_NODEV | MS_NOSUID;
  mount_or_fail("tmpfs", "/opt", "tmpfs", harmless, "mode=0755");
  for (const char* made :
       {"/opt/nos", "/opt/nos/bin", "/opt/nos/libexec", "/opt/nos/capture",
        "/opt/nos/capture/local", "/opt/nos/state", "/opt/nos/ssh", "/opt/nos/home"})
    make_folder(made);
  answers.bind_to("/opt/nos/capture/local");
  own.bind_to("/opt/nos/ssh");
  if (calls_are_kept) bind_file(calls, "/opt/nos/calls");
  place_tools(program, tools);
  mount_or_fail("tmpfs", "/var/log", "tmpfs", harmless, "mode=0755");
  mount_or_fail("tmpfs", "/tmp", "tmpfs", harmless, "mode=1777");
}

void enter_node(const ssh_node& node, const std::vector<std::string>& tools) {
  const bool calls_are_kept = fs::exists("/opt/nos/calls");
  if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWUTS) != 0)
    throw no_privileges{fmt::format("no namespaces for a node: {}", namespace_problem())};
  std::string host_name = node.name;
  std::replace(host_name.begin(), host_name.end(), '/', '-');
  if (sethostname(host_name.data(), std::min<std::size_t>(host_name.size(), HOST_NAME_MAX)) != 0)
    throw no_privileges{fmt::format("no host name for a node: {}", std::strerror(errno))};
  write_server_files(node, folder_of(node), calls_are_kept);
  cover_with_own_folders(node, tools, calls_are_kept);
}

[[noreturn]] void serve_as_node(const ssh_node& node, const std::string& audit_address) {
  const fs::path script = "/opt/nos/ssh/network";
  write_whole(script, fmt::format("link set lo up\n"
                                  "addr add {} peer {} dev eth0\n"
                                  "link set eth0 up\n",
                                  node.address, audit_address));
  set_up_network(script);
  if (node.answer != node_answer::refuse)
    execute_program({program_path("sshd"), "-D", "-f", "/opt/nos/ssh/settings", "-E",
                     "/opt/nos/ssh/server.log"});
  closefrom(STDERR_FILENO + 1);
  for (;;) pause();
}

// Starting the nodes -----------------------------------------------------------------------------

// A node reports "r" when its namespaces are ready. Then the report ends when the node becomes the
// server, unless it fails: "e" and a line or, for a missing right, "p" and a line.
struct started_node {
  const ssh_node* node;
  pid_t process;
  descriptor report;
};

void send(const descriptor& report, const std::string& text) {
  if (write_all(report.number(), text) < text.size()) _exit(EXIT_FAILURE);
}

int be_node(const ssh_node& node, const std::vector<std::string>& tools,
            const std::string& audit_address, const descriptor& report, const descriptor& go) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  try {
    enter_node(node, tools);
    send(report, "r");
    await_end(go.number());
    serve_as_node(node, audit_address);
  } catch (const no_privileges& missing) {
    send(report, "p" + missing.what);
  } catch (const std::exception& failure) {
    send(report, fmt::format("enode {}: {}", node.name, failure.what()));
  }
  return EXIT_FAILURE;
}

started_node start_node(const ssh_node& node, const std::vector<std::string>& tools,
                        const std::string& audit_address, pipe_ends& go) {
  make_folder(folder_of(node));
  pipe_ends report = new_pipe();
  const pid_t process = start([&] {
    go.in.close();
    report.out.close();
    return be_node(node, tools, audit_address, report.in, go.out);
  });
  return {&node, process, std::move(report.out)};
}

// Returns the next part of the node's report, at most `size` bytes; empty at the end.
std::string reported(const started_node& started, std::size_t size) {
  return read_up_to(started.report.number(), size).value_or("");
}

[[noreturn]] void throw_reported(const std::string& text, const started_node& started) {
  if (text.empty()) throw lab_error(fmt::format("node {} ended early", started.node->name));
  if (text.front() == 'p') throw no_privileges{text.substr(1)};
  throw lab_error(text.substr(1));
}

constexpr std::size_t longest_report = 4096;

void wait_until_prepared(const std::vector<started_node>& all) {
  for (const started_node& one : all) {
    const std::string text = reported(one, 1);
    if (text != "r") throw_reported(text + reported(one, longest_report), one);
  }
}

bool listens(const started_node& started) {
  const std::string sockets = text_of(fmt::format("/proc/{}/net/tcp", started.process));
  return sockets.find(":0016 00000000:0000 0A") != std::string::npos;
}

void wait_until_served(const started_node& started) {
  const std::string text = reported(started, longest_report);
  if (!text.empty()) throw_reported(text, started);
  if (started.node->answer == node_answer::refuse) return;
  constexpr auto patience = std::chrono::seconds(60);
  const auto began = std::chrono::steady_clock::now();
  while (!listens(started)) {
    int ignored = 0;
    const bool ended = collect(started.process, ignored, WNOHANG) != 0;
    if (ended || std::chrono::steady_clock::now() - began > patience)
      throw lab_error(fmt::format("node {}: its sshd {}: {}", started.node->name,
                                  ended ? "ended" : "does not listen",
                                  complaint_in(folder_of(*started.node) / "server.log")));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// An address that no node has.
std::string free_address(const std::vector<ssh_node>& nodes) {
  for (unsigned last = 0;; ++last) {
    std::string address = fmt::format("198.18.{}.{}", last / 250, last % 250 + 1);
    if (std::none_of(nodes.begin(), nodes.end(),
                     [&](const ssh_node& one) { return one.address == address; }))
      return address;
  }
}

// A node that is down costs the audit no time: it gets "No route to host" at once.
bool is_up(const ssh_node& node) {
  return node.answer != node_answer::none &&
         fs::exists(fs::path("/opt/nos/capture") / node.address);
}

void connect_nodes(const std::vector<ssh_node>& nodes, const std::vector<started_node>& started,
                   const std::string& audit_address) {
  std::string text = "link set lo up\n";
  for (const ssh_node& node : nodes)
    if (!is_up(node)) text += fmt::format("route add unreachable {}\n", node.address);
  for (std::size_t i = 0; i < started.size(); ++i)
    text += fmt::format(
        "link add node{0} type veth peer name eth0 netns {1}\n"
        "addr add {2} peer {3} dev node{0}\n"
        "link set node{0} up\n",
        i, started[i].process, audit_address, started[i].node->address);
  const fs::path script = fs::path(nodes_folder) / "network";
  write_whole(script, text);
  set_up_network(script);
}

}  // namespace

std::vector<ssh_node> nodes_behind_ssh(const capture& answers,
                                       const std::vector<planted_ssh_fault>& faults) {
  std::vector<ssh_node> nodes;
  for (const auto& [address, name] : answers.nodes) {
    in_addr ignored{};
    if (inet_pton(AF_INET, address.c_str(), &ignored) != 1)
      throw lab_error(fmt::format(
          "--real-ssh: the address \"{}\" of node {} is not an IPv4 address", address, name));
    nodes.push_back({address, name});
  }
  for (const planted_ssh_fault& fault : faults) {
    const auto found = std::find_if(nodes.begin(), nodes.end(), [&](const ssh_node& one) {
      return one.name == fault.node || one.address == fault.node;
    });
    if (found == nodes.end())
      throw lab_error(
          fmt::format("fault {}={}: {} has no such node", fault.name, fault.node, answers.router));
    found->answer = fault.answer;
  }
  return nodes;
}

void insist_on_real_ssh() {
  if (geteuid() != 0)
    throw no_privileges{
        "--real-ssh needs root: its nodes are network namespaces whose ssh servers change users"};
  struct needed {
    const char* program;
    const char* package;
  };
  for (const needed& one : {needed{"sshd", "openssh-server"}, needed{"ssh", "openssh-client"},
                            needed{"ssh-keygen", "openssh-client"}, needed{"ip", "iproute2"}})
    if (program_path(one.program).empty())
      throw no_privileges{
          fmt::format("--real-ssh needs {}, which is not there; install the Debian package {}",
                      one.program, one.package)};
  const auto server = account_of("sshd");
  if (!server)
    throw no_privileges{
        "--real-ssh needs the user sshd; install the Debian package openssh-server"};
  if (!can_become(server->user, server->group))
    throw no_privileges{
        "--real-ssh needs a root that can become another user; in this user namespace it cannot"};
}

pid_t start_in_process_namespace(const std::function<int()>& action) {
  const pid_t child = try_start(action, CLONE_NEWPID);
  if (child < 0)
    throw no_privileges{
        fmt::format("--real-ssh: no process id namespace: {}; it needs root with that right",
                    std::strerror(errno))};
  return child;
}

void start_nodes(const std::vector<ssh_node>& nodes, const std::vector<std::string>& tools) {
  // The server refuses keys that other users could write.
  const mode_t mask_before = umask(022);
  cover_the_machine();
  give_client_its_key();
  make_folder(nodes_folder);
  const std::string audit_address = free_address(nodes);
  pipe_ends go = new_pipe();
  std::vector<started_node> started;
  for (const ssh_node& node : nodes)
    if (is_up(node)) started.push_back(start_node(node, tools, audit_address, go));
  wait_until_prepared(started);
  connect_nodes(nodes, started, audit_address);
  go.out.close();
  go.in.close();
  for (const started_node& one : started) wait_until_served(one);
  umask(mask_before);
  setenv("HOME", home, 1);
  unsetenv("SSH_AUTH_SOCK");
}

}  // namespace lab
