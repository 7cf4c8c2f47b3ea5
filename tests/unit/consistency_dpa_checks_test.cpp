#include "consistency/dpa_checks.h"

#include <fmt/format.h>

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

// The upper layers have set the record; the tests vary the objects of the older node.
class dpa_checks_test : public bundle_test {
 protected:
  void SetUp() override {
    bundle_test::SetUp();
    enter_upper_layers();
  }
};

record& bundle() {
  return bundle_record(be12::name);
}
value objects() {
  return st().DPA.get().at(be12::older);
}
value lagport_of(string_view ifh) {
  return look(objects(), {"lagport", ifh});
}

int bundles_DPA() {
  return check_bundles_DPA("BE12", be12::older, be12::bundle_text);
}
int members_DPA() {
  return check_members_DPA(be12::older_port, "BE12", be12::older, be12::member_text);
}
int sub_bundles_DPA() {
  return check_sub_bundles_DPA(be12::l3_sub, "BE12", be12::older, be12::sub_text);
}

void make_layer_2() {
  bundle().set("is_l2", 1);
}
void mark_for_delete() {
  for (const string_view ifh : {be12::ifh, be12::l3_sub_ifh, be12::l2_sub_ifh}) {
    put(lagport_of(ifh), {"deletePending"}, 1);
  }
}
void hold_no_member() {
  drop(bundle().get("members"), {be12::older});
}

// Makes the checks fail if they read an object that they must not read.
void break_interface_objects() {
  for (const char* object : {"l2port", "l2intf", "l3intf"}) put(objects(), {object}, ERROR);
}

// --- check_bundles_DPA

