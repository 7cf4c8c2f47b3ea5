// The child that becomes the host: a mount namespace of its own, and a parent that waits and passes
// on the signals that it gets.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace lab {

inline constexpr int cannot_prepare = 70;  // status of a child that could not be prepared
inline constexpr int missing_privileges = 77;

// Enters a mount namespace, and `others` (CLONE_NEWNET), whose mounts nobody outside sees. Root
// needs namespaces alone; anybody else gets the right to mount from a user namespace. Returns true
// if there is none, so that a process may also go back. Throws `no_privileges`.
bool enter_namespace(int others);

// Throws `no_privileges` if enter_namespace would, before anything is made.
void insist_on_namespace();

// True if the words hold the option, as a word of its own or with "=" behind it.
bool names_option(const std::vector<std::string>& arguments, const std::string& option);

// Becomes the program that the first word names. Throws `lab_error` if it cannot be started.
[[noreturn]] void execute_program(std::vector<std::string> words);

// Those that wait_for_child awaits: block them before the child is made.
sigset_t awaited_signals();

// An exit status as a shell tells it: 128 + n for signal n.
int status_of(int wait_status);

// Waits for a child that leads a process group, and passes SIGINT, SIGTERM and SIGHUP on to it; one
// that does not end within some seconds of a signal is killed. Returns its status_of, and in
// `passed_on` the first of those signals, 0 if there was none.
int wait_for_child(pid_t child, const sigset_t& awaited, int& passed_on);

}  // namespace lab
