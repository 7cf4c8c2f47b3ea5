#include "base/held_signals.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

namespace tessel {

held_signals::held_signals(std::initializer_list<int> numbers) {
  sigset_t held;
  sigemptyset(&held);
  for (const int number : numbers) sigaddset(&held, number);
  pthread_sigmask(SIG_BLOCK, &held, &before_);
  new_ones_ = held;
  for (const int number : numbers) {
    // Only a signal that the host blocks can wait.
    if (sigismember(&before_, number) != 1) continue;
    sigset_t pending;
    sigpending(&pending);
    if (sigismember(&pending, number) == 1) sigdelset(&new_ones_, number);
  }
}

held_signals::~held_signals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void held_signals::take() const {
  const int cause = errno;
  const timespec at_once{};
  while (sigtimedwait(&new_ones_, nullptr, &at_once) >= 0 || errno == EINTR) {
  }
  errno = cause;
}

}  // namespace tessel
