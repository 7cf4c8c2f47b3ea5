#include "base/command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "base/capture_file.h"
#include "base/dump.h"
#include "base/failure.h"
#include "base/findings.h"
#include "base/log_file.h"
#include "base/memory_limit.h"
#include "base/worker.h"
#include "run/state.h"

namespace tessel {

namespace {

[[noreturn]] void cannot(std::string_view action, int cause) {
  throw failure(fmt::format("cannot {}: {}", action, std::strerror(cause)));
}

capture_file new_capture(const std::string& path) {
  const int descriptor = open_capture(path);
  if (descriptor < 0) cannot("open " + path, errno);
  return {path, descriptor};
}

// The three streams of a child, and its signals as a shell expects them: the host may have blocked
// or ignored some.
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
    for (const int number : {SIGINT, SIGQUIT, SIGPIPE, SIGCHLD, SIGTERM}) sigaddset(&reset, number);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes_, &reset);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~spawn_plan() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  spawn_plan(const spawn_plan&) = delete;
  spawn_plan& operator=(const spawn_plan&) = delete;

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

void wait_for(pid_t child) {
  // The exit status is ignored on purpose: the output counts whatever the status is. ECHILD means
  // that the host reaps children by itself; the call returned only after the child had ended.
  while (::waitpid(child, nullptr, 0) < 0) {
    if (errno == EINTR) continue;
    if (errno == ECHILD) return;
    cannot("wait for the command", errno);
  }
}

// Runs the command to its end and returns the size of what it printed. Meanwhile the crew gives
// this job's core to another one.
std::size_t size_after(spawn_plan& plan, const std::string& line, const capture_file& capture) {
  const blocking until_the_command_has_ended;
  wait_for(plan.shell(line));
  return capture.whole_size();
}

}  // namespace

value execute(const filled_line& cmd, const filled_line& suffix) {
  try {
    const std::string line = cmd.text();
    const capture_file capture = new_capture(fmt::format("/tmp/tessel_{}.log", suffix.text()));
    const auto debug_log = st().dl_fd.get();
    spawn_plan plan;
    plan_standard_error(plan, debug_log.get());
    plan.open("/dev/null", O_RDONLY, STDIN_FILENO);
    plan.use(capture.descriptor(), STDOUT_FILENO);
    const std::size_t size = size_after(plan, line, capture);
    text_share share(st().texts, size, capture.path());
    return held_text(capture.read(size), std::move(share));
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: execution failed for {}", error.what(), cmd.shown()));
  }
}

value execute_bcmd(const filled_line& bcmd, const value& npu_id, const value& nodeid, const value&,
                   const filled_line& fname, std::string_view grep_opt) {
  try {
    const filled_value node = {filling::node_id, plain(nodeid)};
    const filled_value npu = {filling::npu, plain(npu_id), fmt::format("node id {}", node.text)};
    std::string cmd = filled_line(R"(/opt/nos/bin/asic_shell_show -c "{}" -u {} -n {})",
                                  {{filling::chip_command, bcmd.text()}, npu, node})
                          .text();
    if (grep_opt != DEFAULT) cmd = fmt::format("{} | grep {}", cmd, grep_opt);
    const filled_line suffix("{}_{}_{}", {{filling::capture, fname.text()}, npu, node});
    return execute(filled_line(cmd), suffix);
  } catch (const std::exception& error) {
    return count_and_log(fmt::format("{}: execution failed for {}", error.what(), bcmd.shown()));
  }
}

}  // namespace tessel
