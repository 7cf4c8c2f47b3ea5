#include "run/state.h"

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/logs.h"
#include "base/print.h"
#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using state_test = router_test;

TEST_F(state_test, a_run_starts_with_these_values) {
  const run_state& run = st();
  EXPECT_EQ(run.router, notset);
  for (const value& unset : {run.my_node_id, run.activenodeinfo, run.standbynodeinfo,
                             run.MAX_BUNDLES, run.MAX_SUB_BUNDLES, run.BUNDLE_SCALE}) {
    EXPECT_EQ(unset, DEFAULT);
  }
  for (const counter* count : {&run.inconsistent, &run.programming_error, &run.exception, &run.info,
                               &run.staleEntries, &run.deletePending, &run.bdlHealthCheckCount}) {
    EXPECT_EQ(*count, 0);
  }
  EXPECT_EQ(run.start_time, 0);
  EXPECT_EQ(run.activenode_cnt + run.standbynode_cnt + run.vmcnt, 0);
  EXPECT_EQ(run.printed_results + run.snapshot + run.is_sub_bundle, 0);
  EXPECT_EQ(run.num_bundles + run.num_sub_bundles_l2 + run.num_sub_bundles_l3, 0);
  EXPECT_EQ(run.bdlHealthCheck, "Done");
  EXPECT_EQ(run.pid_list.size(), 0U);
  EXPECT_TRUE(run.log_dictionary.empty());
  EXPECT_EQ(run.dl_fd.get(), nullptr);
  EXPECT_EQ(run.stale_fd.get(), nullptr);
}

TEST_F(state_test, the_stores_start_empty_and_of_their_kind) {
  const run_state& run = st();
  for (const cell* store : {&run.nodeinfo, &run.voq_usage, &run.bdlInfoPI, &run.mbrInfoPI,
                            &run.bdlInfoPD, &run.DPA, &run.BCM}) {
    EXPECT_TRUE(store->get().as_map().empty());
    EXPECT_TRUE(store->get().as_map().is_ordered());
  }
  EXPECT_TRUE(run.tesselDb.as_map().is_ordered());
  EXPECT_FALSE(run.bundle_dict.as_map().is_ordered());
  EXPECT_EQ(run.bdlSubPI.get(), "");
  EXPECT_EQ(run.run_cfg.get(), make_list());
}

TEST_F(state_test, the_stale_walk_has_a_count_and_a_list_for_each_layer) {
  const std::set<std::string> layers = {"PI", "BME", "DPA", "BCM"};
  std::set<std::string> counted;
  std::set<std::string> listed;
  for (const auto& [layer, count] : st().staleRecurrsion) {
    counted.insert(layer);
    EXPECT_EQ(count, 0);
  }
  for (const auto& [layer, entries] : st().listRecurrsion) {
    listed.insert(layer);
    EXPECT_TRUE(entries.empty());
  }
  EXPECT_EQ(counted, layers);
  EXPECT_EQ(listed, layers);
}

TEST_F(state_test, nodeinfo_holds_either_a_map_or_the_number_0) {
  run_state& run = st();
  EXPECT_FALSE(run.nodeinfo.get().truthy()) << "an empty inventory ends the run";
  run.nodeinfo.get().as_map().set("0/RP0/CPU0", make_map());
  const value before = run.nodeinfo.get();
  run.nodeinfo.set(ERROR);
  EXPECT_EQ(run.nodeinfo.get(), 0);
  EXPECT_FALSE(run.nodeinfo.get().truthy());
  EXPECT_TRUE(before.contains("0/RP0/CPU0")) << "who took the map keeps it";
}

TEST_F(state_test, a_fresh_state_leaves_the_one_before_alone) {
  run_state& before = st();
  before.router = birch;
  ++before.exception;
  SetUp();
  EXPECT_NE(&st(), &before);
  EXPECT_EQ(st().router, notset);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(before.router, birch);
  EXPECT_EQ(before.exception, 1);
}

TEST_F(state_test, constants_have_their_settled_values) {
  EXPECT_EQ(DEFAULT, "Not set");
  EXPECT_EQ(SUCCESS, 1);
  EXPECT_EQ(ERROR, 0);
  EXPECT_EQ(DOTS, 40U);
  EXPECT_THAT(
      (std::vector<int>{notset, invalid, aspen, birch, cedar, cedarl, dogwood, elm, fir, gorse}),
      ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
  EXPECT_THAT(
      (std::vector<std::string_view>{
          LOG_FILE_EXCEPTION, LOG_FILE_INCONSISTENT, LOG_FILE_PROGRAMMING_ERROR,
          LOG_FILE_DELETE_PENDING, LOG_FILE_STALE_ENTRIES, LOG_FILE_BUNDLE_HEALTH, LOG_FILE_DEBUG}),
      ElementsAre("/var/log/tessel_exception.log", "/var/log/tessel_inconsistencies.log",
                  "/var/log/tessel_programming_error.log", "/var/log/tessel_delay_delete.log",
                  "/var/log/tessel_stale_entries.log", "/var/log/tessel_bundle_health.log",
                  "/var/log/tessel_debug.log"));
}

TEST_F(state_test, every_increment_returns_a_number_of_its_own) {
  constexpr int threads = 8;
  constexpr int each = 500;
  std::vector<std::vector<std::int64_t>> quoted_numbers(threads);
  together(threads, [&](int number) {
    auto& mine = quoted_numbers[static_cast<std::size_t>(number)];
    for (int round = 0; round < each; ++round) mine.push_back(++st().inconsistent);
  });
  std::set<std::int64_t> all;
  for (const auto& numbers : quoted_numbers) all.insert(numbers.begin(), numbers.end());
  EXPECT_EQ(all.size(), static_cast<std::size_t>(threads * each));
  EXPECT_EQ(*all.begin(), 1);
  EXPECT_EQ(*all.rbegin(), threads * each);
  EXPECT_EQ(st().inconsistent, threads * each);
}

TEST_F(state_test, a_counter_is_added_to_and_cleared) {
  run_state& run = st();
  ++run.info;
  ++run.info;
  run.exception += run.info;
  run.exception += run.info;
  EXPECT_EQ(run.exception, 4) << "info is added once by the table and once at the end";
  run.deletePending += 3;
  run.deletePending = 0;
  EXPECT_EQ(run.deletePending, 0);
}

TEST_F(state_test, a_store_is_replaced_while_others_read_it) {
  cell store(map_of({{"generation", 0}}));
  together(4, [&](int number) {
    for (int round = 1; round <= 300; ++round) {
      if (number == 0) {
        store.set(map_of({{"generation", round}}));
      } else {
        EXPECT_LE(store.get().at("generation").as_integer(), 300);
      }
    }
  });
  EXPECT_EQ(store.get().at("generation"), 300);
}

}  // namespace
}  // namespace tessel
