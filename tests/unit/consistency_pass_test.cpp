#include "consistency/consistency_pass.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/print.h"
#include "checks/both_passes.h"
#include "support/bundle_world.h"
#include "support/crew.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using std::string_view;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using pass_test = bundle_test;

const std::string name(be12::name);
const std::string older(be12::older);
const std::string j2(be12::j2);
const std::string older_port(be12::older_port);
const std::string l3_sub(be12::l3_sub);

record& bundle() {
  return bundle_record(be12::name);
}
value lagport(string_view nodename, string_view ifh = be12::ifh) {
  return look(st().DPA.get(), {nodename, "lagport", ifh});
}
value chip_lag() {
  return look(st().BCM.get(), {be12::older, "0", "diag_lag", "LAG 0x5"});
}
bool is_visited(const value& entry) {
  return entry.contains("Visited") && entry.at("Visited") == 1;
}

struct pass_run {
  int result;
  std::string shown;
};

pass_run run_pass() {
  pass_run run{};
  run.shown = output_of([&run] { run.result = check_bundle_consistency(); });
  return run;
}

// Runs the pass and then waits for the bundle level, as a run without findings does.
int run_pass_to_the_end() {
  const int result = run_pass().result;
  st().pid_list.join_all();
  return result;
}

// Adds a bundle after BE12, without members and sub-bundles.
void enter_second_bundle() {
  put(st().tesselDb, {"BE13"}, new_record<Bundles>());
  put(st().bdlInfoPI.get(), {"BE13"},
      map_of({{"mtu", "1514"}, {"mac", be12::mac}, {"Visited", 0}, {"ifh", "0x3000130"}}));
  for (const string_view nodename : {be12::older, be12::j2}) {
    put(st().DPA.get(), {nodename, "lagport", "0x3000130"},
        map_of({{"lagid", "0x8"},
                {"members", make_map()},
                {"max_member_count", DEFAULT},
                {"deletePending", 0},
                {"Visited", 0}}));
    for (const char* npu : {"0", "1"}) {
      const bool is_older = nodename == be12::older;
      put(st().BCM.get(),
          {nodename, npu, is_older ? "diag_lag" : "tm_lag", is_older ? "LAG 0x8" : "0x8"},
          map_of({{"Visited", 0}}));
    }
  }
}

// --- the pass as a whole

TEST_F(pass_test, a_healthy_router_gives_no_finding_and_fills_the_records) {
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(exceptions(), IsEmpty());
  const std::vector<std::pair<std::string, value>> of_bundle = {
      {"ifh", "0x3000120"}, {"lagid", "0x5"}, {"glif", "0x12345"}, {"rif", "0x21"},
      {"mac", be12::mac},   {"mtu", "1514"},  {"delPending", 0}};
  for (const auto& [field, content] : of_bundle) EXPECT_EQ(bundle().get(field), content) << field;
  EXPECT_EQ(bundle().get("vlan_domain"),
            map_of({{be12::older, map_of({{"0", "0x8"}})}, {be12::j2, map_of({{"0", "0x8"}})}}));
  record& member = port_record(be12::older, be12::older_port);
  EXPECT_EQ(member.get("ifh"), "0x110");
  EXPECT_EQ(member.get("mtu"), "1514");
  EXPECT_EQ(member.get("memid"), "0x1");
  record& sub = sub_record(be12::l3_sub);
  const std::vector<std::pair<std::string, value>> of_sub_bundle = {{"ifh", "0x3000a60"},
                                                                    {"lagid", "0x6"},
                                                                    {"glif", "0x12346"},
                                                                    {"rif", "0x22"},
                                                                    {"delPending", 0}};
  for (const auto& [field, content] : of_sub_bundle) EXPECT_EQ(sub.get(field), content) << field;
}

TEST_F(pass_test, every_entry_that_was_compared_is_marked_on_every_node) {
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  const value PI = st().bdlInfoPI.get();
  const value PD = st().bdlInfoPD.get();
  const std::vector<value> compared = {
      look(PI, {"BE12"}),
      look(PI, {"BE12", "members", be12::older_port}),
      look(PI, {"BE12", "members", be12::j2_port}),
      look(PD, {"BE12"}),
      look(PD, {"BE12", "members", be12::older, be12::older_port}),
      look(PD, {"BE12", "members", be12::j2, be12::j2_port}),
      lagport(be12::older),
      lagport(be12::j2),
      lagport(be12::older, be12::l3_sub_ifh),
      lagport(be12::j2, be12::l2_sub_ifh),
      look(lagport(be12::older), {"members", "0", be12::older_mifh}),
      look(lagport(be12::j2), {"members", "0", be12::j2_mifh}),
      chip_lag(),
      look(st().BCM.get(), {be12::j2, "1", "tm_lag", "0x5"}),
  };
  for (const value& entry : compared) EXPECT_EQ(entry.at("Visited"), 1) << printed(entry);
}

