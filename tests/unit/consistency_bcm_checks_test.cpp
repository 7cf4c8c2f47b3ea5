#include "consistency/bcm_checks.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "checks/both_passes.h"
#include "support/bundle_world.h"

namespace tessel {
namespace {

using std::string_view;
using testing::ElementsAre;
using testing::IsEmpty;

// The upper layers have set the record; the tests vary the chips' tables.
void enter_all_layers() {
  enter_healthy_bundle();
  enter_upper_layers();
  sub_record(be12::l3_sub).set("lagid", "0x6");
  sub_record(be12::l2_sub).set("lagid", "0x7");
}

class bcm_checks_test : public bundle_test {
 protected:
  void SetUp() override {
    bundle_test::SetUp();
    enter_all_layers();
  }
};

record& bundle() {
  return bundle_record(be12::name);
}
value tables(string_view nodename, string_view npu) {
  return look(st().BCM.get(), {nodename, npu});
}

int bundles_on(string_view nodename) {
  return check_bundles_BCM("BE12", nodename, "BE12");
}
int older_member() {
  return check_members_BCM(be12::older_port, "BE12", be12::older, "P");
}
int j2_member() {
  return check_members_BCM(be12::j2_port, "BE12", be12::j2, "P");
}
int sub_on(string_view nodename) {
  return check_sub_bundles_BCM(be12::l3_sub, "BE12", nodename, "unused");
}

// --- check_bundles_BCM

TEST_F(bcm_checks_test, check_bundles_BCM_of_a_healthy_bundle_marks_the_LAG_and_the_NPU) {
  const std::vector<std::pair<string_view, std::vector<string_view>>> lags = {
      {be12::older, {"diag_lag", "LAG 0x5"}}, {be12::j2, {"tm_lag", "0x5"}}};
  for (const auto& [nodename, lag] : lags) {
    EXPECT_EQ(bundles_on(nodename), SUCCESS) << nodename;
    for (const char* npu : {"0", "1"}) {
      EXPECT_EQ(look(tables(nodename, npu), {lag[0], lag[1], "Visited"}), 1) << nodename << npu;
      EXPECT_EQ(look(tables(nodename, npu), {"Visited"}), 1) << nodename << npu;
    }
  }
  EXPECT_FALSE(look(tables(be12::older, "0"), {"diag_lag", "LAG 0x6"}).contains("Visited"));
  EXPECT_EQ(counted(), outcome());
}

TEST_F(bcm_checks_test,
       a_node_with_two_NPUs_where_the_LAG_lacks_on_the_second_gives_one_line_and_SUCCESS) {
  drop(tables(be12::older, "1"), {"diag_lag", "LAG 0x5"});
  EXPECT_EQ(check_bundles_BCM("BE12", be12::older, be12::bundle_text), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: LAG 0x5 not found in BCM for "
                                      "NPU1,NPU0,BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_EQ(look(tables(be12::older, "0"), {"diag_lag", "LAG 0x5", "Visited"}), 1);
}

TEST_F(bcm_checks_test, on_Jericho2_the_plain_LAG_id_is_looked_for) {
  drop(tables(be12::j2, "0"), {"tm_lag", "0x5"});
  EXPECT_EQ(check_bundles_BCM("BE12", be12::j2, "BE12(0x3000120), 0/1/CPU0"), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: 0x5 not found in BCM for "
                                      "NPU0,BE12(0x3000120), 0/1/CPU0"));
  EXPECT_EQ(look(tables(be12::j2, "1"), {"tm_lag", "0x5", "Visited"}), 1) << "the walk goes on";
}

TEST_F(bcm_checks_test, a_LAG_that_is_missing_is_reported_per_NPU) {
  for (const char* npu : {"0", "1"}) drop(tables(be12::older, npu), {"diag_lag", "LAG 0x5"});
  EXPECT_EQ(bundles_on(be12::older), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: LAG 0x5 not found in BCM for NPU0,BE12",
                          "Inconsistency 2: LAG 0x5 not found in BCM for NPU1,NPU0,BE12"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

TEST_F(bcm_checks_test, a_missing_LAG_of_an_object_marked_for_delete_is_noted) {
  bundle().set("delPending", 1);
  drop(tables(be12::older, "1"), {"diag_lag", "LAG 0x5"});
  drop(tables(be12::j2, "1"), {"tm_lag", "0x5"});
  EXPECT_EQ(bundles_on(be12::older), SUCCESS);
  EXPECT_EQ(bundles_on(be12::j2), SUCCESS);
  const char* note = "INFO: Inconsistent object NPU1,NPU0,BE12 is marked for delay delete";
  EXPECT_THAT(delete_notes(), ElementsAre(note, note));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2, .deletePending = 2}));
}

TEST_F(bcm_checks_test,
       an_empty_diag_lag_on_one_NPU_is_silent_for_bundles_and_members_but_not_for_sub_bundles) {
  put(tables(be12::older, "0"), {"diag_lag"}, make_map());
  EXPECT_EQ(bundles_on(be12::older), SUCCESS);
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_EQ(sub_on(be12::older), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: LAG 0x6 not found in BCM for "
                                      "BE12.100(0x3000a60), NPU 0, 0/0/CPU0,NPU: 0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(bcm_checks_test, an_empty_tm_lag_is_compared_at_the_bundle_and_passed_over_at_the_member) {
  put(tables(be12::j2, "0"), {"tm_lag"}, make_map());
  EXPECT_EQ(bundles_on(be12::j2), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: 0x5 not found in BCM for NPU0,BE12"));
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(bcm_checks_test, lagid_at_Not_set_is_looked_for_as_that_text_and_reported_as_missing) {
  bundle().set("lagid", DEFAULT);
  EXPECT_EQ(bundles_on(be12::older), SUCCESS);
  EXPECT_EQ(bundles_on(be12::j2), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: LAG Not set not found in BCM for NPU0,BE12",
                          "Inconsistency 2: LAG Not set not found in BCM for NPU1,NPU0,BE12",
                          "Inconsistency 3: Not set not found in BCM for NPU0,BE12",
                          "Inconsistency 4: Not set not found in BCM for NPU1,NPU0,BE12"));
}

TEST_F(bcm_checks_test, a_node_that_BCM_lacks_is_reported) {
  drop(st().BCM.get(), {be12::older});
  EXPECT_EQ(bundles_on(be12::older), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: BCM has no Bundle entry in location 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(bcm_checks_test, an_NPU_that_BCM_lacks_is_reported_and_ends_the_check) {
  put(st().nodeinfo.get(), {be12::older, "npu_list"}, list_of({"0", "7", "1"}));
  bundle().set("delPending", 1);
  EXPECT_EQ(bundles_on(be12::older), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: BCM has no entry for NPU7,NPU0,BE12"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << "and is not put down to delayed delete";
  EXPECT_FALSE(tables(be12::older, "1").contains("Visited")) << "the NPU behind it is not reached";
}

TEST_F(bcm_checks_test, a_node_without_NPUs_has_nothing_to_compare) {
  for (const string_view nodename : {be12::older, be12::j2}) {
    put(st().nodeinfo.get(), {nodename, "npu_list"}, list_of({}));
    put(st().BCM.get(), {nodename}, make_ordered_map());
    EXPECT_EQ(bundles_on(nodename), SUCCESS);
    EXPECT_EQ(sub_on(nodename), SUCCESS);
  }
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

// --- check_members_BCM, older chips

TEST_F(bcm_checks_test, check_members_BCM_of_healthy_members_says_nothing_and_marks_nothing) {
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_EQ(look(tables(be12::older, "0"), {"diag_lag", "LAG 0x5", "Visited"}), 0);
  EXPECT_EQ(look(tables(be12::j2, "0"), {"tm_lag", "0x5", "Visited"}), 0);
}

TEST_F(bcm_checks_test,
       a_member_on_NPU_0_of_a_two_NPU_node_is_looked_for_on_both_its_MTU_compared_on_NPU_0_only) {
  for (const char* npu : {"0", "1"}) {
    drop(tables(be12::older, npu), {"diag_lag", "LAG 0x5", "0x1"});
    put(tables(be12::older, npu), {"member_mtu", "0", "13"}, "9000");
  }
  EXPECT_EQ(check_members_BCM(be12::older_port, "BE12", be12::older, be12::member_text), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: Member ID not found in BCM for 0/0/0/1, "
                                      "NPU0,0/0/0/1,BE12(0x3000120), 0/0/CPU0 ,NPU: 0",
                                      "Inconsistency 2: MTU verification failed for 0/0/0/1, "
                                      "NPU0,0/0/0/1,BE12(0x3000120), 0/0/CPU0 ,NPU: 0",
                                      "Inconsistency 3: Member ID not found in BCM for 0/0/0/1, "
                                      "NPU1,NPU0,0/0/0/1,BE12(0x3000120), 0/0/CPU0 ,NPU: 1"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 3}));
}

TEST_F(bcm_checks_test, findings_about_a_member_of_a_bundle_marked_for_delete_are_noted) {
  bundle().set("delPending", 1);
  drop(tables(be12::older, "0"), {"diag_lag", "LAG 0x5", "0x1"});
  put(tables(be12::older, "0"), {"member_mtu", "0", "13"}, "9000");
  put(tables(be12::j2, "1"), {"tm_lag", "0x5", "members"}, list_of({}));
  put(tables(be12::j2, "0"), {"mtu_profile", "1", "3"}, "9000");
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(j2_member(), SUCCESS);
  const char* first = "INFO: Inconsistent object NPU0,P is marked for delay delete";
  EXPECT_THAT(delete_notes(),
              ElementsAre(first, first, first,
                          "INFO: Inconsistent object NPU1,NPU0,P is marked for delay delete"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 4, .deletePending = 4}));
}

TEST_F(bcm_checks_test, an_NPU_without_an_MTU_table_is_not_compared) {
  put(tables(be12::older, "0"), {"member_mtu"}, make_map());
  put(tables(be12::j2, "0"), {"lag_mtu"}, make_map());
  drop(st().voq_usage.get(), {be12::older_port});
  drop(st().voq_usage.get(), {be12::j2_port});
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(bcm_checks_test, the_MTU_is_the_interface_managers_against_the_chips_as_texts) {
  port_record(be12::older, be12::older_port).set("mtu", "9000");
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: MTU verification failed for 0/0/0/1, NPU0,P ,NPU: 0"));
  put(tables(be12::older, "0"), {"member_mtu", "0", "13"}, 9000);
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2})) << "a number is not a text";
}

TEST_F(bcm_checks_test, the_ports_place_is_what_the_forwarding_object_said) {
  port_record(be12::older, be12::older_port).set("pp_port", "99");
  port_record(be12::older, be12::older_port).set("npu_core", "1");
  port_record(be12::j2, be12::j2_port).set("npu_core", "0");
  EXPECT_EQ(older_member(), SUCCESS) << "the bundle's own copy is not asked for it";
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

void set_voq_port(string_view pp_port, string_view npu_core) {
  record& port = st().voq_usage.get().at(be12::older_port).as_record();
  port.set("pp_port", pp_port);
  port.set("npu_core", npu_core);
}

TEST_F(bcm_checks_test,
       on_aspen_with_pp_port_300_on_core_1_member_mtu_is_read_at_port_44_of_core_1) {
  st().router = aspen;
  set_voq_port("300", "1");
  put(tables(be12::older, "0"), {"member_mtu"}, map_of({{"1", map_of({{"44", "1514"}})}}));
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  put(tables(be12::older, "0"), {"member_mtu", "1", "44"}, "9000");
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(bcm_checks_test, on_aspen_port_and_core_may_be_hexadecimal) {
  st().router = aspen;
  set_voq_port("0x12c", "0x1");
  put(tables(be12::older, "0"), {"member_mtu"}, map_of({{"0x1", map_of({{"44", "1514"}})}}));
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(bcm_checks_test, on_aspen_a_port_of_core_0_stays) {
  st().router = aspen;
  EXPECT_EQ(older_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(bcm_checks_test, on_other_routers_the_port_stays_as_it_is_on_every_core) {
  for (const int type : {birch, cedar, cedarl, dogwood, elm, fir, gorse}) {
    enter_all_layers();
    st().router = type;
    set_voq_port("300", "1");
    put(tables(be12::older, "0"), {"member_mtu"}, map_of({{"1", map_of({{"300", "1514"}})}}));
    EXPECT_EQ(older_member(), SUCCESS) << type;
  }
  EXPECT_EQ(counted(), outcome());
}

// --- check_members_BCM, Jericho2

TEST_F(bcm_checks_test, on_Jericho2_a_member_is_found_by_the_end_of_a_global_port) {
  struct row {
    std::string why;
    std::string sysport;
    value members;
    bool found;
  };
  const std::vector<row> rows = {
      {"among others", "0x000000a1", list_of({"0x80041", "0x800a1"}), true},
      {"the whole text", "0xa1", list_of({"a1"}), true},
      {"the first of two", "0xa1", list_of({"0x80ba1", "0x1"}), true},
      {"only leading zeros go", "0x00a10", list_of({"0x800a1"}), false},
      {"and come again in the port", "0x0a10", list_of({"0x80a10"}), true},
      {"another case", "0x000000A1", list_of({"0x800a1"}), false},
      {"in the middle", "0xa1", list_of({"0x80a10"}), false},
      {"longer than the port", "0x1800a1", list_of({"800a1"}), false},
      {"no member", "0xa1", list_of({}), false},
  };
  for (const row& each : rows) {
    enter_all_layers();
    st().inconsistent = 0;
    put(st().bdlInfoPD.get(), {"BE12", "members", be12::j2, be12::j2_port, "sysport"},
        each.sysport);
    put(tables(be12::j2, "1"), {"tm_lag", "0x5", "members"}, each.members);
    put(tables(be12::j2, "0"), {"tm_lag"}, make_map());
    EXPECT_EQ(j2_member(), SUCCESS) << each.why;
    EXPECT_EQ(counted(), (outcome{.inconsistent = each.found ? 0 : 1})) << each.why;
  }
}

TEST_F(bcm_checks_test, a_system_port_of_zeros_is_found_nowhere_and_reported) {
  for (const char* sysport : {"0x00000000", "0", ""}) {
    enter_all_layers();
    st().inconsistent = 0;
    put(st().bdlInfoPD.get(), {"BE12", "members", be12::j2, be12::j2_port, "sysport"}, sysport);
    EXPECT_EQ(j2_member(), SUCCESS) << sysport;
    EXPECT_EQ(counted(), (outcome{.inconsistent = 2})) << sysport;
  }
  EXPECT_EQ(first(findings()),
            "Inconsistency 1: Member ID not found in BCM for 0/1/0/2, NPU0,P ,NPU: 0");
}

TEST_F(bcm_checks_test, on_Jericho2_member_presence_is_tested_on_every_NPU_the_MTU_on_its_own) {
  for (const char* npu : {"0", "1"}) {
    put(tables(be12::j2, npu), {"tm_lag", "0x5", "members"}, list_of({"0x80041"}));
    put(tables(be12::j2, npu), {"mtu_profile", "1", "3"}, "9000");
  }
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1: Member ID not found in BCM for 0/1/0/2, NPU0,P ,NPU: 0",
                  "Inconsistency 2: MTU verification failed for 0/1/0/2, NPU0,P ,NPU: 0",
                  "Inconsistency 3: Member ID not found in BCM for 0/1/0/2, NPU1,NPU0,P ,NPU: 1"));
}

TEST_F(bcm_checks_test, on_Jericho2_the_MTU_goes_through_bundle_port_and_profile) {
  bundle().set("lagid", "0x10");
  for (const char* npu : {"0", "1"}) put(tables(be12::j2, npu), {"tm_lag"}, make_map());
  put(tables(be12::j2, "0"), {"bdl_pp_port"}, map_of({{"16", map_of({{"1", "17"}})}}));
  put(tables(be12::j2, "0"), {"lag_mtu"}, map_of({{"1", map_of({{"17", "2"}})}}));
  put(tables(be12::j2, "0"), {"mtu_profile"}, map_of({{"1", map_of({{"2", "0x5ea"}})}}));
  EXPECT_EQ(j2_member(), SUCCESS) << "0x5ea is 1514, the LAG id 0x10 is 16 in the table of ports";
  EXPECT_EQ(counted(), outcome());
  put(tables(be12::j2, "0"), {"mtu_profile", "1", "2"}, "1515");
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: MTU verification failed for 0/1/0/2, NPU0,P ,NPU: 0"));
}

TEST_F(bcm_checks_test,
       a_Jericho2_node_of_type_aspen_fails_at_the_MTU_of_the_members_own_NPU_and_not_before) {
  st().router = aspen;
  port_record(be12::j2, be12::j2_port).set("npu_id", "1");
  put(tables(be12::j2, "0"), {"tm_lag", "0x5", "members"}, list_of({}));
  put(tables(be12::j2, "1"), {"mtu_profile", "1", "3"}, "9000");
  EXPECT_EQ(j2_member(), ERROR);
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1: Member ID not found in BCM for 0/1/0/2, NPU0,P ,NPU: 0"))
      << "the other NPU was compared, the MTU was not";
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("", "BCM member verification failed for NPU1,NPU0,P")));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1, .exception = 1}));
}

