#include "platform/node_inventory.h"

#include <array>
#include <string>
#include <vector>

#include "support/fake_router.h"

namespace tessel {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* heading =
    "Node name   Node type  Node state  Admin state  Band   HW state  Node IP\n"
    "------------------------------------------------------------------------\n";

std::string line(std::string_view node, std::string_view type, std::string_view state,
                 std::string_view band, std::string_view ip) {
  return std::string(node) + "  " + std::string(type) + " " + std::string(state) + " NSHUT " +
         std::string(band) + " ON " + std::string(ip) + "\n";
}

class node_inventory_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    open_logs();
  }

  void init(int router) {
    st().router = router;
    nodeinfo_init();
  }

  value list(int router, const std::string& listing) {
    init(router);
    tool_prints("plat_nodes_show", listing);
    return get_list_of_vms();
  }

  value node(std::string_view name) { return st().nodeinfo.get().at(name); }

  // The nodes that take part.
  std::vector<std::string> dumped() {
    std::vector<std::string> names;
    for (const auto& [name, fields] : st().nodeinfo.get().as_map().items()) {
      if (fields.at("dump") == 1) names.push_back(name);
    }
    return names;
  }

  void expect_failed_inventory(const value& result, const char* text) {
    EXPECT_EQ(result, ERROR);
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(
        messages(LOG_FILE_EXCEPTION),
        Contains(testing::AllOf(HasSubstr(text), testing::EndsWith(": nodeinfo init failed"))));
    EXPECT_THAT(log_lines(LOG_FILE_EXCEPTION), Contains("Traceback (most recent call last):"));
  }
};

TEST_F(node_inventory_test, a_chassis_has_two_route_processors_and_sixteen_slots) {
  for (const int router : {notset, invalid, aspen, birch, cedar, cedarl, dogwood, elm, gorse}) {
    SCOPED_TRACE(router);
    SetUp();
    init(router);
    const auto nodes = st().nodeinfo.get().as_map().items();
    ASSERT_EQ(nodes.size(), 18U);
    EXPECT_EQ(nodes[0].first, "0/RP0/CPU0");
    EXPECT_EQ(nodes[0].second.at("nodeid"), 4096);
    EXPECT_EQ(nodes[1].first, "0/RP1/CPU0");
    EXPECT_EQ(nodes[1].second.at("nodeid"), 4352);
    for (int slot = 0; slot < 16; ++slot) {
      const auto& [name, fields] = nodes[static_cast<std::size_t>(slot + 2)];
      EXPECT_EQ(name, "0/" + std::to_string(slot) + "/CPU0");
      EXPECT_EQ(fields.at("nodeid"), slot);
    }
    EXPECT_TRUE(st().nodeinfo.get().as_map().is_ordered());
  }
}

TEST_F(node_inventory_test, a_fir_system_has_other_names_and_47_slots) {
  init(fir);
  const auto nodes = st().nodeinfo.get().as_map().items();
  ASSERT_EQ(nodes.size(), 49U);
  EXPECT_EQ(nodes[0].first, "D0/CB0/CPU0");
  EXPECT_EQ(nodes[0].second.at("nodeid"), 4096);
  EXPECT_EQ(nodes[1].first, "D1/CB0/CPU0");
  EXPECT_EQ(nodes[1].second.at("nodeid"), 4352);
  EXPECT_EQ(nodes[2].first, "0/0/CPU0");
  EXPECT_EQ(nodes[48].first, "46/0/CPU0");
  EXPECT_EQ(nodes[48].second.at("nodeid"), 46);
}

TEST_F(node_inventory_test, a_node_starts_with_these_fields_and_shares_none) {
  init(birch);
  EXPECT_EQ(node("0/15/CPU0"), map_of({{"nodeid", 15},
                                       {"dump", 0},
                                       {"nodetype", DEFAULT},
                                       {"nodeip", DEFAULT},
                                       {"act_standby", DEFAULT},
                                       {"npu_list", list_of({"0"})},
                                       {"band", DEFAULT},
                                       {"asic", DEFAULT},
                                       {"asic_supported", 1}}));
  node("0/15/CPU0").at("npu_list").as_list().emplace_back("1");
  EXPECT_EQ(node("0/14/CPU0").at("npu_list"), list_of({"0"}));
}

