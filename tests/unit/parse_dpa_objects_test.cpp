#include "parse/dpa_objects.h"

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "support/fake_router.h"
#include "support/hostile.h"

namespace tessel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view node = "0/0/CPU0";

class dpa_objects_test : public router_test {
 protected:
  void SetUp() override {
    router_test::SetUp();
    st().nodeinfo.get().as_map().set(node, map_of({{"dump", 1}}));
  }
  value dump_flag() { return st().nodeinfo.get().at(node).at("dump"); }
};

constexpr std::string_view lagport_head =
    "lagport element 0 pending(cr/up/dl):0/0/0\n"
    "  @dpa_intf_t intf => 0x3000120\n"
    "  uint16_t lag_id => 0x1\n";

// The lines of one slot: handle, NPU, weight.
std::string slot(int number, std::string_view handle, int npu, int weight) {
  const std::string n = std::to_string(number);
  return "  " + n + ":dpa_intf_t mifh => " + std::string(handle) + "\n  " + n +
         ":uint8_t mbr_npu_id => " + std::to_string(npu) + "\n  " + n + ":uint16_t weight => " +
         std::to_string(weight) + "\n";
}

std::string head() {
  return std::string(lagport_head);
}

std::string with(std::string_view text, std::string_view what, std::string_view by) {
  std::string changed(text);
  changed.replace(changed.find(what), what.size(), by);
  return changed;
}

value lagport(std::string_view text) {
  return parse_lagport_object_DPA(text, node);
}

TEST_F(dpa_objects_test, a_lagport_block_becomes_this_map) {
  const value parsed =
      lagport("objects of the node\n" + head() + "  uint32_t max_member_count => 64\n" +
              slot(0, "0x60", 0, 1) + slot(10, "97", 1, 4) +
              "  0:uint16_t port_class_id => 16\n"
              "  1:uint16_t port_class_id => 17\n");
  EXPECT_EQ(printed(parsed),
            "{'0x3000120': {'lagid': '0x1', 'members': {"
            "'0': {'0x60': {'memid': '0x0', 'Visited': 0, "
            "'Node Description': 'Lag 0x1_npu0_node0/0/CPU0_mifh0x60'}}, "
            "'1': {'0x61': {'memid': '0xa', 'Visited': 0, "
            "'Node Description': 'Lag 0x1_npu1_node0/0/CPU0_mifh0x61'}}}, "
            "'vlan_domain': {'0': '0x10', '1': '0x11'}, 'weight': 5, 'max_member_count': '64', "
            "'Visited': 0, 'Node Description': 'Lag 0x1_npu1_node0/0/CPU0', 'deletePending': 0}}");
  EXPECT_EQ(dump_flag(), 1);
  EXPECT_THAT(kept_messages(), IsEmpty());
}

struct object_type {
  const char* name;
  std::function<value(const value&)> parse;
  std::string note;  // the note for a text without objects; empty where that is normal
  value nothing;     // the result of a text without objects
};

std::array<object_type, 5> object_types() {
  return {{
      {"lagport", [](const value& text) { return parse_lagport_object_DPA(text, node); },
       "INFO: DPA lagport object dont have any bundle data/no bundle member from, 0/0/CPU0",
       make_map()},
      {"l1port", [](const value& text) { return value(parse_l1port_object_DPA(text, node)); },
       "INFO: DPA l1port object dont have any interface from, 0/0/CPU0", SUCCESS},
      {"l2port", [](const value& text) { return parse_l2port_object_DPA(text, node); },
       "INFO: DPA l2port object dont have any interface from, 0/0/CPU0", make_map()},
      {"l2intf", [](const value& text) { return parse_l2intf_object_DPA(text, node); }, "",
       make_map()},
      {"l3intf", [](const value& text) { return parse_l3intf_object_DPA(text, node); },
       "INFO: DPA l3intf object dont have any interface from, 0/0/CPU0", make_map()},
  }};
}

TEST_F(dpa_objects_test, an_empty_text_takes_the_node_out_of_the_run_except_for_l2intf) {
  for (const object_type& each : object_types()) {
    SCOPED_TRACE(each.name);
    SetUp();
    EXPECT_EQ(each.parse(""), each.nothing);
    if (each.note.empty()) {
      EXPECT_THAT(kept_messages(), IsEmpty());
      EXPECT_EQ(st().info, 0);
      EXPECT_EQ(dump_flag(), 1);
    } else {
      EXPECT_THAT(kept_messages(), ElementsAre(each.note));
      EXPECT_EQ(st().info, 1);
      EXPECT_EQ(dump_flag(), 0);
    }
    EXPECT_EQ(st().exception, 0);
    EXPECT_TRUE(st().voq_usage.get().as_map().empty());
  }
}