TEST_F(dpa_checks_test, check_bundles_DPA_of_a_healthy_bundle_fills_the_record) {
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("delPending"), 0);
  EXPECT_EQ(bundle().get("lagid"), "0x5");
  EXPECT_EQ(bundle().get("glif"), "0x12345");
  EXPECT_EQ(bundle().get("rif"), "0x21");
  EXPECT_EQ(bundle().get("vlan_domain"), map_of({{be12::older, map_of({{"0", "0x8"}})}}));
  EXPECT_EQ(look(lagport_of(be12::ifh), {"Visited"}), 1);
  EXPECT_EQ(look(lagport_of(be12::l3_sub_ifh), {"Visited"}), 0) << "the sub-bundle's own";
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, each_node_fills_the_vlan_domain_under_its_own_name) {
  put(st().DPA.get(), {be12::j2, "lagport", be12::ifh, "vlan_domain", "0"}, "0x9");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(check_bundles_DPA("BE12", be12::j2, "object"), SUCCESS);
  EXPECT_EQ(bundle().get("vlan_domain"),
            map_of({{be12::older, map_of({{"0", "0x8"}})}, {be12::j2, map_of({{"0", "0x9"}})}}));
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, a_node_that_DPA_lacks_is_reported) {
  drop(st().DPA.get(), {be12::older});
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_EQ(members_DPA(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: DPA has no Bundle entry in location 0/0/CPU0",
                          "Inconsistency 2: DPA has no Bundle entry in location 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

TEST_F(dpa_checks_test, a_handle_that_the_lagports_lack_is_reported) {
  drop(objects(), {"lagport", be12::ifh});
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_EQ(members_DPA(), ERROR);
  EXPECT_THAT(
      findings(),
      ElementsAre("Inconsistency 1: DPA has no entry for BE12(0x3000120), 0/0/CPU0",
                  "Inconsistency 2: DPA has no entry for 0/0/0/1,BE12(0x3000120), 0/0/CPU0"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
  EXPECT_EQ(bundle().get("delPending"), DEFAULT);
}

TEST_F(dpa_checks_test, a_handle_at_Not_set_ends_the_check_without_a_word) {
  bundle().set("ifh", DEFAULT);
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_EQ(members_DPA(), ERROR);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(exceptions(), IsEmpty());
}

TEST_F(dpa_checks_test, delPending_is_written_before_any_comparison) {
  mark_for_delete();
  bundle().set("lagid", "0x9");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("delPending"), 1);
  EXPECT_THAT(delete_notes(), ElementsAre("INFO: Inconsistent object BE12(0x3000120), 0/0/CPU0 is "
                                          "marked for delay delete"));
}

TEST_F(dpa_checks_test, delPending_of_the_last_node_stands) {
  mark_for_delete();
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("delPending"), 1);
  EXPECT_EQ(check_bundles_DPA("BE12", be12::j2, "object"), SUCCESS);
  EXPECT_EQ(bundle().get("delPending"), 0);
}

// --- member scale

TEST_F(dpa_checks_test, max_member_count_at_Not_set_skips_the_scale_test) {
  put(lagport_of(be12::ifh), {"max_member_count"}, DEFAULT);
  put(lagport_of(be12::ifh), {"weight"}, 1000000);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  put(lagport_of(be12::ifh), {"weight"}, "no number at all");
  EXPECT_EQ(bundles_DPA(), SUCCESS) << "the weight is not even read";
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, a_weight_beyond_64_bits_is_compared_as_a_number) {
  put(lagport_of(be12::ifh), {"weight"}, "18446744073709551616");
  put(lagport_of(be12::ifh), {"max_member_count"}, "18446744073709551616");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  put(lagport_of(be12::ifh), {"max_member_count"}, "18446744073709551615");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(dpa_checks_test, weight_equal_to_max_member_count_is_not_a_finding_only_greater_is) {
  put(lagport_of(be12::ifh), {"weight"}, 64);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
  put(lagport_of(be12::ifh), {"weight"}, 65);
  EXPECT_EQ(bundles_DPA(), SUCCESS) << "the check goes on to its end";
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1: member scale limit exceeded due to weights of members "
                          "(65) being more than allowed (64)"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(dpa_checks_test, the_scale_is_compared_as_numbers) {
  put(lagport_of(be12::ifh), {"max_member_count"}, "100");
  put(lagport_of(be12::ifh), {"weight"}, 99);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), outcome()) << "as texts, 99 is behind 100";
}

TEST_F(dpa_checks_test, a_scale_finding_on_an_object_marked_for_delete_is_not_put_down_to_it) {
  mark_for_delete();
  put(lagport_of(be12::ifh), {"weight"}, 65);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
  EXPECT_THAT(delete_notes(), IsEmpty());
}

// --- each disagreement of a bundle

TEST_F(dpa_checks_test,
       a_wrong_LAG_id_on_a_delete_pending_bundle_is_logged_on_both_channels_and_the_LIF_follows) {
  mark_for_delete();
  put(lagport_of(be12::ifh), {"lagid"}, "0x9");
  put(objects(), {"l2port", be12::ifh, "lif"}, "0x00000012");
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12(0x3000120), 0/0/CPU0 Lag ID is not consistent in "
                          "DPA_Bundles:0x5, Expected:0x9",
                          "Inconsistency 2:BE12(0x3000120), 0/0/CPU0 GLIF is not consistent in "
                          "DPA_Bundles_l2port:0x12,Expected:0xXX12"));
  const char* note =
      "INFO: Inconsistent object BE12(0x3000120), 0/0/CPU0 is marked for delay delete";
  EXPECT_THAT(delete_notes(), ElementsAre(note, note));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2, .deletePending = 2}));
}

TEST_F(dpa_checks_test, a_wrong_LAG_id_alone_does_not_end_the_check) {
  put(lagport_of(be12::ifh), {"lagid"}, "0x9");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1})) << "and is not a delete-pending one";
  EXPECT_EQ(bundle().get("glif"), "0x12345");
  EXPECT_EQ(bundle().get("vlan_domain"), map_of({{be12::older, map_of({{"0", "0x8"}})}}));
}

// One disagreement of a bundle by itself, on an object that is marked for delete.
struct bundle_finding {
  std::string why;
  std::function<void()> vary;
  std::vector<std::string> told;
  outcome counts;
  int result;
};

void expect_findings(const std::vector<bundle_finding>& rows, int (*check)()) {
  std::size_t told = 0;
  std::size_t noted = 0;
  for (const bundle_finding& each : rows) {
    enter_healthy_bundle();
    enter_upper_layers();
    mark_for_delete();
    st().inconsistent = 0;
    st().exception = 0;
    st().deletePending = 0;
    each.vary();
    EXPECT_EQ(check(), each.result) << each.why;
    EXPECT_EQ(counted(), each.counts) << each.why;
    std::vector<std::string> fresh = findings();
    fresh.erase(fresh.begin(), fresh.begin() + static_cast<std::ptrdiff_t>(told));
    EXPECT_EQ(fresh, each.told) << each.why;
    told += fresh.size();
    noted += static_cast<std::size_t>(each.counts.deletePending);
    EXPECT_EQ(delete_notes().size(), noted) << each.why;
  }
}