TEST_F(pass_test, Visited_of_an_entry_that_no_check_reached_stays_the_integer_0) {
  put(st().DPA.get(), {be12::older, "lagport", "0x99"}, map_of({{"Visited", 0}}));
  put(look(st().BCM.get(), {be12::older, "0", "diag_lag"}), {"LAG 0x99"}, map_of({{"Visited", 0}}));
  put(st().bdlInfoPI.get(), {"BE99"}, map_of({{"Visited", 0}}));
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(lagport(be12::older, "0x99").at("Visited"), 0);
  EXPECT_EQ(look(st().BCM.get(), {be12::older, "0", "diag_lag", "LAG 0x99", "Visited"}), 0);
  EXPECT_EQ(look(st().bdlInfoPI.get(), {"BE99", "Visited"}), 0);
}

TEST_F(pass_test, the_title_is_padded_to_forty_and_waits_for_its_word) {
  EXPECT_EQ(run_pass().shown, "Bundle Consistency Check................");
  EXPECT_EQ(output_of([] { print("Done"); }), " Done\n");
}

TEST_F(pass_test,
       a_tesselDb_that_holds_only_hqos_prints_the_title_checks_the_scale_and_starts_no_thread) {
  st().tesselDb = ordered_map_of({{"hqos", 0}});
  EXPECT_EQ(st().tesselDb.as_map().size(), 1U) << "which means that no bundle was found";
  st().num_bundles = 257;
  st().nodeinfo.set(ERROR);  // makes every walk over the nodes fail
  const pass_run run = run_pass();
  EXPECT_EQ(run.result, SUCCESS);
  EXPECT_EQ(run.shown, "Bundle Consistency Check................");
  EXPECT_THAT(exceptions(), ElementsAre("INFO: Allowed main bundles: 256, configured more: 257"));
  EXPECT_EQ(st().pid_list.size(), 0U);
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

TEST_F(pass_test, a_bundle_missing_from_the_bundle_managers_view_is_skipped_for_all_nodes) {
  enter_second_bundle();
  drop(st().bdlInfoPI.get(), {"BE12"});
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: BM PI has no entry for BE12"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  for (const string_view nodename : {be12::older, be12::j2}) {
    EXPECT_FALSE(is_visited(lagport(nodename)));
    EXPECT_FALSE(is_visited(lagport(nodename, be12::l3_sub_ifh)));
    EXPECT_TRUE(is_visited(lagport(nodename, "0x3000130"))) << "the next bundle is examined";
  }
  EXPECT_EQ(st().pid_list.size(), 1U) << "of the second bundle";
}

TEST_F(pass_test, a_bundle_whose_sub_bundles_fail_in_PI_is_skipped_for_all_nodes) {
  st().bdlSubPI.set("0xnone BE12.100  up\n");
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("0xnone", "PI sub-bundle verification failed for BE12")));
  EXPECT_EQ(st().pid_list.size(), 0U);
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

// After this, every check of this node is a finding or a failure.
void break_all_layers_of_the_older_node() {
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
  drop(st().bdlInfoPD.get(), {"BE12", be12::older});
  drop(st().DPA.get(), {be12::older});
  drop(st().BCM.get(), {be12::older});
}

TEST_F(pass_test, a_node_with_dump_false_takes_part_in_no_level) {
  put(st().nodeinfo.get(), {be12::older, "dump"}, 0);
  const value before = lagport(be12::older);
  break_all_layers_of_the_older_node();
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_EQ(before.at("Visited"), 0);
  EXPECT_EQ(st().pid_list.size(), 1U);
  EXPECT_TRUE(is_visited(lagport(be12::j2))) << "the other node does";
}

