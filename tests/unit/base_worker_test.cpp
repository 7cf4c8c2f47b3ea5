#include "base/worker.h"

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <latch>
#include <memory>
#include <new>
#include <string>
#include <thread>

#include "base/command.h"
#include "base/logs.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using worker_test = router_test;

TEST_F(worker_test, a_job_runs_on_a_thread_of_its_own) {
  std::thread::id ran_on;
  const auto job = start_worker([&] { ran_on = std::this_thread::get_id(); });
  job->join();
  EXPECT_NE(ran_on, std::thread::id());
  EXPECT_NE(ran_on, std::this_thread::get_id());
}

TEST_F(worker_test, join_waits_for_the_end_of_the_job) {
  std::latch gate(1);
  bool ended = false;
  const auto job = start_worker([&] {
    gate.wait();
    ended = true;
  });
  gate.count_down();
  job->join();
  EXPECT_TRUE(ended);
}

TEST_F(worker_test, joining_again_is_fine_from_any_thread) {
  std::latch gate(1);
  const auto job = start_worker([&] { gate.wait(); });
  together(5, [&](int number) {
    if (number == 0) gate.count_down();
    job->join();
    job->join();
  });
  job->join();
}

TEST_F(worker_test, as_many_run_at_once_as_were_started) {
  constexpr int count = 300;
  std::latch all_here(count);
  worker_list started;
  for (int number = 0; number < count; ++number) {
    started.append(start_worker([&] { all_here.arrive_and_wait(); }));
  }
  started.join_all();
  EXPECT_TRUE(all_here.try_wait());
}

TEST_F(worker_test, what_a_job_holds_goes_when_it_ends_and_not_when_it_is_forgotten) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  const auto job = start_worker([held] { EXPECT_EQ(*held, 1); });
  held.reset();
  job->join();
  EXPECT_TRUE(watched.expired());
}

TEST_F(worker_test, a_worker_may_be_forgotten_while_it_runs) {
  std::latch gate(1);
  std::latch ended(1);
  start_worker([&] {
    gate.wait();
    ended.count_down();
  });
  gate.count_down();
  ended.wait();
}

TEST_F(worker_test, a_failure_ends_only_its_own_job_and_is_reported_on_standard_error) {
  const std::string told = error_output_of([] {
    const auto failing = start_worker([] { throw failure("no key 'lagid'"); });
    const auto out_of_memory = start_worker([] { throw std::bad_alloc(); });
    failing->join();
    out_of_memory->join();
    failing->join();
  });
  EXPECT_THAT(told, HasSubstr("Traceback (most recent call last):\n"));
  EXPECT_THAT(told, HasSubstr("failure: no key 'lagid'\n"));
  EXPECT_THAT(told, HasSubstr("std::bad_alloc: std::bad_alloc\n"));
}

TEST_F(worker_test, a_job_that_starts_jobs_can_join_them) {
  std::atomic<int> ended = 0;
  const auto outer = start_worker([&] {
    worker_list inner;
    for (int number = 0; number < 20; ++number) inner.append(start_worker([&] { ++ended; }));
    inner.join_all();
    EXPECT_EQ(ended, 20);
  });
  outer->join();
  EXPECT_EQ(ended, 20);
}

TEST_F(worker_test, a_list_that_grows_while_it_is_walked_is_joined_whole) {
  // Each job appends its successor before it ends, so a walk must not stop after any of them.
  constexpr int generations = 100;
  worker_list pid_list;
  std::atomic<int> ended = 0;
  std::latch walking(1);
  std::function<void(int)> job = [&](int generation) {
    if (generation == 0) walking.wait();
    if (generation < generations) {
      pid_list.append(start_worker([&job, generation] { job(generation + 1); }));
    }
    ++ended;
  };
  pid_list.append(start_worker([&job] { job(0); }));
  EXPECT_EQ(pid_list.size(), 1U) << "the rest comes while the list is walked";
  walking.count_down();
  pid_list.join_all();
  EXPECT_EQ(ended, generations + 1);
  EXPECT_EQ(pid_list.size(), static_cast<std::size_t>(generations + 1));
}

TEST_F(worker_test, a_list_is_joined_more_than_once_and_by_several) {
  worker_list pid_list;
  pid_list.join_all();
  std::atomic<int> ended = 0;
  together(4, [&](int) {
    for (int number = 0; number < 25; ++number) {
      pid_list.append(start_worker([&] { ++ended; }));
    }
    pid_list.join_all();
  });
  pid_list.join_all();
  pid_list.join_all();
  EXPECT_EQ(ended, 100);
}

TEST_F(worker_test, a_worker_that_outlives_the_closing_of_its_log_loses_no_line) {
  open_logs();
  std::latch closed(1);
  const auto late = start_worker([&] {
    closed.wait();
    logger("late finding", "inconsistent");
    execute("echo late >&2", "late");
  });
  for (const auto& [name, channel] : st().log_dictionary) channel->close();
  st().stale_fd.close();
  st().dl_fd.close();
  closed.count_down();
  late->join();
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), testing::ElementsAre("late finding"));
  EXPECT_EQ(st().exception, 0);
}

// Makes every new thread fail: the limit of an ordinary user is no more than the processes that
// exist already.
void forbid_more_threads() {
  const rlimit none = {1, 1};
  if (::setrlimit(RLIMIT_NPROC, &none) != 0) throw failure("the limit is refused");
  // A user namespace has no second user, but the limit also applies to its root.
  if (::setresuid(65534, 65534, 65534) != 0 && errno != EINVAL) throw failure("no other user");
}

TEST_F(worker_test, where_the_system_has_no_thread_left_the_job_runs_on_the_spot) {
  EXPECT_EQ(status_in_child([] {
              forbid_more_threads();
              const auto caller = std::this_thread::get_id();
              std::thread::id ran_on;
              const auto job = start_worker([&] { ran_on = std::this_thread::get_id(); });
              if (ran_on != caller) return 1;
              job->join();
              job->join();
              worker_list pid_list;
              int ended = 0;
              for (int number = 0; number < 50; ++number) {
                pid_list.append(start_worker([&] {
                  pid_list.append(start_worker([&] { ++ended; }));
                  ++ended;
                }));
              }
              pid_list.join_all();
              return ended == 100 && pid_list.size() == 100 ? 7 : 2;
            }),
            7);
}

TEST_F(worker_test, a_failure_of_a_job_that_runs_on_the_spot_does_not_reach_its_starter) {
  std::string told;
  EXPECT_EQ(status_in_child([&] {
              forbid_more_threads();
              told = error_output_of([] { start_worker([] { throw failure("mine"); })->join(); });
              return told.ends_with("failure: mine\n") ? 7 : 1;
            }),
            7);
}

}  // namespace
}  // namespace tessel
