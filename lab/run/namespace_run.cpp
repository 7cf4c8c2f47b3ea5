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
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "lab/base/beside.h"
#include "lab/base/complain.h"
#include "lab/base/descriptors.h"
#include "lab/base/error.h"
#include "lab/base/messages.h"
#include "lab/base/namespaces.h"
#include "lab/base/processes.h"
#include "lab/base/words.h"
#include "lab/run/tool_links.h"
#include "lab/tool/ended_call.h"
#include "lab/tool/tool_names.h"

namespace lab {
namespace {

namespace fs = std::filesystem;

// Setting up -------------------------------------------------------------------------------------
// The functions of this section run in the child, which alone has the namespace.

std::vector<std::string> tools_there(const run_request& request) {
  std::vector<std::string> tools;
  const auto& missing = request.answers.missing_tools;
  for (const std::string& tool : tool_names())
    if (std::find(missing.begin(), missing.end(), tool) == missing.end() &&
        !(request.real_ssh && tool == "ssh"))
      tools.push_back(tool);
  return tools;
}

// The report program, which the host looks for beside itself.
std::optional<held> report_beside(const fs::path& host) {
  const fs::path report = host.parent_path() / "tessel-report";
  std::optional<held> found;
  if (fs::is_regular_file(report)) found.emplace(report);
  return found;
}

// The given paths may lie under /opt, /var or /tmp: all are opened before any of these is covered.
// The working folder stays the caller's, even if it is covered: relative names among the host's
// arguments lead there.
void prepare(const run_request& request, const fs::path& record_work) {
  enter_namespace(CLONE_NEWNET);  // the lab's tools need no network
  const held lab_program(request.lab);
  const held tool_program(request.tool);
  const held host(request.host);
  const std::optional<held> report = report_beside(request.host);
  const held library(request.library);
  const held logs(request.logs);
  const held folder(request.folder.empty() ? fs::path{"/"} : request.folder);
  const held calls(request.calls.empty() ? fs::path{"/dev/null"} : request.calls);
  const held journal(request.journal.empty() ? fs::path{"/dev/null"} : request.journal);
  const held record(request.record.empty() ? fs::path{"/"} : record_work);
  std::vector<held> shown;
  for (const fs::path& output : request.outputs) shown.emplace_back(output);

  mount_or_fail("tmpfs", "/opt", "tmpfs", MS_NODEV | MS_NOSUID, "mode=0755");
  for (const char* made : {"/opt/nos", "/opt/nos/bin", "/opt/nos/lib", "/opt/nos/libexec",
                           "/opt/nos/capture", "/opt/nos/state", "/opt/nos/record"})
    make_folder(made);
  bind_file(lab_program, "/opt/nos/libexec/tessel-lab");
  bind_file(host, "/opt/nos/libexec/tessel-host");
  if (report) bind_file(*report, "/opt/nos/libexec/tessel-report");
  bind_file(library, "/opt/nos/lib/libtessel.so");
  if (!request.calls.empty()) bind_file(calls, "/opt/nos/calls");
  if (!request.journal.empty()) bind_file(journal, journal_in_namespace);
  if (!request.record.empty()) record.bind_to("/opt/nos/record");
  place_tools(tool_program, tools_there(request));
  if (request.folder.empty())
    write_files(request.answers, "/opt/nos/capture", with_sums::no);
  else
    folder.bind_to("/opt/nos/capture");
  logs.bind_to("/var/log");
  std::string options = "mode=1777";
  if (request.answers.tmp_kibibytes > 0)
    options += fmt::format(",size={}k", request.answers.tmp_kibibytes);
  mount_or_fail("tmpfs", "/tmp", "tmpfs", MS_NODEV | MS_NOSUID, options.c_str());
  for (std::size_t at = 0; at < shown.size(); ++at) {
    fs::create_directories(request.outputs[at]);
    shown[at].bind_to(request.outputs[at]);
  }
  for (const std::string& name : request.answers.blocked_captures)
    make_folder("/tmp/tessel_" + name + ".log");
  const held no_room("/dev/full");
  for (const std::string& name : request.answers.full_logs)
    bind_file(no_room, "/var/log/tessel_" + name + ".log");
}

// A file at its limit must be an error for the audit, not end it. The tools that it ends shall
// leave nothing behind.
void limit_files(std::uint64_t bytes) {
  const rlimit limit{bytes, bytes};
  const rlimit no_core{0, 0};
  if (signal(SIGXFSZ, SIG_DFL) == SIG_ERR || setrlimit(RLIMIT_CORE, &no_core) != 0 ||
      setrlimit(RLIMIT_FSIZE, &limit) != 0)
    fail("limit of files");
}

[[noreturn]] void start_host(const run_request& request) {
  setenv("PATH", "/opt/nos/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
  setenv("LD_LIBRARY_PATH", "/opt/nos/lib", 1);  // another host may find the library by name
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

// A signal also ends nodes that are still starting. That is not their failure.
void end_if_signalled() {
  sigset_t pending;
  sigpending(&pending);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    if (sigismember(&pending, signal) == 1) _exit(status_of_signal(signal));
}

// The first process of its namespace: starts the nodes and the host, and collects every process
// that ends. The kernel delivers only signals that this process awaits, so it awaits them and
// passes them on. Returns the host's status.
int be_first_process(const run_request& request, const held_back_signals& signals) {
  start_nodes(request.nodes, tools_there(request));
  const pid_t host = start([&]() -> int {
    signals.let_through();
    try {
      start_host(request);
    } catch (const std::exception& failure) {
      complain(fmt::format("tessel-lab: {}", message_of(failure)));
      return cannot_prepare;
    }
  });
  const sigset_t awaited = awaited_signals();
  for (;;) {
    int wait_status = 0;
    const pid_t ended = collect(-1, wait_status, WNOHANG);
    if (ended == host) return status_of(wait_status);
    if (ended > 0) continue;
    const int signal = sigwaitinfo(&awaited, nullptr);
    if (signal > 0 && signal != SIGCHLD) kill(host, signal);
  }
}

// Only the parent may hold the lifeline's other end.
bool is_cut(const descriptor& lifeline) {
  pollfd end{lifeline.number(), 0, 0};
  return poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0;
}

// Becomes the host. Returns the exit status if it cannot.
int be_child(const run_request& request, const fs::path& record_work,
             const held_back_signals& signals, const descriptor& lifeline) {
  lead_group();
  if (!request.real_ssh) signals.let_through();
  try {
    prepare(request, record_work);
    // Entering a user namespace resets this setting, so it comes after that.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (is_cut(lifeline)) return cannot_prepare;
    if (request.real_ssh) return be_first_process(request, signals);
    start_host(request);
  } catch (const no_privileges& missing) {
    end_if_signalled();
    complain(fmt::format("tessel-lab: {}", missing.what));
    return missing_privileges;
  } catch (const std::exception& failure) {
    end_if_signalled();
    complain(fmt::format("tessel-lab: {}", message_of(failure)));
  }
  return cannot_prepare;
}

int run_child(const run_request& request, const fs::path& record_work) {
  const held_back_signals signals;
  pipe_ends lifeline = new_pipe();
  const auto child = [&] {
    lifeline.in.close();
    return be_child(request, record_work, signals, lifeline.out);
  };
  const pid_t process = request.real_ssh ? start_in_process_namespace(child) : start(child);
  return wait_for_group(process).status;
}

// The process that removes the folder of an interrupted recording must live outside the process
// namespace, or it would end with it.
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
