// Child processes: started to run a function or a program, awaited, collected.
//
//     const pid_t child = start([&] { return check() ? EXIT_SUCCESS : EXIT_FAILURE; });
//     int wait_status = 0;
//     if (collect(child, wait_status) < 0) fail("the check");
//     const bool is_well = status_of(wait_status) == EXIT_SUCCESS;
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace lab {

// Starts a child that calls `action` and exits with the status that it returns; an exception aborts
// the child. The child flushes no buffers at its end. It enters new `namespaces` (CLONE_NEWPID).
// Returns its process id, or -1 with errno.
pid_t try_start(const std::function<int()>& action, unsigned long namespaces = 0);
// Throws `lab_error` instead.
pid_t start(const std::function<int()>& action);

// Like waitpid(2), but signals do not interrupt it.
pid_t collect(pid_t child, int& wait_status, int options = 0);

// An exit status as a shell shows it: 128 + n for signal n.
int status_of(int wait_status);
constexpr int status_of_signal(int signal) {
  constexpr int signal_base = 128;
  return signal_base + signal;
}

// The arguments of an exec function; valid as long as `words` live and do not move.
std::vector<char*> argument_list(std::vector<std::string>& words);

// Becomes the program that the first word names. Throws `lab_error` if it cannot be started.
[[noreturn]] void execute_program(std::vector<std::string> words);

// In a child: makes it the head of a group of its own, so that one signal reaches it and all that
// it starts. To the terminal that group stays a part of the caller's: it may write there, and
// tessel-host draws its progress.
void lead_group();

// The signals that wait_for_group awaits: SIGINT, SIGTERM, SIGHUP and SIGCHLD.
sigset_t awaited_signals();

// Blocks these signals while it lives: make it before the child is started.
class held_back_signals {
 public:
  held_back_signals();
  ~held_back_signals() { let_through(); }
  held_back_signals(const held_back_signals&) = delete;
  held_back_signals& operator=(const held_back_signals&) = delete;
  // For the child, which must receive them as its parent did.
  void let_through() const;

 private:
  sigset_t before_{};
};

struct group_end {
  int status = 0;     // status_of its head
  int passed_on = 0;  // the first signal that was passed on, 0 if there was none
};

// Waits for a child that leads a process group, and passes SIGINT, SIGTERM and SIGHUP on to it.
// Kills a child that does not end within some seconds of a signal, and then every process that is
// left in its group. Needs `held_back_signals`. Throws `lab_error`.
group_end wait_for_group(pid_t child);

}  // namespace lab