const outcome told_once{.inconsistent = 1, .exception = 0, .deletePending = 0};
const outcome told_and_noted{.inconsistent = 1, .exception = 0, .deletePending = 1};

const std::string of_the_bundle = "Inconsistency 1:BE12(0x3000120), 0/0/CPU0 ";

TEST_F(dpa_checks_test, the_results_by_finding_of_a_bundle) {
  const std::vector<bundle_finding> rows = {
      {"node missing",
       [] { drop(st().DPA.get(), {be12::older}); },
       {"Inconsistency 1: DPA has no Bundle entry in location 0/0/CPU0"},
       told_once,
       ERROR},
      {"handle missing",
       [] {
         drop(objects(), {"lagport", be12::ifh});
       },
       {"Inconsistency 1: DPA has no entry for BE12(0x3000120), 0/0/CPU0"},
       told_once,
       ERROR},
      {"handle not set", [] { bundle().set("ifh", DEFAULT); }, {}, {}, ERROR},
      {"weight",
       [] { put(lagport_of(be12::ifh), {"weight"}, 65); },
       {"Inconsistency 1: member scale limit exceeded due to weights of members (65) being more "
        "than allowed (64)"},
       told_once,
       SUCCESS},
      {"LAG id",
       [] { put(lagport_of(be12::ifh), {"lagid"}, "0x9"); },
       {of_the_bundle + "Lag ID is not consistent in DPA_Bundles:0x5, Expected:0x9"},
       told_and_noted,
       SUCCESS},
  };
  expect_findings(rows, bundles_DPA);
}

TEST_F(dpa_checks_test, the_results_by_finding_of_the_interfaces_of_a_bundle) {
  const std::vector<bundle_finding> rows = {
      {"LIF of the l2port",
       [] { bundle().set("glif", "0x19999"); },
       {of_the_bundle + "GLIF is not consistent in DPA_Bundles_l2port:0x12345,Expected:0x19999"},
       told_and_noted,
       ERROR},
      {"RIF of the l2port",
       [] { bundle().set("rif", "0x99"); },
       {of_the_bundle + "RIF is not consistent in DPA_Bundles_l2port:0x21, Expected:0x99"},
       told_and_noted,
       ERROR},
      {"MAC",
       [] {
         put(objects(), {"l2port", be12::ifh, "mac"}, "00:11:22:33:44:99");
       },
       {of_the_bundle +
        "MAC is not consistent in DPA_Bundles_l2port:001122334499, Expected:0011.2233.445a"},
       told_and_noted,
       ERROR},
      {"RIF of the l3intf",
       [] {
         put(objects(), {"l3intf", be12::ifh, "rif"}, "0x22");
       },
       {of_the_bundle + "RIF is not consistent in DPA_Bundles_l2port:0x22, Expected:0x21"},
       told_and_noted,
       ERROR},
      {"LIF of the l2intf",
       [] {
         make_layer_2();
         put(objects(), {"l2intf", be12::ifh, "lif"}, "0x00012399");
       },
       {of_the_bundle + "GLIF is not consistent in DPA_Bundles_l2port:0x12399,Expected:0x12345"},
       told_and_noted,
       ERROR},
      {"VLAN domain",
       [] {
         make_layer_2();
         put(objects(), {"l2intf", be12::ifh, "vlan_domain"}, "16");
       },
       {of_the_bundle + "vlan_domain is not consistent in DPA_l2intf:0x10, Expected:0x8"},
       told_once,
       SUCCESS},
  };
  expect_findings(rows, bundles_DPA);
}

TEST_F(dpa_checks_test, a_LIF_RIF_or_MAC_that_differs_keeps_the_vlan_domain_from_being_written) {
  bundle().set("rif", "0x99");
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_EQ(bundle().get("vlan_domain"), make_map());
}

TEST_F(dpa_checks_test, the_first_disagreement_of_LIF_RIF_and_MAC_is_the_only_one_reported) {
  bundle().set("glif", "0x19999");
  bundle().set("rif", "0x99");
  bundle().set("mac", "other");
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_THAT(findings(), ElementsAre(testing::HasSubstr("GLIF")));
}

TEST_F(dpa_checks_test, a_LIF_loses_its_leading_zeros_and_keeps_its_trailing_ones) {
  put(objects(), {"l2port", be12::ifh, "lif"}, "0x00120000");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("glif"), "0x120000");
}

