#include "base/records.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "support/fake_router.h"
#include "support/together.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using records_test = router_test;

std::vector<std::string> fields_of(const value& fields) {
  return fields.as_map().keys();
}

TEST_F(records_test, a_new_Bundles_lists_its_thirteen_fields_in_declaration_order) {
  const value data = Bundles().fields_as_map().at("Data");
  EXPECT_THAT(fields_of(data),
              ElementsAre("ifh", "lagid", "llif", "glif", "rif", "vlan_domain", "mac", "mtu",
                          "is_l2", "sub_bundles", "members", "delPending", "untagged"));
  for (const auto& [field, content] : data.as_map().items()) {
    const bool is_map = field == "vlan_domain" || field == "sub_bundles" || field == "members";
    EXPECT_EQ(content, is_map ? make_map() : value(DEFAULT)) << field;
  }
}

TEST_F(records_test, a_Bundles_is_serialised_as_one_entry_Data) {
  EXPECT_EQ(Bundles::ODICT, "Data");
  EXPECT_THAT(fields_of(Bundles().fields_as_map()), ElementsAre("Data"));
}

TEST_F(records_test, reading_a_field_that_was_never_declared_or_set_is_a_failure) {
  Bundles bundle;
  memberInfo member;
  for (record* each : {static_cast<record*>(&bundle), static_cast<record*>(&member)}) {
    EXPECT_THAT(failure_of([&] { each->get("sys_port"); }), HasSubstr("'sys_port'"));
    EXPECT_THAT(failure_of([&] { each->expect("sys_port", 1); }), HasSubstr("'sys_port'"));
    EXPECT_THAT(failure_of([&] { each->in_one_step("sys_port", [](value&) {}); }),
                HasSubstr("'sys_port'"));
  }
  bundle.set("sys_port", "12");
  EXPECT_EQ(bundle.get("sys_port"), "12") << "a field that is set joins the others";
  EXPECT_EQ(fields_of(bundle.fields_as_map().at("Data")).back(), "sys_port");
}

TEST_F(records_test, a_new_memberInfo_lists_its_fields_in_declaration_order) {
  const value fields = memberInfo().fields_as_map();
  EXPECT_THAT(fields_of(fields), ElementsAre("name", "ifh", "pp_port", "npu_id", "npu_core", "voq",
                                             "memid", "nodename", "mtu", "vlan_domain"));
  EXPECT_EQ(fields.at("vlan_domain"), make_map());
  EXPECT_EQ(fields.at("mtu"), DEFAULT);
}

TEST_F(records_test, a_new_subBundles_lists_its_fields_in_declaration_order) {
  const value fields = subBundles().fields_as_map();
  EXPECT_THAT(fields_of(fields),
              ElementsAre("ifh", "lagid", "llif", "glif", "rif", "is_l2", "delPending", "encap"));
  EXPECT_EQ(fields.at("encap"), make_list());
  EXPECT_EQ(fields.at("is_l2"), DEFAULT);
}

TEST_F(records_test, two_records_share_no_default) {
  memberInfo first;
  memberInfo second;
  first.get("vlan_domain").as_map().set("0/0/CPU0", "0x1");
  EXPECT_TRUE(second.get("vlan_domain").as_map().empty());
  subBundles tagged;
  tagged.get("encap").as_list().emplace_back("100");
  EXPECT_TRUE(subBundles().get("encap").as_list().empty());
  Bundles bundle;
  bundle.get("members").as_map().set("0/0/CPU0", make_map());
  EXPECT_TRUE(Bundles().get("members").as_map().empty());
}

TEST_F(records_test, the_first_layer_fills_a_field_and_later_ones_are_compared) {
  Bundles bundle;
  EXPECT_EQ(bundle.expect("lagid", "0x1"), std::nullopt);
  EXPECT_EQ(bundle.expect("lagid", "0x1"), std::nullopt);
  const auto held = bundle.expect("lagid", "0x2");
  ASSERT_TRUE(held.has_value());
  EXPECT_EQ(*held, "0x1");
  EXPECT_EQ(bundle.get("lagid"), "0x1") << "a report that differs changes nothing";
  EXPECT_NE(bundle.expect("lagid", 1), std::nullopt) << "nor does one of another kind";
}

