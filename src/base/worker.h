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

// `start` is called once; `join` from any thread, any number of times, and only after `start`.
//
// The thread's resources go when the job ends, joined or not. If the system has no thread left to
// give, `start` runs the job on the spot: a large router must not fail on a process limit. A job
// that lets a failure out ends only itself; its traceback goes to standard error. A job must not
// let an `exit_request` out.
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

// Workers that were started, walked by position: others may append while `join_all` runs, and
// those are joined too. All functions may be called from any thread.
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

// Joins a list at the end of a scope, however it is left.
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
