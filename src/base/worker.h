// Plain workers, one per job, with no pool and no limit.
//
//   auto pid = std::make_shared<worker>([] { dump_task(...); });
//   pid->start();
//   st().pid_list.append(pid);
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tessel {

// Call `start` once. `join` may be called from any thread, any number of times, but only after
// `start`.
//
// The thread's resources are released when the job ends, joined or not. If the system cannot create
// another thread, `start` runs the job in the calling thread: a large router must not fail because
// of a process limit. A job that throws a failure ends only itself; its traceback goes to standard
// error. A job must not throw `exit_request`.
class worker {
 public:
  explicit worker(std::function<void()> job);
  void start();
  void join();

 private:
  struct shared_part;
  std::shared_ptr<shared_part> part_;
};

// Starts a worker that runs `job`.
std::shared_ptr<worker> start_worker(std::function<void()> job);

// The workers that were started. `join_all` walks them by position, so it also joins those that
// other threads append meanwhile. All functions may be called from any thread.
class worker_list {
 public:
  void append(std::shared_ptr<worker> started);
  void join_all();
  std::size_t size() const;

 private:
  std::shared_ptr<worker> entry(std::size_t position) const;

  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<worker>> workers_;  // guarded by mutex_
};

// Joins all workers of a list at the end of a scope, also if an exception leaves it.
class join_at_end {
 public:
  explicit join_at_end(worker_list& workers) : workers_(workers) {}
  ~join_at_end() { workers_.join_all(); }
  join_at_end(const join_at_end&) = delete;
  join_at_end& operator=(const join_at_end&) = delete;

 private:
  worker_list& workers_;
};

}  // namespace tessel