TEST_F(dpa_objects_test, an_output_that_is_not_a_text_is_a_failure_that_is_counted_once) {
  for (const object_type& type : object_types()) {
    SCOPED_TRACE(type.name);
    SetUp();
    EXPECT_EQ(type.parse(ERROR), ERROR);
    EXPECT_EQ(st().exception, 1);
    EXPECT_EQ(st().info, 0);
    EXPECT_THAT(kept_messages(), ElementsAre("a text expected, found the integer 0: parse " +
                                             std::string(type.name) + " object failed 0/0/CPU0"));
    EXPECT_THAT(st().waiting_entries.at(0).entry, HasSubstr("Traceback (most recent call last)"));
    EXPECT_EQ(dump_flag(), 1) << "a failure leaves the node in the run";
  }
}

TEST_F(dpa_objects_test, failures_are_logged_before_they_are_counted) {
  for (const object_type& type : object_types()) {
    SCOPED_TRACE(type.name);
    EXPECT_TRUE(logs_before_counting([&] { type.parse(ERROR); }));
  }
}

TEST_F(dpa_objects_test, junk_gives_no_object_but_for_interfaces_a_bad_one) {
  std::vector<bad_output> junk = meaningless_outputs();
  junk.insert(junk.end(), endless_outputs().begin(), endless_outputs().end());
  for (const object_type& type : object_types()) {
    for (const bad_output& each : junk) {
      SCOPED_TRACE(std::string(type.name) + ", " + each.why);
      SetUp();
      const bool any_block_needs_a_handle =
          std::string_view(type.name).ends_with("intf") || std::string_view(type.name) == "l2port";
      EXPECT_EQ(type.parse(each.output), any_block_needs_a_handle ? value(ERROR) : type.nothing);
      EXPECT_EQ(kept_messages().size(), 1U);
      expect_every_message_counted();
    }
  }
}

TEST_F(dpa_objects_test, an_unknown_node_is_a_failure_of_the_parser_that_would_mark_it) {
  EXPECT_EQ(parse_lagport_object_DPA("", "0/9/CPU0"), ERROR);
  EXPECT_THAT(kept_messages(),
              ElementsAre("INFO: DPA lagport object dont have any bundle data/no bundle member "
                          "from, 0/9/CPU0",
                          "no key '0/9/CPU0': parse lagport object failed 0/9/CPU0"));
  EXPECT_EQ(st().info, 1);
  EXPECT_EQ(st().exception, 1);
}

TEST_F(dpa_objects_test, a_lagport_block_without_max_member_count_has_not_set_there) {
  const value entry = lagport(head() + slot(0, "0x60", 0, 1)).at("0x3000120");
  EXPECT_EQ(entry.at("max_member_count"), "Not set");
}

TEST_F(dpa_objects_test, a_lagport_block_with_the_member_lines_absent_is_stored_without_visited) {
  const value parsed = lagport(with(head(), "0/0/0", "0/0/1") +
                               "  uint32_t max_member_count => 64\n"
                               "  0:uint16_t port_class_id => 16\n");
  EXPECT_EQ(parsed, map_of({{"0x3000120", map_of({{"lagid", "0x1"},
                                                  {"members", make_map()},
                                                  {"vlan_domain", make_map()},
                                                  {"weight", 0},
                                                  {"max_member_count", "64"},
                                                  {"deletePending", 1}})}}));
  EXPECT_EQ(st().info, 0) << "the node has a bundle all the same";
}

TEST_F(dpa_objects_test, a_member_with_no_weight_line_adds_nothing_and_still_stands_in_members) {
  const value entry = lagport(head() + slot(0, "0x60", 0, 3) +
                              "  1:dpa_intf_t mifh => 0x61\n  1:uint8_t mbr_npu_id => 0\n")
                          .at("0x3000120");
  EXPECT_EQ(entry.at("weight"), 3);
  EXPECT_THAT(entry.at("members").at("0").as_map().keys(), ElementsAre("0x60", "0x61"));
}

