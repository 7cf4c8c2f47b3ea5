#include "lab/run/namespace_run.h"

#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "lab/base/beside.h"
#include "lab/base/child.h"
#include "lab/base/error.h"
#include "lab/base/messages.h"
#include "lab/base/mounts.h"
#include "lab/tool/ended_call.h"
#include "lab/tool/tool_names.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// Setting up -------------------------------------------------------------------------------------
// The functions of this section run in the child, which has the namespace to itself.

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
void prepare(const run_request& request, const fs::path& record_work) {
  enter_namespace(CLONE_NEWNET);  // no tool of the lab needs a network
  const held lab_program(request.lab);
  const held host(request.host);
  const held library(request.library);
  const held logs(request.logs);
  const held folder(request.folder.empty() ? fs::path{"/"} : request.folder);
  const held calls(request.calls.empty() ? fs::path{"/dev/null"} : request.calls);
  const held record(request.record.empty() ? fs::path{"/"} : record_work);

  mount_or_fail("tmpfs", "/opt", "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755");
  for (const char* made : {"/opt/nos", "/opt/nos/bin", "/opt/nos/lib", "/opt/nos/libexec",
                           "/opt/nos/capture", "/opt/nos/state", "/opt/nos/record"})
    make_folder(made);
  bind_file(lab_program, "/opt/nos/libexec/tessel-lab");
  bind_file(host, "/opt/nos/libexec/tessel-host");
  bind_file(library, "/opt/nos/lib/libtessel.so");
  if (!request.calls.empty()) bind_file(calls, "/opt/nos/calls");
  if (!request.record.empty()) record.bind_to("/opt/nos/record");
  link_tools(tools_there(request));
  if (request.folder.empty())
    write_files(request.answers, "/opt/nos/capture");
  else
    folder.bind_to("/opt/nos/capture");
  logs.bind_to("/var/log");
  std::string options = "mode=1777";
  if (request.answers.tmp_kibibytes > 0)
    options += fmt::format(",size={}k", request.answers.tmp_kibibytes);
  mount_or_fail("tmpfs", "/tmp", "tmpfs", MS_NODEV | MS_NOSUID, options.c_str());
  for (const std::string& name : request.answers.blocked_captures)
    make_folder("/tmp/tessel_" + name + ".log");
  const held no_room("/dev/full");
  for (const std::string& name : request.answers.full_logs)
    bind_file(no_room, "/var/log/tessel_" + name + ".log");
  if (chdir("/") != 0) fail("/");
}

// A limit that a file reaches is an error for the audit, not its end.
void limit_files(std::uint64_t bytes) {
  const rlimit limit{bytes, bytes};
  if (signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0)
    fail("limit of files");
}

[[noreturn]] void start_host(const run_request& request) {
  setenv("PATH", "/opt/nos/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LD_LIBRARY_PATH", "/opt/nos/lib", 1);  // a host of another kind finds it by name
  setenv("TESSEL_LAB_CAPTURE", "/opt/nos/capture", 1);
  setenv("TESSEL_LAB_STATE", "/opt/nos/state", 1);
  setenv("TMPDIR", "/tmp", 1);
  if (request.calls.empty())
    unsetenv("TESSEL_LAB_CALLS");
  else
    setenv("TESSEL_LAB_CALLS", "/opt/nos/calls", 1);

  std::vector<std::string> words{"/opt/nos/libexec/tessel-host"};
  if (!request.record.empty())
    words = {"/opt/nos/libexec/tessel-lab",
             "record",
             "--library",
             "/opt/nos/lib/libtessel.so",
             record_shown_option,
             request.record.string(),
             "/opt/nos/record" / request.record.filename(),
             "--"};
  if (request.record.empty() && !names_option(request.host_arguments, "--library"))
    words.insert(words.end(), {"--library", "/opt/nos/lib/libtessel.so"});
  if (!names_option(request.host_arguments, "--node-id"))
    words.insert(words.end(), {"--node-id", std::to_string(request.answers.host_node_id)});
  words.insert(words.end(), request.host_arguments.begin(), request.host_arguments.end());
  if (request.answers.file_limit > 0) limit_files(request.answers.file_limit);
  execute_program(std::move(words));
}

// A signal ends the nodes, too, before they stand. That is no failure of theirs.
void end_if_told() {
  constexpr int signal_base = 128;
  sigset_t pending;
  sigpending(&pending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    if (sigismember(&pending, signal) == 1) _exit(signal_base + signal);
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

[[noreturn]] void be_child(const run_request& request, const fs::path& record_work,
                           const sigset_t& signals_before, int lifeline) {
  // A group of its own, so that one signal reaches the host and every tool that it started.
  setpgid(0, 0);
  if (!request.real_ssh) sigprocmask(SIG_SETMASK, &signals_before, nullptr);
  try {
    prepare(request, record_work);
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
    fmt::print(stderr, "tessel-lab: {}\n", message_of(failure));
  }
  _exit(cannot_prepare);
}

int run_child(const run_request& request, const fs::path& record_work) {
  const sigset_t awaited = awaited_signals();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &awaited, &before);
  std::array<int, 2> lifeline{};
  if (pipe2(lifeline.data(), O_CLOEXEC) != 0) fail("pipe");
  const pid_t child = request.real_ssh ? fork_into_process_namespace() : fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    close(lifeline[1]);
    be_child(request, record_work, before, lifeline[0]);
  }
  setpgid(child, child);  // whoever is first: the child must not be signalled before it has one
  int passed_on = 0;
  const int status = wait_for_child(child, awaited, passed_on);
  for (const int end : lifeline) close(end);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return status;
}

// What takes a recording's folder away if it is interrupted must not live in the namespace of the
// processes, with which it would end.
int run_and_record(const run_request& request) {
  const folder_beside work(request.record);
  const int status = run_child(request, work.path());
  const fs::path made = work.path() / request.record.filename();
  std::error_code failure;
  if (fs::exists(made)) fs::rename(made, request.record, failure);
  if (failure) throw lab_error(fmt::format("{}: {}", request.record.string(), failure.message()));
  return status;
}

}  // namespace

int run_in_namespace(const run_request& request) {
  return request.record.empty() ? run_child(request, {}) : run_and_record(request);
}

}  // namespace lab
