// A router with two line cards, one of each chip family, and the results of the checks of the chip
// tables.
//
//   set_up_nodes();
//   set_tables(older_node, "0", older_tables("1005 Payload=0x1\n", "", ""));
//   EXPECT_EQ(verify_sem_entry(any_llif, {older_node, "0"}, "1005"), "0x1");
//   expect_told({.programming_error = {"Programming Error 1: ..."}});
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/fake_router.h"

namespace tessel {

inline constexpr std::string_view older_node = "0/0/CPU0";  // Jericho+, node id 1
inline constexpr std::string_view j2_node = "0/1/CPU0";     // Jericho2, node id 2

inline value node_record(std::string_view nodeid, std::string_view asic) {
  return map_of({{"nodeid", nodeid},
                 {"nodeip", "10.0.0.1"},
                 {"asic", asic},
                 {"asic_supported", 1},
                 {"dump", 1}});
}

inline void set_up_nodes() {
  st().nodeinfo.set(ordered_map_of(
      {{older_node, node_record("1", "BCM8868")}, {j2_node, node_record("2", "BCM8869")}}));
}

inline value older_tables(const value& sema, const value& semb, const value& vsi) {
  return ordered_map_of({{"SEMA", sema}, {"SEMB", semb}, {"VSI", vsi}});
}

inline std::string vsi_row(std::string_view rif, std::string_view mac) {
  return "IHP_VSI_LOW_CFG_1.IHP0[" + std::string(rif) +
         "]: <VSI_PROFILE=0x2,TOPOLOGY_ID=0x0,MY_MAC=0x" + std::string(mac) + ",MAC_CLASS=0>\n";
}

// Sets the tables of one NPU; those of other nodes and NPUs stay.
inline void set_tables(std::string_view nodename, std::string_view npu, const value& tables) {
  const value bcm = st().BCM.get();
  if (!bcm.contains(nodename)) bcm.as_map().set(nodename, make_ordered_map());
  bcm.at(nodename).as_map().set(npu, tables);
}

// The messages on the channels of the checks, in the order of their numbers.
struct told {
  std::vector<std::string> programming_error = {};
  std::vector<std::string> exception = {};
  std::vector<std::string> delete_pending = {};
  std::vector<std::string> inconsistent = {};
};

// Expects exactly these messages, and each counter equal to the number of its messages.
inline void expect_told(const told& expected) {
  using testing::ElementsAreArray;
  EXPECT_THAT(messages(LOG_FILE_PROGRAMMING_ERROR), ElementsAreArray(expected.programming_error));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), ElementsAreArray(expected.exception));
  EXPECT_THAT(messages(LOG_FILE_DELETE_PENDING), ElementsAreArray(expected.delete_pending));
  EXPECT_THAT(messages(LOG_FILE_INCONSISTENT), ElementsAreArray(expected.inconsistent));
  const run_state& run = st();
  EXPECT_EQ(run.programming_error, static_cast<std::int64_t>(expected.programming_error.size()));
  EXPECT_EQ(run.exception, static_cast<std::int64_t>(expected.exception.size()));
  EXPECT_EQ(run.deletePending, static_cast<std::int64_t>(expected.delete_pending.size()));
  EXPECT_EQ(run.inconsistent, static_cast<std::int64_t>(expected.inconsistent.size()));
  EXPECT_EQ(run.info, 0);
}

// Gives other threads time to do what they must not do before this worker has ended. Returns true
// if `too_soon` became true.
template <class Condition>
bool happens_too_soon(Condition too_soon) {
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
  while (!too_soon()) {
    if (std::chrono::steady_clock::now() > give_up) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace tessel