TEST_F(dpa_checks_test, a_LIF_of_nothing_but_zeros_is_reported_with_an_empty_tail) {
  put(objects(), {"l2port", be12::ifh, "lif"}, "0x00000000");
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_THAT(findings(), ElementsAre("Inconsistency 1:BE12(0x3000120), 0/0/CPU0 GLIF is not "
                                      "consistent in DPA_Bundles_l2port:0x,Expected:0xXX"));
}

TEST_F(dpa_checks_test, the_RIF_of_the_l2port_may_be_printed_in_decimal) {
  put(objects(), {"l2port", be12::ifh, "rif"}, "33");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("rif"), "0x21");
}

// --- layer 2, layer 3

TEST_F(dpa_checks_test, an_L3_bundle_skips_the_l2intf_and_VLAN_comparisons_and_still_fills_vd) {
  put(objects(), {"l2intf"}, ERROR);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("vlan_domain"), map_of({{be12::older, map_of({{"0", "0x8"}})}}));
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, an_L2_bundle_does_not_read_the_l3intf) {
  make_layer_2();
  put(objects(), {"l3intf"}, ERROR);
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, a_bundle_of_unknown_type_compares_the_l2intf_and_no_VLAN_domain) {
  bundle().set("is_l2", DEFAULT);
  put(objects(), {"l3intf"}, ERROR);
  put(objects(), {"l2intf", be12::ifh, "vlan_domain"}, "16");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test,
       on_an_L3_bundle_check_rif_runs_twice_and_a_difference_of_format_alone_is_a_discrepancy) {
  put(objects(), {"l3intf", be12::ifh, "rif"}, "0x00000021");
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12(0x3000120), 0/0/CPU0 RIF is not consistent in "
                          "DPA_Bundles_l2port:0x00000021, Expected:0x21"));
  EXPECT_EQ(bundle().get("rif"), "0x21") << "the l2port's came first, in short form";
}

// --- VLAN domains

TEST_F(dpa_checks_test, the_vlan_domains_of_all_NPUs_are_compared_and_each_difference_is_reported) {
  make_layer_2();
  put(lagport_of(be12::ifh), {"members"},
      map_of({{"0", make_map()}, {"1", make_map()}, {"2", make_map()}}));
  put(lagport_of(be12::ifh), {"vlan_domain"}, map_of({{"0", "0x7"}, {"1", "0x0008"}, {"2", "9"}}));
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  const string_view object = be12::bundle_text;
  EXPECT_THAT(
      findings(),
      ElementsAre(fmt::format("Inconsistency 1:{} vlan_domain is not consistent in DPA_l2intf:0x8, "
                              "Expected:0x7",
                              object),
                  fmt::format("Inconsistency 2:{} vlan_domain is not consistent in DPA_l2intf:0x8, "
                              "Expected:0x9",
                              object)));
  EXPECT_EQ(bundle().get("vlan_domain").at(be12::older),
            map_of({{"0", "0x7"}, {"1", "0x8"}, {"2", "0x9"}}));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2}));
}

TEST_F(dpa_checks_test, a_vlan_domain_at_Not_set_is_a_failure) {
  put(lagport_of(be12::ifh), {"vlan_domain", "0"}, DEFAULT);
  EXPECT_EQ(bundles_DPA(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("Not set",
                                                  "DPA bundle consistency check failed for "
                                                  "BE12(0x3000120), 0/0/CPU0")));
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
}

// --- a node without members

TEST_F(dpa_checks_test,
       a_node_without_members_of_the_bundle_runs_only_the_lagport_part_and_gets_an_empty_map) {
  hold_no_member();
  break_interface_objects();
  mark_for_delete();
  put(lagport_of(be12::ifh), {"members"}, make_map());
  put(lagport_of(be12::ifh), {"weight"}, 65);
  put(lagport_of(be12::ifh), {"lagid"}, "0x9");
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_THAT(findings(), ElementsAre(testing::HasSubstr("member scale limit"),
                                      testing::HasSubstr("Lag ID is not consistent")));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 2, .deletePending = 1}));
  EXPECT_EQ(bundle().get("delPending"), 1);
  EXPECT_EQ(bundle().get("glif"), DEFAULT);
  EXPECT_EQ(bundle().get("rif"), DEFAULT);
  EXPECT_EQ(bundle().get("vlan_domain"), map_of({{be12::older, make_map()}}));
  EXPECT_EQ(look(lagport_of(be12::ifh), {"Visited"}), 1);
}

