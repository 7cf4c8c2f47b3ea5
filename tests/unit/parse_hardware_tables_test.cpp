#include "parse/hardware_tables.h"

#include <array>
#include <functional>
#include <string>

#include "platform/port_numbers.h"
#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using hardware_tables_test = router_test;

struct table {
  const char* name;
  value (*parse)(const value&);
  std::string text;
  value expected;
};

std::array<table, 7> tables() {
  return {{
      {"member_mtu", parse_member_mtu,
       "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=0x5ea>\n"
       "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[2]:  <A_b=0x2,MTU=0x23e8,C=3>\n"
       "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI1[1]: <A=1,MTU=10>\n",
       map_of({{"0", map_of({{"1", "1514"}, {"2", "9192"}})}, {"1", map_of({{"1", "10"}})}})},
      {"bdl_pp_port", parse_bdl_pp_port,
       "| Entry | LAG | Core | Port | Base | Size |\n"
       "| 0     |   1 |    0 | 20   |    0 |    2 |\n"
       "|       |     |    1 | 21   |\n"
       "| 1     |   2 |    0 | 30   |    0 |    2 |\n"
       "|       |     |    1 | 31   |\n",
       map_of(
           {{"1", map_of({{"0", "20"}, {"1", "21"}})}, {"2", map_of({{"0", "30"}, {"1", "31"}})}})},
      {"bdl_vsi_mac", parse_bdl_vsi_mac, "| 0 | 7 || 0 | 4660 |\n|  1  |  8  ||  0  |  4661  |\n",
       map_of({{"7", "4660"}, {"8", "4661"}})},
      {"lif_entries", parse_lif_entries, "| 0 | 7 | 1 || 4660 |\n|  1  |  8 |  1  ||  4661  |\n",
       map_of({{"7", "4660"}, {"8", "4661"}})},
      {"vlan_domain_j2", parse_vlan_domain_j2,
       "| 0 | 0 | 5 || 16 |\n| 1 | 0 | 6 || 17 |\n| 2 | 1 | 5 || 18 |\n",
       map_of({{"0", map_of({{"5", "16"}, {"6", "17"}})}, {"1", map_of({{"5", "18"}})}})},
      {"mtu_profile", get_mtu_profile,
       "ETPPC_EDITING_PER_PORT_TABLE.ETPPC0[5]: <A=1,MTU_PROFILE=2,B=0>\n"
       "ETPPC_EDITING_PER_PORT_TABLE.ETPPC1[5]: <A=1,MTU_PROFILE=03>\n",
       map_of({{"0", map_of({{"5", "2"}})}, {"1", map_of({{"5", "03"}})}})},
      {"mtu_profiles", parse_mtu_profiles,
       "ETPPC_MTU_MAP_TABLE.ETPPC0[0]: <A=1,MTU=0x5ea>\n"
       "ETPPC_MTU_MAP_TABLE.ETPPC1[25]: <A=1,MTU=1514>\n",
       map_of({{"0", map_of({{"0", "1514"}})}, {"1", map_of({{"2", "1514"}})}})},
  }};
}

TEST_F(hardware_tables_test, each_table_becomes_its_map) {
  for (const table& each : tables()) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(each.parse(each.text), each.expected);
  }
}

