// A mutex for steps of some instructions that hardly ever meet. A hundred thousand comparisons take
// the locks of records half a million times, nearly always without a rival: a std::mutex would be a
// seventh of their processor time, this is one exchange.
//
//   const std::lock_guard lock(mutex_);
//
// Whoever meets a rival gives its core away until the step is over. So not for a step that may
// block: no command, no log line, no other lock. Any thread.
#pragma once

#include <atomic>
#include <thread>

namespace tessel {

class brief_mutex {
 public:
  void lock() {
    while (held_.exchange(true, std::memory_order_acquire)) {
      while (held_.load(std::memory_order_relaxed)) std::this_thread::yield();
    }
  }
  void unlock() { held_.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> held_ = false;
};

}  // namespace tessel
