#include "base/command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <utility>

#include "base/capture_file.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/journal.h"
#include "base/log_file.h"
#include "base/memory_limit.h"
#include "base/print.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

[[noreturn]] void cannot(std::string_view action, int cause) {
  throw failure(fmt::format("cannot {}: {}", action, std::strerror(cause)));
}

capture_file new_capture(std::string path) {
  const int descriptor = open_capture(path);
  if (descriptor < 0) cannot("open " + path, errno);
  return {std::move(path), descriptor};
}

// The three streams of a child, and its signals as a shell and its pipes expect them: the host may
// have blocked some, or ignored SIGPIPE and SIGCHLD. What else it ignores, as by nohup, stays
// ignored: a tool that a terminal ended all the same would look like one that found nothing.
class spawn_plan {
 public:
  spawn_plan() {
    if (const int refused = posix_spawn_file_actions_init(&actions_)) cannot("spawn", refused);
    if (const int refused = posix_spawnattr_init(&attributes_)) {
      posix_spawn_file_actions_destroy(&actions_);
      cannot("spawn", refused);
    }
    sigset_t none;
    sigemptyset(&none);
    sigset_t reset;
    sigemptyset(&reset);
    for (const int number : {SIGPIPE, SIGCHLD}) sigaddset(&reset, number);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &reset);
    posix_spawnattr_setflags(&attributes_, signal_flags);
  }
  ~spawn_plan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  spawn_plan(const spawn_plan&) = delete;
  spawn_plan& operator=(const spawn_plan&) = delete;

  // The shell and what it starts become a group that can be ended as a whole.
  void make_session() {
    check(posix_spawnattr_setflags(&attributes_, signal_flags | POSIX_SPAWN_SETSID));
  }
  void use(int descriptor, int stream) {
    check(posix_spawn_file_actions_adddup2(&actions_, descriptor, stream));
  }
  void open(const char* path, int flags, int stream) {
    check(posix_spawn_file_actions_addopen(&actions_, stream, path, flags, 0));
  }

  pid_t shell(std::string line) {
    // What the host has left inheritable is not for the tools. Last, because the streams come from
    // descriptors that this closes.
    check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    std::string name = "sh";
    std::string option = "-c";
    char* arguments[] = {name.data(), option.data(), line.data(), nullptr};
    pid_t child = 0;
    int refused = 0;
    do {
      refused = posix_spawn(&child, "/bin/sh", &actions_, &attributes_, arguments, environ);
    } while (refused == EINTR);
    if (refused != 0) cannot("start /bin/sh", refused);
    return child;
  }

 private:
  static void check(int refused) {
    if (refused != 0) cannot("spawn", refused);
  }
  static constexpr short signal_flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

// Before the debug log is open, the child's standard error is descriptor 0, as dl_fd itself is.
void plan_standard_error(spawn_plan& plan, const log_file* debug_log) {
  if (debug_log != nullptr) {
    plan.use(debug_log->descriptor(), STDERR_FILENO);
  } else if (!st().dl_fd.opened_once() && ::fcntl(STDIN_FILENO, F_GETFD) >= 0) {
    plan.use(STDIN_FILENO, STDERR_FILENO);
  } else {
    plan.open("/dev/null", O_WRONLY, STDERR_FILENO);
  }
}

// Returns the status, if it is known. It is for the journal alone: the output counts whatever the
// status is. ECHILD means that the host reaps children by itself; the call returned only after the
// child had ended.
std::optional<int> wait_for(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno == EINTR) continue;
    if (errno == ECHILD) return std::nullopt;
    cannot("wait for the command", errno);
  }
  return status;
}

// Waits for the end of a child without taking its status, `limit` at most. A kernel without a
// handle for a process is asked again and again. Returns false if the child still runs.
bool ends_within(pid_t child, std::chrono::steady_clock::duration limit) {
  using namespace std::chrono;
  constexpr milliseconds often{20};
  const auto over = steady_clock::now() + limit;
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
  bool has_ended = false;
  for (auto left = limit; !has_ended && left.count() > 0; left = over - steady_clock::now()) {
    const auto patience = handle < 0 ? std::min<milliseconds>(often, ceil<milliseconds>(left))
                                     : ceil<milliseconds>(left);
    pollfd end{handle, POLLIN, 0};
    siginfo_t ended{};
    if (::poll(&end, 1, static_cast<int>(patience.count())) > 0) {
      has_ended = true;
    } else if (handle < 0) {
      // Gone, too, if the host reaps its children itself.
      has_ended =
          ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 ||
          ended.si_pid == child;
    }
  }
  if (handle >= 0) ::close(handle);
  return has_ended;
}

// Names no node if the command asks all of them, or none.
void report_timeout(const journaled_command& journaled, const std::string& line,
                    std::chrono::seconds limit) {
  std::string place(journaled.node());
  if (!journaled.npu().empty()) {
    place += fmt::format("{}NPU {}", place.empty() ? "" : " ", journaled.npu());
  }
  if (!place.empty()) place += ": ";
  print_error(
      fmt::format("tessel: {}not ended after {} s, so the audit ended it and uses what it has "
                  "printed: {}\n",
                  place, limit.count(), line));
}