TEST_F(node_inventory_test, the_listing_marks_the_nodes_that_take_part) {
  const value result =
      list(birch, heading + line("0/RP0/CPU0", "RP", "ACTIVE", "FINAL", "192.0.0.4") +
                      line("0/RP1/CPU0", "RP", "STANDBY", "FINAL", "192.0.4.4") +
                      line("0/0/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4") + "\n");
  EXPECT_EQ(result, st().nodeinfo.get());
  EXPECT_EQ(&result.as_map(), &st().nodeinfo.get().as_map());
  EXPECT_THAT(dumped(), ElementsAre("0/RP0/CPU0", "0/0/CPU0"));
  EXPECT_EQ(node("0/RP0/CPU0").at("nodetype"), "RP");
  EXPECT_EQ(node("0/RP0/CPU0").at("nodeip"), "192.0.0.4");
  EXPECT_EQ(node("0/RP0/CPU0").at("act_standby"), "Active");
  EXPECT_EQ(node("0/RP0/CPU0").at("band"), "FINAL");
  EXPECT_EQ(node("0/RP0/CPU0").at("nodeid"), 4096);
  EXPECT_EQ(node("0/RP1/CPU0").at("act_standby"), "Standby");
  EXPECT_EQ(node("0/RP1/CPU0").at("nodeip"), "192.0.4.4");
  EXPECT_EQ(node("0/RP1/CPU0").at("band"), "FINAL");
  EXPECT_EQ(node("0/RP1/CPU0").at("nodetype"), "RP");
  EXPECT_EQ(node("0/0/CPU0").at("nodetype"), "LC");
  EXPECT_EQ(node("0/1/CPU0").at("nodeip"), DEFAULT) << "not named by the listing";
  EXPECT_FALSE(node("0/RP0/CPU0").contains("is_active"));
  EXPECT_EQ(st().activenodeinfo, "0/RP0/CPU0");
  EXPECT_EQ(st().standbynodeinfo, "0/RP1/CPU0");
  EXPECT_EQ(st().activenode_cnt, 2);
  EXPECT_EQ(st().standbynode_cnt, 1);
  EXPECT_EQ(st().vmcnt, 3);
  EXPECT_EQ(st().nodename, "0/0/CPU0");
  EXPECT_THAT(calls(), ElementsAre("plat_nodes_show -v"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(node_inventory_test, a_listing_without_ACTIVE_or_STANDBY_returns_the_map_with_all_dump_0) {
  for (const std::string& listing :
       {std::string(), std::string(heading), line("0/0/CPU0", "LC", "DOWN", "FINAL", "192.0.8.4"),
        std::string("active standby\n")}) {
    SCOPED_TRACE(listing);
    SetUp();
    const value result = list(birch, listing);
    EXPECT_EQ(result.as_map().size(), 18U);
    EXPECT_THAT(dumped(), IsEmpty());
    EXPECT_EQ(node("0/0/CPU0").at("nodeip"), DEFAULT) << "such a line leaves no trace";
    EXPECT_EQ(st().activenodeinfo, DEFAULT);
    EXPECT_EQ(st().vmcnt, 0);
    EXPECT_EQ(st().exception, 0);
  }
}

TEST_F(node_inventory_test, a_tool_that_is_missing_leaves_an_empty_listing) {
  init(birch);
  EXPECT_EQ(get_list_of_vms().as_map().size(), 18U);
  EXPECT_THAT(dumped(), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(node_inventory_test, an_active_node_in_another_band_is_logged_and_left_out_but_counted) {
  list(birch, line("0/1/CPU0", "LC", "ACTIVE", "BAKE", "192.0.12.4"));
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre("0/1/CPU0 is in BAKE band, not ready yet, skipping TESSEL check on this "
                          "location"));
  EXPECT_EQ(log_lines(LOG_FILE_EXCEPTION).size(), 2U) << "without details";
  EXPECT_EQ(node("0/1/CPU0").at("dump"), 0);
  EXPECT_EQ(node("0/1/CPU0").at("nodeip"), "192.0.12.4");
  EXPECT_EQ(node("0/1/CPU0").at("act_standby"), "Active");
  EXPECT_EQ(st().activenode_cnt, 1);
  EXPECT_EQ(st().vmcnt, 1);
  EXPECT_EQ(st().exception, 0);
  EXPECT_EQ(st().info, 0);
}

TEST_F(node_inventory_test, on_aspen_a_standby_node_in_band_FINAL_takes_part) {
  list(aspen, line("0/RP0/CPU0", "RP", "ACTIVE", "FINAL", "192.0.0.4") +
                  line("0/RP1/CPU0", "RP", "STANDBY", "FINAL", "192.0.4.4"));
  EXPECT_THAT(dumped(), ElementsAre("0/RP0/CPU0", "0/RP1/CPU0"));
  EXPECT_EQ(st().standbynodeinfo, "0/RP1/CPU0");
}

TEST_F(node_inventory_test, on_aspen_a_standby_node_in_another_band_stays_out_and_is_not_logged) {
  list(aspen, line("0/RP1/CPU0", "RP", "STANDBY", "BAKE", "192.0.4.4"));
  EXPECT_THAT(dumped(), IsEmpty());
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION), IsEmpty());
  EXPECT_EQ(st().standbynode_cnt, 1);
}

TEST_F(node_inventory_test, on_every_other_type_a_standby_node_stays_out) {
  for (const int router : {birch, cedar, dogwood}) {
    SCOPED_TRACE(router);
    SetUp();
    list(router, line("0/RP1/CPU0", "RP", "STANDBY", "FINAL", "192.0.4.4"));
    EXPECT_THAT(dumped(), IsEmpty());
  }
  SetUp();
  list(fir, line("D1/CB0/CPU0", "RP", "STANDBY", "FINAL", "192.0.4.4"));
  EXPECT_THAT(dumped(), IsEmpty());
  EXPECT_EQ(st().standbynodeinfo, "D1/CB0/CPU0");
}

TEST_F(node_inventory_test, both_route_processors_can_be_active) {
  list(aspen, line("0/RP0/CPU0", "RP", "ACTIVE", "FINAL", "192.0.0.4") +
                  line("0/RP1/CPU0", "RP", "ACTIVE", "FINAL", "192.0.4.4"));
  EXPECT_EQ(st().activenode_cnt, 2);
  EXPECT_EQ(st().activenodeinfo, "0/RP1/CPU0") << "the last one named";
  EXPECT_EQ(st().standbynodeinfo, DEFAULT);
}

TEST_F(node_inventory_test, the_words_may_stand_anywhere_in_the_line) {
  list(birch,
       "0/2/CPU0 LC x x FINAL x 192.0.16.4 (state INACTIVE)\n"
       "0/3/CPU0 STANDBY x x FINAL x 192.0.20.4\n");
  EXPECT_THAT(dumped(), ElementsAre("0/2/CPU0"));
  EXPECT_EQ(node("0/3/CPU0").at("nodetype"), "STANDBY");
}

TEST_F(node_inventory_test, a_line_with_both_words_counts_for_both_and_ends_as_standby) {
  list(birch, "0/RP0/CPU0 RP ACTIVE x FINAL STANDBY 192.0.0.4\n");
  EXPECT_THAT(dumped(), IsEmpty());
  EXPECT_EQ(node("0/RP0/CPU0").at("act_standby"), "Standby");
  EXPECT_EQ(st().activenodeinfo, "0/RP0/CPU0");
  EXPECT_EQ(st().standbynodeinfo, "0/RP0/CPU0");
  EXPECT_EQ(st().activenode_cnt, 1);
  EXPECT_EQ(st().standbynode_cnt, 1);
  EXPECT_EQ(st().vmcnt, 2);
}

TEST_F(node_inventory_test, columns_behind_the_address_may_have_any_length) {
  const std::string listed = "0/0/CPU0 LC ACTIVE NSHUT FINAL ON 192.0.8.4 ";
  const value result =
      list(birch, listed + std::string(5'000'000, 'x') + std::string(100'000, ' ') + "\n" +
                      line("0/1/CPU0", "LC", "ACTIVE", "FINAL", "192.0.12.4"));
  EXPECT_TRUE(result.is_map());
  EXPECT_THAT(dumped(), ElementsAre("0/0/CPU0", "0/1/CPU0"));
}

TEST_F(node_inventory_test, a_line_card_names_no_route_processor) {
  list(birch, line("0/0/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4") +
                  line("0/1/CPU0", "LC", "STANDBY", "FINAL", "192.0.12.4"));
  EXPECT_EQ(st().activenodeinfo, DEFAULT);
  EXPECT_EQ(st().standbynodeinfo, DEFAULT);
}

TEST_F(node_inventory_test, a_listed_node_overrides_a_dump_0_of_the_asic_check) {
  init(birch);
  node("0/0/CPU0").as_map().set("dump", 0);
  node("0/0/CPU0").as_map().set("asic_supported", 0);
  tool_prints("plat_nodes_show", line("0/0/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4"));
  get_list_of_vms();
  EXPECT_EQ(node("0/0/CPU0").at("dump"), 1);
  EXPECT_EQ(node("0/0/CPU0").at("asic_supported"), 0);
}

TEST_F(node_inventory_test, on_a_single_node_system_the_listing_is_never_run) {
  for (const int router : {cedarl, elm, gorse}) {
    SCOPED_TRACE(router);
    SetUp();
    init(router);
    node("0/RP0/CPU0").as_map().set("asic_supported", 0);
    tool_prints("plat_nodes_show", line("0/1/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4"));
    const value result = get_list_of_vms();
    EXPECT_EQ(&result.as_map(), &st().nodeinfo.get().as_map());
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(dumped(), ElementsAre("0/RP0/CPU0"));
    const value only = node("0/RP0/CPU0");
    EXPECT_EQ(only.at("is_active"), 1);
    EXPECT_EQ(only.at("nodeip"), "192.0.0.4");
    EXPECT_EQ(only.at("act_standby"), "None");
    EXPECT_EQ(only.at("band"), "FINAL");
    EXPECT_EQ(only.at("asic_supported"), 1) << "whatever the chip";
    EXPECT_EQ(only.at("nodetype"), DEFAULT);
    EXPECT_EQ(st().activenodeinfo, DEFAULT);
    EXPECT_EQ(st().activenode_cnt + st().standbynode_cnt + st().vmcnt, 0);
  }
}

TEST_F(node_inventory_test, a_line_that_cannot_be_placed_ends_the_inventory) {
  struct row {
    const char* why;
    std::string line;
    const char* text;
  };
  const std::array rows = {
      row{"leading blanks make an empty column 0",
          " " + line("0/0/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4"), "no key ''"},
      row{"a slot number above 15", line("0/16/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4"),
          "no key '0/16/CPU0'"},
      row{"a name without CPU0", line("0/0", "LC", "STANDBY", "FINAL", "192.0.8.4"),
          "no key '0/0'"},
      row{"fewer than seven columns", "0/0/CPU0 LC ACTIVE NSHUT FINAL ON\n",
          "no column 6 in a line"},
      row{"half a table", "0/0/CPU0 LC STANDBY\n", "no column 4 in a line"},
      row{"one word", "ACTIVE\n", "no key 'ACTIVE'"},
      row{"a name of another chassis", line("D0/CB0/CPU0", "RP", "ACTIVE", "FINAL", "192.0.0.4"),
          "no key 'D0/CB0/CPU0'"},
      row{"binary bytes", std::string("\xff\x00 ACTIVE\n", 10), "no key '\\xff\\x00'"},
      row{"a line of megabytes", "ACTIVE " + std::string(5'000'000, 'x'), "no key 'ACTIVE'"},
      row{"a name of megabytes", std::string(5'000'000, 'x') + " RP ACTIVE\n",
          "... (5000000 bytes)"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    const value result = list(birch, each.line);
    expect_failed_inventory(result, each.text);
    EXPECT_TRUE(st().nodeinfo.get().is_map()) << "the caller replaces it";
  }
}

TEST_F(node_inventory_test, a_line_with_leading_blanks_has_an_empty_column_0_and_fails_as_a_name) {
  const value result = list(birch, "  " + line("0/0/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4"));
  expect_failed_inventory(result, "no key ''");
  EXPECT_THAT(dumped(), IsEmpty());
}

TEST_F(node_inventory_test, what_the_lines_before_a_bad_one_wrote_stays) {
  const value result = list(birch, line("0/RP0/CPU0", "RP", "ACTIVE", "FINAL", "192.0.0.4") +
                                       line("0/99/CPU0", "LC", "ACTIVE", "FINAL", "192.0.8.4") +
                                       line("0/1/CPU0", "LC", "ACTIVE", "FINAL", "192.0.12.4"));
  expect_failed_inventory(result, "'0/99/CPU0'");
  EXPECT_THAT(dumped(), ElementsAre("0/RP0/CPU0"));
  EXPECT_EQ(st().activenode_cnt, 1);
  EXPECT_EQ(st().nodename, "0/99/CPU0");
}

TEST_F(node_inventory_test, a_listing_that_cannot_be_captured_fails) {
  init(birch);
  const read_only_folder none("/tmp");
  EXPECT_EQ(get_list_of_vms(), ERROR);
  EXPECT_EQ(st().exception, 2) << "the command's failure and the inventory's";
  EXPECT_THAT(messages(LOG_FILE_EXCEPTION),
              ElementsAre(HasSubstr("execution failed for /opt/nos/bin/plat_nodes_show -v"),
                          "a text expected, found the integer 0: nodeinfo init failed"));
}

TEST_F(node_inventory_test, a_single_node_system_without_an_inventory_fails) {
  st().router = elm;
  expect_failed_inventory(get_list_of_vms(), "'0/RP0/CPU0'");
}

}  // namespace
}  // namespace tessel
