// What the doctor says of the machine while a support file is packed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <string>

namespace tessel_host {

// The doctor in a process of its own, which begins at once. A machine on which an audit has failed
// may have tools and nodes that hang, and nobody waits long for them: each has five seconds, and
// all of it ten. Only for a process with one thread.
class doctor_beside {
 public:
  doctor_beside();
  // Ends the doctor and the tools that it has started, as does the end of this process.
  ~doctor_beside();
  doctor_beside(const doctor_beside&) = delete;
  doctor_beside& operator=(const doctor_beside&) = delete;

  // Waits for its end, but neither beyond its time nor if a signal is held back that would have
  // ended this process when the object was made. Returns its lines; the last one says so if there
  // could be more. Never throws but for a lack of memory.
  [[nodiscard]] std::string lines();

 private:
  [[nodiscard]] bool has_ended() const;

  pid_t process_ = -1;
  int output_ = -1;
  int error_ = 0;      // why it has not begun
  sigset_t before_{};  // the mask of who made it
  std::chrono::steady_clock::time_point began_;
};

}  // namespace tessel_host
