// Threads that wait at a gate and start together, so that they really run at the same time.
//
//   together(8, [&](int number) { ++count; });   // numbers 0 to 7; returns when all have ended
#pragma once

#include <latch>
#include <thread>
#include <vector>

namespace tessel {

template <class Body>
void together(int count, Body body) {
  std::latch gate(count);
  std::vector<std::jthread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int number = 0; number < count; ++number) {
    threads.emplace_back([&gate, &body, number] {
      gate.arrive_and_wait();
      body(number);
    });
  }
}

}  // namespace tessel
