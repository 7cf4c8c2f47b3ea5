#include "base/worker.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <new>
#include <thread>
#include <utility>

#include "base/failure.h"
#include "base/findings.h"
#include "base/print.h"

namespace tessel {

namespace {

// Jobs nest a few calls deep, a join on the spot a few jobs deep, and their data is on the heap.
constexpr std::size_t stack_size = std::size_t{512} * 1024;
// A carrier that had nothing to do for so long ends. Between two waves of commands it should stay.
constexpr std::chrono::seconds idle_time{10};
// So many log writes and locks at once let another job compute. A machine whose disk blocks has
// more of them, but then more threads would only wait for the same disk.
constexpr int most_brief = 8;

int usable_processors() {
  cpu_set_t set;
  return ::sched_getaffinity(0, sizeof set, &set) == 0 ? std::max(1, CPU_COUNT(&set)) : 1;
}

}  // namespace

// Everything but `job` is guarded by the crew's mutex; `job` belongs to whoever begins it.
struct worker::shared_part {
  enum class progress { waiting, begun, ended };
  std::function<void()> job;
  progress state = progress::waiting;
  int joiners = 0;
  std::condition_variable ended;
};

// The queue and the threads before it. A thread counts as computing from the moment at which it is
// called for a job until it blocks, idles or ends. A job waits while fewer compute than may only if
// somebody was called for it, or no thread is to be had.
struct crew {
  using job = worker::shared_part;
  using held = std::unique_lock<std::mutex>;

  static crew& get();

  void start(const std::shared_ptr<job>& started);
  void join(job& awaited);
  bool give_way(blocking::length expected);
  void come_back(blocking::length expected);
  std::size_t wait_until_begun(std::chrono::milliseconds patience);

  std::mutex mutex;
  int width = usable_processors();
  crew_figures figures;

 private:
  std::shared_ptr<job> take_next();
  void begin(job& taken);
  void run(held& lock, job& begun);
  void run_on_the_spot(held& lock, job& begun);
  void run_what_nobody_takes(held& lock);
  bool call_carrier(held& lock);
  bool add_carrier(held& lock);
  void carry();
  static void* thread_main(void*);

  std::deque<std::shared_ptr<job>> queue_;  // as started; a join may have begun some of them
  std::size_t waiting_ = 0;                 // of these, those that have not begun
  int computing_ = 0;
  int idle_ = 0;
  int called_ = 0;  // idle ones that were called and have not woken yet; they count as computing
  int alive_ = 0;
  int brief_ = 0;
  std::condition_variable calls_;
  std::condition_variable all_begun_;
};

namespace {

// Whether the job on this thread counts as computing: on a carrier always, elsewhere while a start
// or a join runs a job on the spot.
thread_local bool is_counted = false;
thread_local int blocking_depth = 0;

// Jobs may outlive the driver: never destroyed.
crew* the_crew = nullptr;

}  // namespace

// Not `std::call_once`: a failure would leave it through the C library, which ends the process if
// it has no memory to let one pass.
crew& crew::get() {
  static const bool is_made = [] {
    the_crew = new crew;
    // A forked process has none of the threads, and its one thread carries no job.
    pthread_atfork(nullptr, nullptr, [] {
      the_crew = new crew;
      is_counted = false;
      blocking_depth = 0;
    });
    return true;
  }();
  static_cast<void>(is_made);
  return *the_crew;
}

void crew::begin(job& taken) {
  taken.state = job::progress::begun;
  if (--waiting_ == 0) all_begun_.notify_all();
}

std::shared_ptr<crew::job> crew::take_next() {
  while (!queue_.empty()) {
    std::shared_ptr<job> next = std::move(queue_.front());
    queue_.pop_front();
    if (next->state != job::progress::waiting) continue;
    begin(*next);
    return next;
  }
  return nullptr;
}

void crew::run(held& lock, job& begun) {
  lock.unlock();
  run_contained(begun.job);
  begun.job = nullptr;
  lock.lock();
  begun.state = job::progress::ended;
  if (begun.joiners > 0) begun.ended.notify_all();
}

void* crew::thread_main(void*) {
  is_counted = true;
  get().carry();
  return nullptr;
}

void crew::carry() {
  held lock(mutex);
  for (;;) {
    // Those that came back from blocking may be too many: then this one makes room.
    while (computing_ <= width) {
      const std::shared_ptr<job> next = take_next();
      if (!next) break;
      run(lock, *next);
    }
    --computing_;
    ++idle_;
    if (!calls_.wait_for(lock, idle_time, [this] { return called_ > 0; })) {
      --idle_;
      --alive_;
      return;
    }
    --called_;
  }
}

// False if the system gives no thread. The lock is open meanwhile, so afterwards everything may
// have changed.
bool crew::add_carrier(held& lock) {
  ++computing_;
  lock.unlock();
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack_size);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread{};
  const int refused = pthread_create(&thread, &attributes, thread_main, nullptr);
  pthread_attr_destroy(&attributes);
  lock.lock();
  if (refused == 0) {
    ++alive_;
    ++figures.threads_started;
    figures.most_threads = std::max(figures.most_threads, static_cast<std::size_t>(alive_));
    return true;
  }
  if (figures.refused++ == 0) figures.why_refused = refused;
  --computing_;
  return false;
}