TEST_F(records_test, the_integer_0_is_a_value_and_does_not_count_as_unset) {
  subBundles sub_bundle;
  sub_bundle.set("is_l2", 0);
  EXPECT_EQ(sub_bundle.expect("is_l2", 1), value(0));
}

TEST_F(records_test, a_layer_that_reports_the_unset_marker_leaves_the_field_unset) {
  Bundles bundle;
  EXPECT_EQ(bundle.expect("rif", DEFAULT), std::nullopt);
  EXPECT_EQ(bundle.expect("rif", "0x5"), std::nullopt);
  EXPECT_EQ(bundle.get("rif"), "0x5");
}

TEST_F(records_test, a_copied_memberInfo_has_fields_of_its_own) {
  memberInfo stored;
  stored.set("mtu", "1514");
  memberInfo entered(stored);
  entered.set("mtu", "9000");
  entered.set("sys_port", "7");
  EXPECT_EQ(stored.get("mtu"), "1514");
  EXPECT_THAT(failure_of([&] { stored.get("sys_port"); }), HasSubstr("sys_port"));
}

TEST_F(records_test, of_two_layers_that_disagree_one_is_always_reported) {
  for (int round = 0; round < 50; ++round) {
    Bundles bundle;
    std::atomic<int> differing = 0;
    together(4, [&](int number) {
      if (bundle.expect("glif", number % 2 == 0 ? "0x10" : "0x20")) ++differing;
    });
    EXPECT_EQ(differing, 2) << "both of the side that came second";
  }
}

TEST_F(records_test, fields_are_written_and_walked_by_many_threads) {
  const auto member = std::make_shared<memberInfo>();
  together(6, [&](int number) {
    for (int round = 0; round < 200; ++round) {
      if (number < 2) {
        member->set("mtu", std::to_string(round));
      } else if (number < 4) {
        EXPECT_TRUE(member->get("mtu").is_text());
        const memberInfo copy(*member);
        EXPECT_EQ(copy.get("voq"), DEFAULT);
      } else {
        EXPECT_EQ(member->fields_as_map().as_map().size(), 10U);
      }
    }
  });
}

TEST_F(records_test, a_step_under_the_lock_is_one_step) {
  Bundles bundle;
  bundle.set("mtu", 0);
  together(8, [&](int) {
    for (int round = 0; round < 100; ++round) {
      bundle.in_one_step("mtu", [](value& held) { held = held.as_integer() + 1; });
    }
  });
  EXPECT_EQ(bundle.get("mtu"), 800);
}

TEST_F(records_test, nodes_enter_their_vlan_domains_side_by_side) {
  const Bundles bundle;
  together(8, [&](int number) {
    const std::string node = "0/" + std::to_string(number) + "/CPU0";
    bundle.get("vlan_domain").as_map().set(node, map_of({{"0", "0x7"}}));
  });
  EXPECT_EQ(bundle.get("vlan_domain").as_map().size(), 8U);
}

TEST_F(records_test, tesselDb_of_size_1_means_that_only_hqos_is_there) {
  run_state& run = st();
  EXPECT_TRUE(run.tesselDb.as_map().empty());
  EXPECT_TRUE(run.tesselDb.as_map().is_ordered());
  run.tesselDb.as_map().set("hqos", 0);
  EXPECT_EQ(run.tesselDb.as_map().size(), 1U);
  run.tesselDb.as_map().set("BE12", new_record<Bundles>());
  EXPECT_THAT(run.tesselDb.as_map().keys(), ElementsAre("hqos", "BE12"));
  EXPECT_EQ(run.tesselDb.at("BE12").as_record().get("lagid"), DEFAULT);
}

}  // namespace
}  // namespace tessel
