#include "consistency/views.h"

#include <string>
#include <string_view>
#include <vector>

#include "checks/both_passes.h"
#include "support/bundle_world.h"

namespace tessel {
namespace {

using std::string_view;
using testing::HasSubstr;
using views_test = bundle_test;

TEST_F(views_test, a_node_has_its_own_parts_of_the_stores) {
  const value objects = st().DPA.get().at(be12::older);
  const node_view node(be12::older);
  EXPECT_EQ(node.name, be12::older);
  EXPECT_EQ(&node.objects.get().as_map(), &objects.as_map());
  EXPECT_EQ(&node.lagport.get().as_map(), &objects.at("lagport").as_map());
  EXPECT_EQ(&node.l2port.get().as_map(), &objects.at("l2port").as_map());
  EXPECT_EQ(&node.l2intf.get().as_map(), &objects.at("l2intf").as_map());
  EXPECT_EQ(&node.l3intf.get().as_map(), &objects.at("l3intf").as_map());
  EXPECT_EQ(node.asic_supported.get(), 1);
  EXPECT_EQ(node.act_standby.get(), "Active");
}

TEST_F(views_test, the_LAGs_of_a_chip_are_those_of_its_family) {
  for (const auto& [nodename, key] :
       {std::pair(be12::older, "diag_lag"), std::pair(be12::j2, "tm_lag")}) {
    const node_view node(nodename);
    EXPECT_EQ(node.is_jericho2(), nodename == be12::j2);
    ASSERT_EQ(node.chips().size(), 2U);
    for (const chip_view& chip : node.chips()) {
      const value tables = st().BCM.get().at(nodename).at(chip.npu.as_text());
      EXPECT_EQ(&chip.tables.get().as_map(), &tables.as_map());
      EXPECT_EQ(&chip.lags.get().as_map(), &tables.at(key).as_map());
    }
  }
}

TEST_F(views_test, a_node_that_no_store_knows_fails_where_it_is_read) {
  const node_view node("0/9/CPU0");
  for (const store_part* part : {&node.asic_supported, &node.act_standby, &node.objects,
                                 &node.lagport, &node.l2port, &node.l2intf, &node.l3intf}) {
    EXPECT_THAT(failure_of([part] { part->get(); }), HasSubstr("no key '0/9/CPU0'"));
  }
  EXPECT_THAT(failure_of([&] { node.chips(); }), HasSubstr("no key '0/9/CPU0'"));
  EXPECT_EQ(st().exception, 0) << "to look is not a failure";
  EXPECT_THAT(output_of([&] { EXPECT_FALSE(node.is_jericho2()); }),
              HasSubstr("Not able to get ASIC information on the node 0/9/CPU0"));
  EXPECT_EQ(st().exception, 1) << "reported as is_j2 reports it";
}

TEST_F(views_test, a_chip_that_is_missing_leaves_the_others) {
  drop(st().BCM.get(), {be12::older, "0"});
  const node_view node(be12::older);
  EXPECT_THAT(failure_of([&] { node.chips()[0].lags.get(); }), HasSubstr("no key '0'"));
  EXPECT_TRUE(node.chips()[1].lags.get().is_map());
}

TEST_F(views_test, a_list_of_chips_that_is_none_is_a_failure) {
  put(st().nodeinfo.get(), {be12::older, "npu_list"}, "0");
  EXPECT_THAT(failure_of([] { node_view(be12::older).chips(); }), HasSubstr("a list expected"));
}

TEST_F(views_test, a_bundle_has_its_record_and_what_the_configuration_says) {
  const bundle_view bundle("BE12");
  record& element = bundle_record("BE12");
  EXPECT_EQ(&bundle.element(), &element);
  EXPECT_EQ(&bundle.members().as_map(), &element.get("members").as_map());
  EXPECT_EQ(&bundle.sub_bundles().as_map(), &element.get("sub_bundles").as_map());
  EXPECT_EQ(&bundle.sub_bundle(be12::l3_sub), &sub_record(be12::l3_sub));
  EXPECT_THAT(failure_of([&] { bundle.sub_bundle("BE12.9"); }), HasSubstr("no key 'BE12.9'"));
}

TEST_F(views_test, a_bundle_that_is_not_configured_fails_as_bundle_record_does) {
  for (const char* name : {"BE99", "hqos"}) {
    const bundle_view bundle(name);
    const std::string why = failure_of([&] { bundle_record(name); });
    EXPECT_EQ(failure_of([&] { bundle.element(); }), why);
    EXPECT_EQ(failure_of([&] { bundle.members(); }), why);
    EXPECT_EQ(failure_of([&] { bundle.sub_bundle("BE99.1"); }), why);
  }
}

}  // namespace
}  // namespace tessel
