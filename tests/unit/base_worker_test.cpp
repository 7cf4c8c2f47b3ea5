#include "base/worker.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "base/command.h"
#include "base/logs.h"
#include "support/crew.h"
#include "support/fake_router.h"
#include "support/hostile.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::HasSubstr;
using worker_test = router_test;

TEST_F(worker_test, a_job_runs_on_another_thread_than_its_starter) {
  std::thread::id ran_on;
  const auto job = start_worker([&] { ran_on = std::this_thread::get_id(); });
  EXPECT_EQ(wait_until_begun(std::chrono::seconds(60)), 0U) << "a join might run it on the spot";
  job->join();
  EXPECT_NE(ran_on, std::thread::id());
  EXPECT_NE(ran_on, std::this_thread::get_id());
}

TEST_F(worker_test, join_waits_for_the_end_of_the_job) {
  std::latch gate(1);
  std::atomic<bool> ended = false;
  const auto job = start_worker([&] {
    gate.wait();
    ended = true;
  });
  EXPECT_EQ(wait_until_begun(std::chrono::seconds(60)), 0U);
  const std::jthread elsewhere([&] {
    // Time enough for a join that does not wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    gate.count_down();
  });
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

TEST_F(worker_test, as_many_block_at_once_as_were_started) {
  constexpr int count = 300;
  std::latch all_here(count);
  worker_list started;
  for (int number = 0; number < count; ++number) {
    started.append(start_worker([&] {
      const blocking until_all_are_here;
      all_here.arrive_and_wait();
    }));
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
  EXPECT_EQ(st().exception, 1) << "no handler had the memory to count";
  EXPECT_THAT(kept_messages(), testing::ElementsAre("out of memory: a check ended early"));
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

// --- the crew

TEST_F(worker_test, jobs_begin_in_the_order_of_their_start) {
  const crew_width one(1);
  std::latch gate(1);
  std::latch last(1);
  std::vector<int> order;
  const auto first = start_worker([&] { gate.wait(); });
  for (int number = 0; number < 50; ++number)
    start_worker([&, number] { order.push_back(number); });
  const auto end = start_worker([&] { last.count_down(); });
  gate.count_down();
  last.wait();
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(order.size(), 50U);
}

TEST_F(worker_test, no_more_compute_at_once_than_the_crew_is_wide) {
  const crew_width three(3);
  std::atomic<int> computing = 0;
  std::atomic<int> most = 0;
  worker_list started;
  for (int number = 0; number < 200; ++number) {
    started.append(start_worker([&] {
      const int now = ++computing;
      int seen = most;
      while (now > seen && !most.compare_exchange_weak(seen, now)) continue;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));  // computes, for the crew
      --computing;
    }));
  }
  wait_until_begun(std::chrono::seconds(60));
  started.join_all();
  EXPECT_LE(most, 3);
}

TEST_F(worker_test, comparisons_do_not_cost_a_thread_each) {
  const crew_figures before = figures_of_crew();
  worker_list started;
  std::atomic<int> ended = 0;
  for (int number = 0; number < 20000; ++number) started.append(start_worker([&] { ++ended; }));
  started.join_all();
  EXPECT_EQ(ended, 20000);
  EXPECT_LE(figures_of_crew().threads_started - before.threads_started,
            std::thread::hardware_concurrency());
}

TEST_F(worker_test, with_one_core_a_job_that_blocks_lets_the_next_one_begin) {
  const crew_width one(1);
  std::latch second_ran(1);
  const auto first = start_worker([&] {
    const blocking for_the_second;
    second_ran.wait();
  });
  start_worker([&] { second_ran.count_down(); });
  first->join();
}

TEST_F(worker_test, a_job_run_on_the_spot_by_a_join_gives_way_like_every_other) {
  const crew_width one(1);
  std::latch gate(1);
  std::latch here(1);
  std::latch third_ran(1);
  const auto first = start_worker([&] {
    here.count_down();
    gate.wait();
  });
  here.wait();
  const auto second = start_worker([&] {
    gate.count_down();
    const blocking for_the_third;
    third_ran.wait();
  });
  start_worker([&] { third_ran.count_down(); });
  second->join();  // the first still has the one place
  first->join();
}

TEST_F(worker_test, with_one_core_nested_starts_and_joins_end) {
  const crew_width one(1);
  std::atomic<int> ended = 0;
  std::function<void(int)> nest = [&](int depth) {
    if (depth > 0) {
      worker_list inner;
      for (int number = 0; number < 4; ++number) {
        inner.append(start_worker([&nest, depth] { nest(depth - 1); }));
      }
      inner.join_all();
    }
    ++ended;
  };
  start_worker([&] { nest(5); })->join();
  EXPECT_EQ(ended, 1 + 4 + 16 + 64 + 256 + 1024);
}

TEST_F(worker_test, with_one_core_a_list_that_grows_while_it_is_joined_ends) {
  const crew_width one(1);
  worker_list pid_list;
  std::atomic<int> ended = 0;
  for (int number = 0; number < 20; ++number) {
    pid_list.append(start_worker([&] {
      for (int more = 0; more < 5; ++more) {
        pid_list.append(
            start_worker([&] { execute("true", filled_line(fmt::format("grown_{}", ended++))); }));
      }
    }));
  }
  pid_list.join_all();
  EXPECT_EQ(ended, 100);
  EXPECT_EQ(st().exception, 0);
}

TEST_F(worker_test, joins_on_the_spot_and_by_carriers_run_each_job_once) {
  for (int round = 0; round < 50; ++round) {
    constexpr int count = 40;
    std::vector<std::atomic<int>> runs(count);
    worker_list started;
    for (int number = 0; number < count; ++number) {
      started.append(start_worker([&runs, number] { ++runs[static_cast<std::size_t>(number)]; }));
    }
    together(3, [&](int) { started.join_all(); });
    for (const auto& each : runs) EXPECT_EQ(each, 1);
  }
}

TEST_F(worker_test,
       waiting_for_the_beginning_ends_when_all_have_begun_and_not_when_all_have_ended) {
  std::latch gate(1);
  std::vector<std::shared_ptr<worker>> started;
  for (int number = 0; number < 20; ++number) {
    started.push_back(start_worker([&] {
      const blocking until_told;
      gate.wait();
    }));
  }
  EXPECT_EQ(wait_until_begun(std::chrono::seconds(60)), 0U);
  gate.count_down();
  for (const auto& each : started) each->join();
}

TEST_F(worker_test, waiting_for_the_beginning_is_given_up_after_a_time_and_says_how_many_wait) {
  const crew_width one(1);
  std::latch gate(1);
  std::latch here(1);
  const auto busy = start_worker([&] {
    here.count_down();
    gate.wait();
  });
  here.wait();
  const auto one_more = start_worker([] {});
  const auto another = start_worker([] {});
  EXPECT_EQ(wait_until_begun(std::chrono::milliseconds(20)), 2U);
  gate.count_down();
  EXPECT_EQ(wait_until_begun(std::chrono::seconds(60)), 0U);
  another->join();
}

TEST_F(worker_test, a_crowd_before_a_lock_does_not_become_a_crowd_of_threads) {
  const std::size_t before = figures_of_crew().threads_started;
  std::mutex crowded;
  crowded.lock();
  worker_list started;
  for (int number = 0; number < 500; ++number) {
    started.append(start_worker([&] { const patient_lock lock(crowded); }));
  }
  EXPECT_GT(wait_until_begun(std::chrono::milliseconds(50)), 400U);
  crowded.unlock();
  started.join_all();
  EXPECT_LE(figures_of_crew().threads_started - before, std::thread::hardware_concurrency() + 8);
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

TEST_F(worker_test, where_threads_run_out_in_the_middle_every_job_ends) {
  EXPECT_EQ(status_in_child([] {
              std::latch gate(1);
              std::vector<std::shared_ptr<worker>> before;
              for (int number = 0; number < 3; ++number) {
                before.push_back(start_worker([&] {
                  const blocking until_told;
                  gate.wait();
                }));
              }
              if (wait_until_begun(std::chrono::seconds(60)) != 0) return 1;
              forbid_more_threads();
              worker_list pid_list;
              std::atomic<int> ended = 0;
              for (int number = 0; number < 50; ++number) {
                pid_list.append(start_worker([&] {
                  pid_list.append(start_worker([&] { ++ended; }));
                  ++ended;
                }));
              }
              pid_list.join_all();
              if (ended != 100) return 2;
              gate.count_down();
              for (const auto& each : before) each->join();
              if (figures_of_crew().refused == 0) return 3;
              if (figures_of_crew().why_refused != EAGAIN) return 4;
              return 7;
            }),
            7);
}

// While a thread is asked for, its place counts as taken. Jobs that others start meanwhile, and
// carriers that come free meanwhile, rely on it.
TEST_F(worker_test, where_threads_are_refused_no_job_is_left_behind_by_those_that_start_at_once) {
  EXPECT_EQ(status_in_child([] {
              set_crew_width(1);
              std::latch gate(1);
              const auto carried = start_worker([&] { gate.wait(); });
              std::latch go(1);
              std::atomic<int> ended = 0;
              const auto starts = [&] {
                go.wait();
                for (int number = 0; number < 500; ++number) {
                  start_worker([&] {
                    const blocking lets_the_next_one_begin;
                    ++ended;
                  });
                }
              };
              std::thread first(starts);
              std::thread second(starts);
              forbid_more_threads();
              go.count_down();
              gate.count_down();
              first.join();
              second.join();
              if (wait_until_begun(std::chrono::seconds(60)) != 0) return 1;
              carried->join();
              const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
              while (ended < 1000 && std::chrono::steady_clock::now() < give_up) {
                std::this_thread::yield();
              }
              return ended == 1000 ? 7 : 2;
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