TEST_F(pass_test,
       a_node_with_no_member_skips_PD_and_check_members_and_runs_check_sub_bundles_all_the_same) {
  drop(bundle().get("members"), {be12::older});
  drop(st().bdlInfoPD.get(), {"BE12", be12::older});
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_TRUE(is_visited(lagport(be12::older))) << "check_bundles without its first step";
  EXPECT_FALSE(is_visited(look(lagport(be12::older), {"members", "0", be12::older_mifh})));
  EXPECT_TRUE(is_visited(lagport(be12::older, be12::l3_sub_ifh)));
}

TEST_F(pass_test, a_node_with_asic_supported_false_skips_BCM_at_all_three_levels) {
  put(st().nodeinfo.get(), {be12::older, "asic_supported"}, 0);
  put(st().BCM.get(), {be12::older}, ERROR);  // makes every reader fail
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_TRUE(is_visited(lagport(be12::older))) << "the other steps run";
  EXPECT_TRUE(is_visited(look(lagport(be12::older), {"members", "0", be12::older_mifh})));
  EXPECT_TRUE(is_visited(lagport(be12::older, be12::l3_sub_ifh)));
}

TEST_F(pass_test, a_store_that_says_nothing_of_hqos_is_a_failure_of_each_sub_bundles_check) {
  st().tesselDb.as_map().erase("hqos");
  const bundle_view bundle(name);
  EXPECT_EQ(check_sub_bundles(be12::l3_sub, bundle, be12::older), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(testing::StartsWith("no key 'hqos': Sub-Bundle consistency")));
}

TEST_F(pass_test, with_hqos_at_0_check_sub_bundles_starts_and_returns_behind_its_error_string) {
  st().tesselDb.as_map().set("hqos", 0);
  // Only a record has a handle to name.
  bundle().get("sub_bundles").as_map().set("BE12.300", "no record");
  put(st().DPA.get(), {be12::older, "lagport", be12::l3_sub_ifh}, ERROR);
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:Data for sub-bundle BE12.300 not found in IM database"));
  EXPECT_THAT(exceptions(),
              UnorderedElementsAre(
                  failed_on("", "Sub-Bundle consistency check failed for BE12.300 BE12, 0/0/CPU0"),
                  failed_on("", "Sub-Bundle consistency check failed for BE12.300 BE12, 0/1/CPU0")))
      << "one worker a node";
  EXPECT_EQ(sub_record(be12::l3_sub).get("lagid"), DEFAULT) << "nothing was compared";
  EXPECT_FALSE(is_visited(lagport(be12::older, be12::l2_sub_ifh)));
}

TEST_F(pass_test, a_scale_result_of_ERROR_adds_one_to_exception_and_the_walk_runs_on) {
  st().router = notset;
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("", "Bundle scale check failed "),
                                        "INFO: bundle scale check failed"));
  EXPECT_EQ(counted(), (outcome{.exception = 2})) << "one of them the scale check's own";
  EXPECT_TRUE(is_visited(lagport(be12::older)));
}

TEST_F(pass_test, any_number_of_inconsistencies_leaves_the_result_SUCCESS) {
  break_all_layers_of_the_older_node();
  drop(st().bdlInfoPD.get(), {"BE12", be12::j2});
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::j2_port});
  const pass_run run = run_pass();
  st().pid_list.join_all();
  EXPECT_EQ(run.result, SUCCESS);
  EXPECT_EQ(run.shown, "Bundle Consistency Check................");
  EXPECT_EQ(st().inconsistent, 4) << "two agents, two members in the bundle manager";
  EXPECT_EQ(findings().size(), 4U);
  EXPECT_EQ(st().exception, 2) << "the sub-bundles of the node that DPA lacks";
}

