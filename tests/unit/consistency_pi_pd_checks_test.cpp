#include "consistency/pi_pd_checks.h"

#include <string>
#include <string_view>
#include <vector>

#include "checks/both_passes.h"
#include "consistency/consistency_pass.h"
#include "consistency/dpa_checks.h"
#include "support/bundle_world.h"

namespace tessel {
namespace {

using std::string_view;
using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using pi_pd_checks_test = bundle_test;

record& bundle() {
  return bundle_record(be12::name);
}

// --- check_bundles_PI

TEST_F(pi_pd_checks_test, check_bundles_PI_copies_handle_mac_and_mtu_and_marks_the_entry) {
  EXPECT_EQ(check_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(bundle().get("ifh"), "0x3000120");
  EXPECT_EQ(bundle().get("mac"), "0011.2233.445a");
  EXPECT_EQ(bundle().get("mtu"), "1514");
  EXPECT_EQ(look(st().bdlInfoPI.get(), {"BE12", "Visited"}), 1);
  for (const char* untouched : {"lagid", "llif", "glif", "rif", "delPending"}) {
    EXPECT_EQ(bundle().get(untouched), DEFAULT) << untouched;
  }
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test, check_bundles_PI_overwrites_and_never_compares) {
  for (const char* field : {"ifh", "mac", "mtu"}) bundle().set(field, "something else");
  EXPECT_EQ(check_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(bundle().get("ifh"), "0x3000120");
  EXPECT_EQ(bundle().get("mac"), "0011.2233.445a");
  EXPECT_EQ(bundle().get("mtu"), "1514");
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test,
       a_bundle_that_bdlInfoPI_lacks_is_reported_with_layer_BM_PI_and_the_bundles_name) {
  drop(st().bdlInfoPI.get(), {"BE12"});
  EXPECT_EQ(check_bundles_PI("BE12"), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: BM PI has no entry for BE12"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_EQ(bundle().get("ifh"), DEFAULT);
}

TEST_F(pi_pd_checks_test, bdlInfoPI_that_was_never_parsed_is_a_failure_counted_once) {
  const std::vector<value> never_parsed = {"BE12 is in this text", ERROR};
  for (const value& content : never_parsed) {
    st().exception = 0;
    st().bdlInfoPI.set(content);
    EXPECT_EQ(check_bundles_PI("BE12"), ERROR);
    EXPECT_THAT(last(exceptions()),
                failed_on("BE12", "is_entry_present verification failed for BE12 in BM PI"));
    EXPECT_EQ(counted(), (outcome{.exception = 1}));
    EXPECT_EQ(check_members_PI(be12::older_port, "BE12", be12::older, be12::member_text), ERROR);
    EXPECT_THAT(last(exceptions()), failed_on("BE12",
                                              "BM PI verification failed for "
                                              "0/0/0/1,BE12(0x3000120), 0/0/CPU0"));
    EXPECT_EQ(counted(), (outcome{.exception = 2}));
  }
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(pi_pd_checks_test, check_bundles_PI_fails_on_an_entry_that_lacks_a_value) {
  for (const char* key : {"ifh", "mac", "mtu"}) {
    enter_healthy_bundle();
    drop(st().bdlInfoPI.get(), {"BE12", key});
    EXPECT_EQ(check_bundles_PI("BE12"), ERROR) << key;
    EXPECT_THAT(last(exceptions()), failed_on(key, "BM PI Bundle verification failed for BE12"));
  }
  EXPECT_EQ(counted(), (outcome{.exception = 3}));
  EXPECT_TRUE(all_have_tracebacks());
}

TEST_F(pi_pd_checks_test, check_bundles_PI_of_a_bundle_without_a_record_is_a_failure) {
  drop(st().tesselDb, {"BE12"});
  EXPECT_EQ(check_bundles_PI("BE12"), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("'BE12'", "BM PI Bundle verification failed for BE12")));
  EXPECT_EQ(look(st().bdlInfoPI.get(), {"BE12", "Visited"}), 1) << "the mark came first";
}

// --- check_sub_bundles_PI

TEST_F(pi_pd_checks_test, check_sub_bundles_PI_gives_each_sub_bundle_its_short_handle) {
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(sub_record(be12::l3_sub).get("ifh"), "0x3000a60") << "0x03000a60 is printed";
  EXPECT_EQ(sub_record(be12::l2_sub).get("ifh"), "0x3000a68");
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test,
       a_sub_bundle_that_bdlSubPI_does_not_list_is_reported_once_per_run_and_stays_Not_set) {
  st().bdlSubPI.set("0x03000a68 BE12.200  up\n");
  testing::internal::CaptureStdout();
  EXPECT_EQ(check_bundle_consistency(), SUCCESS);
  st().pid_list.join_all();
  testing::internal::GetCapturedStdout();
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:Data for sub-bundle BE12.100 not found in IM database"))
      << "once, though two nodes were compared";
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_EQ(sub_record(be12::l3_sub).get("ifh"), DEFAULT);
  EXPECT_EQ(sub_record(be12::l2_sub).get("ifh"), "0x3000a68") << "the walk goes on behind it";
  EXPECT_EQ(check_sub_bundles_DPA("BE12.100", "BE12", be12::older, "BE12.100(Not set),0/0/CPU0"),
            ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << "without a word";
}

TEST_F(pi_pd_checks_test, each_sub_bundle_that_is_not_listed_is_numbered_and_the_result_SUCCESS) {
  st().bdlSubPI.set("");
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:Data for sub-bundle BE12.100 not found in IM database",
                          "Inconsistency 2:Data for sub-bundle BE12.200 not found in IM database"));
}

TEST_F(pi_pd_checks_test, two_matches_of_one_handle_count_as_one) {
  st().bdlSubPI.set(
      "0x03000a60 BE12.100  up\n0x03000a60 BE12.100  down\n0x03000a68 BE12.200  up\n");
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(sub_record(be12::l3_sub).get("ifh"), "0x3000a60");
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test,
       of_two_different_handles_for_one_name_one_is_taken_and_nothing_is_reported) {
  st().bdlSubPI.set("0x1a BE12.100  up\n0x2b BE12.100  up\n0x03000a68 BE12.200  up\n");
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_THAT(sub_record(be12::l3_sub).get("ifh").as_text(), AnyOf("0x1a", "0x2b"));
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
}

TEST_F(pi_pd_checks_test, a_name_matches_only_as_a_whole_and_its_point_only_a_point) {
  st().bdlSubPI.set("0x1 BE12.1000  up\n0x2 BE12x100  up\n0x3 BE1.100  up\n0x4 BE12.200  up\n");
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(sub_record(be12::l3_sub).get("ifh"), DEFAULT);
  EXPECT_EQ(sub_record(be12::l2_sub).get("ifh"), "0x4");
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(pi_pd_checks_test, a_handle_that_is_not_a_number_fails_the_sub_bundles_of_the_bundle) {
  st().bdlSubPI.set("0xnone BE12.100  up\n0x4 BE12.200  up\n");
  EXPECT_EQ(check_sub_bundles_PI("BE12"), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("0xnone", "PI sub-bundle verification failed for BE12")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
  EXPECT_EQ(sub_record(be12::l2_sub).get("ifh"), DEFAULT) << "the walk ended";
}

TEST_F(pi_pd_checks_test, bdlSubPI_that_could_not_be_read_is_a_failure_unless_nothing_is_searched) {
  st().bdlSubPI.set(ERROR);
  EXPECT_EQ(check_sub_bundles_PI("BE12"), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("", "PI sub-bundle verification failed for BE12")));
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
  bundle().set("sub_bundles", make_map());
  EXPECT_EQ(check_sub_bundles_PI("BE12"), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

// --- check_members_PI

int members_PI() {
  return check_members_PI(be12::older_port, "BE12", be12::older, be12::member_text);
}

TEST_F(pi_pd_checks_test, check_members_PI_copies_handle_and_mtu_of_that_member_alone) {
  put(st().mbrInfoPI.get(), {be12::older_port}, "9000");
  EXPECT_EQ(members_PI(), SUCCESS);
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("ifh"), "0x110");
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("mtu"), "9000")
      << "the forwarding object's MTU is overwritten";
  EXPECT_EQ(st().voq_usage.get().at(be12::older_port).as_record().get("mtu"), "1514")
      << "and stays in the store";
  EXPECT_EQ(look(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port, "Visited"}), 1);
  EXPECT_EQ(look(st().bdlInfoPI.get(), {"BE12", "members", be12::j2_port, "Visited"}), 0);
  EXPECT_EQ(port_record(be12::j2, be12::j2_port).get("ifh"), DEFAULT);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test, a_member_that_the_bundle_manager_lacks_is_reported) {
  drop(st().bdlInfoPI.get(), {"BE12", "members", be12::older_port});
  EXPECT_EQ(members_PI(), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1: BM PI Member has no entry for "
                                      "0/0/0/1,BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(pi_pd_checks_test, a_member_that_the_interface_status_does_not_list_is_a_failure) {
  drop(st().mbrInfoPI.get(), {be12::older_port});
  EXPECT_EQ(members_PI(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("'0/0/0/1'",
                                                  "BM PI verification failed for "
                                                  "0/0/0/1,BE12(0x3000120), 0/0/CPU0")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("ifh"), "0x110")
      << "the handle was written before";
}

TEST_F(pi_pd_checks_test, check_members_PI_of_a_node_without_members_is_a_failure) {
  EXPECT_EQ(check_members_PI(be12::older_port, "BE12", "0/9/CPU0", "object"), ERROR);
  EXPECT_THAT(exceptions(),
              ElementsAre(failed_on("'0/9/CPU0'", "BM PI verification failed for object")));
}

// --- check_bundles_PD

int bundles_PD() {
  return check_bundles_PD("BE12", be12::older, be12::bundle_text);
}

TEST_F(pi_pd_checks_test, check_bundles_PD_sets_the_LAG_id_and_marks_the_entry) {
  EXPECT_EQ(bundles_PD(), SUCCESS);
  EXPECT_EQ(bundle().get("lagid"), "0x5");
  EXPECT_EQ(look(st().bdlInfoPD.get(), {"BE12", "Visited"}), 1);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test, the_first_nodes_LAG_id_stands_and_the_others_are_compared_with_it) {
  put(st().bdlInfoPD.get(), {"BE12", be12::j2},
      map_of({{"lagid", "0x9"}, {"gport", "0"}, {"npu_mask", "0"}}));
  EXPECT_EQ(bundles_PD(), SUCCESS);
  EXPECT_EQ(check_bundles_PD("BE12", be12::j2, "BE12(0x3000120), 0/1/CPU0"), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12(0x3000120), 0/1/CPU0 Lag ID is not "
                                      "consistent in BME:0x5, Expected:0x9"));
  EXPECT_EQ(bundle().get("lagid"), "0x5");
}

TEST_F(pi_pd_checks_test, a_bundle_that_the_agents_lack_is_reported) {
  drop(st().bdlInfoPD.get(), {"BE12"});
  EXPECT_EQ(bundles_PD(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: BME has no entry for BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(pi_pd_checks_test, a_bundle_that_the_nodes_agent_lacks_is_reported) {
  drop(st().bdlInfoPD.get(), {"BE12", be12::older});
  EXPECT_EQ(bundles_PD(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: BME has no Bundle entry in location 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_EQ(look(st().bdlInfoPD.get(), {"BE12", "Visited"}), 1) << "the bundle itself was there";
}

TEST_F(pi_pd_checks_test, a_disagreement_of_PD_is_never_put_down_to_delayed_delete) {
  bundle().set("lagid", "0x9");
  bundle().set("delPending", 1);
  EXPECT_EQ(bundles_PD(), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_THAT(delete_notes(), IsEmpty());
}

TEST_F(pi_pd_checks_test, check_bundles_PD_fails_on_a_node_without_a_LAG_id) {
  put(st().bdlInfoPD.get(), {"BE12", be12::older}, make_map());
  EXPECT_EQ(bundles_PD(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("'lagid'",
                                                  "BME Bundle verification failed for "
                                                  "BE12(0x3000120), 0/0/CPU0")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

TEST_F(pi_pd_checks_test, bdlInfoPD_that_was_never_parsed_is_a_failure_counted_once) {
  const std::vector<value> never_parsed = {"BE12 0/0/CPU0 0/0/0/1", ERROR};
  for (const value& content : never_parsed) {
    st().exception = 0;
    st().bdlInfoPD.set(content);
    EXPECT_EQ(bundles_PD(), ERROR);
    EXPECT_THAT(last(exceptions()), failed_on("BE12",
                                              "is_entry_present verification failed for "
                                              "BE12(0x3000120), 0/0/CPU0 in BME"));
    EXPECT_EQ(counted(), (outcome{.exception = 1}));
    EXPECT_EQ(check_members_PD(be12::older_port, "BE12", be12::older, "object"), ERROR);
    EXPECT_THAT(last(exceptions()), failed_on("BE12", "BME member verification failed for object"));
    EXPECT_EQ(counted(), (outcome{.exception = 2}));
  }
  EXPECT_THAT(findings(), IsEmpty());
}

// --- check_members_PD

int members_PD() {
  return check_members_PD(be12::older_port, "BE12", be12::older, be12::member_text);
}

TEST_F(pi_pd_checks_test, check_members_PD_sets_the_member_id_and_marks_the_entry) {
  EXPECT_EQ(members_PD(), SUCCESS);
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("memid"), "0x1");
  EXPECT_EQ(
      look(st().bdlInfoPD.get(), {"BE12", "members", be12::older, be12::older_port, "Visited"}), 1);
  EXPECT_EQ(look(st().bdlInfoPD.get(), {"BE12", "members", be12::j2, be12::j2_port, "Visited"}), 0);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(pi_pd_checks_test, a_member_that_the_nodes_agent_lacks_is_reported) {
  drop(st().bdlInfoPD.get(), {"BE12", "members", be12::older, be12::older_port});
  EXPECT_EQ(members_PD(), ERROR);
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1: BME has no entry for 0/0/0/1,BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(pi_pd_checks_test, another_member_id_is_reported) {
  port_record(be12::older, be12::older_port).set("memid", "0x9");
  EXPECT_EQ(members_PD(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:0/0/0/1,BE12(0x3000120), 0/0/CPU0 Member ID is not "
                          "consistent in BME_Members:0x1, Expected:0x9"));
}

TEST_F(pi_pd_checks_test, an_npu_that_differs_stops_the_members_PD_check_before_its_member_id) {
  port_record(be12::older, be12::older_port).set("npu_id", "1");
  EXPECT_EQ(members_PD(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: NPU ID is not consistent in BME for Member 0/0/0/1, "
                          "0/0/0/1,BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("memid"), DEFAULT);
}

TEST_F(pi_pd_checks_test, an_npu_that_differs_ends_check_members_without_DPA_or_BCM) {
  enter_upper_layers();
  port_record(be12::older, be12::older_port).set("npu_id", "1");
  st().DPA.set(ERROR);
  st().BCM.set(ERROR);
  EXPECT_EQ(check_members(std::string(be12::older_port), "BE12", std::string(be12::older)), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << "else these stores had failed it";
}

TEST_F(pi_pd_checks_test, an_npu_of_another_kind_is_another_npu) {
  put(st().bdlInfoPD.get(), {"BE12", "members", be12::older, be12::older_port, "npu"}, 0);
  EXPECT_EQ(members_PD(), ERROR);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << "the number 0 is not the text 0";
}

TEST_F(pi_pd_checks_test, check_members_PD_fails_on_a_node_that_the_agents_members_lack) {
  drop(st().bdlInfoPD.get(), {"BE12", "members", be12::older});
  EXPECT_EQ(members_PD(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("'0/0/CPU0'",
                                                  "BME member verification failed for "
                                                  "0/0/0/1,BE12(0x3000120), 0/0/CPU0")));
  EXPECT_TRUE(all_have_tracebacks());
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

// --- the standby node

TEST_F(pi_pd_checks_test,
       a_standby_node_is_skipped_by_the_two_PD_checks_without_a_line_and_its_fields_stay) {
  put(st().nodeinfo.get(), {be12::older, "act_standby"}, "Standby");
  st().bdlInfoPD.set(ERROR);  // makes every reader fail
  EXPECT_EQ(bundles_PD(), SUCCESS);
  EXPECT_EQ(members_PD(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(exceptions(), IsEmpty());
  EXPECT_EQ(bundle().get("lagid"), DEFAULT);
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("memid"), DEFAULT);
}

TEST_F(pi_pd_checks_test, any_other_state_of_a_node_is_compared) {
  for (const char* state : {"Active", "None", "Not set", "standby", "STANDBY"}) {
    put(st().nodeinfo.get(), {be12::older, "act_standby"}, state);
    bundle().set("lagid", DEFAULT);
    EXPECT_EQ(bundles_PD(), SUCCESS) << state;
    EXPECT_EQ(bundle().get("lagid"), "0x5") << state;
  }
}

TEST_F(pi_pd_checks_test, a_node_without_a_state_is_a_failure_of_both_PD_checks) {
  drop(st().nodeinfo.get(), {be12::older, "act_standby"});
  EXPECT_EQ(bundles_PD(), ERROR);
  EXPECT_EQ(members_PD(), ERROR);
  st().nodeinfo.set(0);
  EXPECT_EQ(bundles_PD(), ERROR) << "after an inventory that failed";
  EXPECT_EQ(counted(), (outcome{.exception = 3}));
}

// --- order

TEST_F(pi_pd_checks_test, each_check_logs_a_failure_and_then_counts_it) {
  const std::string name = page_long_name();
  st().tesselDb = ordered_map_of({{name, "no record"}});
  st().bdlInfoPI.set(map_of({{name, map_of({{"ifh", ""}, {"mac", ""}, {"mtu", ""}})}}));
  st().bdlInfoPD.set(map_of({{"BE12", make_map()}}));
  const std::vector<std::function<void()>> bodies = {
      [&] { check_bundles_PI(name); },
      [&] { check_sub_bundles_PI(name); },
      [&] { check_members_PI(be12::older_port, "BE12", be12::older, name); },
      [&] { check_bundles_PD("BE12", "0/9/CPU0", name); },
      [&] { check_members_PD(be12::older_port, "BE12", be12::older, name); },
  };
  std::int64_t failures = 0;
  for (const auto& body : bodies) {
    EXPECT_EQ(count_while_logging("exception", st().exception, body), failures);
    EXPECT_EQ(st().exception, ++failures);
  }
}

TEST_F(pi_pd_checks_test, a_sub_bundle_that_is_not_listed_is_counted_and_then_logged) {
  const std::string name = page_long_name();
  bundle().set("sub_bundles", map_of({{name, new_record<subBundles>()}}));
  EXPECT_EQ(
      count_while_logging("inconsistent", st().inconsistent, [] { check_sub_bundles_PI("BE12"); }),
      1);
}

}  // namespace
}  // namespace tessel