TEST_F(bcm_checks_test, a_Jericho2_node_of_type_aspen_whose_own_NPU_has_no_MTU_table_is_fine) {
  st().router = aspen;
  put(tables(be12::j2, "0"), {"lag_mtu"}, make_map());
  EXPECT_EQ(j2_member(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

// --- check_sub_bundles_BCM

TEST_F(bcm_checks_test, check_sub_bundles_BCM_of_healthy_sub_bundles_says_and_marks_nothing) {
  EXPECT_EQ(sub_on(be12::older), SUCCESS);
  EXPECT_EQ(sub_on(be12::j2), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_FALSE(look(tables(be12::older, "0"), {"diag_lag", "LAG 0x6"}).contains("Visited"));
  EXPECT_FALSE(look(tables(be12::j2, "0"), {"tm_lag", "0x6"}).contains("Visited"));
}

TEST_F(bcm_checks_test, on_the_older_chips_the_first_missing_LAG_of_a_sub_bundle_ends_the_check) {
  for (const char* npu : {"0", "1"}) drop(tables(be12::older, npu), {"diag_lag", "LAG 0x6"});
  sub_record(be12::l3_sub).set("delPending", 1);
  EXPECT_EQ(sub_on(be12::older), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: LAG 0x6 not found in BCM for "
                                      "BE12.100(0x3000a60), NPU 0, 0/0/CPU0,NPU: 0"));
  EXPECT_THAT(delete_notes(), ElementsAre("INFO: Inconsistent object BE12.100(0x3000a60), NPU 0, "
                                          "0/0/CPU0 is marked for delay delete"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1, .deletePending = 1}));
}

TEST_F(bcm_checks_test,
       on_Jericho2_each_missing_LAG_of_a_sub_bundle_is_reported_and_the_walk_goes_on) {
  for (const char* npu : {"0", "1"}) drop(tables(be12::j2, npu), {"tm_lag", "0x6"});
  sub_record(be12::l3_sub).set("delPending", 1);
  EXPECT_EQ(sub_on(be12::j2), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: 0x6 not found in BCM for BE12.100(0x3000a60), NPU 0, "
                          "0/1/CPU0",
                          "Inconsistency 2: 0x6 not found in BCM for BE12.100(0x3000a60), NPU 1, "
                          "0/1/CPU0"))
      << "the name is formed afresh on each NPU";
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2, .deletePending = 2}));
}