TEST_F(pass_test, a_failure_of_the_walk_itself_ends_it_with_ERROR) {
  enter_second_bundle();
  st().nodeinfo.set(0);
  EXPECT_EQ(run_pass_to_the_end(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("", "Consistency check failed")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
  EXPECT_FALSE(is_visited(look(st().bdlInfoPI.get(), {"BE13"}))) << "no further bundle";
}

TEST_F(pass_test, a_failure_of_the_walk_is_logged_and_then_counted) {
  st().nodeinfo.set(0);
  EXPECT_TRUE(logs_before_counting([] { run_pass(); }));
}

TEST_F(pass_test, a_bundle_store_of_another_kind_ends_the_pass_with_ERROR) {
  st().tesselDb = ERROR;
  EXPECT_EQ(run_pass_to_the_end(), ERROR);
  EXPECT_EQ(exceptions().size(), 3U);
  EXPECT_THAT(last(exceptions()), failed_on("", "Consistency check failed"));
  EXPECT_EQ(counted(), (outcome{.exception = 3})) << "two of them for the scale";
}

TEST_F(pass_test, a_failure_in_one_worker_stops_that_one_only) {
  bundle().get("members").at(be12::older).as_map().set("0/0/0/9", "no record");
  put(st().bdlInfoPI.get(), {"BE12", "members", "0/0/0/9"}, map_of({{"mifh", "0x119"}}));
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("",
                                                  "BM PI verification failed for "
                                                  "0/0/0/9,BE12(0x3000120), 0/0/CPU0")));
  EXPECT_TRUE(is_visited(look(lagport(be12::older), {"members", "0", be12::older_mifh})));
  EXPECT_TRUE(is_visited(lagport(be12::older, be12::l3_sub_ifh)));
}

// --- waiting for workers

TEST_F(pass_test, the_pass_waits_for_no_worker_of_the_bundle_level) {
  enter_second_bundle();
  st().tesselDb.as_map().set("hqos", 0);
  drop(bundle().get("members"), {be12::older});
  bundle().set("lagid", "0x5");
  put(lagport(be12::older), {"lagid"}, "0x9");
  {
    // The worker with this finding cannot end before its line is written.
    const std::lock_guard no_line_yet(st().log_mutex);
    EXPECT_EQ(run_pass().result, SUCCESS);
    EXPECT_TRUE(reaches(st().inconsistent, 1));
    EXPECT_TRUE(is_visited(look(st().bdlInfoPI.get(), {"BE13"}))) << "the next bundle has begun";
    EXPECT_EQ(st().pid_list.size(), 2U) << "two bundles";
  }
  st().pid_list.join_all();
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12(0x3000120), 0/0/CPU0 Lag ID is not "
                                      "consistent in DPA_Bundles:0x5, Expected:0x9"))
      << "no line is lost";
}

// Guards against a healthy router being reported as faulty: the chip was asked for the members of
// LAG "Not set".
TEST_F(pass_test, a_member_that_is_faster_than_its_bundle_waits_for_the_LAG_id) {
  put(st().nodeinfo.get(), {be12::j2, "dump"}, 0);
  put(st().nodeinfo.get(), {be12::older, "act_standby"}, "Standby");  // so that DPA finds the id
  put(lagport(be12::older), {"weight"}, 65);
  const value member = look(lagport(be12::older), {"members", "0", be12::older_mifh});
  std::unique_lock no_line_yet(st().log_mutex);
  std::jthread pass([] { EXPECT_EQ(run_pass().result, SUCCESS); });
  EXPECT_TRUE(reaches(st().inconsistent, 1)) << "the bundle level tells of the weight, id unseen";
  EXPECT_TRUE(comes_true([&] { return is_visited(member); })) << "the member has the chip ahead";
  EXPECT_EQ(bundle().get("lagid"), DEFAULT);
  no_line_yet.unlock();
  pass.join();
  st().pid_list.join_all();
  EXPECT_EQ(bundle().get("lagid"), "0x5");
  EXPECT_THAT(findings(), ElementsAre(testing::HasSubstr("member scale limit exceeded")));
  EXPECT_THAT(exceptions(), IsEmpty());
}

// Without the wait, the report of the delayed delete depends on which of the two is faster.
TEST_F(pass_test, a_finding_of_a_member_waits_for_the_mark_of_delayed_delete) {
  enter_upper_layers();
  put(lagport(be12::older), {"members", "0", be12::older_mifh, "memid"}, "7");
  std::atomic<bool> found = false;
  st().bundle_workers["BE12"] = start_worker([&found] {
    while (!found) std::this_thread::yield();
    bundle().set("delPending", 1);
  });
  std::jthread member([] { EXPECT_EQ(check_members(older_port, "BE12", older), ERROR); });
  EXPECT_TRUE(reaches(st().inconsistent, 1));
  EXPECT_EQ(st().deletePending, 0);
  found = true;
  member.join();
  EXPECT_THAT(exceptions(), IsEmpty());
  EXPECT_EQ(st().deletePending, 1);
  EXPECT_THAT(messages(LOG_FILE_DELETE_PENDING),
              ElementsAre(testing::HasSubstr("is marked for delay delete")));
}

