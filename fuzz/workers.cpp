// A replacement for base/worker.cpp that runs each job in the calling thread, as the audit does
// when the system has no thread left. So an input takes the same path each time.
#include <utility>

#include "base/worker.h"

namespace tessel {

struct worker::shared_part {
  std::function<void()> job;
};

worker::worker(std::function<void()> job) : part_(std::make_shared<shared_part>()) {
  part_->job = std::move(job);
}

void worker::start() {
  run_contained(part_->job);
  part_->job = nullptr;
}

void worker::join() {}

void run_contained(const std::function<void()>& job) {
  try {
    job();
  } catch (const std::exception&) {
    // A job that throws a failure ends only itself.
  }
}

std::shared_ptr<worker> start_worker(std::function<void()> job) {
  auto started = std::make_shared<worker>(std::move(job));
  started->start();
  return started;
}

void worker_list::append(std::shared_ptr<worker> started) {
  workers_.push_back(std::move(started));
}

void worker_list::join_all() {}

std::size_t worker_list::size() const {
  return workers_.size();
}

blocking::blocking(length expected) : expected_(expected) {}

blocking::~blocking() {
  static_cast<void>(gave_way_);
  static_cast<void>(expected_);
}

bool limited_patience::lock(std::unique_lock<std::timed_mutex>& held) {
  static_cast<void>(left_);
  held.lock();
  return true;
}

std::size_t wait_until_begun(std::chrono::milliseconds) {
  return 0;
}

unsigned width_of_crew() {
  return 1;
}

}  // namespace tessel
