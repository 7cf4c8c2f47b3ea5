#include "lab/base/processes.h"

#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "lab/base/error.h"

namespace lab {

pid_t try_start(const std::function<int()>& action, unsigned long namespaces) {
  const long child = namespaces == 0 ? fork()
                                     : syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr,
                                               nullptr, nullptr);
  if (child != 0) return static_cast<pid_t>(child);
  // The frames below belong to the parent's caller: the child must not return or unwind into them.
  const auto status = [&]() noexcept { return action(); };
  _exit(status());
}

pid_t start(const std::function<int()>& action) {
  const pid_t child = try_start(action);
  if (child < 0) fail("fork");
  return child;
}

pid_t collect(pid_t child, int& wait_status, int options) {
  pid_t ended = 0;
  do {
    ended = waitpid(child, &wait_status, options);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

int status_of(int wait_status) {
  return WIFSIGNALED(wait_status) ? status_of_signal(WTERMSIG(wait_status))
                                  : WEXITSTATUS(wait_status);
}

std::vector<char*> argument_list(std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return arguments;
}

void execute_program(std::vector<std::string> words) {
  execv(words.front().c_str(), argument_list(words).data());
  fail(words.front());
}

void lead_group() {
  setpgid(0, 0);
  signal(SIGTTOU, SIG_IGN);
  const pid_t parent = getppid();
  if (parent == 0) return;  // in another process namespace, as the terminal's groups are
  // Where the lab runs a recorder, the variable has the lab's group already.
  setenv("TESSEL_FOREGROUND", std::to_string(getpgid(parent)).c_str(), 0);
}

sigset_t awaited_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&set, signal);
  return set;
}

held_back_signals::held_back_signals() {
  const sigset_t awaited = awaited_signals();
  sigprocmask(SIG_BLOCK, &awaited, &before_);
}

void held_back_signals::let_through() const {
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

group_end wait_for_group(pid_t child) {
  constexpr timespec patience{5, 0};
  const sigset_t awaited = awaited_signals();
  // The child does the same: whichever comes first, the child has its group before it gets a
  // signal.
  setpgid(child, child);
  group_end end;
  for (;;) {
    int wait_status = 0;
    const pid_t ended = collect(child, wait_status, WNOHANG);
    if (ended == child) {
      kill(-child, SIGKILL);  // tools that the host left behind
      end.status = status_of(wait_status);
      return end;
    }
    if (ended < 0) fail("waiting for the host");
    const int signal = end.passed_on != 0 ? sigtimedwait(&awaited, nullptr, &patience)
                                          : sigwaitinfo(&awaited, nullptr);
    if (signal < 0 && errno == EAGAIN) kill(-child, SIGKILL);
    if (signal <= 0 || signal == SIGCHLD) continue;
    kill(-child, signal);
    if (end.passed_on == 0) end.passed_on = signal;
  }
}

}  // namespace lab