TEST_F(pass_test, wait_for_bundle_level_waits_for_the_workers_of_that_bundle) {
  bundle().set("lagid", "0x9");
  drop(bundle().get("members"), {be12::older});
  drop(bundle().get("members"), {be12::j2});
  {
    const std::lock_guard no_line_yet(st().log_mutex);
    st().tesselDb.as_map().set("hqos", 0);
    EXPECT_EQ(run_pass().result, SUCCESS);
    wait_for_bundle_level("BE1");
    EXPECT_THAT(findings(), IsEmpty()) << "no such bundle, nothing to wait for";
  }
  wait_for_bundle_level("BE12");
  EXPECT_EQ(findings().size(), 6U) << "a LAG id and two NPUs without that LAG on each node";
  EXPECT_EQ(st().exception, 0);
}

TEST_F(pass_test, the_member_level_has_ended_before_the_sub_bundle_level_starts) {
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
  std::atomic<bool> ended = false;
  std::unique_lock no_line_yet(st().log_mutex);
  std::jthread pass([&ended] {
    EXPECT_EQ(run_pass().result, SUCCESS);
    ended = true;
  });
  EXPECT_TRUE(reaches(st().inconsistent, 1));
  EXPECT_FALSE(is_visited(lagport(be12::older, be12::l3_sub_ifh)));
  EXPECT_FALSE(is_visited(lagport(be12::j2, be12::l3_sub_ifh)));
  EXPECT_FALSE(ended);
  no_line_yet.unlock();
  pass.join();
  st().pid_list.join_all();
  EXPECT_TRUE(is_visited(lagport(be12::older, be12::l3_sub_ifh)));
}

TEST_F(pass_test, the_sub_bundle_level_has_ended_before_the_next_bundle_starts) {
  enter_second_bundle();
  sub_record(be12::l3_sub).set("lagid", "0x9");
  put(st().nodeinfo.get(), {be12::j2, "dump"}, 0);
  std::atomic<bool> ended = false;
  std::unique_lock no_line_yet(st().log_mutex);
  std::jthread pass([&ended] {
    EXPECT_EQ(run_pass().result, SUCCESS);
    ended = true;
  });
  EXPECT_TRUE(reaches(st().inconsistent, 1));
  EXPECT_FALSE(is_visited(look(st().bdlInfoPI.get(), {"BE13"})));
  EXPECT_FALSE(ended);
  no_line_yet.unlock();
  pass.join();
  st().pid_list.join_all();
  EXPECT_TRUE(is_visited(look(st().bdlInfoPI.get(), {"BE13"})));
  EXPECT_EQ(findings().size(), 1U);
}

// Without turns, the expected value and the marks change from run to run.
TEST_F(pass_test, the_nodes_take_turns_at_a_bundle) {
  for (const std::string& nodename : {older, j2}) {
    put(st().nodeinfo.get(), {nodename, "act_standby"}, "Standby");  // so that DPA finds the id
  }
  put(lagport(be12::older), {"weight"}, 65);
  put(lagport(be12::j2), {"lagid"}, "0x9");
  std::unique_lock no_line_yet(st().log_mutex);
  std::jthread pass([] { EXPECT_EQ(run_pass().result, SUCCESS); });
  EXPECT_TRUE(reaches(st().inconsistent, 1)) << "the first node tells of the weight, id unseen";
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(bundle().get("lagid"), DEFAULT) << "the second node waits";
  no_line_yet.unlock();
  pass.join();
  st().pid_list.join_all();
  EXPECT_EQ(bundle().get("lagid"), "0x5");
  EXPECT_THAT(findings(), testing::Contains("Inconsistency 2:BE12(0x3000120), 0/1/CPU0 Lag ID is "
                                            "not consistent in DPA_Bundles:0x5, Expected:0x9"));
}

TEST_F(pass_test, the_nodes_take_turns_at_a_sub_bundle) {
  put(lagport(be12::j2, be12::l3_sub_ifh), {"lagid"}, "0x9");
  for (int run = 0; run < 100; ++run) {
    sub_record(be12::l3_sub).set("lagid", DEFAULT);
    EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
    ASSERT_EQ(sub_record(be12::l3_sub).get("lagid"), "0x6") << "in run " << run;
  }
  EXPECT_EQ(findings().size(), 100U);
}

