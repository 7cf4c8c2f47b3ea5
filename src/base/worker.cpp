#include "base/worker.h"

#include <pthread.h>

#include <condition_variable>
#include <cstdio>

#include "base/failure.h"

namespace tessel {

namespace {

// Jobs nest only a few calls deep and keep their data on the heap. A small stack saves address
// space when thousands of workers run at once.
constexpr std::size_t stack_size = std::size_t{512} * 1024;

void run_to_the_end(std::function<void()>& job) {
  try {
    job();
  } catch (const std::exception& error) {
    std::fputs(traceback_of(error).c_str(), stderr);
  }
}

}  // namespace

struct worker::shared_part {
  std::function<void()> job;
  std::mutex mutex;
  std::condition_variable ended;
  bool has_ended = false;  // guarded by mutex

  void run() {
    run_to_the_end(job);
    job = nullptr;
    const std::lock_guard lock(mutex);
    has_ended = true;
    ended.notify_all();
  }

  static void* thread_main(void* argument) {
    const std::unique_ptr<std::shared_ptr<shared_part>> own(
        static_cast<std::shared_ptr<shared_part>*>(argument));
    (*own)->run();
    return nullptr;
  }
};

worker::worker(std::function<void()> job) : part_(std::make_shared<shared_part>()) {
  part_->job = std::move(job);
}

void worker::start() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack_size);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  auto own = std::make_unique<std::shared_ptr<shared_part>>(part_);
  pthread_t thread{};
  const int refused = pthread_create(&thread, &attributes, shared_part::thread_main, own.get());
  pthread_attr_destroy(&attributes);
  if (refused == 0) {
    static_cast<void>(own.release());
  } else {
    part_->run();
  }
}

void worker::join() {
  std::unique_lock lock(part_->mutex);
  part_->ended.wait(lock, [this] { return part_->has_ended; });
}

std::shared_ptr<worker> start_worker(std::function<void()> job) {
  auto started = std::make_shared<worker>(std::move(job));
  started->start();
  return started;
}

void worker_list::append(std::shared_ptr<worker> started) {
  const std::lock_guard lock(mutex_);
  workers_.push_back(std::move(started));
}

std::shared_ptr<worker> worker_list::entry(std::size_t position) const {
  const std::lock_guard lock(mutex_);
  return position < workers_.size() ? workers_[position] : nullptr;
}

void worker_list::join_all() {
  for (std::size_t position = 0; const auto next = entry(position); ++position) next->join();
}

std::size_t worker_list::size() const {
  const std::lock_guard lock(mutex_);
  return workers_.size();
}

}  // namespace tessel
