#include "base/brief_mutex.h"

#include <mutex>
#include <thread>
#include <vector>

namespace tessel {
namespace {

TEST(brief_mutex_test, only_one_thread_is_between_lock_and_unlock) {
  constexpr int threads = 4;
  constexpr int steps = 20'000;
  brief_mutex mutex;
  int count = 0;
  std::vector<std::thread> all;
  for (int started = 0; started < threads; ++started) {
    all.emplace_back([&] {
      for (int step = 0; step < steps; ++step) {
        const std::lock_guard lock(mutex);
        ++count;
      }
    });
  }
  for (std::thread& each : all) each.join();
  EXPECT_EQ(count, threads * steps);
}

TEST(brief_mutex_test, a_rival_waits_until_the_step_is_over) {
  brief_mutex mutex;
  int seen = 0;
  mutex.lock();
  std::thread rival([&] {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(seen, 1);
    seen = 2;
  });
  std::this_thread::yield();
  seen = 1;
  mutex.unlock();
  rival.join();
  EXPECT_EQ(seen, 2);
}

}  // namespace
}  // namespace tessel