// One worker takes several sub-bundles to each node. There are as many workers as cores, unless
// they would have hardly anything to do.
class many_sub_bundles_test : public pass_test, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(cores, many_sub_bundles_test, testing::Values(1, 2, 4, 16));

TEST_P(many_sub_bundles_test, the_nodes_take_turns_at_each) {
  const crew_width cores(GetParam());
  constexpr int subs = 41;
  st().num_sub_bundles_l2 = subs;
  std::string listing;
  for (int number = 0; number < subs; ++number) {
    const std::string sub = fmt::format("BE12.{}", 1000 + number);
    const std::string ifh = fmt::format("0x4000{:03x}", number);
    listing += fmt::format("{} {}  up\n", ifh, sub);
    bundle().get("sub_bundles").as_map().set(sub, new_record<subBundles>());
    for (const string_view nodename : {be12::older, be12::j2}) {
      put(st().DPA.get(), {nodename, "lagport", ifh},
          map_of({{"lagid", fmt::format("{}{:x}", nodename == be12::older ? "0xa" : "0xb", number)},
                  {"deletePending", 0},
                  {"Visited", 0}}));
      put(st().DPA.get(), {nodename, "l2intf", ifh}, map_of({{"lif", "0x00012348"}}));
    }
    for (const char* npu : {"0", "1"}) {
      put(st().BCM.get(), {be12::older, npu, "diag_lag", fmt::format("LAG 0xa{:x}", number)},
          make_map());
    }
  }
  st().bdlSubPI.set(std::string(st().bdlSubPI.get().as_text()) + listing);
  EXPECT_EQ(run_pass_to_the_end(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = subs}));
  for (int number = 0; number < subs; ++number) {
    const std::string sub = fmt::format("BE12.{}", 1000 + number);
    EXPECT_EQ(sub_record(sub).get("lagid"), fmt::format("0xa{:x}", number)) << "the first node";
    EXPECT_THAT(findings(), testing::Contains(testing::EndsWith(fmt::format(
                                ":{}(0x4000{:03x}),0/1/CPU0 Lag ID is not consistent in "
                                "DPA_Sub_Bundles:0xa{:x}, Expected:0xb{:x}",
                                sub, number, number, number))));
  }
}

// --- the three drivers

TEST_F(pass_test, a_layer_that_disagrees_keeps_the_layers_below_it_from_being_compared) {
  const value member = map_of({{"Visited", 0}});
  struct row {
    std::string why;
    std::function<void()> vary;
    std::function<int()> check;
    std::vector<std::function<value()>> not_reached;
  };
  const auto bundles = [] { return check_bundles(name, older); };
  const auto members = [] { return check_members(older_port, name, older); };
  const auto PD_member = [] {
    return look(st().bdlInfoPD.get(), {"BE12", "members", be12::older, be12::older_port});
  };
  const auto DPA_member = [] {
    return look(lagport(be12::older), {"members", "0", be12::older_mifh});
  };
  const auto DPA_bundle = [] { return lagport(be12::older); };
  const auto chip = [] { return look(st().BCM.get(), {be12::older, "0"}); };
  const std::vector<row> rows = {
      {"bundle, PD", [] { drop(st().bdlInfoPD.get(), {"BE12"}); }, bundles, {DPA_bundle, chip}},
      {"bundle, DPA", [] { bundle().set("rif", "0x99"); }, bundles, {chip}},
      {"member, PI",
       [] {
         drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
       },
       members,
       {PD_member, DPA_member}},
      {"member, PD",
       [] { port_record(be12::older, be12::older_port).set("memid", "0x9"); },
       members,
       {DPA_member}},
  };
  for (const row& each : rows) {
    enter_healthy_bundle();
    enter_upper_layers();
    st().inconsistent = 0;
    each.vary();
    EXPECT_EQ(each.check(), ERROR) << each.why;
    EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << each.why;
    for (const auto& entry : each.not_reached) EXPECT_FALSE(is_visited(entry())) << each.why;
  }
}

