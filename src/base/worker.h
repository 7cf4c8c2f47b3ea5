// Jobs, and the crew of threads that carries them.
//
//   auto pid = start_worker([] { dump_task(...); });
//   st().pid_list.append(pid);
//
// A job that was started waits in one queue until a carrier, a thread of the crew, takes it and
// runs it to its end. As many carriers compute at once as there are cores. A carrier that is about
// to block says so (`blocking`); while it blocks another one may compute, on a new thread if none
// is idle. So any number of commands runs at once, as if each job had a thread of its own, and
// 150,000 comparisons do not cost 150,000 threads.
//
// Every run ends and reports the same, with one core, with one carrier, and where the system gives
// no thread at all:
//
// 1. A job that has begun has a thread until it ends. It never waits for the crew: leaving a
//    `blocking` scope waits for nothing. The price is that those that come back compute beside the
//    carriers that took their place; each carrier that ends a job then makes room.
// 2. A job waits for a command, for a lock whose holder has begun, for a job that it joins, or,
//    where no thread is to be had, for the jobs that `start` runs on the spot.
// 3. A join runs a job that has not begun on the spot. One that has begun has its thread by 1.
// 4. Nobody starts or joins a job that, by itself or through others, waits for him, and nobody
//    starts or joins with a lock held that a job takes. So the walk from who waits to what he waits
//    for ends at a job that computes or at a command.
// 5. Whenever a job waits and fewer compute than may, an idle carrier is called or a new one made,
//    and where neither is to be had, `start` runs the job on the spot or leaves it to the carriers
//    that there are. By 1 to 4 each of them comes free.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tessel {

// Call `start` once. `join` may be called from any thread, any number of times, but only after
// `start`.
//
// Carriers take jobs in the order in which they were started; only a join may begin one earlier, on
// the joining thread. A job that lets a failure out ends only itself; its traceback goes to
// standard error, and a lack of memory is logged and counted, because no handler could. A job must
// not let an `exit_request` out.
class worker {
 public:
  explicit worker(std::function<void()> job);
  void start();
  void join();

 private:
  friend struct crew;
  struct shared_part;
  std::shared_ptr<shared_part> part_;
};

// Starts a worker that runs `job`.
std::shared_ptr<worker> start_worker(std::function<void()> job);

// Runs `job` on the calling thread as a worker would: a failure that leaves it ends only the job,
// as there. For a worker that walks several jobs in their order.
void run_contained(const std::function<void()>& job);

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

// While it lives, the job on this thread blocks and another one may compute. Scopes may nest; on a
// thread that carries no job they do nothing. `brief` is for what is over in a moment unless the
// machine is in trouble, a log write or a lock: of those only a few bring in another carrier, so
// that a crowd before one lock does not become a crowd of threads.
class blocking {
 public:
  enum class length { unknown, brief };
  explicit blocking(length expected = length::unknown);
  ~blocking();
  blocking(const blocking&) = delete;
  blocking& operator=(const blocking&) = delete;

 private:
  bool gave_way_ = false;
  length expected_;
};

// Holds a mutex like std::lock_guard; a job that has to wait for it lets another one compute.
template <class Mutex>
class patient_lock {
 public:
  explicit patient_lock(Mutex& mutex) : mutex_(mutex) {
    if (mutex_.try_lock()) return;
    const blocking until_free(blocking::length::brief);
    mutex_.lock();
  }
  ~patient_lock() { mutex_.unlock(); }
  patient_lock(const patient_lock&) = delete;
  patient_lock& operator=(const patient_lock&) = delete;

 private:
  Mutex& mutex_;
};

// How long a thread waits, in all, for mutexes whose holders may hang. For one thread.
class limited_patience {
 public:
  explicit limited_patience(std::chrono::milliseconds whole) : left_(whole) {}
  // Locks `held` if that is possible within what is left. Returns whether it did.
  bool lock(std::unique_lock<std::timed_mutex>& held);

 private:
  std::chrono::steady_clock::duration left_;
};

// Waits until every job that was started has begun, `patience` at most. Returns how many have not.
// Where there is no carrier, the caller runs them, however long that takes. Call it on a thread
// that carries no job.
std::size_t wait_until_begun(std::chrono::milliseconds patience);

// What the crew has done since the process began, and how many jobs may compute at once.
struct crew_figures {
  std::size_t threads_started = 0;
  std::size_t most_threads = 0;  // alive at one moment
  std::size_t refused = 0;       // threads that the system did not give
  int why_refused = 0;           // the error of the first of them
};
crew_figures figures_of_crew();

// How many jobs compute at once: the processors that this process may use, unless set here. Setting
// it is for tests and measurements.
unsigned width_of_crew();
void set_crew_width(unsigned jobs);

}  // namespace tessel
