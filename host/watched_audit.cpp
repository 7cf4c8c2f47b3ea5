#include "watched_audit.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "arguments.h"
#include "audit_files.h"
#include "ending_signals.h"
#include "leftovers.h"
#include "processes.h"

namespace tessel_host {

namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// With them a host that is told to stop has ended within a second.
constexpr auto patience_for_halt = 300ms;
constexpr auto patience_for_tools = 200ms;  // after SIGTERM; and once more after SIGKILL
constexpr auto patience_for_end = 200ms;
constexpr auto pause = 2ms;

// What the child says to the parent, in memory that both see.
struct said {
  std::atomic<int> stopped_by = 0;
  std::atomic<bool> has_returned = false;
  std::atomic<std::int32_t> result = 0;
};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

said* shared = nullptr;  // for the signal handler

said* share() {
  void* const page =
      ::mmap(nullptr, sizeof(said), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) throw std::system_error(errno, std::generic_category());
  return new (page) said;
}

// Signals -----------------------------------------------------------------------------------------

struct signals {
  sigset_t before{};   // the mask of the caller
  sigset_t awaited{};  // what tells the parent to stop, and SIGCHLD
  struct sigaction child_before {};
  struct sigaction pipe_before {};
  struct sigaction size_before {};
};

signals hold_back_signals() {
  signals held;
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  ::sigaction(SIGCHLD, &usual, &held.child_before);  // ignored, it would take the child's status
  ::sigprocmask(SIG_BLOCK, nullptr, &held.before);
  sigemptyset(&held.awaited);
  sigaddset(&held.awaited, SIGCHLD);
  for (const int number : ending_signals)
    if (would_end_us(number, held.before)) sigaddset(&held.awaited, number);
  ::sigprocmask(SIG_BLOCK, &held.awaited, nullptr);
  return held;
}

// In the child. A signal of a terminal or of a group ends the tools, too, and an audit that saw
// them end would report what they did not print. So every thread halts at once, for ever.
extern "C" void halt_for_ever(int number) {
  shared->stopped_by = number;
  for (;;) ::kill(::getpid(), SIGSTOP);
}

void halt_on_signals(const signals& held) {
  struct sigaction halt {};
  halt.sa_handler = halt_for_ever;
  sigfillset(&halt.sa_mask);
  for (const int number : ending_signals)
    if (sigismember(&held.awaited, number) == 1) ::sigaction(number, &halt, nullptr);
  ::sigaction(SIGCHLD, &held.child_before, nullptr);
  ::sigprocmask(SIG_SETMASK, &held.before, nullptr);
}

// The child ---------------------------------------------------------------------------------------

[[noreturn]] void be_audit(const audit_plan& plan, const signals& held, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(128 + SIGKILL);
  halt_on_signals(held);
  // What loses its parent comes to the audit, so that the host knows it from its own children.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::int32_t result = run_audit(plan);
  shared->result = result;
  shared->has_returned = true;
  std::exit(status_of_returned_run(result));
}

// The parent --------------------------------------------------------------------------------------

// True as soon as `is_done` is; false if that takes longer than `patience`.
template <class Condition>
bool becomes_true(clock::duration patience, Condition is_done) {
  for (const auto end = clock::now() + patience; !is_done(); std::this_thread::sleep_for(pause))
    if (clock::now() > end) return false;
  return true;
}

struct watched_audit {
  pid_t id = 0;
  bool has_ended = false;
  std::time_t began = 0;
  std::optional<clock::time_point> deadline;
  bool keeps_captures = false;
  // Children of this process that are none of the audit's, such as a job of a shell that has become
  // the host.
  std::vector<process> strangers;
};

// True if a child has ended and waits to be collected.
bool waits_to_be_collected(pid_t child) {
  siginfo_t ended{};
  return ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == child;
}

// As long as the audit lives, whatever has lost its parent comes to the audit, if it is the
// audit's, and else to the host.
void note_strangers(watched_audit& audit) {
  std::vector<process> others = children_of(::getpid());
  std::erase_if(others, [&](const process& one) { return one.id == audit.id; });
  if (!waits_to_be_collected(audit.id)) audit.strangers = std::move(others);
}

// Collects every child that has ended. Returns the status of the audit's, if it is among them.
std::optional<int> reap(watched_audit& audit) {
  for (;;) {
    int status = 0;
    const pid_t ended = ::waitpid(-1, &status, WNOHANG);
    if (ended < 0 && errno == EINTR) continue;
    if (ended <= 0) return std::nullopt;
    audit.has_ended = ended == audit.id;
    if (audit.has_ended) return status;
    note_strangers(audit);  // what the stranger has left behind is one, too
  }
}

// What the audit has started, also where a tool has a session of its own or has lost its parent.
std::vector<process> tools_of(const watched_audit& audit) {
  return audit.has_ended ? running_below(::getpid(), audit.strangers) : running_below(audit.id);
}

// Again and again, because a tool may be starting others.
bool end_tools_by(int number, const watched_audit& audit) {
  return becomes_true(patience_for_tools, [&] {
    const std::vector<process> tools = tools_of(audit);
    for (const process& tool : tools) {
      send_signal(tool, number);
      send_signal(tool, SIGCONT);  // one that has stopped would not notice
    }
    return tools.empty();
  });
}

void end_tools(const watched_audit& audit, watched_end& end) {
  if (!end_tools_by(SIGTERM, audit) && !end_tools_by(SIGKILL, audit))
    end.left_processes = tools_of(audit);
}

// The audit halts first. It then writes no line about tools that end, and none of its lines is cut:
// a thread that is writing to a file halts only when it has written.
void end_audit(watched_audit& audit, watched_end& end) {
  ::kill(audit.id, SIGSTOP);
  becomes_true(patience_for_halt, [&] { return is_halted(audit.id); });
  end_tools(audit, end);
  ::kill(audit.id, SIGKILL);
  becomes_true(patience_for_end, [&] {
    const auto status = reap(audit);
    if (status) end.wait_status = *status;
    return status.has_value();
  });
  const bool keeps_captures = end.is_overdue && audit.keeps_captures;
  end.left_captures =
      keeps_captures ? captures_since(audit.began) : remove_captures_since(audit.began);
  drop_torn_line(debug_log);
}

// An audit that has not ended by itself leaves its captures to whoever looks for the cause.
void clean_up_after(const watched_audit& audit, watched_end& end) {
  if (WIFSIGNALED(end.wait_status)) {
    end_tools(audit, end);
    drop_torn_line(debug_log);
  }
  if (end.returned || WIFSIGNALED(end.wait_status)) end.left_captures = captures_since(audit.began);
}

timespec timespec_of(clock::duration time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(time - seconds);
  return {static_cast<std::time_t>(seconds.count()), static_cast<long>(rest.count())};
}

// Waits for a signal or for `patience`, if there is one. Returns the signal, or 0.
int awaited_signal(const signals& held, std::optional<clock::duration> patience) {
  const timespec time = timespec_of(patience.value_or(0s));
  const int number = patience ? ::sigtimedwait(&held.awaited, nullptr, &time)
                              : ::sigwaitinfo(&held.awaited, nullptr);
  return number > 0 && number != SIGCHLD ? number : 0;
}

// How long the parent may sleep; nothing if only a signal can wake it.
std::optional<clock::duration> time_to_sleep(const watched_audit& audit,
                                             const progress_display& display) {
  const auto now = clock::now();
  auto time = display.pause(now);
  if (audit.deadline) {
    const auto left = std::max<clock::duration>(*audit.deadline - now, 0s);
    time = std::min(time.value_or(left), left);
  }
  return time;
}

watched_end watch(watched_audit& audit, const signals& held, progress_display& display) {
  watched_end end;
  end.began = audit.began;
  for (;;) {
    const int number = awaited_signal(held, time_to_sleep(audit, display));
    if (const auto status = reap(audit)) {
      end.wait_status = *status;
      end.stopped_by = number;  // it came together with the end
      break;
    }
    // A signal that only the audit gets has the same effect.
    end.stopped_by = number != 0 ? number : shared->stopped_by.load();
    end.is_overdue = end.stopped_by == 0 && audit.deadline && clock::now() >= *audit.deadline;
    if (end.stopped_by != 0 || end.is_overdue) {
      end_audit(audit, end);
      display.end(clock::now());
      return end;
    }
    display.look(clock::now());
  }
  display.end(clock::now());
  if (shared->has_returned) end.returned = shared->result;
  clean_up_after(audit, end);
  return end;
}

}  // namespace

