// The processes that an audit has started, found through /proc.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace tessel_host {

// With the time of its start an id names one process, even if the system uses the id again.
struct process {
  pid_t id = 0;
  pid_t parent = 0;
  char state = 0;   // as in proc(5)
  int threads = 0;  // of the whole process, also where this is one of them
  unsigned long long began = 0;
};

// Nothing if there is no such process.
[[nodiscard]] std::optional<process> process_of(pid_t id);

// The processes below `ancestor`, without itself, that have not ended. Those whose parent has ended
// are found as long as `ancestor` is their subreaper. Leaves out `spared` and what is below them.
// Empty if /proc cannot be read.
[[nodiscard]] std::vector<process> running_below(pid_t ancestor,
                                                 const std::vector<process>& spared = {});

// The processes whose parent is this one, also those that have ended and are not collected.
[[nodiscard]] std::vector<process> children_of(pid_t parent);

// True if no thread of the process can do anything before it gets SIGCONT, or if it has ended.
[[nodiscard]] bool is_halted(pid_t id);

// Sends the signal to this process, never to a later one with its id. Does nothing if it has ended.
void send_signal(const process& to, int number);

}  // namespace tessel_host