TEST_F(dpa_checks_test, a_node_without_members_gets_the_NPUs_that_the_lagport_lists) {
  hold_no_member();
  break_interface_objects();
  EXPECT_EQ(bundles_DPA(), SUCCESS);
  EXPECT_EQ(bundle().get("vlan_domain"), map_of({{be12::older, map_of({{"0", "0x8"}})}}));
  EXPECT_EQ(counted(), outcome());
}

// --- check_members_DPA

TEST_F(dpa_checks_test, check_members_DPA_of_a_healthy_member_marks_the_bundle_and_the_member) {
  EXPECT_EQ(members_DPA(), SUCCESS);
  EXPECT_EQ(look(lagport_of(be12::ifh), {"Visited"}), 1);
  EXPECT_EQ(look(lagport_of(be12::ifh), {"members", "0", be12::older_mifh, "Visited"}), 1);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, on_a_standby_node_check_members_DPA_sets_the_member_id) {
  port_record(be12::older, be12::older_port).set("memid", DEFAULT);
  EXPECT_EQ(members_DPA(), SUCCESS);
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("memid"), "0x1");
}

TEST_F(dpa_checks_test, an_MTU_that_no_layer_has_set_is_taken_from_the_forwarding_object) {
  port_record(be12::older, be12::older_port).set("mtu", DEFAULT);
  EXPECT_EQ(members_DPA(), SUCCESS);
  EXPECT_EQ(port_record(be12::older, be12::older_port).get("mtu"), "1514");
}

TEST_F(dpa_checks_test, the_results_by_finding_of_a_member) {
  const std::string told = "Inconsistency 1:0/0/0/1,BE12(0x3000120), 0/0/CPU0 ";
  const std::vector<bundle_finding> rows = {
      {"node missing",
       [] { drop(st().DPA.get(), {be12::older}); },
       {"Inconsistency 1: DPA has no Bundle entry in location 0/0/CPU0"},
       told_once,
       ERROR},
      {"bundle's handle missing",
       [] {
         drop(objects(), {"lagport", be12::ifh});
       },
       {"Inconsistency 1: DPA has no entry for 0/0/0/1,BE12(0x3000120), 0/0/CPU0"},
       told_once,
       ERROR},
      {"member's handle missing",
       [] {
         drop(lagport_of(be12::ifh), {"members", "0", be12::older_mifh});
       },
       {"Inconsistency 1: DPA has no entry for 0/0/0/1,BE12(0x3000120), 0/0/CPU0"},
       told_once,
       ERROR},
      {"member's handle not set",
       [] { port_record(be12::older, be12::older_port).set("ifh", DEFAULT); },
       {},
       {},
       ERROR},
      {"member id",
       [] {
         put(lagport_of(be12::ifh), {"members", "0", be12::older_mifh, "memid"}, "0x9");
         bundle().set("delPending", 1);
       },
       {told + "Member ID is not consistent in DPA_Members:0x9, Expected:0x1"},
       told_and_noted,
       ERROR},
      {"MTU: the interface manager's against the forwarding object's",
       [] {
         port_record(be12::older, be12::older_port).set("mtu", "9000");
         bundle().set("delPending", 1);
       },
       {told + "MTU is not consistent in DPA_Members:9000, Expected:1514"},
       told_and_noted,
       ERROR},
      {"MTU, before the bundle level has told that the object is on its way out",
       [] { port_record(be12::older, be12::older_port).set("mtu", "9000"); },
       {told + "MTU is not consistent in DPA_Members:9000, Expected:1514"},
       told_once,
       ERROR},
  };
  expect_findings(rows, members_DPA);
}

TEST_F(dpa_checks_test, a_wrong_member_id_keeps_the_MTU_from_being_compared) {
  port_record(be12::older, be12::older_port).set("memid", "0x9");
  port_record(be12::older, be12::older_port).set("mtu", "9000");
  EXPECT_EQ(members_DPA(), ERROR);
  EXPECT_THAT(findings(), ElementsAre(testing::HasSubstr("Member ID")));
}

// --- check_sub_bundles_DPA

