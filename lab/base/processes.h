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

// Starts a child that calls `action` and ends with the status that this returns; what `action`
// throws aborts the child. No buffer is flushed at its end. `namespaces` (CLONE_NEWPID) are new
// ones for the child. Returns its process id, or -1 with errno.
pid_t try_start(const std::function<int()>& action, unsigned long namespaces = 0);
// Throws `lab_error` instead.
pid_t start(const std::function<int()>& action);

// As waitpid(2), also where signals come meanwhile.
pid_t collect(pid_t child, int& wait_status, int options = 0);

// An exit status as a shell shows it: 128 + n for signal n.
int status_of(int wait_status);

// What an exec function takes, as long as `words` live and keep their place.
std::vector<char*> argument_list(std::vector<std::string>& words);

// Becomes the program that the first word names. Throws `lab_error` if it cannot be started.
[[noreturn]] void execute_program(std::vector<std::string> words);

// SIGINT, SIGTERM, SIGHUP and SIGCHLD, those that wait_for_group awaits.
sigset_t awaited_signals();

// Holds these back as long as it lives: begin it before the child is started.
class held_back_signals {
 public:
  held_back_signals();
  ~held_back_signals() { let_through(); }
  held_back_signals(const held_back_signals&) = delete;
  held_back_signals& operator=(const held_back_signals&) = delete;
  // For the child, which is to get them as its parent did.
  void let_through() const;

 private:
  sigset_t before_{};
};

struct group_end {
  int status = 0;     // status_of its head
  int passed_on = 0;  // the first signal that was passed on, 0 if there was none
};

// Waits for a child that leads a process group, and passes SIGINT, SIGTERM and SIGHUP on to it; one
// that does not end within some seconds of a signal is killed. What it leaves behind in its group
// is killed, too. Needs `held_back_signals`. Throws `lab_error`.
group_end wait_for_group(pid_t child);

}  // namespace lab