TEST_F(hardware_tables_test, a_text_without_a_matching_row_yields_an_empty_map) {
  for (const table& each : tables()) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(each.parse(""), make_map());
    EXPECT_EQ(each.parse("no attached unit\n| a | b || c |\n"), make_map());
    for (const bad_output& junk : meaningless_outputs()) {
      EXPECT_EQ(each.parse(junk.output), make_map()) << junk.why;
    }
  }
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(hardware_tables_test, an_output_that_is_not_a_text_goes_up_as_a_failure_unlogged) {
  for (const table& each : tables()) {
    SCOPED_TRACE(each.name);
    EXPECT_EQ(failure_of([&] { each.parse(ERROR); }), "a text expected, found the integer 0");
  }
  EXPECT_THAT(kept_messages(), IsEmpty());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(hardware_tables_test, endless_runs_behind_a_table_harm_nothing) {
  for (const table& each : tables()) {
    for (const bad_output& endless : endless_outputs()) {
      SCOPED_TRACE(std::string(each.name) + ", " + endless.why);
      EXPECT_EQ(each.parse(each.text + "\n" + std::string(endless.output.as_text())),
                each.expected);
    }
  }
}

TEST_F(hardware_tables_test, the_last_row_of_a_key_wins) {
  EXPECT_EQ(parse_bdl_vsi_mac("| 0 | 7 || 0 | 1 |\n| 0 | 7 || 0 | 2 |\n"), map_of({{"7", "2"}}));
  EXPECT_EQ(parse_lif_entries("| 0 | 7 | 0 || 1 |\n| 0 | 7 | 0 || 2 |\n"), map_of({{"7", "2"}}));
  EXPECT_EQ(parse_vlan_domain_j2("| 0 | 0 | 5 || 1 |\n| 0 | 0 | 5 || 2 |\n"),
            map_of({{"0", map_of({{"5", "2"}})}}));
}

TEST_F(hardware_tables_test, ten_indexes_of_a_core_make_one_profile_with_the_value_of_the_last) {
  std::string text;
  for (int index = 10; index <= 19; ++index) {
    text += "ETPPC_MTU_MAP_TABLE.ETPPC0[" + std::to_string(index) +
            "]: <A=1,MTU=" + std::to_string(1500 + index) + ">\n";
  }
  EXPECT_EQ(parse_mtu_profiles(text), map_of({{"0", map_of({{"1", "1519"}})}}));
}

TEST_F(hardware_tables_test, a_hexadecimal_mtu_becomes_decimal_text) {
  EXPECT_EQ(
      parse_member_mtu("EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=0x10>\n"),
      map_of({{"0", map_of({{"1", "16"}})}}));
  EXPECT_EQ(parse_mtu_profiles("ETPPC_MTU_MAP_TABLE.ETPPC0[0]: <A=1,MTU=0x10>\n"),
            map_of({{"0", map_of({{"0", "16"}})}}));
}

TEST_F(hardware_tables_test, an_mtu_that_is_not_a_number_stays_as_printed) {
  EXPECT_EQ(
      parse_member_mtu("EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <A=1,MTU=none>\n"),
      map_of({{"0", map_of({{"1", "none"}})}}));
}

TEST_F(hardware_tables_test, the_last_mtu_field_of_a_row_counts) {
  EXPECT_EQ(
      parse_member_mtu(
          "EPNI_PACKETPROCESSING_PORT_CONFIGURATION_TABLE.EPNI0[1]: <MIN_MTU=0x40,MAX_MTU=0x80>\n"),
      map_of({{"0", map_of({{"1", "128"}})}}));
}

TEST_F(hardware_tables_test, a_lag_whose_table_has_one_row_has_no_entry) {
  EXPECT_EQ(parse_bdl_pp_port("| 0     |   1 |    0 | 20   |    0 |    1 |\n"
                              "| 1     |   2 |    0 | 30   |    0 |    2 |\n"
                              "|       |     |    1 | 31   |\n"),
            map_of({{"2", map_of({{"0", "30"}, {"1", "31"}})}}));
}

TEST_F(hardware_tables_test, a_profile_index_may_take_all_of_64_bits) {
  EXPECT_EQ(
      parse_mtu_profiles("ETPPC_MTU_MAP_TABLE.ETPPC0[18446744073709551615]: <A=1,MTU=0x10>\n"),
      map_of({{"0", map_of({{"1844674407370955161", "16"}})}}));
}

// --- VLAN domain of one member

constexpr std::string_view active = "0/RP0/CPU0";
constexpr std::string_view standby = "0/RP1/CPU0";

std::string domain_row(int core, std::int64_t port, std::string_view domain) {
  return "IHP_VTT_IN_PP_PORT_CONFIG.IHP" + std::to_string(core) + "[" + std::to_string(port) +
         "]: <PROFILE=0x1,VLAN_DOMAIN=" + std::string(domain) + ",REST=0>\n";
}

class vlan_domain_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().router = birch;
    add_node(active);
    add_table(active, "0", domain_row(0, 5, "0x10"));
    add_member("5", "0");
  }

  static void add_node(std::string_view name) {
    st().nodeinfo.get().as_map().set(
        name, map_of({{"asic_supported", 1}, {"asic", "BCM8868"}, {"dump", 1}}));
  }
  static void add_table(std::string_view node, std::string_view npu, const value& text) {
    st().BCM.get().as_map().set(node, map_of({{npu, map_of({{"vd", text}})}}));
  }
  static void add_member(std::string_view pp_port, std::string_view core) {
    auto member = std::make_shared<memberInfo>();
    member->set("nodename", active);
    member->set("npu_id", "0");
    member->set("npu_core", core);
    member->set("pp_port", pp_port);
    st().voq_usage.get().as_map().set("0/0/0/1", std::shared_ptr<record>(member));
  }
  static void add_standby(int dump) {
    add_node(standby);
    st().nodeinfo.get().at(standby).as_map().set("dump", dump);
    st().standbynodeinfo = standby;
  }
  static value domains() {
    return st().voq_usage.get().at("0/0/0/1").as_record().get("vlan_domain");
  }
  void expect_failure(std::string_view text) {
    EXPECT_EQ(parse_vlan_domain("0/0/0/1"), ERROR);
    EXPECT_THAT(kept_messages(), ElementsAre(std::string(text) + ": parse_vlan_domain failed"));
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(st().waiting_entries.at(0).entry, HasSubstr("Traceback (most recent call last)"));
  }
};

TEST_F(vlan_domain_test, a_member_gets_the_domain_of_its_port_in_hexadecimal) {
  add_table(active, "0", domain_row(0, 5, "16"));
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, "0x10"}}));
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(vlan_domain_test, a_member_whose_row_is_missing_gets_the_integer_0) {
  add_member("6", "0");
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, 0}}));
}

TEST_F(vlan_domain_test, a_jericho2_nodes_member_keeps_an_empty_map) {
  st().nodeinfo.get().at(active).as_map().set("asic", "BCM8869");
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), make_map());
}