TEST_F(dpa_checks_test, check_sub_bundles_DPA_of_a_healthy_sub_bundle_fills_its_record) {
  EXPECT_EQ(sub_bundles_DPA(), SUCCESS);
  record& sub = sub_record(be12::l3_sub);
  EXPECT_EQ(sub.get("lagid"), "0x6");
  EXPECT_EQ(sub.get("glif"), "0x12346");
  EXPECT_EQ(sub.get("rif"), "0x22") << "0x00000022 is printed";
  EXPECT_EQ(sub.get("delPending"), 0);
  EXPECT_EQ(look(lagport_of(be12::l3_sub_ifh), {"Visited"}), 1);
  EXPECT_EQ(look(lagport_of(be12::ifh), {"Visited"}), 0);
  EXPECT_EQ(bundle().get("glif"), DEFAULT) << "the bundle's own record is left alone";
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, an_L2_sub_bundle_does_not_read_the_l3intf) {
  put(objects(), {"l3intf"}, ERROR);
  EXPECT_EQ(check_sub_bundles_DPA(be12::l2_sub, "BE12", be12::older, "object"), SUCCESS);
  EXPECT_EQ(sub_record(be12::l2_sub).get("rif"), DEFAULT);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, a_sub_bundle_on_a_node_without_members_compares_the_LAG_id_alone) {
  hold_no_member();
  break_interface_objects();
  EXPECT_EQ(sub_bundles_DPA(), SUCCESS);
  EXPECT_EQ(sub_record(be12::l3_sub).get("lagid"), "0x6");
  EXPECT_EQ(sub_record(be12::l3_sub).get("glif"), DEFAULT);
  EXPECT_EQ(counted(), outcome());
}

TEST_F(dpa_checks_test, a_sub_bundle_with_ifh_at_Not_set_returns_ERROR_with_no_new_finding) {
  sub_record(be12::l3_sub).set("ifh", DEFAULT);
  EXPECT_EQ(sub_bundles_DPA(), ERROR);
  EXPECT_EQ(counted(), outcome());
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_THAT(exceptions(), IsEmpty());
}

TEST_F(dpa_checks_test, a_wrong_LAG_id_on_a_sub_bundle_ends_the_sub_bundles_check) {
  sub_record(be12::l3_sub).set("lagid", "0x9");
  break_interface_objects();
  EXPECT_EQ(sub_bundles_DPA(), ERROR);
  EXPECT_THAT(findings(),
              ElementsAre("Inconsistency 1:BE12.100(0x3000a60),0/0/CPU0 Lag ID is not consistent "
                          "in DPA_Sub_Bundles:0x9, Expected:0x6"));
  EXPECT_EQ(counted(), (outcome{.inconsistent = 1}));
}

TEST_F(dpa_checks_test, the_results_by_finding_of_a_sub_bundle) {
  const std::string told = "Inconsistency 1:BE12.100(0x3000a60),0/0/CPU0 ";
  const std::vector<bundle_finding> rows = {
      {"handle missing",
       [] {
         drop(objects(), {"lagport", be12::l3_sub_ifh});
       },
       {"Inconsistency 1: DPA has no entry for BE12.100(0x3000a60),0/0/CPU0"},
       told_once,
       ERROR},
      {"LAG id",
       [] { sub_record(be12::l3_sub).set("lagid", "0x9"); },
       {told + "Lag ID is not consistent in DPA_Sub_Bundles:0x9, Expected:0x6"},
       told_and_noted,
       ERROR},
      {"LIF",
       [] { sub_record(be12::l3_sub).set("glif", "0x19999"); },
       {told + "GLIF is not consistent in DPA_Sub_Bundles_l2intf:0x12346,Expected:0x19999"},
       told_and_noted,
       ERROR},
      {"RIF, under the bundle level's layer",
       [] { sub_record(be12::l3_sub).set("rif", "0x99"); },
       {told + "RIF is not consistent in DPA_Bundles_l2port:0x22, Expected:0x99"},
       told_and_noted,
       ERROR},
      {"only the bundle is on its way out",
       [] {
         bundle().set("delPending", 1);
         put(lagport_of(be12::l3_sub_ifh), {"deletePending"}, 0);
         sub_record(be12::l3_sub).set("rif", "0x99");
       },
       {told + "RIF is not consistent in DPA_Bundles_l2port:0x22, Expected:0x99"},
       told_once,
       ERROR},
  };
  expect_findings(rows, sub_bundles_DPA);
}

TEST_F(dpa_checks_test, the_RIF_of_a_sub_bundle_may_be_printed_in_decimal) {
  put(objects(), {"l3intf", be12::l3_sub_ifh, "rif"}, "34");
  EXPECT_EQ(sub_bundles_DPA(), SUCCESS);
  EXPECT_EQ(sub_record(be12::l3_sub).get("rif"), "0x22");
}

