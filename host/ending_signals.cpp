#include "ending_signals.h"

#include <algorithm>

namespace tessel_host {

bool would_end_us(int number, const sigset_t& before) {
  struct sigaction action {};
  return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN &&
         sigismember(&before, number) == 0;
}

bool is_end_held_back(const sigset_t& before) {
  sigset_t pending{};
  ::sigpending(&pending);
  return std::any_of(ending_signals.begin(), ending_signals.end(), [&](int number) {
    return sigismember(&pending, number) == 1 && would_end_us(number, before);
  });
}

}  // namespace tessel_host