TEST_F(vlan_domain_test, a_node_without_a_supported_chip_is_not_searched) {
  st().nodeinfo.get().at(active).as_map().set("asic_supported", 0);
  st().BCM.set(make_map());
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), make_map());
  EXPECT_EQ(st().exception, 0);
}

TEST_F(vlan_domain_test, ports_are_counted_through_all_cores_on_one_router_type_only) {
  struct row {
    const char* why;
    router_type router;
    std::int64_t port;
  };
  for (const row& each : {row{"this one", aspen, 44}, row{"any other", birch, 300}}) {
    SCOPED_TRACE(each.why);
    SetUp();
    st().router = each.router;
    add_member("300", "1");
    add_table(
        active, "0",
        domain_row(1, each.port, "0x7") + domain_row(0, 44, "0x1") + domain_row(0, 300, "0x2"));
    EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
    EXPECT_EQ(domains(), map_of({{active, "0x7"}}));
  }
}

TEST_F(vlan_domain_test, port_and_core_are_read_with_automatic_base) {
  st().router = aspen;
  add_member("0x12c", "0x1");
  add_table(active, "0", "T.IHP0x1[44]: <P=1,VLAN_DOMAIN=0x7,\n");
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, "0x7"}})) << "the row has the core as it was printed";
}

TEST_F(vlan_domain_test, a_live_standby_nodes_table_is_searched_too) {
  st().router = aspen;
  add_standby(1);
  add_table(standby, "0", domain_row(0, 6, "0x11"));
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, "0x10"}, {standby, 0}}));
}

TEST_F(vlan_domain_test, a_standby_node_that_takes_no_part_is_left_alone) {
  st().router = aspen;
  add_standby(0);
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, "0x10"}}));
}

TEST_F(vlan_domain_test, a_standby_node_counts_on_one_router_type_only) {
  add_standby(1);
  EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
  EXPECT_EQ(domains(), map_of({{active, "0x10"}}));
}

TEST_F(vlan_domain_test, a_live_standby_node_without_chip_tables_is_a_failure) {
  st().router = aspen;
  add_standby(1);
  expect_failure("no port number: 0/RP1/CPU0 has no chip tables");
  EXPECT_EQ(domains(), make_map());
}

TEST_F(vlan_domain_test, what_is_missing_is_a_failure_that_names_it) {
  struct row {
    const char* why;
    std::function<void()> spoil;
    std::string text;
  };
  const std::array rows = {
      row{"a member that the forwarding layer does not know",
          [] { st().voq_usage.set(make_map()); }, "no key '0/0/0/1'"},
      row{"no chip tables of the node", [] { st().BCM.set(make_map()); }, "no key '0/RP0/CPU0'"},
      row{"no such NPU", [] { add_table(active, "3", ""); }, "no key '0'"},
      row{"a table that was not read", [] { add_table(active, "0", ERROR); },
          "a text expected, found the integer 0"},
      row{"no inventory", [] { st().nodeinfo.set(ERROR); },
          "no key '0/RP0/CPU0' in the integer 0: a map is expected"},
      row{"a port that is not a number", [] { add_member("x", "0"); }, "'x' is no number"},
      row{"a domain that is not a number", [] { add_table(active, "0", domain_row(0, 5, "none")); },
          "'none' is no number"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    each.spoil();
    expect_failure(each.text);
  }
}

TEST_F(vlan_domain_test, ports_and_cores_may_take_all_of_64_bits) {
  st().router = aspen;
  EXPECT_EQ(port_on_core("5", "0xFFFFFFFFFFFFFFFF"), "-4722366482869645213435");
  EXPECT_EQ(port_on_core("0xFFFFFFFFFFFFFFFF", "1"), "18446744073709551359");
  EXPECT_EQ(port_on_core("300", "1"), "44");
  st().router = birch;
  EXPECT_EQ(port_on_core("18446744073709551615", "not read"), "18446744073709551615");
}

TEST_F(vlan_domain_test, a_failure_is_logged_before_it_is_counted) {
  st().voq_usage.set(make_map());
  EXPECT_TRUE(logs_before_counting([] { parse_vlan_domain("0/0/0/1"); }));
}

TEST_F(vlan_domain_test, a_table_of_junk_harms_nothing) {
  for (const bad_output& each : meaningless_outputs()) {
    SCOPED_TRACE(each.why);
    add_table(active, "0", std::string(each.output.as_text()) + "\n" + domain_row(0, 5, "0x10"));
    EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
    EXPECT_EQ(domains(), map_of({{active, "0x10"}}));
  }
}

TEST_F(vlan_domain_test, an_endless_run_in_a_table_harms_nothing) {
  for (const bad_output& each : endless_outputs()) {
    SCOPED_TRACE(each.why);
    add_table(active, "0", domain_row(0, 5, "0x10") + std::string(each.output.as_text()));
    EXPECT_EQ(parse_vlan_domain("0/0/0/1"), SUCCESS);
    EXPECT_EQ(domains(), map_of({{active, "0x10"}}));
  }
}

}  // namespace
}  // namespace tessel
