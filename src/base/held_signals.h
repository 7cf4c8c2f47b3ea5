// Signals that come with a failed write, such as SIGPIPE with EPIPE. Their default action would end
// the process, where the audit wants to report the failure.
//
//   const held_signals held({SIGPIPE});
//   if (::write(...) < 0) held.take();
#pragma once

#include <csignal>
#include <initializer_list>

namespace tessel {

// While this object lives, its thread does not receive these signals. A signal mask belongs to one
// thread, so the host's handling of the signals stays unchanged. Used only by the thread that made
// it. Does not change errno.
class held_signals {
 public:
  explicit held_signals(std::initializer_list<int> numbers);
  ~held_signals();
  held_signals(const held_signals&) = delete;
  held_signals& operator=(const held_signals&) = delete;

  // Consumes the signal of a call that has just failed. A signal that was already pending stays
  // pending.
  void take() const;

 private:
  sigset_t new_ones_{};  // the held signals that were not pending before
  sigset_t before_{};
};

}  // namespace tessel