// Waits for the shell, or ends it when its time is over. While it is not reaped, its number belongs
// to its session and to nobody else. A tool that waits for a device ends late or never: it stays
// behind, and its status is unknown.
void await_or_end(pid_t shell, const std::string& line, journaled_command& journaled) {
  constexpr std::chrono::seconds patience_for_killed{2};
  const std::chrono::seconds limit = st().command_timeout;
  const bool is_over = limit.count() != 0 && !ends_within(shell, limit);
  if (is_over) {
    ::kill(-shell, SIGKILL);
    journaled.note_timeout();
  }
  const bool can_be_reaped = !is_over || ends_within(shell, patience_for_killed);
  journaled.note_status(can_be_reaped ? wait_for(shell) : std::nullopt);
  if (is_over) report_timeout(journaled, line, limit);
}

// Runs the command to its end and returns the size of what it printed. Meanwhile the crew gives
// this job's core to another one.
std::size_t size_after(spawn_plan& plan, const std::string& line, const capture_file& capture,
                       journaled_command& journaled) {
  const blocking until_the_command_has_ended;
  const pid_t shell = plan.shell(line);
  journaled.start(shell, line);
  await_or_end(shell, line, journaled);
  return capture.whole_size();
}

// The node whose data a command line asks for, as `nodeinfo` names it; empty if it asks no single
// one. The chip tool's line has a number instead: see node_at.
std::string_view node_asked_by(const filled_line& cmd) {
  for (const filled_value& each : cmd.values()) {
    if (each.kind == filling::address) return each.owner;
    if (each.kind == filling::node_name) return each.text;
  }
  return {};
}

// The name of the node with this address, which all nodes have before a chip is asked. Their
// numbers still change then, and only the worker of a node may read its own.
std::string_view node_at(const value& address, const value& nodeinfo) noexcept {
  std::string_view found;
  if (!nodeinfo.is_map() || address == DEFAULT) return found;
  try {
    nodeinfo.as_map().for_each([&](std::string_view name, const value& node) {
      if (found.empty() && node.in("nodeip") == address) found = name;
    });
  } catch (const std::exception&) {
    // Then the journal names no node.
  }
  return found;
}

value execute(const filled_line& cmd, const filled_line& suffix, journaled_command& journaled) {
  std::string line;
  try {
    line = cmd.text();
    const capture_file capture = new_capture(fmt::format("/tmp/tessel_{}.log", suffix.text()));
    const auto debug_log = st().dl_fd.get();
    spawn_plan plan;
    plan_standard_error(plan, debug_log.get());
    plan.open("/dev/null", O_RDONLY, STDIN_FILENO);
    plan.use(capture.descriptor(), STDOUT_FILENO);
    if (st().command_timeout.count() > 0) plan.make_session();
    const std::size_t size = size_after(plan, line, capture, journaled);
    text_share share(st().texts, size, capture.path());
    value output = held_text(capture.read(size), std::move(share));
    journaled.end(size);
    return output;
  } catch (const std::exception& error) {
    const std::string shown = cmd.shown();
    value result = count_and_log(fmt::format("{}: execution failed for {}", error.what(), shown));
    journaled.fail(shown, error.what());
    return result;
  }
}

}  // namespace

value execute(const filled_line& cmd, const filled_line& suffix) {
  journaled_command journaled(st().journal, node_asked_by(cmd), {});
  return execute(cmd, suffix, journaled);
}

value execute_bcmd(const filled_line& bcmd, const value& npu_id, const value& nodeid,
                   const value& nodeip, const filled_line& fname, std::string_view grep_opt) {
  run_state& run = st();
  const bool is_watched = run.journal.is_open() || run.command_timeout.count() > 0;
  const value nodeinfo = is_watched ? run.nodeinfo.get() : value();
  const std::string_view nodename = node_at(nodeip, nodeinfo);
  try {
    const filled_value node = {filling::node_id, plain(nodeid)};
    const filled_value npu = {filling::npu, plain(npu_id), fmt::format("node id {}", node.text)};
    std::string cmd = filled_line(R"(/opt/nos/bin/asic_shell_show -c "{}" -u {} -n {})",
                                  {{filling::chip_command, bcmd.text()}, npu, node})
                          .text();
    if (grep_opt != DEFAULT) cmd = fmt::format("{} | grep {}", cmd, grep_opt);
    const filled_line suffix("{}_{}_{}", {{filling::capture, fname.text()}, npu, node});
    const std::string_view one_npu = npu.text == "all" ? std::string_view() : npu.text;
    journaled_command journaled(run.journal, nodename, one_npu);
    return execute(filled_line(cmd), suffix, journaled);
  } catch (const std::exception& error) {
    const std::string shown = bcmd.shown();
    value result = count_and_log(fmt::format("{}: execution failed for {}", error.what(), shown));
    journaled_command(run.journal, nodename, {}).fail(shown, error.what());
    return result;
  }
}

}  // namespace tessel