TEST_F(dpa_checks_test, a_sub_bundle_on_a_node_that_DPA_lacks_is_a_failure_and_no_finding) {
  drop(st().DPA.get(), {be12::older});
  EXPECT_EQ(sub_bundles_DPA(), ERROR);
  EXPECT_THAT(exceptions(), ElementsAre(failed_on("'0/0/CPU0'",
                                                  "DPA Sub-Bundle verification failed for "
                                                  "BE12.100(0x3000a60),0/0/CPU0")));
  EXPECT_EQ(counted(), (outcome{.exception = 1}));
  EXPECT_THAT(findings(), IsEmpty());
}

// --- failures

struct failing_row {
  std::string why;
  std::function<void()> vary;
  int (*check)();
  std::string named;
  std::string message;
};

void expect_failures(const std::vector<failing_row>& rows) {
  for (const failing_row& each : rows) {
    enter_healthy_bundle();
    enter_upper_layers();
    st().exception = 0;
    each.vary();
    EXPECT_EQ(each.check(), ERROR) << each.why;
    EXPECT_EQ(counted(), (outcome{.exception = 1})) << each.why;
    EXPECT_THAT(last(exceptions()), failed_on(each.named, each.message)) << each.why;
  }
  EXPECT_THAT(findings(), IsEmpty());
  EXPECT_TRUE(all_have_tracebacks());
}

const std::string bundle_message =
    "DPA bundle consistency check failed for BE12(0x3000120), 0/0/CPU0";
const std::string member_message =
    "DPA Member verification failed for 0/0/0/1,BE12(0x3000120), 0/0/CPU0";
const std::string sub_message =
    "DPA Sub-Bundle verification failed for BE12.100(0x3000a60),0/0/CPU0";
const std::string entry_message = "is_entry_present verification failed for ";

TEST_F(dpa_checks_test, a_slot_of_DPA_that_holds_ERROR_or_a_text_fails_the_reader_once) {
  const std::vector<value> slots = {ERROR, "handle 0x3000120 0x3000a60"};
  for (const value& slot : slots) {
    const std::vector<failing_row> rows = {
        {"lagport", [&] { put(objects(), {"lagport"}, slot); }, bundles_DPA, "0x3000120",
         entry_message + "BE12(0x3000120), 0/0/CPU0 in DPA"},
        {"lagport", [&] { put(objects(), {"lagport"}, slot); }, members_DPA, "0x3000120",
         entry_message + "0/0/0/1,BE12(0x3000120), 0/0/CPU0 in DPA"},
        {"lagport", [&] { put(objects(), {"lagport"}, slot); }, sub_bundles_DPA, "0x3000a60",
         entry_message + "BE12.100(0x3000a60),0/0/CPU0 in DPA"},
        {"one lagport",
         [&] {
           put(objects(), {"lagport", be12::ifh}, slot);
         },
         bundles_DPA, "", entry_message + "BE12(0x3000120), 0/0/CPU0 in DPA"},
        {"members of the NPU",
         [&] {
           put(lagport_of(be12::ifh), {"members", "0"}, slot);
         },
         members_DPA, "0x110", entry_message + "0/0/0/1,BE12(0x3000120), 0/0/CPU0 in DPA"},
        {"members", [&] { put(lagport_of(be12::ifh), {"members"}, slot); }, members_DPA, "",
         member_message},
        {"l2port", [&] { put(objects(), {"l2port"}, slot); }, bundles_DPA, "0x3000120",
         bundle_message},
        {"l3intf", [&] { put(objects(), {"l3intf"}, slot); }, bundles_DPA, "0x3000120",
         bundle_message},
        {"l2intf", [&] { put(objects(), {"l2intf"}, slot); }, sub_bundles_DPA, "0x3000a60",
         sub_message},
        {"l3intf", [&] { put(objects(), {"l3intf"}, slot); }, sub_bundles_DPA, "0x3000a60",
         sub_message},
        {"the node", [&] { put(st().DPA.get(), {be12::older}, slot); }, bundles_DPA, "lagport",
         bundle_message},
        {"the store", [&] { st().DPA.set(slot); }, bundles_DPA, "0/0/CPU0",
         "is_node_present check failed for 0/0/CPU0 in DPA"},
    };
    expect_failures(rows);
  }
}

