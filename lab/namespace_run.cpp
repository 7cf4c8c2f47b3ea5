#include "namespace_run.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "mounts.h"
#include "router.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr int cannot_prepare = 70;

// Setting up -------------------------------------------------------------------------------------
// The functions of this section run in the child, which has the namespace to itself.

void write_setting(const char* file, const std::string& text) {
  const int fd = open(file, O_WRONLY | O_CLOEXEC);
  if (fd < 0) throw no_privileges{fmt::format("{}: {}", file, std::strerror(errno))};
  const ssize_t written = write(fd, text.data(), text.size());
  const int error = errno;
  close(fd);
  if (written != static_cast<ssize_t>(text.size()))
    throw no_privileges{fmt::format("{}: {}", file, std::strerror(error))};
}

// No tool of the lab needs a network, and none must be reached by mistake. Root needs namespaces
// alone; anybody else gets the right to mount from a user namespace.
void enter_namespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (user == 0 && unshare(CLONE_NEWNS | CLONE_NEWNET) == 0) return;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0)
    throw no_privileges{
        fmt::format("no mount namespace: unshare: {}; run as root or allow user namespaces",
                    std::strerror(errno))};
  write_setting("/proc/self/setgroups", "deny");
  write_setting("/proc/self/uid_map", fmt::format("{} {} 1", user, user));
  write_setting("/proc/self/gid_map", fmt::format("{} {} 1", group, group));
}

std::vector<std::string> tools_there(const run_request& request) {
  std::vector<std::string> tools;
  const auto& missing = request.answers.missing_tools;
  for (const std::string& tool : tool_names())
    if (std::find(missing.begin(), missing.end(), tool) == missing.end() &&
        !(request.real_ssh && tool == "ssh"))
      tools.push_back(tool);
  return tools;
}

// A path of the lab's machine may lie under /opt, /var or /tmp: all are held before any is covered.
void prepare(const run_request& request) {
  enter_namespace();
  mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  const held lab_program(request.lab);
  const held host(request.host);
  const held library(request.library);
  const held logs(request.logs);
  const held folder(request.folder.empty() ? fs::path{"/"} : request.folder);
  const held calls(request.calls.empty() ? fs::path{"/dev/null"} : request.calls);

  mount_or_fail("tmpfs", "/opt", "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755");
  for (const char* made :
       {"/opt/nos", "/opt/nos/bin", "/opt/nos/lib", "/opt/nos/libexec", "/opt/nos/capture"})
    make_folder(made);
  bind_file(lab_program, "/opt/nos/libexec/tessel-lab");
  bind_file(host, "/opt/nos/libexec/tessel-host");
  bind_file(library, "/opt/nos/lib/libtessel.so");
  if (!request.calls.empty()) bind_file(calls, "/opt/nos/calls");
  link_tools(tools_there(request));
  if (request.folder.empty())
    write_files(request.answers, "/opt/nos/capture");
  else
    folder.bind_to("/opt/nos/capture");
  logs.bind_to("/var/log");
  mount_or_fail("tmpfs", "/tmp", "tmpfs", MS_NODEV | MS_NOSUID, "mode=1777");
  if (chdir("/") != 0) fail("/");
}

bool names_option(const std::vector<std::string>& arguments, const std::string& option) {
  return std::any_of(arguments.begin(), arguments.end(), [&](const std::string& argument) {
    return argument == option || argument.starts_with(option + "=");
  });
}

[[noreturn]] void start_host(const run_request& request) {
  setenv("PATH", "/opt/nos/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LD_LIBRARY_PATH", "/opt/nos/lib", 1);  // a host of another kind finds it by name
  setenv("TESSEL_LAB_CAPTURE", "/opt/nos/capture", 1);
  setenv("TMPDIR", "/tmp", 1);
  if (request.calls.empty())
    unsetenv("TESSEL_LAB_CALLS");
  else
    setenv("TESSEL_LAB_CALLS", "/opt/nos/calls", 1);

  std::vector<std::string> words{"/opt/nos/libexec/tessel-host"};
  if (!names_option(request.host_arguments, "--library"))
    words.insert(words.end(), {"--library", "/opt/nos/lib/libtessel.so"});
  if (!names_option(request.host_arguments, "--node-id"))
    words.insert(words.end(), {"--node-id", std::to_string(request.answers.host_node_id)});
  words.insert(words.end(), request.host_arguments.begin(), request.host_arguments.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execv(arguments.front(), arguments.data());
  fail(request.host.string());
}

sigset_t awaited_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
  return set;
}

constexpr int signal_base = 128;