TEST_F(pass_test, a_member_or_sub_bundle_that_disagrees_in_DPA_is_not_compared_in_BCM) {
  enter_upper_layers();
  st().BCM.set(ERROR);  // makes every reader fail
  put(lagport(be12::older), {"members", "0", be12::older_mifh, "memid"}, "0x9");
  EXPECT_EQ(check_members(older_port, name, older), ERROR);
  sub_record(be12::l3_sub).set("lagid", "0x9");
  EXPECT_EQ(check_sub_bundles(l3_sub, name, older), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

TEST_F(pass_test, the_drivers_return_SUCCESS_when_all_layers_agree) {
  enter_upper_layers();
  EXPECT_EQ(check_bundles(name, older), SUCCESS);
  EXPECT_EQ(check_bundles(name, j2), SUCCESS);
  EXPECT_EQ(check_members(older_port, name, older), SUCCESS);
  EXPECT_EQ(check_sub_bundles(l3_sub, name, older), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pass_test, the_drivers_pass_on_what_BCM_returns) {
  enter_upper_layers();
  sub_record(be12::l3_sub).set("lagid", "0x6");
  st().BCM.set(make_ordered_map());
  EXPECT_EQ(check_bundles(name, older), ERROR);
  EXPECT_EQ(check_members(older_port, name, older), ERROR);
  EXPECT_EQ(check_sub_bundles(l3_sub, name, older), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1, .exception = 2}));
}

TEST_F(pass_test, the_names_of_the_objects_under_comparison) {
  enter_upper_layers();
  drop(st().bdlInfoPD.get(), {"BE12"});
  check_bundles(name, older);
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
  check_members(older_port, name, older);
  drop(st().DPA.get(), {be12::older, "lagport", be12::l3_sub_ifh});
  check_sub_bundles(l3_sub, name, older);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: BME has no entry for BE12(0x3000120), 0/0/CPU0",
                          "Inconsistency 2: BM PI Member has no entry for "
                          "0/0/0/1,BE12(0x3000120), 0/0/CPU0",
                          "Inconsistency 3: DPA has no entry for BE12.100(0x3000a60),0/0/CPU0"));
}

TEST_F(pass_test, the_name_of_an_object_whose_handle_is_not_set) {
  put(st().DPA.get(), {be12::older}, ERROR);
  EXPECT_EQ(check_sub_bundles(l3_sub, name, older), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("",
                                                  "DPA Sub-Bundle verification failed for "
                                                  "BE12.100(Not set),0/0/CPU0")));
}

TEST_F(pass_test, a_failure_of_a_driver_is_logged_and_counted_once) {
  drop(st().nodeinfo.get(), {be12::older, "asic_supported"});
  enter_upper_layers();
  EXPECT_EQ(check_bundles(name, older), ERROR);
  EXPECT_EQ(check_members(older_port, name, older), ERROR);
  EXPECT_EQ(check_sub_bundles(l3_sub, name, older), ERROR);
  const char* key = "'asic_supported'";
  EXPECT_THAT(
      exceptions(),
      ElementsAre(
          failed_on(key, "Bundle consistency check failed for BE12, 0/0/CPU0"),
          failed_on(key, "Member consistency check failed for 0/0/0/1 BE12, 0/0/CPU0"),
          failed_on(key, "Sub-Bundle consistency check failed for BE12.100 BE12, 0/0/CPU0")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 3}));
}

TEST_F(pass_test, a_bundle_without_a_record_is_a_failure_of_each_driver) {
  EXPECT_EQ(check_bundles("BE99", older), ERROR);
  EXPECT_EQ(check_members(older_port, "BE99", older), ERROR);
  EXPECT_EQ(check_sub_bundles("BE99.1", "BE99", older), ERROR);
  EXPECT_THAT(
      exceptions(),
      ElementsAre(
          failed_on("'BE99'", "Bundle consistency check failed for BE99, 0/0/CPU0"),
          failed_on("'BE99'", "Member consistency check failed for 0/0/0/1 BE99, 0/0/CPU0"),
          failed_on("'BE99'", "Sub-Bundle consistency check failed for BE99.1 BE99, 0/0/CPU0")));
}

TEST_F(pass_test, the_drivers_log_a_failure_and_then_count_it) {
  const std::string unknown = page_long_name();
  const std::vector<std::function<void()>> bodies = {
      [&] { check_bundles(unknown, older); },
      [&] { check_members(older_port, unknown, older); },
      [&] { check_sub_bundles(l3_sub, unknown, older); },
  };
  std::int64_t failures = 0;
  for (const auto& body : bodies) {
    EXPECT_EQ(count_while_logging("exception", st().exception, body), failures);
    EXPECT_EQ(st().exception, ++failures);
  }
}

}  // namespace
}  // namespace tessel