TEST_F(dpa_objects_test, two_members_on_npu_0_and_one_on_npu_1_give_two_keys_in_both_maps) {
  const value entry = lagport(head() + slot(0, "0x60", 0, 1) + slot(1, "0x61", 1, 1) +
                              slot(2, "0x62", 0, 1) + "  1:uint16_t port_class_id => 17\n")
                          .at("0x3000120");
  EXPECT_THAT(entry.at("members").as_map().keys(), ElementsAre("0", "1"));
  EXPECT_THAT(entry.at("members").at("0").as_map().keys(), ElementsAre("0x60", "0x62"));
  EXPECT_EQ(entry.at("vlan_domain"), map_of({{"0", "Not set"}, {"1", "0x11"}}))
      << "a domain that is not printed is not set";
  EXPECT_EQ(entry.at("Node Description"), "Lag 0x1_npu0_node0/0/CPU0") << "the last member's NPU";
}

TEST_F(dpa_objects_test, only_the_third_counter_behind_pending_means_delete) {
  struct row {
    const char* why;
    std::string counters;
    int expected;
  };
  const std::array rows = {
      row{"delete", "pending(cr/up/dl):0/0/1", 1},
      row{"update", "pending(cr/up/dl):0/1/0", 0},
      row{"create", "pending(cr/up/dl):1/0/0", 0},
      row{"update and delete", "pending(cr/up/dl):0/1/1", 0},
      row{"more than ten of them", "pending(cr/up/dl):0/0/12", 1},
      row{"two of them", "pending(cr/up/dl):0/0/2", 0},
      row{"other wording", "pending:0/0/1", 0},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    const value parsed = lagport(with(head(), "pending(cr/up/dl):0/0/0", each.counters));
    EXPECT_EQ(parsed.at("0x3000120").at("deletePending"), each.expected);
  }
}

TEST_F(dpa_objects_test, a_pending_mark_is_that_of_its_own_block) {
  const value parsed = lagport(head() + with(with(head(), "0/0/0", "0/0/1"), "0x3000120", "0x77"));
  EXPECT_EQ(parsed.at("0x3000120").at("deletePending"), 0);
  EXPECT_EQ(parsed.at("0x77").at("deletePending"), 1);
}