TEST_F(dpa_checks_test, what_a_bundle_lacks_without_a_presence_test_is_a_failure) {
  const std::vector<failing_row> rows = {
      {"no lagport object at all", [] { drop(objects(), {"lagport"}); }, bundles_DPA, "'lagport'",
       bundle_message},
      {"deletePending", [] { drop(lagport_of(be12::ifh), {"deletePending"}); }, bundles_DPA,
       "'deletePending'", bundle_message},
      {"max_member_count", [] { drop(lagport_of(be12::ifh), {"max_member_count"}); }, bundles_DPA,
       "'max_member_count'", bundle_message},
      {"a limit that is not a number",
       [] { put(lagport_of(be12::ifh), {"max_member_count"}, "many"); }, bundles_DPA, "many",
       bundle_message},
      {"LAG id", [] { drop(lagport_of(be12::ifh), {"lagid"}); }, bundles_DPA, "'lagid'",
       bundle_message},
      {"handle in l2port",
       [] {
         drop(objects(), {"l2port", be12::ifh});
       },
       bundles_DPA, "'0x3000120'", bundle_message},
      {"handle in l3intf",
       [] {
         drop(objects(), {"l3intf", be12::ifh});
       },
       bundles_DPA, "'0x3000120'", bundle_message},
      {"handle in l2intf",
       [] {
         make_layer_2();
         drop(objects(), {"l2intf", be12::ifh});
       },
       bundles_DPA, "'0x3000120'", bundle_message},
      {"a RIF that is not a number",
       [] {
         put(objects(), {"l2port", be12::ifh, "rif"}, "none");
       },
       bundles_DPA, "none", bundle_message},
      {"VLAN domain of an NPU",
       [] {
         drop(lagport_of(be12::ifh), {"vlan_domain", "0"});
       },
       bundles_DPA, "'0'", bundle_message},
      {"the bundle's record", [] { drop(st().tesselDb, {"BE12"}); }, bundles_DPA, "'BE12'",
       bundle_message},
  };
  expect_failures(rows);
}

TEST_F(dpa_checks_test, what_a_member_or_a_sub_bundle_lacks_without_a_presence_test_is_a_failure) {
  const std::vector<failing_row> rows = {
      {"NPU of the member", [] { port_record(be12::older, be12::older_port).set("npu_id", "7"); },
       members_DPA, "'7'", member_message},
      {"NPU of the member not set",
       [] { port_record(be12::older, be12::older_port).set("npu_id", DEFAULT); }, members_DPA,
       "'Not set'", member_message},
      {"member in voq_usage", [] { drop(st().voq_usage.get(), {be12::older_port}); }, members_DPA,
       "'0/0/0/1'", member_message},
      {"member id",
       [] {
         put(lagport_of(be12::ifh), {"members", "0", be12::older_mifh}, make_map());
       },
       members_DPA, "'memid'", member_message},
      {"node among the members", hold_no_member, members_DPA, "'0/0/CPU0'", member_message},
      {"handle of the sub-bundle in l2intf",
       [] {
         drop(objects(), {"l2intf", be12::l3_sub_ifh});
       },
       sub_bundles_DPA, "'0x3000a60'", sub_message},
      {"handle of the sub-bundle in l3intf",
       [] {
         drop(objects(), {"l3intf", be12::l3_sub_ifh});
       },
       sub_bundles_DPA, "'0x3000a60'", sub_message},
      {"the sub-bundle", [] { drop(bundle().get("sub_bundles"), {be12::l3_sub}); }, sub_bundles_DPA,
       "'BE12.100'", sub_message},
  };
  expect_failures(rows);
}

TEST_F(dpa_checks_test, each_check_logs_a_failure_and_then_counts_it) {
  const std::string name = page_long_name();
  st().tesselDb = make_ordered_map();
  const std::vector<std::function<void()>> bodies = {
      [&] { check_bundles_DPA("BE12", be12::older, name); },
      [&] { check_members_DPA(be12::older_port, "BE12", be12::older, name); },
      [&] { check_sub_bundles_DPA(be12::l3_sub, "BE12", be12::older, name); },
  };
  std::int64_t failures = 0;
  for (const auto& body : bodies) {
    EXPECT_EQ(count_while_logging("exception", st().exception, body), failures);
    EXPECT_EQ(st().exception, ++failures);
  }
}

}  // namespace
}  // namespace tessel