// Sees to it that the next job is taken as soon as it may compute. False if nobody will ever come.
bool crew::call_carrier(held& lock) {
  while (waiting_ > 0 && computing_ < width) {
    if (idle_ > 0) {
      --idle_;
      ++computing_;
      ++called_;
      calls_.notify_one();
      return true;
    }
    if (add_carrier(lock)) return true;
    if (idle_ == 0) return alive_ > 0;
  }
  return true;
}

void crew::start(const std::shared_ptr<job>& started) {
  held lock(mutex);
  queue_.push_back(started);
  ++waiting_;
  run_what_nobody_takes(lock);
}

// Not only the job just started: another thread may have relied on the carrier that was refused.
void crew::run_what_nobody_takes(held& lock) {
  while (!call_carrier(lock)) {
    const std::shared_ptr<job> next = take_next();
    if (!next) return;
    run_on_the_spot(lock, *next);
  }
}

void crew::run_on_the_spot(held& lock, job& begun) {
  const bool was_counted = std::exchange(is_counted, true);
  if (!was_counted) ++computing_;
  run(lock, begun);
  is_counted = was_counted;
  if (was_counted) return;
  --computing_;
  call_carrier(lock);
}

void crew::join(job& awaited) {
  held lock(mutex);
  if (awaited.state == job::progress::waiting) {
    begin(awaited);
    run_on_the_spot(lock, awaited);
    return;
  }
  if (awaited.state == job::progress::ended) return;
  const bool gives_way = is_counted && blocking_depth == 0;
  if (gives_way) {
    --computing_;
    call_carrier(lock);
  }
  ++awaited.joiners;
  awaited.ended.wait(lock, [&] { return awaited.state == job::progress::ended; });
  --awaited.joiners;
  if (gives_way) ++computing_;
}

bool crew::give_way(blocking::length expected) {
  held lock(mutex);
  if (expected == blocking::length::brief) {
    if (brief_ == most_brief) return false;
    ++brief_;
  }
  --computing_;
  call_carrier(lock);
  return true;
}

void crew::come_back(blocking::length expected) {
  const held lock(mutex);
  if (expected == blocking::length::brief) --brief_;
  ++computing_;
}

std::size_t crew::wait_until_begun(std::chrono::milliseconds patience) {
  held lock(mutex);
  run_what_nobody_takes(lock);
  all_begun_.wait_for(lock, patience, [this] { return waiting_ == 0; });
  return waiting_;
}

worker::worker(std::function<void()> job) : part_(std::make_shared<shared_part>()) {
  part_->job = std::move(job);
}

void worker::start() {
  crew::get().start(part_);
}

void worker::join() {
  crew::get().join(*part_);
}

void run_contained(const std::function<void()>& job) {
  try {
    job();
  } catch (const std::exception& error) {
    // The handler of the job had no memory to count what it caught.
    if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
      log_and_count("out of memory: a check ended early");
    }
    print_error(traceback_of(error));
  }
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

blocking::blocking(length expected) : expected_(expected) {
  if (!is_counted || ++blocking_depth > 1) return;
  gave_way_ = crew::get().give_way(expected);
}

blocking::~blocking() {
  if (!is_counted) return;
  --blocking_depth;
  if (gave_way_) crew::get().come_back(expected_);
}

bool limited_patience::lock(std::unique_lock<std::timed_mutex>& held) {
  using clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds pause(1);
  const auto start = clock::now();
  bool locked = held.try_lock();
  // Not `try_lock_for`, whose call of the C library ThreadSanitizer does not know.
  while (!locked && clock::now() - start < left_) {
    std::this_thread::sleep_for(pause);
    locked = held.try_lock();
  }
  left_ -= std::min(left_, clock::now() - start);
  return locked;
}

std::size_t wait_until_begun(std::chrono::milliseconds patience) {
  return crew::get().wait_until_begun(patience);
}

crew_figures figures_of_crew() {
  crew& all = crew::get();
  const std::lock_guard lock(all.mutex);
  return all.figures;
}

unsigned width_of_crew() {
  crew& all = crew::get();
  const std::lock_guard lock(all.mutex);
  return static_cast<unsigned>(all.width);
}

void set_crew_width(unsigned jobs) {
  crew& all = crew::get();
  const std::lock_guard lock(all.mutex);
  all.width = static_cast<int>(std::max(1U, jobs));
}

}  // namespace tessel