TEST_F(bcm_checks_test, delayed_delete_of_the_bundle_is_not_that_of_its_sub_bundle) {
  bundle().set("delPending", 1);
  drop(tables(be12::older, "0"), {"diag_lag", "LAG 0x6"});
  EXPECT_EQ(sub_on(be12::older), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(bcm_checks_test, a_sub_bundle_without_a_LAG_id_is_reported_as_missing) {
  sub_record(be12::l3_sub).set("lagid", DEFAULT);
  sub_record(be12::l3_sub).set("ifh", DEFAULT);
  EXPECT_EQ(sub_on(be12::older), ERROR);
  EXPECT_EQ(sub_on(be12::j2), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: LAG Not set not found in BCM for BE12.100(Not set), "
                          "NPU 0, 0/0/CPU0,NPU: 0",
                          "Inconsistency 2: Not set not found in BCM for BE12.100(Not set), NPU 0, "
                          "0/1/CPU0",
                          "Inconsistency 3: Not set not found in BCM for BE12.100(Not set), NPU 1, "
                          "0/1/CPU0"));
}

// --- the summary of findings

struct finding_row {
  std::string why;
  std::function<void()> vary;
  std::function<int()> check;
  std::string told;
  int result;
};

void expect_findings(const std::vector<finding_row>& rows) {
  for (const finding_row& each : rows) {
    enter_all_layers();
    st().inconsistent = 0;
    each.vary();
    EXPECT_EQ(each.check(), each.result) << each.why;
    EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << each.why;
    EXPECT_EQ(last(findings()), "Inconsistency 1: " + each.told) << each.why;
  }
}

TEST_F(bcm_checks_test, the_findings_of_bundles_and_sub_bundles) {
  const auto on_older = [] { return bundles_on(be12::older); };
  const auto on_j2 = [] { return bundles_on(be12::j2); };
  const std::vector<finding_row> rows = {
      {"bundles, older: NPU not in BCM",
       [] {
         drop(st().BCM.get(), {be12::older, "0"});
       },
       on_older, "BCM has no entry for NPU0,BE12", ERROR},
      {"bundles, Jericho2: NPU not in BCM",
       [] {
         drop(st().BCM.get(), {be12::j2, "0"});
       },
       on_j2, "BCM has no entry for NPU0,BE12", ERROR},
      {"bundles, older: LAG missing",
       [] {
         drop(tables(be12::older, "0"), {"diag_lag", "LAG 0x5"});
       },
       on_older, "LAG 0x5 not found in BCM for NPU0,BE12", SUCCESS},
      {"bundles, Jericho2: LAG missing",
       [] {
         drop(tables(be12::j2, "0"), {"tm_lag", "0x5"});
       },
       on_j2, "0x5 not found in BCM for NPU0,BE12", SUCCESS},
      {"sub-bundles, older: LAG missing",
       [] {
         drop(tables(be12::older, "1"), {"diag_lag", "LAG 0x6"});
       },
       [] { return sub_on(be12::older); },
       "LAG 0x6 not found in BCM for BE12.100(0x3000a60), NPU 1, 0/0/CPU0,NPU: 1", ERROR},
      {"sub-bundles, Jericho2: LAG missing",
       [] {
         drop(tables(be12::j2, "1"), {"tm_lag", "0x6"});
       },
       [] { return sub_on(be12::j2); },
       "0x6 not found in BCM for BE12.100(0x3000a60), NPU 1, 0/1/CPU0", SUCCESS},
  };
  expect_findings(rows);
}

TEST_F(bcm_checks_test, the_findings_of_members) {
  const std::vector<finding_row> rows = {
      {"members, older: member missing",
       [] {
         drop(tables(be12::older, "0"), {"diag_lag", "LAG 0x5", "0x1"});
       },
       older_member, "Member ID not found in BCM for 0/0/0/1, NPU0,P ,NPU: 0", SUCCESS},
      {"members, Jericho2: member missing",
       [] {
         put(tables(be12::j2, "0"), {"tm_lag", "0x5", "members"}, list_of({"0x80041"}));
       },
       j2_member, "Member ID not found in BCM for 0/1/0/2, NPU0,P ,NPU: 0", SUCCESS},
      {"members, older: MTU",
       [] {
         put(tables(be12::older, "0"), {"member_mtu", "0", "13"}, "1");
       },
       older_member, "MTU verification failed for 0/0/0/1, NPU0,P ,NPU: 0", SUCCESS},
      {"members, Jericho2: MTU",
       [] {
         put(tables(be12::j2, "0"), {"mtu_profile", "1", "3"}, "1");
       },
       j2_member, "MTU verification failed for 0/1/0/2, NPU0,P ,NPU: 0", SUCCESS},
  };
  expect_findings(rows);
}

// --- failures

struct failing_row {
  std::string why;
  std::function<void()> vary;
  std::function<int()> check;
  std::string named;
  std::string message;
};

void expect_failure(const failing_row& each) {
  st().exception = 0;
  each.vary();
  EXPECT_EQ(each.check(), ERROR) << each.why;
  EXPECT_EQ(counted(), (outcome{.exception = 1})) << each.why;
  EXPECT_THAT(last(exceptions()), failed_on(each.named, each.message)) << each.why;
}

void expect_failures(const std::vector<failing_row>& rows) {
  for (const failing_row& each : rows) {
    enter_all_layers();
    expect_failure(each);
  }
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_TRUE(all_have_tracebacks());
}

TEST_F(bcm_checks_test, a_table_that_is_ERROR_or_a_text_is_a_failure_counted_once) {
  const auto on_older = [] { return bundles_on(be12::older); };
  const auto on_j2 = [] { return bundles_on(be12::j2); };
  const auto sub_on_older = [] { return sub_on(be12::older); };
  const auto sub_on_j2 = [] { return sub_on(be12::j2); };
  const std::string lag = "BCM lag verification failed for NPU0,BE12";
  const std::string member = "BCM member verification failed for NPU0,P";
  const std::vector<value> slots = {ERROR, "LAG 0x5 0x6 0x1 0 13", ""};
  for (const value& slot : slots) {
    const auto replace = [&slot](string_view nodename, string_view table) {
      return [&slot, nodename, table] { put(tables(nodename, "0"), {table}, slot); };
    };
    const std::vector<failing_row> rows = {
        {"the store", [&] { st().BCM.set(slot); }, on_older, "",
         "is_node_present check failed for 0/0/CPU0 in BCM"},
        {"the node", [&] { put(st().BCM.get(), {be12::older}, slot); }, on_older, "",
         "is_entry_present verification failed for NPU0,BE12 in BCM"},
        {"the NPU",
         [&] {
           put(st().BCM.get(), {be12::older, "0"}, slot);
         },
         on_older, "", "is_entry_present verification failed for NPU0,BE12 in BCM"},
        {"diag_lag", replace(be12::older, "diag_lag"), on_older, "", lag},
        {"tm_lag", replace(be12::j2, "tm_lag"), on_j2, "", lag},
        {"diag_lag", replace(be12::older, "diag_lag"), older_member, "", member},
        {"tm_lag", replace(be12::j2, "tm_lag"), j2_member, "", member},
        {"member_mtu", replace(be12::older, "member_mtu"), older_member, "", member},
        {"lag_mtu", replace(be12::j2, "lag_mtu"), j2_member, "", member},
        {"bdl_pp_port", replace(be12::j2, "bdl_pp_port"), j2_member, "", member},
        {"mtu_profile", replace(be12::j2, "mtu_profile"), j2_member, "", member},
        {"one LAG",
         [&] {
           put(tables(be12::older, "0"), {"diag_lag", "LAG 0x5"}, slot);
         },
         older_member, "", member},
        {"members of a LAG",
         [&] {
           put(tables(be12::j2, "0"), {"tm_lag", "0x5", "members"}, slot);
         },
         j2_member, "", member},
        {"diag_lag", replace(be12::older, "diag_lag"), sub_on_older, "",
         "BCM verification failed for BE12.100(0x3000a60), NPU 0, 0/0/CPU0"},
        {"tm_lag", replace(be12::j2, "tm_lag"), sub_on_j2, "",
         "BCM verification failed for BE12.100(0x3000a60), NPU 0, 0/1/CPU0"},
    };
    expect_failures(rows);
  }
}

const std::string member_failure = "BCM member verification failed for NPU0,P";
const std::string second_npu_failure = "BCM member verification failed for NPU1,NPU0,P";

TEST_F(bcm_checks_test, what_a_member_lacks_without_a_presence_test_is_a_failure) {
  const std::vector<failing_row> rows = {
      {"the LAG, which the bundle level reports, older",
       [] {
         drop(tables(be12::older, "1"), {"diag_lag", "LAG 0x5"});
       },
       older_member, "'LAG 0x5'", second_npu_failure},
      {"the LAG, which the bundle level reports, Jericho2",
       [] {
         drop(tables(be12::j2, "1"), {"tm_lag", "0x5"});
       },
       j2_member, "'0x5'", second_npu_failure},
      {"LAG id not set", [] { bundle().set("lagid", DEFAULT); }, older_member, "'LAG Not set'",
       member_failure},
      {"LAG id not set, Jericho2", [] { bundle().set("lagid", DEFAULT); }, j2_member, "'Not set'",
       member_failure},
      {"core in the MTU table",
       [] {
         drop(tables(be12::older, "0"), {"member_mtu", "0"});
         put(tables(be12::older, "0"), {"member_mtu", "9"}, make_map());
       },
       older_member, "'0'", member_failure},
      {"port in the MTU table",
       [] {
         drop(tables(be12::older, "0"), {"member_mtu", "0", "13"});
       },
       older_member, "'13'", member_failure},
      {"member in voq_usage", [] { drop(st().voq_usage.get(), {be12::older_port}); }, older_member,
       "'0/0/0/1'", member_failure},
      {"member in voq_usage, Jericho2", [] { drop(st().voq_usage.get(), {be12::j2_port}); },
       j2_member, "'0/1/0/2'", member_failure},
      {"member in the agents' view, even where no LAG is shown",
       [] {
         put(tables(be12::j2, "0"), {"tm_lag"}, make_map());
         drop(st().bdlInfoPD.get(), {"BE12", "members", be12::j2});
       },
       j2_member, "'0/1/CPU0'", member_failure},
      {"a table of the NPU", [] { drop(tables(be12::older, "0"), {"diag_lag"}); }, older_member,
       "'diag_lag'", member_failure},
      {"the NPU at all",
       [] {
         drop(st().BCM.get(), {be12::j2, "1"});
       },
       j2_member, "'1'", second_npu_failure},
      {"the node's NPUs",
       [] {
         drop(st().nodeinfo.get(), {be12::older, "npu_list"});
       },
       older_member, "'npu_list'", "BCM member verification failed for P"},
      {"a port that is not a number, where ports are adjusted",
       [] {
         st().router = aspen;
         set_voq_port("Not set", "0");
       },
       older_member, "Not set", member_failure},
  };
  expect_failures(rows);
}

TEST_F(bcm_checks_test, what_a_member_lacks_in_a_Jericho2_without_a_presence_test_is_a_failure) {
  const std::vector<failing_row> rows = {
      {"LAG among the bundle ports",
       [] {
         drop(tables(be12::j2, "0"), {"bdl_pp_port", "5"});
       },
       j2_member, "'5'", member_failure},
      {"core among the bundle ports",
       [] {
         drop(tables(be12::j2, "0"), {"bdl_pp_port", "5", "1"});
       },
       j2_member, "'1'", member_failure},
      {"bundle port",
       [] {
         drop(tables(be12::j2, "0"), {"lag_mtu", "1", "200"});
       },
       j2_member, "'200'", member_failure},
      {"profile",
       [] {
         drop(tables(be12::j2, "0"), {"mtu_profile", "1", "3"});
       },
       j2_member, "'3'", member_failure},
  };
  expect_failures(rows);
}

TEST_F(bcm_checks_test, what_a_bundle_or_a_sub_bundle_lacks_without_a_presence_test_is_a_failure) {
  const std::vector<failing_row> rows = {
      {"the node's NPUs, bundle level",
       [] {
         drop(st().nodeinfo.get(), {be12::older, "npu_list"});
       },
       [] { return bundles_on(be12::older); }, "'npu_list'",
       "BCM lag verification failed for BE12"},
      {"the node's NPUs, sub-bundle level",
       [] {
         drop(st().nodeinfo.get(), {be12::older, "npu_list"});
       },
       [] { return sub_on(be12::older); }, "'npu_list'", "BCM verification failed for unused"},
      {"the sub-bundle", [] { drop(bundle().get("sub_bundles"), {be12::l3_sub}); },
       [] { return sub_on(be12::older); }, "'BE12.100'", "BCM verification failed for unused"},
      {"the second NPU, sub-bundle level",
       [] {
         drop(st().BCM.get(), {be12::older, "1"});
       },
       [] { return sub_on(be12::older); }, "'1'",
       "BCM verification failed for BE12.100(0x3000a60), NPU 1, 0/0/CPU0"},
      {"the bundle's record", [] { drop(st().tesselDb, {"BE12"}); },
       [] { return bundles_on(be12::older); }, "'BE12'", "BCM lag verification failed for BE12"},
  };
  expect_failures(rows);
}

TEST_F(bcm_checks_test, each_check_logs_a_failure_and_then_counts_it) {
  const std::string name = page_long_name();
  put(st().nodeinfo.get(), {be12::older, "npu_list"}, ERROR);
  const std::vector<std::function<void()>> bodies = {
      [&] { check_bundles_BCM("BE12", be12::older, name); },
      [&] { check_members_BCM(be12::older_port, "BE12", be12::older, name); },
      [&] { check_sub_bundles_BCM(be12::l3_sub, "BE12", be12::older, name); },
  };
  std::int64_t failures = 0;
  for (const auto& body : bodies) {
    EXPECT_EQ(count_while_logging("exception", st().exception, body), failures);
    EXPECT_EQ(st().exception, ++failures);
  }
}

}  // namespace
}  // namespace tessel