// A signal ends the nodes, too, before they stand. That is no failure of theirs.
void end_if_told() {
  sigset_t pending;
  sigpending(&pending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    if (sigismember(&pending, signal) == 1) _exit(signal_base + signal);
}

int status_of(int wait_status) {
  return WIFSIGNALED(wait_status) ? signal_base + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

// The first process of its namespace: starts the nodes and the host, and collects whoever ends.
// The kernel keeps signals from it that it does not await, so it passes them on.
[[noreturn]] void be_first_process(const run_request& request, const sigset_t& signals_before) {
  start_nodes(request.nodes, tools_there(request));
  const pid_t host = fork();
  if (host < 0) fail("fork");
  if (host == 0) {
    sigprocmask(SIG_SETMASK, &signals_before, nullptr);
    start_host(request);
  }
  const sigset_t awaited = awaited_signals();
  for (;;) {
    int wait_status = 0;
    const pid_t ended = waitpid(-1, &wait_status, WNOHANG);
    if (ended == host) _exit(status_of(wait_status));
    if (ended > 0) continue;
    const int signal = sigwaitinfo(&awaited, nullptr);
    if (signal > 0 && signal != SIGCHLD) kill(host, signal);
  }
}

// A lifeline's other end is held by the parent alone.
bool is_cut(int lifeline) {
  pollfd end{lifeline, 0, 0};
  return poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0;
}

[[noreturn]] void be_child(const run_request& request, const sigset_t& signals_before,
                           int lifeline) {
  // A group of its own, so that one signal reaches the host and every tool that it started.
  setpgid(0, 0);
  if (!request.real_ssh) sigprocmask(SIG_SETMASK, &signals_before, nullptr);
  try {
    prepare(request);
    // Entering a user namespace forgets this wish, so it is made behind that.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (is_cut(lifeline)) _exit(cannot_prepare);
    if (request.real_ssh) be_first_process(request, signals_before);
    start_host(request);
  } catch (const no_privileges& missing) {
    end_if_told();
    fmt::print(stderr, "tessel-lab: {}\n", missing.what);
    _exit(missing_privileges);
  } catch (const std::exception& failure) {
    end_if_told();
    fmt::print(stderr, "tessel-lab: {}\n", failure.what());
  }
  _exit(cannot_prepare);
}

// Waiting ----------------------------------------------------------------------------------------

// Passes signals on; a host that does not end within some seconds of one is killed.
int wait_for(pid_t child, const sigset_t& awaited) {
  constexpr timespec patience{5, 0};
  bool told = false;
  for (;;) {
    int wait_status = 0;
    const pid_t ended = waitpid(child, &wait_status, WNOHANG);
    if (ended == child) {
      kill(-child, SIGKILL);  // tools that the host left behind
      return status_of(wait_status);
    }
    if (ended < 0 && errno != EINTR) fail("waiting for the host");
    const int signal =
        told ? sigtimedwait(&awaited, nullptr, &patience) : sigwaitinfo(&awaited, nullptr);
    if (signal < 0 && errno == EAGAIN) kill(-child, SIGKILL);
    if (signal <= 0 || signal == SIGCHLD) continue;
    kill(-child, signal);
    told = true;
  }
}

}  // namespace

const std::vector<std::string>& tool_names() {
  static const std::vector<std::string> names{"asic_shell_show",
                                              "board_api_probe",
                                              "cfg_render",
                                              "fwd_object_show",
                                              "iface_show",
                                              "ifmgr_show",
                                              "lagmgr_agent_show",
                                              "lagmgr_health",
                                              "lagmgr_table_show",
                                              "node_id_convert",
                                              "plat_nodes_show",
                                              "qos_voq_show",
                                              "ssh",
                                              "sw_version_show"};
  return names;
}

int run_in_namespace(const run_request& request) try {
  if (request.real_ssh) insist_on_real_ssh();
  const sigset_t awaited = awaited_signals();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &awaited, &before);
  std::array<int, 2> lifeline{};
  if (pipe2(lifeline.data(), O_CLOEXEC) != 0) fail("pipe");
  const pid_t child = request.real_ssh ? fork_into_process_namespace() : fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    close(lifeline[1]);
    be_child(request, before, lifeline[0]);
  }
  setpgid(child, child);  // whoever is first: the child must not be signalled before it has one
  const int status = wait_for(child, awaited);
  for (const int end : lifeline) close(end);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return status;
} catch (const no_privileges& missing) {
  fmt::print(stderr, "tessel-lab: {}\n", missing.what);
  return missing_privileges;
}

}  // namespace lab