TEST_F(dpa_objects_test, a_piece_without_handle_and_lag_id_is_passed_over) {
  struct row {
    const char* why;
    std::string block;
  };
  const std::array rows = {
      row{"no LAG id", "lagport element 1\n  @dpa_intf_t intf => 0x5\n"},
      row{"no handle", "lagport element 1\n  uint16_t lag_id => 0x5\n"},
      row{"not on the next line",
          "lagport element 1\n  @dpa_intf_t intf => 0x5\n  uint32_t mtu => 1\n  uint16_t lag_id => "
          "0x5\n"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    EXPECT_THAT(lagport(each.block + head()).as_map().keys(), ElementsAre("0x3000120"));
  }
}

TEST_F(dpa_objects_test, handle_and_lag_id_become_hexadecimal) {
  const value parsed =
      lagport("lagport element 1\n  @dpa_intf_t intf => 100\n\t uint16_t lag_id =: 0X1F\n");
  EXPECT_THAT(parsed.as_map().keys(), ElementsAre("0x64"));
  EXPECT_EQ(parsed.at("0x64").at("lagid"), "0x1f");
}

TEST_F(dpa_objects_test, one_bad_lagport_block_loses_all_of_the_node) {
  struct row {
    const char* why;
    std::string block;
    std::string message;
  };
  const std::array rows = {
      row{"a member with no NPU line", head() + "  3:dpa_intf_t mifh => 0x60\n",
          "no NPU for the member in slot 3"},
      row{"a member handle that is not a number", head() + slot(0, "none", 0, 1),
          "'none' is no number"},
      row{"a bundle handle that is not a number", with(head(), "0x3000120", "none"),
          "'none' is no number"},
      row{"a LAG id that is not a number", with(head(), "0x1\n", "lag\n"), "'lag' is no number"},
      row{"a weight beyond all numbers",
          head() + slot(0, "0x60", 0, 1) +
              "  1:dpa_intf_t mifh => 0x61\n  1:uint8_t mbr_npu_id => 0\n"
              "  1:uint16_t weight => 99999999999999999999999999999\n",
          "'99999999999999999999999999999' is too large a number"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    EXPECT_EQ(lagport(with(head(), "0x3000120", "0x99") + each.block), ERROR);
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(kept_messages(),
                ElementsAre(each.message + ": parse lagport object failed 0/0/CPU0"));
    EXPECT_EQ(dump_flag(), 1);
  }
}

TEST_F(dpa_objects_test, a_sum_of_weights_beyond_64_bits_is_kept_as_text) {
  const value parsed = lagport(head() + slot(0, "0x60", 0, 1) +
                               "  1:dpa_intf_t mifh => 0x61\n  1:uint8_t mbr_npu_id => 0\n"
                               "  1:uint16_t weight => 18446744073709551615\n");
  EXPECT_EQ(parsed.at("0x3000120").at("weight"), "18446744073709551616");
  EXPECT_EQ(st().exception, 0);
}

TEST_F(dpa_objects_test, a_slot_takes_the_first_line_that_ends_in_its_number) {
  // The array patterns are not anchored on the left, so the line of slot 11 also answers for slot
  // 1.
  const value entry =
      lagport(head() + slot(11, "0x6b", 3, 7) + slot(1, "0x61", 0, 1)).at("0x3000120");
  EXPECT_EQ(
      entry.at("members"),
      map_of(
          {{"3",
            map_of({{"0x6b", map_of({{"memid", "0xb"},
                                     {"Visited", 0},
                                     {"Node Description", "Lag 0x1_npu3_node0/0/CPU0_mifh0x6b"}})},
                    {"0x61",
                     map_of({{"memid", "0x1"},
                             {"Visited", 0},
                             {"Node Description", "Lag 0x1_npu3_node0/0/CPU0_mifh0x61"}})}})}}));
  EXPECT_EQ(entry.at("weight"), 14);
}

TEST_F(dpa_objects_test, a_vlan_domain_line_is_read_in_either_case) {
  const value entry =
      lagport(head() + slot(0, "0x60", 0, 1) + "  0:UINT16_T Port_Class_Id =>\t255\n")
          .at("0x3000120");
  EXPECT_EQ(entry.at("vlan_domain"), map_of({{"0", "0xff"}}));
}

TEST_F(dpa_objects_test, of_equal_bundle_handles_the_last_block_wins) {
  const value parsed = lagport(head() + slot(0, "0x60", 0, 1) + with(head(), "0x1\n", "0x2\n"));
  EXPECT_EQ(parsed.as_map().size(), 1U);
  EXPECT_EQ(parsed.at("0x3000120").at("lagid"), "0x2");
}

// --- ports

constexpr std::string_view port =
    "l1port element 0\n"
    "  @dpa_intf_t intf => 96\n"
    "  char intf_name => HundredGigE0_0_0_1\n"
    "  uint32_t pp_port_id => 5\n"
    "  uint8_t device => 1\n"
    "  uint8_t core => 0\n"
    "  uint32_t mtu => 1514\n"
    "  pending(cr/up/dl):0/0/0\n";

TEST_F(dpa_objects_test, a_port_becomes_a_member_record) {
  EXPECT_EQ(parse_l1port_object_DPA("ports of the node\n" + std::string(port), node), SUCCESS);
  const value usage = st().voq_usage.get();
  EXPECT_THAT(usage.as_map().keys(), ElementsAre("0/0/0/1"));
  EXPECT_EQ(printed(usage.at("0/0/0/1")),
            "{'name': 'HundredGigE0_0_0_1', 'ifh': '0x60', 'pp_port': '5', 'npu_id': '1', "
            "'npu_core': '0', 'voq': 'Not set', 'memid': 'Not set', 'nodename': '0/0/CPU0', "
            "'mtu': '1514', 'vlan_domain': {}}");
  EXPECT_THAT(kept_messages(), IsEmpty());
}

TEST_F(dpa_objects_test, a_port_name_yields_the_digits_with_slashes_for_the_underscores) {
  struct row {
    const char* why;
    std::string name;
    std::string key;
  };
  const std::array rows = {
      row{"four numbers", "HundredGigE0_0_0_1", "0/0/0/1"},
      row{"a breakout port", "TenGigE0_1_0_12_3", "0/1/0/12/3"},
      row{"digits in the type word end it", "FH4x0_0_0_1", "4x0/0/0/1"},
      row{"an underscore behind the word", "TenGigE_0_0_0_1", "/0/0/0/1"},
  };
  for (const row& each : rows) {
    SCOPED_TRACE(each.why);
    SetUp();
    EXPECT_EQ(parse_l1port_object_DPA(with(port, "HundredGigE0_0_0_1", each.name), node), SUCCESS);
    EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre(each.key));
  }
}

TEST_F(dpa_objects_test, the_last_value_of_a_field_counts_for_ports) {
  EXPECT_EQ(parse_l1port_object_DPA(std::string(port) + "  uint32_t mtu => 9192\n", node), SUCCESS);
  EXPECT_EQ(st().voq_usage.get().at("0/0/0/1").as_record().get("mtu"), "9192");
}

TEST_F(dpa_objects_test, a_port_block_without_one_of_its_fields_is_a_failure) {
  for (const std::string_view field : {"intf", "pp_port_id", "device", "core", "mtu"}) {
    SCOPED_TRACE(field);
    SetUp();
    std::string block = with(port, "HundredGigE0_0_0_1", "HundredGigE0_0_0_2");
    const auto at = block.find(" " + std::string(field) + " => ");
    block.insert(at + 1, "no_");
    EXPECT_EQ(parse_l1port_object_DPA(std::string(port) + block, node), ERROR);
    EXPECT_THAT(kept_messages(), ElementsAre("no field '" + std::string(field) +
                                             "': parse l1port object failed 0/0/CPU0"));
    EXPECT_EQ(st().exception, 1);
    EXPECT_THAT(st().voq_usage.get().as_map().keys(), ElementsAre("0/0/0/1"))
        << "what was stored before the failure stays";
    EXPECT_EQ(dump_flag(), 1);
  }
}

TEST_F(dpa_objects_test, a_port_with_a_missing_value_still_counts) {
  // This type's filter keeps lines with "not set"; the first word of that is read as the value.
  EXPECT_EQ(parse_l1port_object_DPA(with(port, "mtu => 1514", "mtu => not set"), node), SUCCESS);
  EXPECT_EQ(st().voq_usage.get().at("0/0/0/1").as_record().get("mtu"), "not");
}

TEST_F(dpa_objects_test, a_port_whose_handle_is_not_set_is_a_failure) {
  EXPECT_EQ(parse_l1port_object_DPA(with(port, "intf => 96", "intf => not set"), node), ERROR);
  EXPECT_THAT(kept_messages(),
              ElementsAre("'not' is no number: parse l1port object failed 0/0/CPU0"));
}

TEST_F(dpa_objects_test, a_piece_without_a_name_is_not_a_port) {
  EXPECT_EQ(parse_l1port_object_DPA("l1port element 0\n  uint32_t mtu => 1\n", node), SUCCESS);
  EXPECT_EQ(dump_flag(), 0);
  EXPECT_EQ(st().info, 1);
}

TEST_F(dpa_objects_test, of_one_port_on_two_nodes_the_last_writer_wins) {
  EXPECT_EQ(parse_l1port_object_DPA(port, "0/1/CPU0"), SUCCESS);
  EXPECT_EQ(parse_l1port_object_DPA(port, node), SUCCESS);
  EXPECT_EQ(st().voq_usage.get().at("0/0/0/1").as_record().get("nodename"), node);
}

// --- interfaces by handle

struct interface_type {
  const char* name;
  value (*parse)(const value&, std::string_view);
  std::string block;
  value expected;
  std::string last_field;
};

std::array<interface_type, 3> interface_types() {
  return {{
      {"l2port", parse_l2port_object_DPA,
       "l2port element 0\n  @dpa_intf_t intf => 0x3000120\n  rif_t rif => 0x21\n"
       "  lif_t lif => 77\n  mac_t bia_mac => 00:11:22:33:44:55\n",
       map_of({{"rif", "0x21"}, {"lif", "77"}, {"mac", "00:11:22:33:44:55"}}), "bia_mac"},
      {"l2intf", parse_l2intf_object_DPA,
       "l2intf element 0\n  @dpa_intf_t intf => 0x3000120\n  uint16_t vlan_domain => 16\n"
       "  gport_t gport_id_lif => 0x4c\n  uint8_t l2_intf_type => 2\n",
       map_of({{"vlan_domain", "16"}, {"lif", "0x4c"}, {"is_l2", "2"}}), "l2_intf_type"},
      {"l3intf", parse_l3intf_object_DPA,
       "l3intf element 0\n  @dpa_intf_t intf => 0x3000120\n  uint16_t l3a_intf_id => 33\n",
       map_of({{"rif", "33"}}), "l3a_intf_id"},
  }};
}

TEST_F(dpa_objects_test, interfaces_are_kept_by_handle_as_printed) {
  for (const interface_type& each : interface_types()) {
    SCOPED_TRACE(each.name);
    SetUp();
    const value parsed = each.parse(each.block + with(each.block, "0x3000120", "0X0AB"), node);
    EXPECT_EQ(parsed, map_of({{"0x3000120", each.expected}, {"0X0AB", each.expected}}));
    EXPECT_THAT(kept_messages(), IsEmpty());
    EXPECT_EQ(dump_flag(), 1);
  }
}

TEST_F(dpa_objects_test, an_interface_block_without_one_of_its_fields_is_a_failure) {
  for (const interface_type& each : interface_types()) {
    SCOPED_TRACE(each.name);
    SetUp();
    const std::string bad = with(each.block, each.last_field, "other");
    EXPECT_EQ(each.parse(each.block + bad, node), ERROR) << "one bad block loses the whole type";
    EXPECT_THAT(kept_messages(), ElementsAre("no field '" + each.last_field + "': parse " +
                                             each.name + " object failed 0/0/CPU0"));
    EXPECT_EQ(st().exception, 1);
  }
}

TEST_F(dpa_objects_test, an_l2port_block_whose_rif_line_was_filtered_out_ends_the_parser) {
  EXPECT_EQ(parse_l2port_object_DPA("l2port element 0\n  @dpa_intf_t intf => 0x5\n"
                                    "  lif_t lif => 77\n  mac_t bia_mac => 00:11:22:33:44:55\n",
                                    node),
            ERROR);
  EXPECT_THAT(kept_messages(), ElementsAre("no field 'rif': parse l2port object failed 0/0/CPU0"));
}

TEST_F(dpa_objects_test, a_non_empty_piece_without_a_handle_is_a_failure) {
  for (const interface_type& each : interface_types()) {
    SCOPED_TRACE(each.name);
    SetUp();
    EXPECT_EQ(each.parse("\n" + each.block, node), ERROR) << "text in front of the first block";
    EXPECT_EQ(each.parse(with(each.block, "@dpa_intf_t", "dpa_intf_t"), node), ERROR);
    EXPECT_EQ(st().exception, 2);
    EXPECT_EQ(kept_messages().size(), 2U);
    EXPECT_EQ(dump_flag(), 1);
  }
}

TEST_F(dpa_objects_test, a_field_may_be_empty_and_may_hold_colons) {
  const value parsed = parse_l2port_object_DPA(
      "l2port element 0\n  @dpa_intf_t intf => 0x5\n  rif_t rif => \n"
      "  lif_t lif => -\n  mac_t bia_mac => a:b::c rest\n",
      node);
  EXPECT_EQ(parsed, map_of({{"0x5", map_of({{"rif", ""}, {"lif", ""}, {"mac", "a:b::c"}})}}));
}

TEST_F(dpa_objects_test, the_objects_own_handle_counts_and_not_another_one_in_the_block) {
  const value parsed = parse_l3intf_object_DPA(
      "l3intf element 0\n  @dpa_intf_t \t intf  =>  0x5\n  dpa_intf_t intf => 0x6\n"
      "  uint16_t l3a_intf_id => 1\n  uint16_t l3a_intf_id => 2\n",
      node);
  EXPECT_EQ(parsed, map_of({{"0x5", map_of({{"rif", "2"}})}})) << "the last value of a field";
}

TEST_F(dpa_objects_test, texts_cut_anywhere_are_reported_as_counted) {
  for (const interface_type& each : interface_types()) {
    SCOPED_TRACE(each.name);
    for (std::size_t length = 0; length < each.block.size(); ++length) {
      SetUp();
      each.parse(each.block.substr(0, length), node);
      expect_every_message_counted();
    }
  }
  const std::string bundles =
      head() + slot(0, "0x60", 0, 1) + slot(1, "0x61", 1, 1) + "  1:uint16_t port_class_id => 17\n";
  for (std::size_t length = 0; length < bundles.size(); ++length) {
    SetUp();
    lagport(bundles.substr(0, length));
    expect_every_message_counted();
  }
  for (std::size_t length = 0; length < port.size(); ++length) {
    SetUp();
    parse_l1port_object_DPA(port.substr(0, length), node);
    expect_every_message_counted();
  }
}

}  // namespace
}  // namespace tessel