watched_end run_watched(const audit_plan& plan, progress_display& display,
                        const watch_limits& limits) {
  shared = share();
  watched_audit audit;
  audit.began = std::time(nullptr);
  audit.deadline = limits.deadline;
  audit.keeps_captures = limits.keeps_captures;
  signals held = hold_back_signals();
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t parent = ::getpid();
  audit.strangers = children_of(parent);
  audit.id = ::fork();
  if (audit.id < 0) throw std::system_error(errno, std::generic_category());
  if (audit.id == 0) be_audit(plan, held, parent);
  if (plan.journal >= 0) ::close(plan.journal);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, &held.pipe_before);
  ::sigaction(SIGXFSZ, &ignore, &held.size_before);
  watched_end end = watch(audit, held, display);
  // For programs that the caller may start.
  ::sigaction(SIGPIPE, &held.pipe_before, nullptr);
  ::sigaction(SIGXFSZ, &held.size_before, nullptr);
  ::sigprocmask(SIG_SETMASK, &held.before, nullptr);
  return end;
}

void end_alike(const watched_end& end) {
  if (end.is_overdue) ::_exit(status_not_complete);
  const bool by_signal = end.stopped_by != 0 || WIFSIGNALED(end.wait_status);
  if (!by_signal) ::_exit(WEXITSTATUS(end.wait_status));
  const int number = end.stopped_by != 0 ? end.stopped_by : WTERMSIG(end.wait_status);
  const rlimit none{0, 0};  // the child has left its own core, if any
  ::setrlimit(RLIMIT_CORE, &none);
  std::signal(number, SIG_DFL);
  sigset_t it;
  sigemptyset(&it);
  sigaddset(&it, number);
  ::sigprocmask(SIG_UNBLOCK, &it, nullptr);
  ::raise(number);
  ::_exit(128 + number);  // the first process of a namespace
}

}  // namespace tessel_host
